#pragma once
// Routing::Pim::Static::RpCandidateSm: turns the static RP configuration of one VRF, and the
// access lists it names, into the static RpCandidateStatus: for every group prefix that some
// configured RP serves, a candidate set holding one candidate per RP address with its priority,
// hash mask length, override flag, PIM mode and setup time. Selection reads that status exactly as
// it reads the one built from the bootstrap mechanism.
//
// An RP serves prefixes explicitly (its RpEntry's `group`) and through named access lists (its
// `acl`); both may be used at once on one RP. Per RP, a PrefixRefCount counts the sources that
// give it each prefix, and the candidate goes only when the last source goes.
//
// Invariants:
//  1. Candidate (P, R) is in the status while R's count for P is non-zero; counts are never
//     clamped (PrefixRefCount invariant 2).
//  2. A candidate's setupTime (and its pimMode, until the RP's mode changes) is written once,
//     when the candidate is created; later adds from other sources keep them.
//  3. There is no merge of per-group and per-list values: the handler that writes last wins,
//     with these deliberate asymmetries: a group add writes all three values, sentinels 256 / 128
//     / false included; a list add writes priority and hash mask only when the list has a real
//     value, and its override always; a prefix entering a list later, or a change of a list's
//     value, writes the list's values sentinels included.
//  4. rpStaticAcl holds one RpStaticAcl per list name that some RP lists, exactly while some RP
//     lists it; rpStaticAclSm holds its reactor under the same name. grpPrefix of each equals the
//     prefixes its list permits in the access-list configuration (empty while the list is absent)
//     and changes only by difference.
//  5. rpEntry holds one KelRpEntry per RpEntry of rpTable; acl one KelAcl per configured list.
//  6. The status is never cleared by this reactor: dropping it leaves the status as it was, and a
//     new reactor over a surviving status keeps the candidates that are still configured and
//     deletes the others (doRemoveExtraStatusEntries).
//
// Every trace line goes to the trace file "PimRpCandidateStaticSm" and begins with "<Vrf:NAME>".
// Levels: 9 entry of a handler and changes of a list's prefix set, 8 reference-count and list
// bookkeeping, 5 changes of the status.
//
// The implementation is split by concern: PimStaticRpCandidateSm.cpp (the owner, its
// collections, start-up and the shared candidate writes), PimStaticRpCandidateSmEntry.cpp (the
// per-RP handlers), PimStaticRpCandidateSmAcl.cpp (the per-list prefix tracking) and
// PimStaticRpCandidateSmAclConfig.cpp (access-list rules to prefixes).

#include <string>

#include "framework/Acl/AclConfig.h"
#include "framework/Acl/AclSubConfig.h"
#include "framework/Acl/AclTypeConfig.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/NestedReactor.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/String.h"
#include "framework/Kel/Trace.h"
#include "framework/Kel/Types.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidate.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/Static/RpConfig.h"
#include "model/Pim/Static/RpEntry.h"
#include "rp/PimStaticPrefixRefCount.h"
#include "rp/PimStaticRpStaticAcl.h"

namespace Routing {
namespace Pim {
namespace Static {

class RpCandidateSm : public Kel::ReactorOwner {
 public:
  // Watches rpTable: one KelRpEntry per configured RP.
  class KelRpConfig : public Kel::NestedReactor<RpCandidateSm, RpConfig::NotifieeConst> {
   public:
    KelRpConfig(RpCandidateSm* owner, const Kel::PtrConst<RpConfig>& rpConfig);
    void onRpTable(const Ipkit::IpGenAddr& address) override;
    // The whole table changed: one reactor per entry it holds now.
    void onRpTable() override;
  };

  // Watches one RpEntry and writes its RP's candidates. Created by rpEntryIs, whose
  // initialisation (handleInit) runs handleGroup() and handleAcl() at once; deleted by
  // rpEntryDel, whose delete hook (handleDel) gives back what the entry gave.
  class KelRpEntry : public Kel::NestedReactor<RpCandidateSm, RpEntry::NotifieeConst> {
   public:
    KelRpEntry(RpCandidateSm* owner, const Kel::PtrConst<RpEntry>& entry);

