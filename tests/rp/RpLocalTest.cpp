// RpLocalSm: which candidate RPs are this router's own, and on which interface. Every behaviour is
// run for IPv4 and for IPv6 (the ones that differ by family take it as their parameter).

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Assert.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "framework/Routing/Shadow/ShadowStatus.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpLocalStatus.h"
#include "rp/PimRpLocalSm.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IntfId;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Mirra::testing::MirraMapBackdoor;
using Routing::Pim::RpCandidateStatus;
using Routing::Pim::RpLocalSm;
using Routing::Pim::RpLocalStatus;
using Routing::ShadowFib::ViaEntry;
using TestSupport::TraceLine;
using TestSupport::TraceLines;

const std::string kIsLocal =
    "const Ipkit::IntfId Routing::Pim::RpLocalSm::isLocal(const Ipkit::IpGenAddr&) const";
const std::string kInitialized = "void Routing::Pim::RpLocalSm::handleInitialized()";
const std::string kChangedRoute =
    "void Routing::Pim::RpLocalSm::handleChangedRoute(const Ipkit::IpGenPrefix&)";
const std::string kPrune = "void Routing::Pim::RpLocalSm::doRemoveExtraLocalRpSet()";
const std::string kStaticSet =
    "void Routing::Pim::RpLocalSm::KelStaticCrpSet::handleRpCandidate(const Ipkit::IpGenAddr&)";
const std::string kBsrSet =
    "void Routing::Pim::RpLocalSm::KelBsrCrpSet::handleRpCandidate(const Ipkit::IpGenAddr&)";

struct Family {
  const char* name;
  const char* rp;        // a candidate RP
  const char* rp2;       // another candidate RP
  const char* stranger;  // an address no candidate set names
  const char* subnet;    // a shorter prefix covering rp
  const char* nextHop;
  const char* group;
  const char* group2;
  const char* af;  // the family's text form
};

const Family kIp4{"Ip4",        "10.1.1.1",     "10.1.1.2",     "10.1.1.9", "10.1.1.0/24",
                  "10.1.1.254", "239.1.0.0/16", "239.2.0.0/16", "ipv4"};
const Family kIp6{"Ip6",          "2001:db8::1", "2001:db8::2", "2001:db8::9", "2001:db8::/64",
                  "2001:db8::fe", "ff0e:1::/32", "ff0e:2::/32", "ipv6"};

void PrintTo(const Family& family, std::ostream* out) { *out << family.name; }

std::string familyName(const ::testing::TestParamInfo<Family>& info) { return info.param.name; }

class RpLocalTest : public ::testing::TestWithParam<Family> {
 protected:
  RpLocalTest()
      : staticStatus(new RpCandidateStatus),
        bsrStatus(new RpCandidateStatus),
        local(new RpLocalStatus),
        shadow4(new Routing::Shadow::Status("uribTrie")),
        shadow6(new Routing6::Shadow::Status("urib6Trie")),
        sm(Routing::Pim::rpLocalSmFactory(staticStatus, bsrStatus, local)) {}

  bool v4() const { return std::string(GetParam().name) == "Ip4"; }
  IpGenAddr rp() const { return IpGenAddr(GetParam().rp); }
  IpGenAddr rp2() const { return IpGenAddr(GetParam().rp2); }
  IpGenAddr stranger() const { return IpGenAddr(GetParam().stranger); }
  IpGenPrefix group() const { return IpGenPrefix(GetParam().group); }
  IpGenPrefix group2() const { return IpGenPrefix(GetParam().group2); }
  IpGenPrefix subnet() const { return IpGenPrefix(GetParam().subnet); }
  static IpGenPrefix host(const IpGenAddr& addr) { return IpGenPrefix::hostPrefix(addr); }
  static std::string text(const IpGenAddr& addr) { return addr.valueToStrep(); }
  static std::string hostText(const IpGenAddr& addr) { return host(addr).valueToStrep(); }

  void shadowIs() { v4() ? sm->uribShadowIs(shadow4) : sm->urib6ShadowIs(shadow6); }
  void shadowDel() { v4() ? sm->uribShadowDel() : sm->urib6ShadowDel(); }
  Kel::Ptr<Routing::TrieGen> trie() const { return v4() ? shadow4->trie() : shadow6->trie(); }
  Kel::PtrConst<Routing::TrieGen> smTrie() const { return v4() ? sm->uribTrie() : sm->urib6Trie(); }

