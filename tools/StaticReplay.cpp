#include "tools/StaticReplay.h"

#include "framework/Kel/Trace.h"
#include "tools/StaticBindings.h"

namespace PimrpTool {
namespace {

using namespace Routing::Pim;

Kel::TraceFile& staticTraceFile() { return Kel::TraceFile::named("PimRpCandidateStaticSm"); }

// The levels the trace file has on, then all of them off.
std::vector<bool> tracingStopped() {
  Kel::TraceFile& file = staticTraceFile();
  std::vector<bool> levels;
  for (int level = 0; level <= Kel::TraceFile::kMaxLevel; ++level) {
    levels.push_back(file.enabled(level));
  }
  file.levelsUpToIs(-1);
  return levels;
}

}  // namespace

StaticReplay::Family StaticReplay::familyFor(const L3::VrfName& vrf) {
  Family family{Kel::Ptr<Static::RpConfig>(new Static::RpConfig(vrf)),
                Kel::Ptr<Acl::AclTypeConfig>(new Acl::AclTypeConfig),
                Kel::Ptr<RpCandidateStatus>(new RpCandidateStatus), nullptr};
  family.reactor = Static::rpCandidateSmFactory(family.config, family.acls, family.status);
  return family;
}

StaticReplay::StaticReplay(const L3::VrfName& vrf)
    : tracedLevels_(tracingStopped()), ipv4_(familyFor(vrf)), ipv6_(familyFor(vrf)) {}

StaticReplay::~StaticReplay() {
  // The reactors go first, so that what they trace on their way out is silent too.
  ipv4_.reactor = nullptr;
  ipv6_.reactor = nullptr;
  for (int level = 0; level <= Kel::TraceFile::kMaxLevel; ++level) {
    staticTraceFile().levelIs(level, tracedLevels_[static_cast<std::size_t>(level)]);
  }
}

void StaticReplay::apply(const Statement& statement) {
  if (const auto* s = std::get_if<AclRuleStatement>(&statement)) {
    ruleWrite(*ipv4_.acls->aclIs(s->acl)->currCfgIs(), *s, nextRuleId_);
  } else if (const auto* s = std::get_if<NoAclRuleStatement>(&statement)) {
    const auto list = ipv4_.acls->aclMutable(s->acl);
    if (list && list->currCfgMutable()) ruleRemove(*list->currCfgMutable(), *s);
  } else if (const auto* s = std::get_if<RpModeStatement>(&statement)) {
    const Family& family = s->rp.value.af() == Ipkit::AddressFamily::ipv4 ? ipv4_ : ipv6_;
    family.config->rpTableIs(s->rp.value)->modeIs(s->mode);
  } else if (const auto* s = std::get_if<RpGroupStatement>(&statement)) {
    const Family& family = s->rp.value.af() == Ipkit::AddressFamily::ipv4 ? ipv4_ : ipv6_;
    bindingWrite(*family.config->rpTableIs(s->rp.value), *s);
  } else if (const auto* s = std::get_if<RpAclStatement>(&statement)) {
    bindingWrite(*ipv4_.config->rpTableIs(s->rp.value), *s);
  }
}

const RpCandidateStatus& StaticReplay::status(Ipkit::AddressFamily af) const {
  return af == Ipkit::AddressFamily::ipv4 ? *ipv4_.status : *ipv6_.status;
}

}  // namespace PimrpTool
