#pragma once
// Routing::Pim::EmbeddedRpSm: decides which known IPv6 groups use the RP their own address names
// (embedded RP), and writes the decision to an EmbeddedRpStatus.
//
// Embedded RP enters the library as a status that others react to, beside the static and
// bootstrap candidate statuses, rather than as a third candidate source: a group's embedded RP
// serves that one group and nothing else, so it needs no range trie, no selection and no review
// of every known group; what it needs is a bound on how many groups may use it, which only a
// reactor that follows the known groups can keep. The final sparse-mode merge (RpHashSm) watches
// the status's groups and puts their RPs above both sources, local RP detection (RpLocalSm)
// watches its RPs, and the answer service (RpHashComputeStatus) asks it about groups that have no
// final entry yet. With the configuration off the status stays empty and nobody does anything.
//
// Invariants:
//  1. While the configuration is off this reactor does not watch the known groups, and the status
//     holds no group and no waiting group.
//  2. While on: every known group that names a valid RP within the group ranges is either in use
//     (status group) or waiting (status waitingGroup); a group in use is known and eligible. No
//     more than `limit` are in use, and a group waits only while every place is taken.
//  3. A group that leaves (or stops being eligible) frees its place, and the waiting groups take
//     the free places lowest address first. When the limit is lowered, the highest groups in use
//     wait. Each group put to wait counts once in overflowCount.
//  4. Changes of the known groups are handled one group at a time; a change of the configuration
//     walks the known groups of ff70::/12 once.
// Traces go to the trace file "PimRpCompute": 9 handler entry, 8 groups that name no RP, 5 every
// group put in use, to wait, or released.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/NestedReactor.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/Trace.h"
#include "model/Pim/EmbeddedRp.h"
#include "model/Pim/EmbeddedRpConfig.h"
#include "model/Pim/GroupStatus.h"
#include "rp/PimEmbeddedRpStatus.h"

namespace Routing {
namespace Pim {

class EmbeddedRpSm : public Kel::ReactorOwner {
 public:
  // Applies every change of the configuration.
  class KelConfig : public Kel::NestedReactor<EmbeddedRpSm, EmbeddedRpConfig::NotifieeConst> {
   public:
    KelConfig(EmbeddedRpSm* owner, const Kel::PtrConst<EmbeddedRpConfig>& config);
    void onEnabled() override;
    void onLimit() override;
    void onGroupRange(const Ipkit::IpGenPrefix& range) override;
    void onGroupRange() override;
  };

  // Follows the known groups while the configuration is on.
  class KelGroupMrt : public Kel::NestedReactor<EmbeddedRpSm, GroupStatus::NotifieeConst> {
   public:
    KelGroupMrt(EmbeddedRpSm* owner, const Kel::PtrConst<GroupStatus>& groupMrt);
    void onGroup(const Ipkit::IpGenAddr& group) override;
    void onGroup() override;
  };

  // Watches the configuration and applies it at once.
  // REQUIRES: groupMrt, config and status present (else the null-mutator refusal).
  EmbeddedRpSm(const Kel::PtrConst<GroupStatus>& groupMrt,
               const Kel::PtrConst<EmbeddedRpConfig>& config,
               const Kel::Ptr<EmbeddedRpStatus>& status);

  const Kel::PtrConst<GroupStatus>& groupMrt() const { return groupMrt_; }
  const Kel::PtrConst<EmbeddedRpConfig>& config() const { return config_; }
  const Kel::Ptr<EmbeddedRpStatus>& status() const { return status_; }
  bool watchingGroups() const { return static_cast<bool>(kelGroupMrt_); }

  // The configuration changed: copies the settings to the status, then places every group anew.
  void handleConfig();
  // The whole group collection changed: places every group anew.
  void handleGroup();
  // One group came or went.
  void handleGroup(const Ipkit::IpGenAddr& group);

 private:
  static const Kel::TraceFile& trace();
  void doApplyConfig();
  // Invariants 2 and 3 over every group: the release of groups no longer eligible, the limit, the
  // waiting groups, then the known groups not yet placed.
  void doPlaceAll();
  // Whether `group` is known and may use embedded RP (assuming it names a valid RP).
  bool doIsEligible(const Ipkit::IpGenAddr& group) const;
  // Puts a known, eligible group in use or to wait; nothing for one placed already.
  void doPlace(const EmbeddedRp& embedded);
  void doUse(const EmbeddedRp& embedded);
  void doWait(const Ipkit::IpGenAddr& group);
  void doRelease(const Ipkit::IpGenAddr& group);
  // Waiting groups take the free places, lowest first.
  void doPromote();

  const Kel::PtrConst<GroupStatus> groupMrt_;
  const Kel::PtrConst<EmbeddedRpConfig> config_;
  const Kel::Ptr<EmbeddedRpStatus> status_;
  Kel::NestedReactorPtr<KelConfig> kelConfig_;
  Kel::NestedReactorPtr<KelGroupMrt> kelGroupMrt_;
};

Kel::Ptr<EmbeddedRpSm> embeddedRpSmFactory(const Kel::PtrConst<GroupStatus>& groupMrt,
                                           const Kel::PtrConst<EmbeddedRpConfig>& config,
                                           const Kel::Ptr<EmbeddedRpStatus>& status);

}  // namespace Pim
}  // namespace Routing
