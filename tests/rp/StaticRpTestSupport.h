#pragma once
// Shared fixture for the static RP reactor's suites: one VRF's static RP configuration, the IPv4
// access lists, the static candidate status, and short ways to write configuration and to read
// candidates and reference counts back.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "framework/Acl/AclTypeConfig.h"
#include "framework/Acl/IpFilter.h"
#include "framework/Acl/IpRuleConfig.h"
#include "framework/Acl/UniqueId.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/System.h"
#include "model/Pim/RpCandidateSet.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/Static/RpConfig.h"
#include "rp/PimStaticRpCandidateSm.h"

namespace StaticRpTest {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;

// Records, in order, every change the status announces: "crpSet P" for a set created or deleted
// and "rp P R" for a candidate created or deleted, so that tests can tell what reached
// downstream readers.
class StatusRecorder : public Routing::Pim::RpCandidateStatus::NotifieeConst {
 public:
  class SetRecorder : public Routing::Pim::RpCandidateSet::NotifieeConst {
   public:
    SetRecorder(StatusRecorder* owner, const Kel::PtrConst<Routing::Pim::RpCandidateSet>& set)
        : owner_(owner) {
      notifierIs(set);
    }
    void onRp(const IpGenAddr& address) override {
      owner_->events.push_back("rp " + notifier()->prefix().valueToStrep() + " " +
                               address.valueToStrep());
    }

   private:
    StatusRecorder* owner_;
  };

  explicit StatusRecorder(const Kel::PtrConst<Routing::Pim::RpCandidateStatus>& status) {
    notifierIs(status);
    for (const auto& [prefix, set] : status->crpSet()) watch(prefix);
  }
  ~StatusRecorder() override {
    for (auto& [prefix, recorder] : sets_) recorder->notifierIs(nullptr);
  }

  void onCrpSet(const IpGenPrefix& prefix) override {
    events.push_back("crpSet " + prefix.valueToStrep());
    watch(prefix);
  }

  std::vector<std::string> events;

 private:
  void watch(const IpGenPrefix& prefix) {
    const auto set = notifier()->crpSet(prefix);
    auto found = sets_.find(prefix);
    if (found != sets_.end() && (!set || found->second->notifier() != set)) {
      found->second->notifierIs(nullptr);
      sets_.erase(found);
    }
    if (set && !sets_.count(prefix))
      sets_.emplace(prefix, Kel::Ptr<SetRecorder>(new SetRecorder(this, set)));
  }

  std::map<IpGenPrefix, Kel::Ptr<SetRecorder>> sets_;
};

// A downstream reader that reacts to a change of the status by running `action` once, from inside
// the notification: the first onCrpSet after `action` is set. Tests use it to drop the static
// reactor (or change its configuration) while one of the reactor's handlers is still running.
class Disrupter : public Routing::Pim::RpCandidateStatus::NotifieeConst {
 public:
  explicit Disrupter(const Kel::PtrConst<Routing::Pim::RpCandidateStatus>& status) {
    notifierIs(status);
  }
  ~Disrupter() override { notifierIs(nullptr); }

  void onCrpSet(const IpGenPrefix& prefix) override {
    if (!action) return;
    const auto run = std::move(action);
    action = nullptr;
    fired.push_back(prefix.valueToStrep());
    run();
  }

  std::function<void()> action;
  // The prefixes whose notification ran the action.
  std::vector<std::string> fired;
};

class StaticRpFixture : public ::testing::Test {
 protected:
  static constexpr double kStartTime = 1000.0;

  StaticRpFixture()
      : rpConfig_(new Routing::Pim::Static::RpConfig(L3::VrfName("red"))),
        aclConfig_(new Acl::AclTypeConfig),
        status_(new Routing::Pim::RpCandidateStatus) {
    Kel::System::virtualTimeIs(kStartTime);
  }
  ~StaticRpFixture() override {
    sm_ = nullptr;
    Kel::System::realTimeIs();
  }

  void start() { sm_ = Routing::Pim::Static::rpCandidateSmFactory(rpConfig_, aclConfig_, status_); }

  Kel::Ptr<Routing::Pim::Static::RpEntry> rp(const char* address) {
    return rpConfig_->rpTableIs(IpGenAddr(address));
  }
  void group(const char* address, const char* prefix) {
    rp(address)->groupIs(IpGenPrefix(prefix), true);
  }
  void useAcl(const char* address, const char* name) { rp(address)->aclIs(name, true); }