  ViaEntry via(const char* intf) const {
    return ViaEntry{IpGenAddr(GetParam().nextHop), IntfId(intf)};
  }
  void routeIs(const IpGenPrefix& prefix, std::uint32_t type, const std::vector<ViaEntry>& vias) {
    v4() ? shadow4->routeIs(prefix, type, vias) : shadow6->routeIs(prefix, type, vias);
  }
  void routeDel(const IpGenPrefix& prefix) {
    v4() ? shadow4->routeDel(prefix) : shadow6->routeDel(prefix);
  }
  void hostRouteIs(const IpGenAddr& addr, const char* intf, std::uint32_t type = 1) {
    routeIs(host(addr), type, {via(intf)});
  }

  static void rpIs(const Kel::Ptr<RpCandidateStatus>& status, const IpGenPrefix& group,
                   const IpGenAddr& addr) {
    status->crpSetIs(group)->rpIs(addr);
  }
  static void rpDel(const Kel::Ptr<RpCandidateStatus>& status, const IpGenPrefix& group,
                    const IpGenAddr& addr) {
    status->crpSetMutable(group)->rpDel(addr);
  }

  // The local RP table as "address=interface", in address order.
  std::vector<std::string> table() const {
    std::vector<std::string> entries;
    for (const auto& [addr, info] : local->localRpSet()) {
      entries.push_back(text(addr) + "=" + info->intfId().name());
    }
    return entries;
  }
  std::vector<std::string> table(std::initializer_list<std::pair<IpGenAddr, const char*>> rows) {
    std::vector<std::string> entries;
    for (const auto& [addr, intf] : rows) entries.push_back(text(addr) + "=" + intf);
    return entries;
  }

  static TraceLine line(int level, const std::string& text) { return {level, text}; }
  TraceLine added(const IpGenAddr& addr, const char* intf) const {
    return line(5, "Added RP " + text(addr) +
                       " into local RP information table associated with interface " + intf);
  }
  TraceLine localOn(const IpGenAddr& addr, const char* intf) const {
    return line(5, hostText(addr) + " is local on interface " + intf);
  }
  TraceLine notLocal(const IpGenAddr& addr, const char* af) const {
    return line(5, hostText(addr) + " not local " + af);
  }

  TestSupport::TraceCapture capture{"PimRpCompute"};
  Kel::Ptr<RpCandidateStatus> staticStatus;
  Kel::Ptr<RpCandidateStatus> bsrStatus;
  Kel::Ptr<RpLocalStatus> local;
  Kel::Ptr<Routing::Shadow::Status> shadow4;
  Kel::Ptr<Routing6::Shadow::Status> shadow6;
  Kel::Ptr<RpLocalSm> sm;
};

INSTANTIATE_TEST_SUITE_P(Families, RpLocalTest, ::testing::Values(kIp4, kIp6), familyName);

// --- isLocal -------------------------------------------------------------------------------

TEST_P(RpLocalTest, IsLocal_HostRouteOfLocalTypeWithOneVia_ThatInterface) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId("Ethernet1"));
  EXPECT_EQ(capture.levelled(),
            (TraceLines{line(9, kIsLocal + text(rp())), localOn(rp(), "Ethernet1")}));
}

TEST_P(RpLocalTest, IsLocal_FecWithoutVias_EmptyNotLocal) {
  shadowIs();
  routeIs(host(rp()), 1, {});
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  EXPECT_EQ(capture.levelled({5}), TraceLines{notLocal(rp(), GetParam().af)});
}

TEST_P(RpLocalTest, IsLocal_CoveredOnlyByShorterLocalPrefix_Empty) {
  shadowIs();
  routeIs(subnet(), 1, {via("Ethernet1")});
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  EXPECT_EQ(capture.levelled({5}), TraceLines{notLocal(rp(), GetParam().af)});
}

TEST_P(RpLocalTest, IsLocal_NoRouteAtAll_NotLocalPrintsUnknownFamily) {
  shadowIs();
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  EXPECT_EQ(capture.levelled({5}), TraceLines{notLocal(rp(), "ipunknown")});
}

TEST_P(RpLocalTest, IsLocal_ShadowNotSet_EmptyWithEntryTraceOnly) {
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  EXPECT_EQ(capture.levelled(), TraceLines{line(9, kIsLocal + text(rp()))});
}

TEST_P(RpLocalTest, IsLocal_OnlyOtherFamilysShadowSet_Empty) {
  v4() ? sm->urib6ShadowIs(shadow6) : sm->uribShadowIs(shadow4);
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  EXPECT_EQ(capture.levelled({5}), TraceLines{});
}

