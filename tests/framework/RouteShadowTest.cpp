// The unicast route shadows of both families, the trie's changed-route announcement and the stored
// form of interface names.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/IntfIdStored.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Exception.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "framework/Routing/Shadow/ShadowStatus.h"
#include "framework/Routing/TrieGen.h"
#include "tests/support/Refusal.h"

namespace {

using Ipkit::IntfId;
using Ipkit::IntfIdStored;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Mirra::testing::MirraMapBackdoor;
using Routing::ShadowFib::kMaxVias;
using Routing::ShadowFib::kNoFec;
using Routing::ShadowFib::ViaEntry;

// Everything a test needs to know of one family.
struct Ip4Case {
  using Status = Routing::Shadow::Status;
  static constexpr const char* host = "10.1.1.1/32";
  static constexpr const char* subnet = "10.1.1.0/24";
  static constexpr const char* nextHop = "10.1.1.254";
  static constexpr const char* otherHost = "2001:db8::1/128";
  static constexpr const char* otherNextHop = "2001:db8::fe";
  static constexpr const char* family = "ipv4";
};
struct Ip6Case {
  using Status = Routing6::Shadow::Status;
  static constexpr const char* host = "2001:db8::1/128";
  static constexpr const char* subnet = "2001:db8::/64";
  static constexpr const char* nextHop = "2001:db8::fe";
  static constexpr const char* otherHost = "10.1.1.1/32";
  static constexpr const char* otherNextHop = "10.1.1.254";
  static constexpr const char* family = "ipv6";
};

// Records every changed-route announcement, with what the shadow held when it arrived.
template <class Status>
class AnnouncementRecorder : public Routing::TrieGen::NotifieeConst {
 public:
  AnnouncementRecorder(const Kel::PtrConst<Status>& shadow) : shadow_(shadow) {
    notifierIs(shadow->trie());
  }
  void onChangedRoute() override {
    const IpGenPrefix prefix = notifier()->changedRoute();
    const auto route = shadow_->route(prefix);
    shadow_->fecTable().attach();
    seen.push_back(prefix.valueToStrep() + " type " + std::to_string(route.type) + " vias " +
                   std::to_string(shadow_->fecTable().fec(route.fecId).vias) + " trie " +
                   (notifier()->hasRoute(prefix) ? "yes" : "no"));
  }
  std::vector<std::string> seen;

 private:
  Kel::PtrConst<Status> shadow_;
};

template <class Case>
class RouteShadowTest : public ::testing::Test {
 protected:
  using Status = typename Case::Status;

  RouteShadowTest() : shadow(new Status("uribTrie")) {}

  ViaEntry via(const char* intf) { return ViaEntry{IpGenAddr(Case::nextHop), IntfId(intf)}; }
  IpGenPrefix host() const { return IpGenPrefix(Case::host); }
  // The first via of the route's FEC, as a reader sees it.
  std::string firstVia(const IpGenPrefix& prefix) const {
    shadow->fecTable().attach();
    const auto route = shadow->route(prefix);
    const auto fec = shadow->fecTable().fec(route.fecId);
    if (fec.vias == 0) return "no via";
    const auto record = shadow->fecTable().via(route.fecId, 0);
    return Status::Family::addressOf(record.nextHop).valueToStrep() + " on " +
           record.intfId.intfId().name();
  }