    const Ipkit::IpGenAddr& rpAddr() const { return rpAddr_; }
    // The reactor's name in traces: its RP address.
    const Kel::String& name() const { return name_; }

    void onGroup(const Ipkit::IpGenPrefix& prefix) override { handleGroup(prefix); }
    void onAcl(const Kel::String& name) override { handleAcl(name); }
    void onPriorityGrp(const Ipkit::IpGenPrefix& prefix) override { handlePriorityGrp(prefix); }
    void onPriorityAcl(const Kel::String& name) override { handlePriorityAcl(name); }
    void onHashMaskGrp(const Ipkit::IpGenPrefix& prefix) override { handleHashMaskGrp(prefix); }
    void onHashMaskAcl(const Kel::String& name) override { handleHashMaskAcl(name); }
    void onOverrideDynGrp(const Ipkit::IpGenPrefix& prefix) override {
      handleOverrideDynGrp(prefix);
    }
    void onOverrideDynAcl(const Kel::String& name) override { handleOverrideDynAcl(name); }
    void onMode() override { handleMode(); }

    void handleInit() {
      handleGroup();
      handleAcl();
    }
    // Start-up form: adds every prefix of `group`.
    void handleGroup();
    // Adds the prefix when `group` holds its key, removes it otherwise.
    void handleGroup(const Ipkit::IpGenPrefix& prefix);
    // Start-up form, after handleGroup(): adds every list of `acl`.
    void handleAcl();
    void handleAcl(const Kel::String& name);
    // The per-group values: rewritten, sentinels included, into this RP's candidate of the prefix
    // whenever that candidate exists, whichever source (group or list) gave it.
    void handlePriorityGrp(const Ipkit::IpGenPrefix& prefix);
    void handleHashMaskGrp(const Ipkit::IpGenPrefix& prefix);
    void handleOverrideDynGrp(const Ipkit::IpGenPrefix& prefix);
    // The per-list values: rewritten, sentinels included, into this RP's candidate of every prefix
    // the list permits, where that candidate exists, whether or not the RP lists the list. Nothing
    // is done while no RP lists it (there is no RpStaticAcl to walk).
    void handlePriorityAcl(const Kel::String& name);
    void handleHashMaskAcl(const Kel::String& name);
    void handleOverrideDynAcl(const Kel::String& name);
    // Rewrites pimMode in every candidate set that holds this RP.
    void handleMode();
    // The RpEntry left rpTable: gives back every prefix of `group`, then every list of `acl`.
    // REQUIRES: still attached to the entry.
    void handleDel();

   private:
    // The one piece behind the three per-group and the three per-list value handlers: `kind`
    // names the value (a ValueKind of PimStaticRpCandidateSmEntry.cpp) and `signature` is the
    // handler's, for its entry trace.
    template <class Kind>
    void doGrpValue(const Kind& kind, const char* signature, const Ipkit::IpGenPrefix& prefix);
    template <class Kind>
    void doAclValue(const Kind& kind, const char* signature, const Kel::String& name);
    // Null once the reactor is detached, which a nested notification may do in the middle of a
    // handler: handlers read it once on entry and work on that reference.
    Kel::PtrConst<RpEntry> entry() const { return notifier(); }
    // The adds read the entry themselves (their traced signatures name only the key) and do
    // nothing once the reactor is detached: a start-up loop whose entry left in a nested
    // notification must not add what handleDel already gave back.
    void doGroupAdd(const Ipkit::IpGenPrefix& prefix);
    void doGroupRemove(const Ipkit::IpGenPrefix& prefix);
    void doAclAdd(const Kel::String& name);
    void doAclRemove(const Kel::String& name);
    // The one piece behind handleGroup(prefix) and handleAcl(name): adds `key` when the entry's
    // collection `held` holds it, removes it otherwise; nothing once the reactor is detached.
    template <class Key, class Held>
    void doFollowKey(const Key& key, const Held& (RpEntry::*held)() const,
                     void (KelRpEntry::*add)(const Key&), void (KelRpEntry::*remove)(const Key&));
    // The group-add writes of all three values (invariant 3).
    void doWriteGroupValues(const RpEntry& config, RpCandidate& candidate,
                            const Ipkit::IpGenPrefix& prefix) const;