TEST_P(RpLocalTest, IsLocal_HostRouteOfAnotherType_Empty) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1", 2);
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  EXPECT_EQ(capture.levelled({5}), TraceLines{notLocal(rp(), GetParam().af)});
}

TEST_P(RpLocalTest, IsLocal_HostRouteUnderLocalSubnetOfAnotherType_TypeFromLongestMatch) {
  shadowIs();
  routeIs(subnet(), 1, {via("Ethernet1")});
  hostRouteIs(rp(), "Ethernet2", 3);
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
}

TEST_P(RpLocalTest, IsLocal_DamagedHostRoute_ReportedToTableAndNotLocal) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  const bool damaged =
      v4() ? MirraMapBackdoor::damageValue(shadow4->routeTable(),
                                           Routing::ShadowFamily::Ip4::keyOf(host(rp())))
           : MirraMapBackdoor::damageValue(shadow6->routeTable(),
                                           Routing::ShadowFamily::Ip6::keyOf(host(rp())));
  ASSERT_TRUE(damaged);
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  // Both reads of the host route (for its FEC, then as the longest match) meet the damage.
  EXPECT_EQ(v4() ? shadow4->routeTable().corruptions() : shadow6->routeTable().corruptions(), 2u);
  EXPECT_EQ(capture.levelled({5}), TraceLines{notLocal(rp(), GetParam().af)});
}

TEST_P(RpLocalTest, IsLocal_DamagedFec_ReportedToTableAndNotLocal) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  const auto fecId = v4() ? shadow4->route(host(rp())).fecId : shadow6->route(host(rp())).fecId;
  ASSERT_TRUE(v4() ? MirraMapBackdoor::damageValue(shadow4->fecTable().fecs(), fecId)
                   : MirraMapBackdoor::damageValue(shadow6->fecTable().fecs(), fecId));
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  EXPECT_EQ(v4() ? shadow4->fecTable().corruptions() : shadow6->fecTable().corruptions(), 1u);
  EXPECT_EQ(capture.levelled({5}), TraceLines{notLocal(rp(), GetParam().af)});
}

TEST_P(RpLocalTest, IsLocal_DamagedVia_ReportedToTableAndNotLocal) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  const auto fecId = v4() ? shadow4->route(host(rp())).fecId : shadow6->route(host(rp())).fecId;
  const Routing::ShadowFib::ViaKey first{fecId, 0, 0};
  ASSERT_TRUE(v4() ? MirraMapBackdoor::damageValue(shadow4->fecTable().vias(), first)
                   : MirraMapBackdoor::damageValue(shadow6->fecTable().vias(), first));
  capture.clear();
  EXPECT_EQ(sm->isLocal(rp()), IntfId());
  EXPECT_EQ(v4() ? shadow4->fecTable().corruptions() : shadow6->fecTable().corruptions(), 1u);
  EXPECT_EQ(capture.levelled({5}), TraceLines{notLocal(rp(), GetParam().af)});
}

TEST(RpLocalDecision, IsLocal_UnknownFamily_Assertion) {
  Kel::Ptr<RpLocalStatus> local(new RpLocalStatus);
  const auto sm = Routing::Pim::rpLocalSmFactory(nullptr, nullptr, local);
  const auto assertion =
      TestSupport::thrownBy<Kel::AssertionException>([&] { sm->isLocal(IpGenAddr()); });
  ASSERT_TRUE(assertion);
  EXPECT_EQ(assertion->expression(), "0 && \"Unknown Address Family\"");
  EXPECT_EQ(assertion->traceFile(), "PimRpCompute");
  EXPECT_EQ(assertion->function(),
            "Ipkit::IntfId Routing::Pim::RpLocalSm::isLocal(const Ipkit::IpGenAddr&) const");
  EXPECT_GT(assertion->line(), 0);
}

// --- Candidates ----------------------------------------------------------------------------

TEST_P(RpLocalTest, Candidates_SameAddressInStaticAndBsrSets_CountsTwoDeletedWithTheLast) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  rpIs(staticStatus, group(), rp());
  rpIs(bsrStatus, group2(), rp());
  EXPECT_EQ(sm->rp(rp()), 2u);
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  rpDel(bsrStatus, group2(), rp());
  EXPECT_EQ(sm->rp(rp()), 1u);
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  rpDel(staticStatus, group(), rp());
  EXPECT_FALSE(sm->rp().contains(rp()));
  EXPECT_EQ(table(), std::vector<std::string>{});
  EXPECT_EQ(capture.levelled({4, 5}),
            (TraceLines{line(4, "New static RP " + text(rp()) + " added to RP Candidate Status"),
                        localOn(rp(), "Ethernet1"), added(rp(), "Ethernet1"),
                        line(4, "New BSR RP " + text(rp()) + " added to RP Candidate Status"),
                        localOn(rp(), "Ethernet1"),
                        line(5, "Deleted RP " + text(rp()) + " from local RP information table")}));
}

