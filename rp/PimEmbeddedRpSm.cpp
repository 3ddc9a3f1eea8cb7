#include "rp/PimEmbeddedRpSm.h"

#include <cstddef>
#include <vector>

#include "framework/Kel/Exception.h"

namespace Routing {
namespace Pim {
namespace {

const char kClassName[] = "Routing::Pim::EmbeddedRpSm";
const char kHandleConfig[] = "void Routing::Pim::EmbeddedRpSm::handleConfig()";
const char kHandleGroupAll[] = "void Routing::Pim::EmbeddedRpSm::handleGroup()";
const char kHandleGroup[] = "void Routing::Pim::EmbeddedRpSm::handleGroup(const Ipkit::IpGenAddr&)";

}  // namespace

KEL_TRACE_FILE(EmbeddedRpSm::trace, "PimRpCompute")

// ---- KelConfig / KelGroupMrt --------------------------------------------------------------------

EmbeddedRpSm::KelConfig::KelConfig(EmbeddedRpSm* owner,
                                   const Kel::PtrConst<EmbeddedRpConfig>& config)
    : NestedReactor(owner) {
  notifierIs(config);
}

void EmbeddedRpSm::KelConfig::onEnabled() {
  if (!ownerTearingDown()) owner()->handleConfig();
}

void EmbeddedRpSm::KelConfig::onLimit() {
  if (!ownerTearingDown()) owner()->handleConfig();
}

void EmbeddedRpSm::KelConfig::onGroupRange(const Ipkit::IpGenPrefix&) {
  if (!ownerTearingDown()) owner()->handleConfig();
}

void EmbeddedRpSm::KelConfig::onGroupRange() {
  if (!ownerTearingDown()) owner()->handleConfig();
}

EmbeddedRpSm::KelGroupMrt::KelGroupMrt(EmbeddedRpSm* owner,
                                       const Kel::PtrConst<GroupStatus>& groupMrt)
    : NestedReactor(owner) {
  notifierIs(groupMrt);
}

void EmbeddedRpSm::KelGroupMrt::onGroup(const Ipkit::IpGenAddr& group) {
  if (!ownerTearingDown()) owner()->handleGroup(group);
}

void EmbeddedRpSm::KelGroupMrt::onGroup() {
  if (!ownerTearingDown()) owner()->handleGroup();
}

// ---- EmbeddedRpSm -------------------------------------------------------------------------------

EmbeddedRpSm::EmbeddedRpSm(const Kel::PtrConst<GroupStatus>& groupMrt,
                           const Kel::PtrConst<EmbeddedRpConfig>& config,
                           const Kel::Ptr<EmbeddedRpStatus>& status)
    : groupMrt_(groupMrt), config_(config), status_(status) {
  Kel::requireEntity(groupMrt, kClassName, "groupMrt");
  Kel::requireEntity(config, kClassName, "config");
  Kel::requireEntity(status, kClassName, "status");
  kelConfig_.is(Kel::Ptr<KelConfig>(new KelConfig(this, config_)));
  // Untraced: with the configuration off, as it starts by default, this applies nothing.
  doApplyConfig();
}

void EmbeddedRpSm::handleConfig() {
  KEL_TRACE(trace(), 9, kHandleConfig);
  doApplyConfig();
}

void EmbeddedRpSm::handleGroup() {
  KEL_TRACE(trace(), 9, kHandleGroupAll);
  doPlaceAll();
}

void EmbeddedRpSm::handleGroup(const Ipkit::IpGenAddr& group) {
  // Most known groups lie outside ff70::/12: one test, no trace.
  if (!EmbeddedRp::groupSpace().contains(group)) return;
  KEL_TRACE(trace(), 9, kHandleGroup << "( " << group << " )");
  if (doIsEligible(group)) {
    doPlace(EmbeddedRp::ofGroup(group));
    return;
  }
  if (status_->group().contains(group)) {
    doRelease(group);
    doPromote();
    return;
  }
  status_->waitingGroupDel(group);
}

void EmbeddedRpSm::doApplyConfig() {
  status_->limitIs(config_->limit());
  for (const auto& [range, configured] : status_->groupRange()) {
    if (!config_->groupRange().contains(range)) status_->groupRangeDel(range);
  }
  for (const auto& [range, configured] : config_->groupRange()) status_->groupRangeIs(range, true);
  if (!config_->enabled()) {
    // Off first, so that the answer service stops answering with the RPs released below.
    status_->enabledIs(false);
    kelGroupMrt_.del();
    while (!status_->group().empty()) doRelease((*status_->group().begin()).first);
    status_->waitingGroupDelAll();
    return;
  }
  status_->enabledIs(true);
  if (!kelGroupMrt_) kelGroupMrt_.is(Kel::Ptr<KelGroupMrt>(new KelGroupMrt(this, groupMrt_)));
  doPlaceAll();
}

void EmbeddedRpSm::doPlaceAll() {
  for (const auto& [group, embedded] : status_->group()) {
    if (!doIsEligible(group)) doRelease(group);
  }
  for (const auto& [group, waiting] : status_->waitingGroup()) {
    if (!doIsEligible(group)) status_->waitingGroupDel(group);
  }
  // Over a lowered limit the highest groups in use wait, so that the lowest keep their RPs.
  std::vector<Ipkit::IpGenAddr> overLimit;
  std::size_t position = 0;
  for (const auto& [group, embedded] : status_->group()) {
    if (position++ >= status_->limit()) overLimit.push_back(group);
  }
  for (const auto& group : overLimit) {
    doRelease(group);
    doWait(group);
  }
  // The groups that waited longest before this change come before those it makes eligible.
  doPromote();
  const Ipkit::IpGenPrefix& space = EmbeddedRp::groupSpace();
  const auto& groups = groupMrt_->group();
  for (auto at = groups.lowerBound(space.address()); at != groups.end(); ++at) {
    const Ipkit::IpGenAddr group = (*at).first;
    if (!space.contains(group)) break;
    if (status_->inGroupRanges(group)) doPlace(EmbeddedRp::ofGroup(group));
  }
}

bool EmbeddedRpSm::doIsEligible(const Ipkit::IpGenAddr& group) const {
  return groupMrt_->group().contains(group) && status_->inGroupRanges(group);
}

void EmbeddedRpSm::doPlace(const EmbeddedRp& embedded) {
  const Ipkit::IpGenAddr& group = embedded.group();
  if (!embedded.valid()) {
    KEL_TRACE(trace(), 8,
              "Group " << group
                       << " names no embedded RP: " << embeddedRpValidityWord(embedded.validity()));
    return;
  }
  if (status_->group().contains(group) || status_->waitingGroup().contains(group)) return;
  if (status_->group().size() < status_->limit()) {
    doUse(embedded);
  } else {
    doWait(group);
  }
}

// Each change is traced before it is written, so that the traces of what the readers of the
// status do about it follow it.

void EmbeddedRpSm::doUse(const EmbeddedRp& embedded) {
  KEL_TRACE(trace(), 5, "Group " << embedded.group() << " uses " << embedded);
  // The group's entry first, then the RP's count: the final table holds the RP before local RP
  // detection hears of it.
  status_->groupIs(embedded.group(), embedded);
  status_->rpInc(embedded.rp(), 1);
}

void EmbeddedRpSm::doWait(const Ipkit::IpGenAddr& group) {
  KEL_TRACE(trace(), 5,
            "Group " << group << " waits for a place: " << status_->group().size() << " of "
                     << status_->limit() << " groups use embedded RP");
  status_->waitingGroupIs(group, true);
  status_->overflowCountInc(1);
}

void EmbeddedRpSm::doRelease(const Ipkit::IpGenAddr& group) {
  const Ipkit::IpGenAddr rp = status_->group(group).rp();
  KEL_TRACE(trace(), 5, "Group " << group << " no longer uses embedded RP " << rp);
  status_->groupDel(group);
  if (status_->rp(rp) > 1) {
    status_->rpDec(rp, 1);
  } else {
    status_->rpDel(rp);
  }
}

void EmbeddedRpSm::doPromote() {
  while (!status_->waitingGroup().empty() && status_->group().size() < status_->limit()) {
    const Ipkit::IpGenAddr group = (*status_->waitingGroup().begin()).first;
    status_->waitingGroupDel(group);
    KEL_TRACE(trace(), 5, "Group " << group << " takes a free place");
    doUse(EmbeddedRp::ofGroup(group));
  }
}

Kel::Ptr<EmbeddedRpSm> embeddedRpSmFactory(const Kel::PtrConst<GroupStatus>& groupMrt,
                                           const Kel::PtrConst<EmbeddedRpConfig>& config,
                                           const Kel::Ptr<EmbeddedRpStatus>& status) {
  return Kel::Ptr<EmbeddedRpSm>(new EmbeddedRpSm(groupMrt, config, status));
}

}  // namespace Pim
}  // namespace Routing