    const Ipkit::IpGenAddr rpAddr_;
    const Kel::String name_;
  };

  // Watches the access-list configuration: one KelAcl per list.
  class KelAclConfig : public Kel::NestedReactor<RpCandidateSm, Acl::AclTypeConfig::NotifieeConst> {
   public:
    KelAclConfig(RpCandidateSm* owner, const Kel::PtrConst<Acl::AclTypeConfig>& aclConfig);
    void onAcl(const Kel::Name& name) override;
  };

  // Watches one access list and keeps the grpPrefix of its RpStaticAcl equal to what the list
  // permits, by difference.
  class KelAcl : public Kel::NestedReactor<RpCandidateSm, Acl::AclConfig::NotifieeConst> {
   public:
    // Watches the rules of the list's current sub-configuration; its handlers hold the list
    // reactor and the owner alive.
    class KelCfg : public Kel::NestedReactor<KelAcl, Acl::AclSubConfig::NotifieeConst> {
     public:
      KelCfg(KelAcl* owner, const Kel::PtrConst<Acl::AclSubConfig>& cfg);
      // Writers enter a changed rule under a fresh identifier and then point its sequence number
      // at it, so a change of the sequence map is what signals every rule change; rules stored
      // by identifier alone are not watched.
      void onRuleBySequence(U32 sequence) override;
    };

    KelAcl(RpCandidateSm* owner, const Kel::PtrConst<Acl::AclConfig>& aclConfig);

    const Kel::Name& name() const { return name_; }
    const Kel::Ptr<KelCfg>& cfg() const { return cfg_.ptr(); }
    // Watches `subConfig` instead of the sub-configuration watched so far; null stops watching.
    void cfgIs(const Kel::PtrConst<Acl::AclSubConfig>& subConfig);
    void cfgDel() { cfgIs(nullptr); }
    // The list left the configuration: its rules are no longer watched.
    void handleDel() { cfgDel(); }

    void onCurrCfg() override;
    void handleCfg();
    // Recomputes the permitted prefixes and reconciles grpPrefix by difference.
    void handleRule();

   private:
    const Kel::Name name_;
    Kel::NestedReactorPtr<KelCfg> cfg_;
  };

  // Watches one RpStaticAcl and carries each prefix that enters or leaves its grpPrefix into the
  // status, for every RP that uses the list.
  class KelRpStaticAclSm : public Kel::NestedReactor<RpCandidateSm, RpStaticAcl::NotifieeConst> {
   public:
    KelRpStaticAclSm(RpCandidateSm* owner, const Kel::Ptr<RpStaticAcl>& rpStaticAcl);

    const Kel::Name& name() const { return name_; }
    const Kel::Ptr<RpStaticAcl>& rpStaticAcl() const { return rpStaticAcl_; }

    // True once grpPrefix has been filled from the configured list. A change to true runs
    // handleInitialize(); the owner sets it back to false when the list leaves the
    // configuration, so that its return fills grpPrefix again.
    bool initialize() const { return initialize_; }
    void initializeIs(bool initialize);

    void onGrpPrefix(const Ipkit::IpGenPrefix& prefix) override { handlePrefix(prefix); }

    void handleInitialize();
    void handlePrefix(const Ipkit::IpGenPrefix& prefix);

   private:
    // Gives a prefix that entered the list to one RP of the list.
    void doPrefixEnter(const Ipkit::IpGenPrefix& prefix, const Ipkit::IpGenAddr& rp);