TEST_P(RpLocalTest, Candidates_AddedBeforeAnyShadow_CountedThenAddedWhenShadowArrives) {
  hostRouteIs(rp(), "Ethernet1");
  rpIs(staticStatus, group(), rp());
  EXPECT_EQ(sm->rp(rp()), 1u);
  EXPECT_EQ(table(), std::vector<std::string>{});
  EXPECT_FALSE(sm->initialized());
  capture.clear();
  shadowIs();
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  // The full scan counts the candidate again.
  EXPECT_EQ(sm->rp(rp()), 2u);
  EXPECT_EQ(capture.levelled({5}),
            (TraceLines{localOn(rp(), "Ethernet1"), added(rp(), "Ethernet1")}));
}

TEST_P(RpLocalTest, Candidates_NewSetAndCandidate_EntryTracesOfBothSources) {
  shadowIs();
  capture.clear();
  staticStatus->crpSetIs(group());
  staticStatus->crpSetMutable(group())->rpIs(rp());
  bsrStatus->crpSetIs(group2())->rpIs(rp2());
  EXPECT_EQ(
      capture.levelled(),
      (TraceLines{line(9, "handleRpCandidate"), line(9, kStaticSet + " ( " + text(rp()) + " )"),
                  line(4, "New static RP " + text(rp()) + " added to RP Candidate Status"),
                  line(9, kIsLocal + text(rp())), notLocal(rp(), "ipunknown"),
                  line(9, "handleRpCandidate"), line(9, kBsrSet + " ( " + text(rp2()) + " )"),
                  line(4, "New BSR RP " + text(rp2()) + " added to RP Candidate Status"),
                  line(9, kIsLocal + text(rp2())), notLocal(rp2(), "ipunknown")}));
}

TEST_P(RpLocalTest, Candidates_ExistingEntry_InterfaceNotRewritten) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet2");
  rpIs(bsrStatus, group2(), rp());
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
}

TEST_P(RpLocalTest, Candidates_RemovedBeforeEverCounted_CountWrapsAndNothingDeleted) {
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  rpIs(status, group(), rp());
  Kel::Ptr<RpLocalStatus> otherLocal(new RpLocalStatus);
  // A reactor created over an existing set counts nothing before it is initialized.
  const auto late = Routing::Pim::rpLocalSmFactory(status, nullptr, otherLocal);
  capture.clear();
  rpDel(status, group(), rp());
  EXPECT_EQ(late->rp(rp()), 4294967295u);
  EXPECT_EQ(capture.levelled({5}), TraceLines{});
}

TEST_P(RpLocalTest, Candidates_SetDeletedWithItsCandidates_CountAndTableUntouched) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  rpIs(staticStatus, group(), rp());
  capture.clear();
  staticStatus->crpSetDel(group());
  EXPECT_FALSE(sm->staticCrpSet().contains(group()));
  EXPECT_EQ(sm->rp(rp()), 1u);
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  EXPECT_EQ(capture.levelled({4, 5}), TraceLines{});
}

// --- Route changes -------------------------------------------------------------------------

TEST_P(RpLocalTest, Routes_HostRouteInstalledThenWithdrawn_AddedThenDeletedNoRoute) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  capture.clear();
  hostRouteIs(rp(), "Ethernet1");
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  routeDel(host(rp()));
  EXPECT_EQ(table(), std::vector<std::string>{});
  EXPECT_EQ(capture.levelled({5}),
            (TraceLines{localOn(rp(), "Ethernet1"), added(rp(), "Ethernet1"),
                        line(5, "Deleted RP " + text(rp()) +
                                    " from local RP information table, No route")}));
}

TEST_P(RpLocalTest, Routes_ChangeOfShorterPrefix_NoEffect) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  routeIs(subnet(), 1, {via("Ethernet9")});
  routeDel(subnet());
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  EXPECT_EQ(capture.levelled(), (TraceLines{line(9, kChangedRoute), line(9, kChangedRoute)}));
}

TEST_P(RpLocalTest, Routes_NonCandidateBecomesLocal_TableUnchanged) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  capture.clear();
  hostRouteIs(stranger(), "Ethernet1");
  EXPECT_EQ(table(), std::vector<std::string>{});
  EXPECT_EQ(capture.levelled({5}), TraceLines{localOn(stranger(), "Ethernet1")});
}