  // Writes one rule the way the configuration writer does: the rule first, then its sequence
  // entry.
  void rule(const char* name, U32 sequence, Acl::AclAction action, const char* prefix) {
    auto cfg = aclConfig_->aclIs(name)->currCfgIs();
    const Acl::UniqueId id(nextRuleId_++);
    cfg->ipRuleByIdIs(id, Acl::IpRuleConfig(action, Acl::IpFilter(IpGenPrefix(prefix))));
    cfg->ruleBySequenceIs(sequence, id);
  }
  void permit(const char* name, U32 sequence, const char* prefix) {
    rule(name, sequence, Acl::AclAction::permit, prefix);
  }
  void deny(const char* name, U32 sequence, const char* prefix) {
    rule(name, sequence, Acl::AclAction::deny, prefix);
  }
  // Drops a rule the way the configuration writer does: its sequence entry first, then the rule.
  void removeRule(const char* name, U32 sequence) {
    auto cfg = aclConfig_->aclMutable(name)->currCfgMutable();
    const Acl::UniqueId id = cfg->ruleBySequence(sequence);
    cfg->ruleBySequenceDel(sequence);
    cfg->ipRuleByIdDel(id);
  }

  Kel::PtrConst<Routing::Pim::RpCandidate> candidate(const char* prefix,
                                                     const char* address) const {
    const auto set = status_->crpSet(IpGenPrefix(prefix));
    return set ? set->rp(IpGenAddr(address)) : nullptr;
  }
  // Checks every value of candidate (prefix, RP).
  struct Values {
    Routing::Pim::RpPriority priority;
    Routing::Pim::RpHashMaskLen hashMaskLen;
    bool override;
    Routing::Pim::Mode mode;
    double setupTime;
  };
  void expectCandidate(const char* prefix, const char* address, const Values& values) const {
    SCOPED_TRACE(std::string("candidate ") + prefix + " " + address);
    const auto crp = candidate(prefix, address);
    ASSERT_TRUE(crp);
    EXPECT_EQ(crp->priority(), values.priority);
    EXPECT_EQ(crp->hashMaskLen(), values.hashMaskLen);
    EXPECT_EQ(crp->override(), values.override);
    EXPECT_EQ(crp->pimMode(), values.mode);
    EXPECT_EQ(crp->setupTime(), values.setupTime);
  }
  bool hasSet(const char* prefix) const { return bool(status_->crpSet(IpGenPrefix(prefix))); }
  // The count of (prefix, RP); 0 when absent.
  U32 count(const char* address, const char* prefix) const {
    const auto counts = sm_->pfxRefCount(IpGenAddr(address));
    return counts ? counts->counter(IpGenPrefix(prefix)) : 0;
  }
  bool hasCounter(const char* address, const char* prefix) const {
    const auto counts = sm_->pfxRefCount(IpGenAddr(address));
    return counts && counts->counter().contains(IpGenPrefix(prefix));
  }
  // The prefixes a list object holds, ascending.
  std::vector<std::string> grpPrefixes(const char* name) const {
    std::vector<std::string> texts;
    const auto rpStaticAcl = sm_->rpStaticAcl(name);
    if (!rpStaticAcl) return texts;
    std::map<IpGenPrefix, bool> sorted;
    for (const auto& [prefix, present] : rpStaticAcl->grpPrefix()) sorted.emplace(prefix, present);
    for (const auto& [prefix, present] : sorted) texts.push_back(prefix.valueToStrep());
    return texts;
  }
  // Every (prefix RP) candidate of the status, ascending.
  std::vector<std::string> candidates() const {
    std::map<IpGenPrefix, std::vector<std::string>> sorted;
    for (const auto& [prefix, set] : status_->crpSet()) {
      for (const auto& [address, candidate] : set->rp()) {
        sorted[prefix].push_back(prefix.valueToStrep() + " " + address.valueToStrep());
      }
    }
    std::vector<std::string> texts;
    for (const auto& [prefix, lines] : sorted)
      texts.insert(texts.end(), lines.begin(), lines.end());
    return texts;
  }

  Kel::Ptr<Routing::Pim::Static::RpConfig> rpConfig_;
  Kel::Ptr<Acl::AclTypeConfig> aclConfig_;
  Kel::Ptr<Routing::Pim::RpCandidateStatus> status_;
  Kel::Ptr<Routing::Pim::Static::RpCandidateSm> sm_;
  std::uint64_t nextRuleId_ = 1;
};

}  // namespace StaticRpTest