  Kel::Ptr<Status> shadow;
};

using Families = ::testing::Types<Ip4Case, Ip6Case>;
TYPED_TEST_SUITE(RouteShadowTest, Families);

TYPED_TEST(RouteShadowTest, RouteShadow_RouteIs_TableFecAndTrieWritten) {
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1")});
  const auto route = this->shadow->route(this->host());
  EXPECT_EQ(route.type, 1u);
  EXPECT_NE(route.fecId, kNoFec);
  EXPECT_EQ(this->firstVia(this->host()), std::string(TypeParam::nextHop) + " on Ethernet1");
  EXPECT_EQ(this->shadow->trie()->route(this->host()), 1u);
  EXPECT_EQ(this->shadow->trie()->longestMatch(this->host()), this->host());
  EXPECT_EQ(this->shadow->routeTable().members(), 1u);
  EXPECT_EQ(this->shadow->fecTable().fecs().members(), 1u);
}

TYPED_TEST(RouteShadowTest, RouteShadow_Announcement_SeesTheChangeComplete) {
  AnnouncementRecorder<typename TypeParam::Status> recorder(this->shadow);
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1"), this->via("Ethernet2")});
  this->shadow->routeDel(this->host());
  const std::string host = this->host().valueToStrep();
  EXPECT_EQ(recorder.seen, (std::vector<std::string>{host + " type 1 vias 2 trie yes",
                                                     host + " type 0 vias 0 trie no"}));
}

TYPED_TEST(RouteShadowTest, RouteShadow_Replace_KeepsFecRewritesVias) {
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1"), this->via("Ethernet2")});
  const auto fecId = this->shadow->route(this->host()).fecId;
  this->shadow->routeIs(this->host(), 2, {this->via("Ethernet3")});
  const auto route = this->shadow->route(this->host());
  EXPECT_EQ(route.fecId, fecId);
  EXPECT_EQ(route.type, 2u);
  EXPECT_EQ(this->firstVia(this->host()), std::string(TypeParam::nextHop) + " on Ethernet3");
  EXPECT_EQ(this->shadow->fecTable().vias().members(), 1u);  // the second via is gone
  EXPECT_EQ(this->shadow->trie()->route(this->host()), 2u);
}

TYPED_TEST(RouteShadowTest, RouteShadow_SameRouteAgain_NothingAnnounced) {
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1")});
  AnnouncementRecorder<typename TypeParam::Status> recorder(this->shadow);
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1")});
  this->shadow->routeDel(IpGenPrefix(TypeParam::subnet));  // never installed
  EXPECT_TRUE(recorder.seen.empty());
}

TYPED_TEST(RouteShadowTest, RouteShadow_RouteDel_RouteFecAndViasGone) {
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1")});
  this->shadow->routeDel(this->host());
  EXPECT_EQ(this->shadow->routeTable().members(), 0u);
  EXPECT_EQ(this->shadow->fecTable().fecs().members(), 0u);
  EXPECT_EQ(this->shadow->fecTable().vias().members(), 0u);
  EXPECT_TRUE(this->shadow->trie()->longestMatch(this->host()).isNull());
}

TYPED_TEST(RouteShadowTest, RouteShadow_AbsentPrefix_DefaultRouteNamesNoFec) {
  const auto route = this->shadow->route(this->host());
  EXPECT_EQ(route.fecId, kNoFec);
  EXPECT_EQ(route.type, 0u);
  this->shadow->fecTable().attach();
  EXPECT_EQ(this->shadow->fecTable().fec(kNoFec).vias, 0u);
}

TYPED_TEST(RouteShadowTest, RouteShadow_MaxVias_StoredInOrder) {
  std::vector<ViaEntry> vias;
  for (unsigned i = 0; i < kMaxVias; ++i)
    vias.push_back(this->via(("e" + std::to_string(i)).c_str()));
  this->shadow->routeIs(this->host(), 1, vias);
  const auto fecId = this->shadow->route(this->host()).fecId;
  this->shadow->fecTable().attach();
  EXPECT_EQ(this->shadow->fecTable().fec(fecId).vias, kMaxVias);
  EXPECT_EQ(this->shadow->fecTable().via(fecId, kMaxVias - 1).intfId.intfId(), IntfId("e511"));
}

TYPED_TEST(RouteShadowTest, RouteShadow_TooManyVias_RefusedNothingWritten) {
  std::vector<ViaEntry> vias(kMaxVias + 1, this->via("Ethernet1"));
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { this->shadow->routeIs(this->host(), 1, vias); }),
            "FEC 1 given 513 vias, at most 512 allowed");
  EXPECT_EQ(this->shadow->routeTable().members(), 0u);
  EXPECT_EQ(this->shadow->fecTable().vias().members(), 0u);
  EXPECT_EQ(this->shadow->trie()->routes(), 0u);
}