TEST_P(RpLocalTest, Routes_InterfaceChanges_EntryKeptUntilNextInitializedReplacesIt) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  hostRouteIs(rp(), "Ethernet2");
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  EXPECT_EQ(capture.levelled({5}), TraceLines{localOn(rp(), "Ethernet2")});
  capture.clear();
  sm->handleInitialized();
  EXPECT_EQ(table(), table({{rp(), "Ethernet2"}}));
  EXPECT_EQ(
      capture.levelled({5, 9}),
      (TraceLines{line(9, kInitialized), line(9, kPrune), line(9, kIsLocal + text(rp())),
                  localOn(rp(), "Ethernet2"),
                  line(5, "Deleted RP " + text(rp()) +
                              " from local information table since intfId doesnt match"),
                  line(9, "handleRpCandidate"), line(9, kStaticSet + " ( " + text(rp()) + " )"),
                  line(9, kIsLocal + text(rp())), localOn(rp(), "Ethernet2"),
                  added(rp(), "Ethernet2")}));
}

TEST_P(RpLocalTest, Routes_HostRouteTurnsToAnotherType_DeletedNotLocal) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  hostRouteIs(rp(), "Ethernet1", 2);
  EXPECT_EQ(table(), std::vector<std::string>{});
  EXPECT_EQ(capture.levelled({5}),
            (TraceLines{notLocal(rp(), GetParam().af),
                        line(5, "Deleted RP " + text(rp()) +
                                    " from local RP information table, Not Local")}));
}

TEST_P(RpLocalTest, Routes_DamagedHostRouteAnnounced_ReadAsNoRoute) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet1");
  ASSERT_TRUE(v4() ? MirraMapBackdoor::damageValue(shadow4->routeTable(),
                                                   Routing::ShadowFamily::Ip4::keyOf(host(rp())))
                   : MirraMapBackdoor::damageValue(shadow6->routeTable(),
                                                   Routing::ShadowFamily::Ip6::keyOf(host(rp()))));
  capture.clear();
  trie()->changedRouteIs(host(rp()));
  EXPECT_EQ(table(), std::vector<std::string>{});
  EXPECT_EQ(capture.levelled({5}),
            TraceLines{line(
                5, "Deleted RP " + text(rp()) + " from local RP information table, No route")});
}

// --- Pruning -------------------------------------------------------------------------------

TEST_P(RpLocalTest, Prune_NoLongerLocal_DeletedFromLocalInformationTable) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  // Another shadow, without the host route, replaces the first.
  v4() ? sm->uribShadowIs(Kel::Ptr<Routing::Shadow::Status>(new Routing::Shadow::Status("t")))
       : sm->urib6ShadowIs(Kel::Ptr<Routing6::Shadow::Status>(new Routing6::Shadow::Status("t")));
  EXPECT_EQ(table(), std::vector<std::string>{});
  EXPECT_EQ(capture.levelled({5}),
            (TraceLines{notLocal(rp(), "ipunknown"),
                        line(5, "Deleted RP " + text(rp()) + " from local information table."),
                        notLocal(rp(), "ipunknown")}));
}

TEST_P(RpLocalTest, Prune_SetGone_DeletedSinceNotPartOfAnyRpset) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet1");
  staticStatus->crpSetDel(group());
  capture.clear();
  sm->handleInitialized();
  EXPECT_EQ(table(), std::vector<std::string>{});
  EXPECT_EQ(capture.levelled({5}),
            (TraceLines{localOn(rp(), "Ethernet1"),
                        line(5, "Deleted RP " + text(rp()) +
                                    " from local information table since not part of any rpset")}));
}

TEST_P(RpLocalTest, Initialized_NoShadow_OnlyEntryTrace) {
  rpIs(staticStatus, group(), rp());
  capture.clear();
  sm->handleInitialized();
  EXPECT_FALSE(sm->initialized());
  EXPECT_EQ(capture.levelled(), TraceLines{line(9, kInitialized)});
}

TEST_P(RpLocalTest, Initialized_EmptyTable_NoPruningPass) {
  rpIs(staticStatus, group(), rp());
  capture.clear();
  shadowIs();
  const auto lines = capture.levelled({9});
  EXPECT_EQ(lines.front(), line(9, kInitialized));
  EXPECT_EQ(std::count(lines.begin(), lines.end(), line(9, kPrune)), 0);
}

// --- Shadows -------------------------------------------------------------------------------