    const Kel::Ptr<RpStaticAcl> rpStaticAcl_;
    const Kel::Name name_;
    bool initialize_ = false;
  };

  using RpEntryCollection =
      Kel::NestedReactorCollection<RpCandidateSm, Ipkit::IpGenAddr, KelRpEntry>;
  using AclCollection = Kel::NestedReactorCollection<RpCandidateSm, Kel::Name, KelAcl>;
  using RpStaticAclCollection =
      Kel::OrderedCollection<Kel::Name, Kel::Ptr<RpStaticAcl>, Kel::PtrConst<RpStaticAcl>>;
  using RpStaticAclSmCollection =
      Kel::NestedReactorCollection<RpCandidateSm, Kel::Name, KelRpStaticAclSm>;
  using PfxRefCountCollection = Kel::OrderedCollection<Ipkit::IpGenAddr, Kel::Ptr<PrefixRefCount>,
                                                       Kel::PtrConst<PrefixRefCount>>;

  // Builds the reactors on both inputs and one nested reactor per existing RP entry and list,
  // fills the lists' prefixes (handleAclConfig()) and runs handleInitialize().
  // REQUIRES: all three present (else the assertion "rpConfig && aclConfig && crpStatus").
  RpCandidateSm(const Kel::PtrConst<RpConfig>& rpConfig,
                const Kel::PtrConst<Acl::AclTypeConfig>& aclConfig,
                const Kel::Ptr<RpCandidateStatus>& crpStatus);
  // Drops every nested reactor (no delete hook runs) and own entity; the status stays as it is.
  ~RpCandidateSm() override = default;

  const Kel::PtrConst<RpConfig>& rpConfig() const { return rpConfig_; }
  const Kel::PtrConst<Acl::AclTypeConfig>& aclConfig() const { return aclConfig_; }
  const Kel::Ptr<RpCandidateStatus>& crpStatus() const { return crpStatus_; }
  const L3::VrfName& vrfName() const { return vrfName_; }
  bool initialize() const { return initialize_; }

  // rpEntry(), rpEntry(address), rpEntryDel(address) (gives back what the entry gave, through
  // the reactor's handleDel) and rpEntryDelAll().
  KEL_NESTED_REACTORS(rpEntry, RpCandidateSm, KelRpEntry, Ipkit::IpGenAddr)
  // Creates the reactor of `entry` (keyed by its address) and runs its start-up handlers, or
  // returns the existing one. A null entry is refused.
  Kel::Ptr<KelRpEntry> rpEntryIs(const Kel::PtrConst<RpEntry>& entry);

  // acl(), acl(name), aclDel(name), aclDelAll().
  KEL_NESTED_REACTORS(acl, RpCandidateSm, KelAcl, Kel::Name)
  // Creates the reactor of one access list (keyed by its name), or returns the existing one.
  // A null list is refused.
  Kel::Ptr<KelAcl> aclIs(const Kel::PtrConst<Acl::AclConfig>& aclConfig);

  // rpStaticAcl(), rpStaticAcl(name), rpStaticAclMutable(name), rpStaticAclDel(name) (deletes
  // the entity and its reactor), rpStaticAclDelAll(), and rpStaticAclIs(name), which returns the
  // RpStaticAcl of `name`, creating it and its reactor when absent; a new one is filled from the
  // access-list configuration at once (its reactor's initialize goes to true).
  KEL_OWNED_COLLECTION_HOOKED(rpStaticAcl, RpStaticAclCollection)

  // rpStaticAclSm(), rpStaticAclSm(name), rpStaticAclSmDel(name), rpStaticAclSmDelAll().
  KEL_NESTED_REACTORS(rpStaticAclSm, RpCandidateSm, KelRpStaticAclSm, Kel::Name)
  // Creates the reactor of `rpStaticAcl` (keyed by its name), or returns the existing one; the
  // reactor starts with initialize false (rpStaticAclIs sets it). A null entity is refused.
  Kel::Ptr<KelRpStaticAclSm> rpStaticAclSmIs(const Kel::Ptr<RpStaticAcl>& rpStaticAcl);