TYPED_TEST(RouteShadowTest, RouteShadow_OtherFamilyPrefix_Refused) {
  EXPECT_EQ(
      TestSupport::refusalOf<Kel::RangeException>([&] {
        this->shadow->routeIs(IpGenPrefix(TypeParam::otherHost), 1, {this->via("Ethernet1")});
      }),
      std::string("prefix '") + TypeParam::otherHost + "' is not of family " + TypeParam::family);
  EXPECT_EQ(this->shadow->routeTable().members(), 0u);
}

TYPED_TEST(RouteShadowTest, RouteShadow_OtherFamilyNextHop_RefusedNothingWritten) {
  const ViaEntry wrong{IpGenAddr(TypeParam::otherNextHop), IntfId("Ethernet1")};
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] {
              this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1"), wrong});
            }),
            std::string("next hop '") + TypeParam::otherNextHop + "' is not of family " +
                TypeParam::family);
  EXPECT_EQ(this->shadow->fecTable().vias().members(), 0u);
  EXPECT_EQ(this->shadow->fecTable().fecs().members(), 0u);
}

TYPED_TEST(RouteShadowTest, RouteShadow_FecReadBeforeAttach_Refused) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { this->shadow->fecTable().fec(1); }),
            "FEC table read before it was attached");
  EXPECT_FALSE(this->shadow->fecTable().attached());
}

TYPED_TEST(RouteShadowTest, RouteShadow_DamagedRoute_ReportedToTableReadAsDefault) {
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1")});
  ASSERT_TRUE(MirraMapBackdoor::damageValue(this->shadow->routeTable(),
                                            TypeParam::Status::Family::keyOf(this->host())));
  const auto route = this->shadow->route(this->host());
  EXPECT_EQ(route.fecId, kNoFec);
  EXPECT_EQ(this->shadow->routeTable().corruptions(), 1u);
  EXPECT_NE(this->shadow->routeTable().lastCorruption().find("fails its checksum"),
            std::string::npos);
}

TYPED_TEST(RouteShadowTest, RouteShadow_DamagedFec_ReportedToTableReadAsEmpty) {
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1")});
  const auto fecId = this->shadow->route(this->host()).fecId;
  ASSERT_TRUE(MirraMapBackdoor::damageValue(this->shadow->fecTable().fecs(), fecId));
  this->shadow->fecTable().attach();
  EXPECT_EQ(this->shadow->fecTable().fec(fecId).vias, 0u);
  EXPECT_EQ(this->shadow->fecTable().fec(fecId).fecId, kNoFec);
  EXPECT_EQ(this->shadow->fecTable().corruptions(), 2u);  // one report per damaged read
  EXPECT_EQ(this->firstVia(this->host()), "no via");
}

TYPED_TEST(RouteShadowTest, RouteShadow_TrieReplaced_ReactorsToldOnTrie) {
  struct TrieWatcher : TypeParam::Status::NotifieeConst {
    void onTrie() override { ++calls; }
    int calls = 0;
  };
  Kel::Ptr<TrieWatcher> watcher(new TrieWatcher);
  watcher->notifierIs(this->shadow);
  Kel::Ptr<Routing::TrieGen> fresh(new Routing::TrieGen("rebuilt", TypeParam::Status::af()));
  this->shadow->trieIs(fresh);
  this->shadow->trieIs(fresh);
  EXPECT_EQ(watcher->calls, 1);
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1")});
  EXPECT_TRUE(fresh->hasRoute(this->host()));
  watcher->notifierIs(nullptr);
}