TEST_P(RpLocalTest, Shadow_TrieReplaced_ReactorFollowsTheNewTrie) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  const auto old = trie();
  Kel::Ptr<Routing::TrieGen> fresh(
      new Routing::TrieGen("rebuilt", v4() ? Ipkit::ipv4() : Ipkit::ipv6()));
  v4() ? shadow4->trieIs(fresh) : shadow6->trieIs(fresh);
  EXPECT_EQ(smTrie(), Kel::PtrConst<Routing::TrieGen>(fresh));
  EXPECT_EQ(old->notifiees(), 0u);
  hostRouteIs(rp(), "Ethernet1");  // goes into the new trie, announced there
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  v4() ? shadow4->trieIs(nullptr) : shadow6->trieIs(nullptr);
  EXPECT_FALSE(smTrie());
}

TEST_P(RpLocalTest, Shadow_Removed_TrieReactorGoneTableAndStateKept) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet1");
  capture.clear();
  shadowDel();
  EXPECT_FALSE(smTrie());
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  routeDel(host(rp()));  // no longer heard
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  EXPECT_EQ(capture.levelled(), TraceLines{line(9, kInitialized)});
}

TEST(RpLocalShadows, Shadow_NullShadow_RefusedStateUnchanged) {
  Kel::Ptr<RpLocalStatus> local(new RpLocalStatus);
  const auto sm = Routing::Pim::rpLocalSmFactory(nullptr, nullptr, local);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { sm->uribShadowIs(nullptr); }),
            "null _uribShadow parameter to mutator for Routing::Pim::RpLocalSm::uribShadow "
            "not allowed");
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { sm->urib6ShadowIs(nullptr); }),
            "null _urib6Shadow parameter to mutator for Routing::Pim::RpLocalSm::urib6Shadow "
            "not allowed");
  EXPECT_FALSE(sm->uribShadow());
  EXPECT_FALSE(sm->urib6Shadow());
  EXPECT_FALSE(sm->initialized());
}

TEST(RpLocalConstruction, Construct_NoLocalStatus_Assertion) {
  const auto assertion = TestSupport::thrownBy<Kel::AssertionException>(
      [&] { Routing::Pim::rpLocalSmFactory(nullptr, nullptr, nullptr); });
  ASSERT_TRUE(assertion);
  EXPECT_EQ(assertion->expression(), "localRpStatus()");
  EXPECT_EQ(assertion->traceFile(), "PimRpCompute");
}

TEST_P(RpLocalTest, Construct_ExistingSets_OneReactorEachAndShadowsNotSet) {
  rpIs(staticStatus, group(), rp());
  rpIs(bsrStatus, group(), rp());
  rpIs(bsrStatus, group2(), rp2());
  Kel::Ptr<RpLocalStatus> otherLocal(new RpLocalStatus);
  const auto fresh = Routing::Pim::rpLocalSmFactory(staticStatus, bsrStatus, otherLocal);
  EXPECT_EQ(fresh->staticCrpSet().size(), 1u);
  EXPECT_EQ(fresh->bsrCrpSet().size(), 2u);
  EXPECT_TRUE(fresh->rp().empty());
  EXPECT_FALSE(fresh->initialized());
  EXPECT_EQ(fresh->staticCrpStatus(), Kel::PtrConst<RpCandidateStatus>(staticStatus));
  EXPECT_EQ(fresh->bsrCrpStatus(), Kel::PtrConst<RpCandidateStatus>(bsrStatus));
}

// --- Whole-collection notification ---------------------------------------------------------

TEST_P(RpLocalTest, WholeCollection_ReactorMissing_RecreatedAndScanned) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  rpIs(staticStatus, group(), rp());
  sm->staticCrpSetDel(group());
  ASSERT_FALSE(sm->staticCrpSet().contains(group()));
  staticStatus->crpSetNotify();
  EXPECT_TRUE(sm->staticCrpSet().contains(group()));
  EXPECT_EQ(sm->rp(rp()), 2u);         // the new reactor's scan counts the candidate once more
  rpDel(staticStatus, group(), rp());  // and the new reactor hears the removal
  EXPECT_EQ(sm->rp(rp()), 1u);
}

TEST_P(RpLocalTest, WholeCollection_SetsCandidatesAnnouncedAtOnce_FullScanOfTheSet) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  rpIs(staticStatus, group(), rp());
  local->localRpSetDel(rp());  // out of step with the candidates
  capture.clear();
  staticStatus->crpSetMutable(group())->rpNotify();
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  EXPECT_EQ(sm->rp(rp()), 2u);
  EXPECT_EQ(capture.levelled({9}).front(), line(9, "handleRpCandidate"));
}