  // The counts of each RP: pfxRefCount(), pfxRefCount(address), pfxRefCountIs(address)
  // (created when absent), pfxRefCountMutable(address), pfxRefCountDel(address),
  // pfxRefCountDelAll().
  KEL_OWNED_COLLECTION(pfxRefCount, PfxRefCountCollection)

  // Once: marks the status static and, over a status that survived a previous reactor, rebuilds
  // the list objects and deletes the candidates no longer configured.
  void handleInitialize();
  // Marks every used list that the configuration holds as to be filled.
  void handleAclConfig();
  // One list added to or removed from the configuration.
  void handleAclConfig(const Kel::Name& name);
  // Creates the RpStaticAcl of every list some RP lists (RPs are entered later, by doAclAdd).
  void doBuildRpStaticAcl();
  // Deletes every candidate whose RP no longer serves its prefix, and the sets left empty.
  void doRemoveExtraStatusEntries();

 private:
  // The nested reactors (members, so they may) share the owner's trace handle, VRF tag and
  // candidate writes.
  static const Kel::TraceFile& trace();
  // The status's candidate of rp in the set of prefix, or null when either is missing.
  Kel::Ptr<RpCandidate> doCandidate(const Ipkit::IpGenPrefix& prefix,
                                    const Ipkit::IpGenAddr& rp) const;
  const std::string& vrfTag() const { return vrfTag_; }

  // The entry of RP `address` as its reactor sees it (it may already have left rpTable), or the
  // one in rpTable, or null.
  Kel::PtrConst<RpEntry> doRpEntryOf(const Ipkit::IpGenAddr& address) const;
  // A new RpStaticAcl brings its reactor, which fills it; its deletion takes the reactor along.
  void rpStaticAclCreated(const Kel::Ptr<RpStaticAcl>& rpStaticAcl);
  void rpStaticAclDeleting(const Kel::Name& name) { rpStaticAclSmDel(name); }
  // Creates R's counts when absent, with a zero counter for `prefix`.
  void doRefCountIs(const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& prefix);
  // Creates the set of `prefix` and R's candidate in it when absent; a new candidate gets the
  // current time and `mode`. Returns the candidate.
  Kel::Ptr<RpCandidate> doCandidateIs(const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& prefix,
                                      Mode mode);
  // Adds one reference of R to `prefix` and traces the new count.
  U32 doRefCountInc(const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& prefix);
  // Takes one reference of R away from `prefix`; at zero deletes the counter, the candidate and
  // the set left empty.
  void doCandidateRelease(const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& prefix);
  // Whether R's configuration still gives it `prefix`, explicitly or through a list.
  bool doServes(const RpEntry& entry, const Ipkit::IpGenPrefix& prefix) const;

  const Kel::PtrConst<RpConfig> rpConfig_;
  const Kel::PtrConst<Acl::AclTypeConfig> aclConfig_;
  const Kel::Ptr<RpCandidateStatus> crpStatus_;
  const L3::VrfName vrfName_;
  const std::string vrfTag_;
  // Whether the status held candidate sets before this reactor wrote any: only then is there a
  // previous reactor's work to reconcile at initialisation.
  bool statusSurvived_ = false;
  bool initialize_ = false;

  Kel::NestedReactorPtr<KelRpConfig> kelRpConfig_;
  Kel::NestedReactorPtr<KelAclConfig> kelAclConfig_;
};

Kel::Ptr<RpCandidateSm> rpCandidateSmFactory(const Kel::PtrConst<RpConfig>& rpConfig,
                                             const Kel::PtrConst<Acl::AclTypeConfig>& aclConfig,
                                             const Kel::Ptr<RpCandidateStatus>& crpStatus);

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