TYPED_TEST(RouteShadowTest, RouteShadow_NoTrie_TablesStillWritten) {
  this->shadow->trieIs(nullptr);
  this->shadow->routeIs(this->host(), 1, {this->via("Ethernet1")});
  EXPECT_EQ(this->shadow->route(this->host()).type, 1u);
}

TEST(RouteShadowRecords, Records_KnownByForwardingTableNames) {
  static_assert(std::is_same_v<Mirra::Fib::Route, Routing::Shadow::Status::Route>);
  static_assert(std::is_same_v<Mirra::Fib6::Route, Routing6::Shadow::Status::Route>);
  EXPECT_EQ(Routing::Shadow::Status::af(), Ipkit::ipv4());
  EXPECT_EQ(Routing6::Shadow::Status::af(), Ipkit::ipv6());
}

TEST(TrieGenChangedRoute, ChangedRoute_EveryCallNotifiesSamePrefixIncluded) {
  struct Watcher : Routing::TrieGen::NotifieeConst {
    void onChangedRoute() override { seen.push_back(notifier()->changedRoute().valueToStrep()); }
    std::vector<std::string> seen;
  };
  Kel::Ptr<Routing::TrieGen> trie(new Routing::TrieGen("routes", Ipkit::ipv4()));
  EXPECT_TRUE(trie->changedRoute().isNull());
  Kel::Ptr<Watcher> watcher(new Watcher);
  watcher->notifierIs(trie);
  trie->changedRouteIs(IpGenPrefix("10.0.0.1/32"));
  trie->changedRouteIs(IpGenPrefix("10.0.0.1/32"));
  EXPECT_EQ(watcher->seen, (std::vector<std::string>{"10.0.0.1/32", "10.0.0.1/32"}));
  EXPECT_EQ(trie->routes(), 0u);  // an announcement is not a route
  watcher->notifierIs(nullptr);
}

TEST(TrieGenChangedRoute, ChangedRoute_OtherFamilyRefusedUnchanged) {
  Kel::Ptr<Routing::TrieGen> trie(new Routing::TrieGen("routes", Ipkit::ipv4()));
  trie->changedRouteIs(IpGenPrefix("10.0.0.1/32"));
  EXPECT_THROW(trie->changedRouteIs(IpGenPrefix("2001:db8::1/128")), Kel::RangeException);
  EXPECT_EQ(trie->changedRoute(), IpGenPrefix("10.0.0.1/32"));
}

TEST(IntfIdStored, IntfIdStored_RoundTrip_SameInterface) {
  const IntfId ethernet("Ethernet1/2.100");
  EXPECT_EQ(IntfIdStored(ethernet).intfId(), ethernet);
  EXPECT_EQ(IntfIdStored(IntfId()).intfId(), IntfId());
  EXPECT_TRUE(IntfIdStored().isNull());
  EXPECT_EQ(IntfIdStored(), IntfIdStored(IntfId()));
  const std::string longest(IntfIdStored::kMaxName, 'x');
  EXPECT_EQ(IntfIdStored(IntfId(longest)).intfId().name(), longest);
  EXPECT_NE(IntfIdStored(IntfId("Ethernet1")), IntfIdStored(IntfId("Ethernet10")));
}

TEST(IntfIdStored, IntfIdStored_NameTooLong_Refused) {
  const std::string tooLong(IntfIdStored::kMaxName + 1, 'x');
  EXPECT_EQ(
      TestSupport::refusalOf<Kel::RangeException>([&] { IntfIdStored stored{IntfId(tooLong)}; }),
      "interface name '" + tooLong + "' longer than 63 bytes cannot be stored");
}

TEST(IntfIdStored, IntfIdStored_EqualNames_EqualBytes) {
  IntfIdStored a(IntfId("Vlan10"));
  IntfIdStored b(IntfId("Vlan10"));
  EXPECT_EQ(std::memcmp(&a, &b, sizeof(IntfIdStored)), 0);
}

}  // namespace