// Throws when a set is deleted, so that reactors registered after it miss the deletion.
class ThrowOnSetDeletion : public RpCandidateStatus::NotifieeConst {
 public:
  void onCrpSet(const IpGenPrefix& prefix) override {
    if (!notifier()->crpSet(prefix)) throw std::runtime_error("lost " + prefix.valueToStrep());
  }
};

TEST_P(RpLocalTest, WholeCollection_DeletionLostToAThrowingReactor_ReactorDropped) {
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  Kel::Ptr<ThrowOnSetDeletion> thrower(new ThrowOnSetDeletion);
  thrower->notifierIs(status);
  Kel::Ptr<RpLocalStatus> otherLocal(new RpLocalStatus);
  const auto late = Routing::Pim::rpLocalSmFactory(status, nullptr, otherLocal);
  rpIs(status, group(), rp());
  rpIs(status, group2(), rp2());
  EXPECT_THROW(status->crpSetDel(group()), std::runtime_error);
  EXPECT_TRUE(late->staticCrpSet().contains(group()));  // out of step
  thrower->notifierIs(nullptr);
  status->crpSetNotify();
  EXPECT_FALSE(late->staticCrpSet().contains(group()));
  EXPECT_TRUE(late->staticCrpSet().contains(group2()));
  EXPECT_EQ(late->rp(rp2()), 1u);  // the reactor in step was neither recreated nor rescanned
}

// --- Disrupters ----------------------------------------------------------------------------

// Runs `action` when its status announces a change of a set's membership (added or deleted).
class OnCrpSet : public RpCandidateStatus::NotifieeConst {
 public:
  explicit OnCrpSet(std::function<void(const IpGenPrefix&)> action) : action_(std::move(action)) {}
  void onCrpSet(const IpGenPrefix& prefix) override { action_(prefix); }

 private:
  std::function<void(const IpGenPrefix&)> action_;
};

TEST_P(RpLocalTest, Disrupter_RouteWithdrawnWhileItsSetIsBeingDeleted_Settles) {
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  Kel::Ptr<OnCrpSet> disrupter(new OnCrpSet([&](const IpGenPrefix& prefix) {
    if (!status->crpSet(prefix)) routeDel(host(rp()));
  }));
  disrupter->notifierIs(status);  // ahead of the reactor's own
  Kel::Ptr<RpLocalStatus> otherLocal(new RpLocalStatus);
  auto late = Routing::Pim::rpLocalSmFactory(status, nullptr, otherLocal);
  v4() ? late->uribShadowIs(shadow4) : late->urib6ShadowIs(shadow6);
  hostRouteIs(rp(), "Ethernet1");
  rpIs(status, group(), rp());
  ASSERT_EQ(otherLocal->localRpSet().size(), 1u);
  capture.clear();
  status->crpSetDel(group());
  EXPECT_TRUE(otherLocal->localRpSet().empty());
  EXPECT_FALSE(late->staticCrpSet().contains(group()));
  EXPECT_EQ(capture.levelled({5}),
            TraceLines{line(
                5, "Deleted RP " + text(rp()) + " from local RP information table, No route")});
  disrupter->notifierIs(nullptr);
}

// Runs `action` when the local RP table changes.
class OnLocalRpSet : public RpLocalStatus::NotifieeConst {
 public:
  explicit OnLocalRpSet(std::function<void(const IpGenAddr&)> action)
      : action_(std::move(action)) {}
  void onLocalRpSet(const IpGenAddr& addr) override { action_(addr); }

 private:
  std::function<void(const IpGenAddr&)> action_;
};

TEST_P(RpLocalTest, Disrupter_SetDeletedFromInsideItsOwnReactorsHandler_ReactorFinishes) {
  shadowIs();
  hostRouteIs(rp(), "Ethernet1");
  Kel::Ptr<OnLocalRpSet> disrupter(new OnLocalRpSet([&](const IpGenAddr&) {
    if (staticStatus->crpSet(group())) staticStatus->crpSetDel(group());
  }));
  disrupter->notifierIs(local);
  capture.clear();
  rpIs(staticStatus, group(), rp());  // its reactor adds the entry, the disrupter kills the set
  EXPECT_FALSE(sm->staticCrpSet().contains(group()));
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  EXPECT_EQ(capture.levelled({5}),
            (TraceLines{localOn(rp(), "Ethernet1"), added(rp(), "Ethernet1")}));
  disrupter->notifierIs(nullptr);
}

