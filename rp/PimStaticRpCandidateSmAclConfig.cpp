// RpCandidateSm's side of the access-list configuration: KelAclConfig, KelAcl and KelCfg keep
// the grpPrefix of every used list equal to the group prefixes its IPv4 rules permit, changing it
// only by difference so that a rule change costs downstream only the prefixes it really moves.

#include "framework/Acl/AclToPrefix.h"
#include "rp/PimStaticRpCandidateSm.h"

namespace Routing {
namespace Pim {
namespace Static {
namespace {

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kHandleAclConfigAll[] = "void Routing::Pim::Static::RpCandidateSm::handleAclConfig()";
const char kHandleAclConfig[] =
    "void Routing::Pim::Static::RpCandidateSm::handleAclConfig(const Kel::Name&)";
const char kAclHandleCfg[] = "void Routing::Pim::Static::RpCandidateSm::KelAcl::handleCfg()";
const char kAclHandleRule[] = "void Routing::Pim::Static::RpCandidateSm::KelAcl::handleRule()";

}  // namespace

void RpCandidateSm::handleAclConfig() {
  KEL_TRACE(trace(), 9, vrfTag() << kHandleAclConfigAll);
  for (const auto& [name, rpStaticAcl] : rpStaticAcl_) {
    if (!aclConfig_->acl(name)) continue;
    if (const auto reactor = rpStaticAclSm(name)) reactor->initializeIs(true);
  }
}

void RpCandidateSm::handleAclConfig(const Kel::Name& name) {
  KEL_TRACE(trace(), 9, vrfTag() << kHandleAclConfig << " ( " << name << " )");
  const auto rpStaticAcl = rpStaticAclMutable(name);
  if (!rpStaticAcl) return;
  const auto reactor = rpStaticAclSm(name);
  if (aclConfig_->acl(name)) {
    if (reactor) reactor->initializeIs(true);
    return;
  }
  // Every prefix leaves the list's RPs through the reactor; the object stays while RPs list it.
  rpStaticAcl->grpPrefixDelAll();
  // So that the list's return fills grpPrefix again from its configuration.
  if (reactor) reactor->initializeIs(false);
}

// ---- KelAclConfig -----------------------------------------------------------------------------

RpCandidateSm::KelAclConfig::KelAclConfig(RpCandidateSm* owner,
                                          const Kel::PtrConst<Acl::AclTypeConfig>& aclConfig)
    : NestedReactor(owner) {
  notifierIs(aclConfig);
  for (const auto& [name, acl] : aclConfig->acl()) owner->aclIs(acl);
}

void RpCandidateSm::KelAclConfig::onAcl(const Kel::Name& name) {
  owner()->handleAclConfig(name);
  if (const auto acl = notifier()->acl(name)) {
    owner()->aclIs(acl);
  } else {
    owner()->aclDel(name);
  }
}

// ---- KelAcl -----------------------------------------------------------------------------------

RpCandidateSm::KelAcl::KelAcl(RpCandidateSm* owner, const Kel::PtrConst<Acl::AclConfig>& aclConfig)
    : NestedReactor(owner), name_(aclConfig->name()) {
  notifierIs(aclConfig);
  // The rules present now are already folded into grpPrefix by the list object's own
  // initialisation; only their later changes are this reactor's.
  cfgIs(aclConfig->currCfg());
}

void RpCandidateSm::KelAcl::cfgIs(const Kel::PtrConst<Acl::AclSubConfig>& subConfig) {
  if (cfg_ && cfg_->notifier() == subConfig) return;
  cfg_.del();
  if (subConfig) cfg_.is(new KelCfg(this, subConfig));
}

void RpCandidateSm::KelAcl::onCurrCfg() {
  const auto config = notifier();
  if (!config) return;
  cfgIs(config->currCfg());
  handleCfg();
}

void RpCandidateSm::KelAcl::handleCfg() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << kAclHandleCfg << " " << name());
  handleRule();
}

void RpCandidateSm::KelAcl::handleRule() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << kAclHandleRule << " " << name());
  const auto rpStaticAcl = owner()->rpStaticAclMutable(name_);
  // Without a current sub-configuration the list keeps what it permitted: a sub-configuration
  // being replaced must not take every prefix from its RPs and give them back a moment later.
  const auto subConfig = notifier() ? notifier()->currCfg() : nullptr;
  if (!rpStaticAcl || !subConfig) return;

  Ipkit::IpGenPrefixSet permitted;
  AclPrefix::AclToPrefix::listToPrefixes(*subConfig, permitted);
  for (const auto& [prefix, present] : rpStaticAcl->grpPrefix()) {
    if (!permitted.prefix(prefix)) rpStaticAcl->grpPrefixDel(prefix);
  }
  for (const auto& prefix : permitted) {
    // An entry already present notifies nothing, so prefixes that stay cost nothing downstream.
    rpStaticAcl->grpPrefixIs(prefix, true);
    KEL_TRACE(trace(), 9,
              owner()->vrfTag() << "Permit Rule Added to ACL " << name_ << ": Adding " << prefix
                                << " to rpStaticAcl");
  }
  permitted.prefixDelAll();
}

// ---- KelCfg -----------------------------------------------------------------------------------

RpCandidateSm::KelAcl::KelCfg::KelCfg(KelAcl* owner, const Kel::PtrConst<Acl::AclSubConfig>& cfg)
    : NestedReactor(owner) {
  notifierIs(cfg);
}

void RpCandidateSm::KelAcl::KelCfg::onRuleBySequence(U32 sequence) {
  (void)sequence;
  // A notification of the recomputation may drop the list reactor (its list deleted) or the
  // whole owner; the dispatch holds both until this handler returns.
  owner()->handleRule();
}

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
