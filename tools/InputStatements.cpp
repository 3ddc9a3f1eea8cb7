#include "tools/InputStatements.h"

#include <cstdint>
#include <vector>

#include "framework/Kel/System.h"
#include "tools/StaticBindings.h"

namespace PimrpTool {

using namespace Routing::Pim;

namespace {

// Every address of the range, in ascending order; a range holds at most 2^20 of them, so the
// varying bits lie in the last 32-bit word.
template <class Visit>
void forEachAddress(const Ipkit::IpGenPrefix& range, Visit visit) {
  const unsigned bits = range.af() == Ipkit::AddressFamily::ipv4 ? 32 : 128;
  const std::uint64_t count = std::uint64_t{1} << (bits - range.len());
  auto bytes = range.address().bytes();
  const std::size_t last = range.af() == Ipkit::AddressFamily::ipv4 ? 0 : 12;
  const std::uint32_t base = (std::uint32_t{bytes[last]} << 24) |
                             (std::uint32_t{bytes[last + 1]} << 16) |
                             (std::uint32_t{bytes[last + 2]} << 8) | bytes[last + 3];
  for (std::uint64_t index = 0; index < count; ++index) {
    const std::uint32_t word = base + static_cast<std::uint32_t>(index);
    for (std::size_t byte = 0; byte < 4; ++byte) {
      bytes[last + byte] = static_cast<std::uint8_t>(word >> (24 - 8 * byte));
    }
    visit(range.af() == Ipkit::AddressFamily::ipv4 ? Ipkit::IpGenAddr::ip4(word)
                                                   : Ipkit::IpGenAddr(Ipkit::Ip6Addr(bytes)));
  }
}

}  // namespace

void InputWriter::operator()(const RpGroupStatement& s) const {
  bindingWrite(*familyOf(s.rp.value).staticConfig()->rpTableIs(s.rp.value), s);
}

void InputWriter::operator()(const RpAclStatement& s) const {
  bindingWrite(*ipv4().staticConfig()->rpTableIs(s.rp.value), s);
}

void InputWriter::operator()(const RpModeStatement& s) const {
  familyOf(s.rp.value).staticConfig()->rpTableIs(s.rp.value)->modeIs(s.mode);
}

// The binding goes first, so that the reactor withdraws it before its values disappear.
void InputWriter::operator()(const NoRpGroupStatement& s) const {
  const auto entry = familyOf(s.rp.value).staticConfig()->rpTableMutable(s.rp.value);
  if (!entry) return;
  entry->groupDel(s.group.value);
  entry->priorityGrpDel(s.group.value);
  entry->hashMaskGrpDel(s.group.value);
  entry->overrideDynGrpDel(s.group.value);
}

void InputWriter::operator()(const NoRpAclStatement& s) const {
  const auto entry = ipv4().staticConfig()->rpTableMutable(s.rp.value);
  if (!entry) return;
  entry->aclDel(s.acl);
  entry->priorityAclDel(s.acl);
  entry->hashMaskAclDel(s.acl);
  entry->overrideDynAclDel(s.acl);
}

void InputWriter::operator()(const NoRpStatement& s) const {
  familyOf(s.rp.value).staticConfig()->rpTableDel(s.rp.value);
}

Kel::Ptr<Acl::AclSubConfig> InputWriter::rulesToEdit(const std::string& acl, bool create) const {
  const auto& lists = ipv4().aclConfig();
  if (commit == Commit::inRuns) {
    const auto list = lists->acl(acl);
    return run.rulesOf(acl, list ? list->currCfg() : nullptr, create);
  }
  if (!create) {
    const auto list = lists->aclMutable(acl);
    return list ? list->currCfgMutable() : nullptr;
  }
  return lists->aclIs(acl)->currCfgIs();
}

void InputWriter::operator()(const AclRuleStatement& s) const {
  ruleWrite(*rulesToEdit(s.acl, true), s, run.nextRuleId());
}

void InputWriter::operator()(const NoAclRuleStatement& s) const {
  const auto rules = rulesToEdit(s.acl, false);
  if (rules) ruleRemove(*rules, s);
}

void InputWriter::operator()(const NoAclStatement& s) const { ipv4().aclConfig()->aclDel(s.acl); }

// Written as the bootstrap machinery writes a learnt candidate: the set on first need, the setup
// time when the candidate is new, then its values, the mode last since a candidate without a mode
// is ignored by selection.
void InputWriter::operator()(const BsrRpStatement& s) const {
  const auto set = familyOf(s.rp.value).bsrStatus()->crpSetIs(s.group.value);
  const bool created = !set->rp().contains(s.rp.value);
  const auto candidate = set->rpIs(s.rp.value);
  if (created) candidate->setupTimeIs(Kel::System::currentTime());
  candidate->priorityIs(static_cast<RpPriority>(s.priority.value));
  candidate->hashMaskLenIs(static_cast<RpHashMaskLen>(s.hashMask.value));
  candidate->overrideIs(false);
  candidate->pimModeIs(s.mode);
}

void InputWriter::operator()(const NoBsrRpStatement& s) const {
  const auto& status = familyOf(s.rp.value).bsrStatus();
  const auto set = status->crpSetMutable(s.group.value);
  if (!set) return;
  set->rpDel(s.rp.value);
  if (set->rp().empty()) status->crpSetDel(s.group.value);
}

void InputWriter::operator()(const RpHashAlgorithmStatement& s) const {
  vrf.rpConfig()->rpHashAlgorithmIs(s.algorithm);
}

void InputWriter::operator()(const GroupStatement& s) const {
  const auto& groups = vrf.family(s.group.value.af()).groups();
  forEachAddress(s.group.value,
                 [&](const Ipkit::IpGenAddr& group) { groups->groupIs(group, true); });
}

void InputWriter::operator()(const NoGroupStatement& s) const {
  const auto& groups = vrf.family(s.group.value.af()).groups();
  forEachAddress(s.group.value, [&](const Ipkit::IpGenAddr& group) { groups->groupDel(group); });
}

void InputWriter::operator()(const RouteStatement& s) const {
  std::vector<Routing::ShadowFib::ViaEntry> vias;
  if (s.via) vias.push_back({s.via->value, Ipkit::IntfId(s.interface)});
  vrf.family(s.prefix.value.af())
      .routeIs(s.prefix.value, static_cast<std::uint32_t>(s.type.value), vias);
}

void InputWriter::operator()(const NoRouteStatement& s) const {
  vrf.family(s.prefix.value.af()).routeDel(s.prefix.value);
}

void InputWriter::operator()(const ShadowStatement& s) const {
  vrf.family(s.af).shadowIs(s.attached);
}

void InputWriter::operator()(const EmbeddedRpEnableStatement& s) const {
  embeddedRp().enabledIs(s.enabled);
}

void InputWriter::operator()(const EmbeddedRpLimitStatement& s) const {
  embeddedRp().limitIs(static_cast<U32>(s.limit.value));
}

void InputWriter::operator()(const EmbeddedRpGroupRangeStatement& s) const {
  embeddedRp().groupRangeIs(s.range.value, true);
}

void InputWriter::operator()(const NoEmbeddedRpGroupRangeStatement& s) const {
  embeddedRp().groupRangeDel(s.range.value);
}

}  // namespace PimrpTool