// Runs `action` when its trie announces a changed route.
class OnChangedRoute : public Routing::TrieGen::NotifieeConst {
 public:
  explicit OnChangedRoute(std::function<void()> action) : action_(std::move(action)) {}
  void onChangedRoute() override { action_(); }

 private:
  std::function<void()> action_;
};

TEST_P(RpLocalTest, Disrupter_SetDeletedBeforeRouteHandlerRuns_CountStillNamesIt) {
  Kel::Ptr<OnChangedRoute> disrupter(new OnChangedRoute([&] {
    if (staticStatus->crpSet(group())) staticStatus->crpSetDel(group());
  }));
  disrupter->notifierIs(trie());  // ahead of the reactor's trie reactor
  shadowIs();
  rpIs(staticStatus, group(), rp());
  hostRouteIs(rp(), "Ethernet1");
  // The set reactor went without counting off, so the route path still adds the address; the
  // next full pass prunes it.
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  sm->handleInitialized();
  EXPECT_EQ(table(), std::vector<std::string>{});
  disrupter->notifierIs(nullptr);
}

TEST_P(RpLocalTest, Disrupter_OwnerDroppedInsideRouteHandler_FinishesOnLiveOwner) {
  shadowIs();
  rpIs(staticStatus, group(), rp());
  Kel::Ptr<OnLocalRpSet> disrupter(new OnLocalRpSet([&](const IpGenAddr&) { sm = nullptr; }));
  disrupter->notifierIs(local);
  hostRouteIs(rp(), "Ethernet1");
  EXPECT_FALSE(sm);
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  EXPECT_EQ(trie()->notifiees(), 0u);
  EXPECT_EQ(staticStatus->notifiees(), 0u);
  disrupter->notifierIs(nullptr);
}

// --- A story with both sources -------------------------------------------------------------

TEST_P(RpLocalTest, Story_BothSourcesRoutesShadowDetachAndInterfaceChange) {
  // Static and BSR name rp; static also names rp2.
  hostRouteIs(rp(), "Ethernet1");
  shadowIs();
  rpIs(staticStatus, group(), rp());
  rpIs(bsrStatus, group2(), rp());
  rpIs(staticStatus, group(), rp2());
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  EXPECT_EQ(sm->rp(rp()), 2u);

  // rp2's host route comes, goes and comes back.
  hostRouteIs(rp2(), "Ethernet2");
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}, {rp2(), "Ethernet2"}}));
  routeDel(host(rp2()));
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}}));
  hostRouteIs(rp2(), "Ethernet2");
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}, {rp2(), "Ethernet2"}}));

  // Detached, the reactor hears no route change; re-attached, it re-evaluates everything.
  shadowDel();
  hostRouteIs(rp(), "Ethernet3");
  EXPECT_EQ(table(), table({{rp(), "Ethernet1"}, {rp2(), "Ethernet2"}}));
  capture.clear();
  shadowIs();
  EXPECT_EQ(table(), table({{rp(), "Ethernet3"}, {rp2(), "Ethernet2"}}));
  EXPECT_EQ(
      capture.levelled({5}),
      (TraceLines{localOn(rp(), "Ethernet3"),
                  line(5, "Deleted RP " + text(rp()) +
                              " from local information table since intfId doesnt match"),
                  localOn(rp2(), "Ethernet2"), localOn(rp(), "Ethernet3"), added(rp(), "Ethernet3"),
                  localOn(rp2(), "Ethernet2"), localOn(rp(), "Ethernet3")}));
  EXPECT_EQ(sm->rp(rp()), 4u);  // the rescan counted both memberships again
  EXPECT_EQ(sm->rp(rp2()), 2u);

  // rp2 moves to another interface: picked up at the next handleInitialized only.
  hostRouteIs(rp2(), "Ethernet4");
  EXPECT_EQ(table(), table({{rp(), "Ethernet3"}, {rp2(), "Ethernet2"}}));
  sm->handleInitialized();
  EXPECT_EQ(table(), table({{rp(), "Ethernet3"}, {rp2(), "Ethernet4"}}));

  // Both sources drop rp: its inflated count keeps the entry until a full pass prunes it.
  rpDel(bsrStatus, group2(), rp());
  rpDel(staticStatus, group(), rp());
  EXPECT_EQ(table(), table({{rp(), "Ethernet3"}, {rp2(), "Ethernet4"}}));
  sm->handleInitialized();
  EXPECT_EQ(table(), table({{rp2(), "Ethernet4"}}));
}

}  // namespace
