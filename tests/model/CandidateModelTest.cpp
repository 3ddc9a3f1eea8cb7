// The candidate status entities: collection orders, notifications and lifetime.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;

TEST(RpCandidateSet, Rp_IteratesInAscendingAddressOrder) {
  Kel::Ptr<RpCandidateSet> set(new RpCandidateSet(IpGenPrefix("239.0.0.0/8")));
  for (const char* rp : {"10.0.0.3", "2001:db8::1", "10.0.0.1", "9.255.255.255"}) {
    set->rpIs(IpGenAddr(rp));
  }
  std::vector<std::string> order;
  for (const auto& [address, candidate] : set->rp()) order.push_back(address.valueToStrep());
  EXPECT_EQ(order,
            (std::vector<std::string>{"9.255.255.255", "10.0.0.1", "10.0.0.3", "2001:db8::1"}));
}

TEST(RpCandidate, New_CarriesNotSetValues) {
  Kel::Ptr<RpCandidate> candidate(new RpCandidate(IpGenAddr("10.0.0.1")));
  EXPECT_EQ(candidate->priority(), kRpPriorityNone);
  EXPECT_EQ(candidate->hashMaskLen(), kRpHashMaskLenNone);
  EXPECT_FALSE(candidate->override());
  EXPECT_EQ(candidate->pimMode(), modePimNone);
  EXPECT_EQ(candidate->setupTime(), 0.0);
}

TEST(RpCandidateStatus, CrpSetChanges_NotifyWithPrefix) {
  struct Watcher : RpCandidateStatus::NotifieeConst {
    std::vector<std::string> seen;
    void onCrpSet(const IpGenPrefix& prefix) override { seen.push_back(prefix.valueToStrep()); }
    void onRpSetType() override { seen.push_back("type"); }
  };
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  Watcher watcher;
  watcher.notifierIs(status);
  status->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  status->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  status->rpSetTypeIs(rpTypeStatic);
  status->crpSetDel(IpGenPrefix("239.0.0.0/8"));
  status->crpSetDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(watcher.seen, (std::vector<std::string>{"239.0.0.0/8", "type", "239.0.0.0/8"}));
  watcher.notifierIs(nullptr);
}

TEST(RpCandidateStatus, DeletedSet_StillReadableByHolder) {
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  auto set = status->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  set->rpIs(IpGenAddr("10.0.0.1"))->priorityIs(5);
  Kel::PtrConst<RpCandidateSet> held = status->crpSet(IpGenPrefix("239.0.0.0/8"));
  set = nullptr;
  status->crpSetDel(IpGenPrefix("239.0.0.0/8"));
  ASSERT_TRUE(held);
  EXPECT_EQ(held->rp(IpGenAddr("10.0.0.1"))->priority(), 5u);
  EXPECT_FALSE(status->crpSet(IpGenPrefix("239.0.0.0/8")));
}

TEST(RpCandidate, AttributeChanges_NotifyOnlyOnChange) {
  struct Watcher : RpCandidate::NotifieeConst {
    int calls = 0;
    void onPriority() override { ++calls; }
    void onPimMode() override { ++calls; }
  };
  Kel::Ptr<RpCandidate> candidate(new RpCandidate(IpGenAddr("10.0.0.1")));
  Watcher watcher;
  watcher.notifierIs(candidate);
  candidate->priorityIs(3);
  candidate->priorityIs(3);
  candidate->pimModeIs(modePimSm);
  EXPECT_EQ(watcher.calls, 2);
  watcher.notifierIs(nullptr);
}

TEST(RpConfig, HashAlgorithm_DefaultsToHashAndNotifiesChange) {
  struct Watcher : RpConfig::NotifieeConst {
    int calls = 0;
    void onRpHashAlgorithm() override { ++calls; }
  };
  Kel::Ptr<RpConfig> config(new RpConfig);
  EXPECT_EQ(config->rpHashAlgorithm(), rpHashAlgorithmRfc7761);
  Watcher watcher;
  watcher.notifierIs(config);
  config->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  config->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  EXPECT_EQ(watcher.calls, 1);
  watcher.notifierIs(nullptr);
}

}  // namespace
