#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Kel/System.h"
#include "pipeline/VrfPipeline.h"
#include "tests/support/Refusal.h"

namespace {

using namespace PimrpPipeline;
using namespace Routing::Pim;
using Ipkit::AddressFamily;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;

// A host in virtual time from 0, as the tests drive it.
VrfPipeline::Host virtualHost() {
  Kel::System::virtualTimeIs(0);
  return VrfPipeline::Host{Kel::Ptr<Kel::Clock>(new Kel::Clock),
                           Kel::Ptr<PimAttrLogSm>(new PimAttrLogSm)};
}

// Delivers every pending wake-up, moving virtual time to each.
void settle(const VrfPipeline::Host& host) {
  while (host.clock->runNext()) {
  }
}

// Binds `rp` to `range` with priority 0 and hash mask 30, as a configured static RP.
void staticRpIs(VrfPipeline& pipeline, const std::string& rp, const std::string& range) {
  const IpGenAddr address(rp);
  const IpGenPrefix prefix(range);
  const auto entry = pipeline.family(address.af()).staticConfig()->rpTableIs(address);
  entry->priorityGrpIs(prefix, 0);
  entry->hashMaskGrpIs(prefix, 30);
  entry->groupIs(prefix, true);
}

void groupIs(VrfPipeline& pipeline, const std::string& group) {
  const IpGenAddr address(group);
  pipeline.family(address.af()).groups()->groupIs(address, true);
}

const Kel::Ptr<RpHashStatus>& table(VrfPipeline& pipeline, HashSource source, HashKind kind) {
  return pipeline.family(AddressFamily::ipv4).table(source, kind, modePimSm);
}

// The RP of the entry of `key` (a group's host prefix or a range) in an IPv4 sparse table.
IpGenAddr rpIn(VrfPipeline& pipeline, HashSource source, HashKind kind, const std::string& key) {
  return table(pipeline, source, kind)->rpHash(IpGenPrefix(key)).address();
}

TEST(VrfPipeline, Construction_StaticConfigurationNamedAfterTheVrf) {
  VrfPipeline pipeline(L3::VrfName("red"), virtualHost());
  EXPECT_EQ(pipeline.vrf(), L3::VrfName("red"));
  for (const auto af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
    EXPECT_EQ(pipeline.family(af).af(), af);
    EXPECT_EQ(pipeline.family(af).staticConfig()->vrfName(), L3::VrfName("red"));
    EXPECT_EQ(pipeline.family(af).staticStatus()->rpSetType(), rpTypeStatic);
    EXPECT_EQ(pipeline.family(af).bsrStatus()->rpSetType(), rpTypeBsr);
  }
}

TEST(VrfPipeline, BeforeReviewsStart_NoTableWrittenAndNoReview) {
  const auto host = virtualHost();
  VrfPipeline pipeline(L3::VrfName(), host);
  staticRpIs(pipeline, "10.0.0.1", "239.0.0.0/8");
  groupIs(pipeline, "239.1.1.1");
  settle(host);
  EXPECT_FALSE(pipeline.reviewsStarted());
  EXPECT_FALSE(pipeline.family(AddressFamily::ipv4).review(HashSource::staticRp, modePimSm));
  EXPECT_EQ(table(pipeline, HashSource::staticRp, HashKind::prefixes)->rpHashs(), 0u);
  EXPECT_EQ(table(pipeline, HashSource::staticRp, HashKind::groups)->rpHashs(), 0u);
  // The static candidate reactor runs from construction: the candidate is there already.
  EXPECT_TRUE(
      pipeline.family(AddressFamily::ipv4).staticStatus()->crpSet(IpGenPrefix("239.0.0.0/8")));
}

TEST(VrfPipeline, ReviewsStart_WritesThePerSourceTablesOnlyUntilStart) {
  const auto host = virtualHost();
  VrfPipeline pipeline(L3::VrfName(), host);
  staticRpIs(pipeline, "10.0.0.1", "239.0.0.0/8");
  groupIs(pipeline, "239.1.1.1");
  pipeline.reviewsStart();
  settle(host);
  EXPECT_TRUE(pipeline.reviewsStarted());
  EXPECT_FALSE(pipeline.started());
  EXPECT_EQ(rpIn(pipeline, HashSource::staticRp, HashKind::groups, "239.1.1.1/32"),
            IpGenAddr("10.0.0.1"));
  EXPECT_EQ(table(pipeline, HashSource::final, HashKind::groups)->rpHashs(), 0u);
  EXPECT_FALSE(pipeline.family(AddressFamily::ipv4).compute(modePimSm));
  EXPECT_FALSE(pipeline.family(AddressFamily::ipv4).groupFilter(modePimSm));
  EXPECT_EQ(pipeline.allocRequests()->allocRequestCount(), 0u);
}

TEST(VrfPipeline, Start_MergesIntoTheFinalTablesAndAnswers) {
  const auto host = virtualHost();
  VrfPipeline pipeline(L3::VrfName(), host);
  pipeline.start();
  staticRpIs(pipeline, "10.0.0.1", "239.0.0.0/8");
  groupIs(pipeline, "239.1.1.1");
  settle(host);
  EXPECT_TRUE(pipeline.reviewsStarted());
  EXPECT_TRUE(pipeline.started());
  EXPECT_EQ(rpIn(pipeline, HashSource::final, HashKind::groups, "239.1.1.1/32"),
            IpGenAddr("10.0.0.1"));
  EXPECT_EQ(rpIn(pipeline, HashSource::final, HashKind::prefixes, "239.0.0.0/8"),
            IpGenAddr("10.0.0.1"));
  const auto& family = pipeline.family(AddressFamily::ipv4);
  EXPECT_EQ(family.compute(modePimSm)->rpHashCompute(IpGenAddr("239.9.9.9"), IpGenAddr()),
            IpGenAddr("10.0.0.1"));
  EXPECT_TRUE(family.groupFilter(modePimSm)->permitGroup(IpGenPrefix("239.1.1.1/32")));
  EXPECT_FALSE(family.groupFilter(modePimBidir)->permitGroup(IpGenPrefix("239.1.1.1/32")));
  // One request per final entry that names the RP: the range's and the group's.
  using Request = BitMapper::Config::Request;
  const Request alloc{BitMapper::Config::RequestKind::alloc,
                      BitMapper::BitMapperKey(Ipkit::IntfId(), IpGenAddr("10.0.0.1"))};
  EXPECT_EQ(pipeline.allocRequests()->requests(), (std::vector<Request>{alloc, alloc}));
}

// Why only the known groups go before reviewsStart(): a review that starts over a range already
// configured computes the range's own entry before the range is in its trie.
TEST(VrfPipeline, RangeConfiguredBeforeReviewsStart_RangeEntryWithoutRp) {
  const auto host = virtualHost();
  VrfPipeline pipeline(L3::VrfName(), host);
  staticRpIs(pipeline, "10.0.0.1", "239.0.0.0/8");
  groupIs(pipeline, "239.1.1.1");
  pipeline.start();
  settle(host);
  EXPECT_EQ(rpIn(pipeline, HashSource::final, HashKind::groups, "239.1.1.1/32"),
            IpGenAddr("10.0.0.1"));
  EXPECT_EQ(rpIn(pipeline, HashSource::staticRp, HashKind::prefixes, "239.0.0.0/8"), IpGenAddr());
}

// Which table each reader reads is pinned by the tool's session tests; here, that every reader
// takes the VRF's own configuration and statuses.
TEST(VrfPipeline, Wiring_EveryReaderOverTheVrfsOwnConfigurationAndStatuses) {
  VrfPipeline pipeline(L3::VrfName(), virtualHost());
  pipeline.start();
  for (const auto af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
    const FamilyWiring& family = pipeline.family(af);
    for (const Mode mode : {modePimNone, modePimSm, modePimBidir}) {
      EXPECT_EQ(family.compute(mode)->staticRpSet(), family.staticStatus());
      EXPECT_EQ(family.compute(mode)->bsrRpSet(), family.bsrStatus());
      EXPECT_EQ(family.compute(mode)->rpConfig(), pipeline.rpConfig());
    }
    for (const HashSource source : {HashSource::staticRp, HashSource::bsr}) {
      EXPECT_EQ(family.review(source, modePimBidir)->rpConfig(), pipeline.rpConfig());
    }
  }
}

TEST(VrfPipeline, TwoVrfs_ShareOnlyTheHost) {
  const auto host = virtualHost();
  VrfPipeline red(L3::VrfName("red"), host);
  VrfPipeline blue(L3::VrfName("blue"), host);
  red.start();
  blue.start();
  EXPECT_NE(red.rpConfig(), blue.rpConfig());
  EXPECT_NE(red.allocRequests(), blue.allocRequests());
  staticRpIs(red, "10.0.0.1", "239.0.0.0/8");
  groupIs(red, "239.1.1.1");
  groupIs(blue, "239.1.1.1");
  red.rpConfig()->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  settle(host);
  EXPECT_EQ(table(red, HashSource::final, HashKind::groups)->rpHashs(), 1u);
  EXPECT_EQ(table(blue, HashSource::final, HashKind::groups)->rpHashs(), 0u);
  EXPECT_TRUE(blue.family(AddressFamily::ipv4).staticStatus()->crpSet().empty());
  EXPECT_EQ(blue.rpConfig()->rpHashAlgorithm(), rpHashAlgorithmRfc7761);
  EXPECT_EQ(blue.allocRequests()->allocRequestCount(), 0u);
}

// Embedded RP is part of each VRF's pipeline, off by default: on in red, a known group that names
// its RP gets it above a static override, in the final table, the answer and local RP detection;
// blue, with the same configuration and groups, answers as without the feature.
TEST(VrfPipeline, EmbeddedRp_OnInOneVrf_OtherVrfAsWithoutIt) {
  const auto host = virtualHost();
  VrfPipeline red(L3::VrfName("red"), host);
  VrfPipeline blue(L3::VrfName("blue"), host);
  const IpGenAddr group("ff75:130:2001:db8:ffff::100");
  const IpGenAddr staticRp("2001:db8::9");
  const IpGenAddr embeddedRp("2001:db8:ffff::1");
  for (VrfPipeline* vrf : {&red, &blue}) {
    vrf->start();
    auto& family = vrf->family(AddressFamily::ipv6);
    EXPECT_FALSE(family.embeddedRp().config()->enabled());
    family.staticConfig()->rpTableIs(staticRp)->overrideDynGrpIs(IpGenPrefix("ff00::/8"), true);
    family.staticConfig()->rpTableIs(staticRp)->groupIs(IpGenPrefix("ff00::/8"), true);
    family.routeIs(IpGenPrefix::hostPrefix(embeddedRp), 1,
                   {Routing::ShadowFib::ViaEntry{embeddedRp, Ipkit::IntfId("Loopback0")}});
    groupIs(*vrf, group.valueToStrep());
  }
  red.family(AddressFamily::ipv6).embeddedRp().config()->enabledIs(true);
  settle(host);

  const auto finalRp = [&group](const VrfPipeline& vrf) {
    return vrf.family(AddressFamily::ipv6)
        .table(HashSource::final, HashKind::groups, modePimSm)
        ->rpHash(IpGenPrefix::hostPrefix(group))
        .address();
  };
  const auto answer = [&group](const VrfPipeline& vrf) {
    return vrf.family(AddressFamily::ipv6).compute(modePimSm)->rpHashCompute(group, IpGenAddr());
  };
  const auto& redStatus = *red.family(AddressFamily::ipv6).embeddedRp().status();
  EXPECT_TRUE(redStatus.enabled());
  EXPECT_EQ(redStatus.group().size(), 1u);
  EXPECT_EQ(redStatus.rp(embeddedRp), 1u);
  EXPECT_EQ(finalRp(red), embeddedRp);
  EXPECT_EQ(answer(red), embeddedRp);
  EXPECT_TRUE(red.family(AddressFamily::ipv6).localRpStatus()->localRpSet().contains(embeddedRp));

  const auto& blueStatus = *blue.family(AddressFamily::ipv6).embeddedRp().status();
  EXPECT_FALSE(blueStatus.enabled());
  EXPECT_TRUE(blueStatus.group().empty());
  EXPECT_TRUE(blueStatus.rp().empty());
  EXPECT_EQ(finalRp(blue), staticRp);
  EXPECT_EQ(answer(blue), staticRp);
  EXPECT_FALSE(blue.family(AddressFamily::ipv6).localRpStatus()->localRpSet().contains(embeddedRp));
  EXPECT_EQ(blue.allocRequests()->deallocRequestCount(), 0u);
}

// The shared tables of one test, removed before it (a crashed earlier run may have left them) and
// after it, however it ends.
class SharedTablesOfTest {
 public:
  explicit SharedTablesOfTest(const L3::VrfName& vrf)
      : name_("pimrp-pipeline-test-" + std::to_string(getpid()) + "-" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name()),
        vrf_(vrf) {
    sharedTablesUnlink(name_, vrf_);
  }
  ~SharedTablesOfTest() { sharedTablesUnlink(name_, vrf_); }
  SharedTablesOfTest(const SharedTablesOfTest&) = delete;
  SharedTablesOfTest& operator=(const SharedTablesOfTest&) = delete;

  const std::string& name() const { return name_; }

 private:
  const std::string name_;
  const L3::VrfName vrf_;
};

TEST(VrfPipeline, SharedWriter_TablesNamedAfterTheVrfAndKeptForReaders) {
  const L3::VrfName red("red");
  const SharedTablesOfTest tables(red);
  const auto host = virtualHost();
  {
    VrfPipeline writer(red, host, TableHome(TableHome::Kind::sharedWriter, tables.name()));
    staticRpIs(writer, "10.0.0.1", "239.0.0.0/8");
    groupIs(writer, "239.1.1.1");
    writer.start();
    settle(host);
    EXPECT_EQ(table(writer, HashSource::final, HashKind::groups)->rpHash().sharedName(),
              tables.name() + ".vrf.red.ipv4.sparse.final.groups");
  }
  // The writer is gone; its tables stay as it left them.
  VrfPipeline reader(red, host, TableHome(TableHome::Kind::sharedReader, tables.name()));
  EXPECT_EQ(rpIn(reader, HashSource::final, HashKind::groups, "239.1.1.1/32"),
            IpGenAddr("10.0.0.1"));
}

TEST(VrfPipeline, SharedReader_OfTablesThatDoNotExist_Refused) {
  const SharedTablesOfTest tables{L3::VrfName("blue")};
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] {
              VrfPipeline reader(L3::VrfName("blue"), virtualHost(),
                                 TableHome(TableHome::Kind::sharedReader, tables.name()));
            }),
            "MirraMap::attach() table " + tables.name() +
                ".vrf.blue.ipv4.sparse.static.groups does not exist");
}

TEST(VrfPipeline, Restart_GroupsPutBackFirst_DropsWhatNoLongerHasAReason) {
  const SharedTablesOfTest tables{L3::VrfName()};
  const auto host = virtualHost();
  const TableHome home(TableHome::Kind::sharedWriter, tables.name());
  {
    VrfPipeline first(L3::VrfName(), host, home);
    staticRpIs(first, "10.0.0.1", "239.0.0.0/8");
    groupIs(first, "239.1.1.1");
    groupIs(first, "239.1.1.2");
    first.start();
    settle(host);
    ASSERT_EQ(table(first, HashSource::final, HashKind::groups)->rpHashs(), 2u);
  }
  VrfPipeline second(L3::VrfName(), host, home);
  groupIs(second, "239.1.1.1");
  second.reviewsStart();
  staticRpIs(second, "10.0.0.1", "239.0.0.0/8");
  settle(host);
  EXPECT_EQ(table(second, HashSource::staticRp, HashKind::groups)->rpHashs(), 1u);
  // Until start() the final table is the earlier run's.
  EXPECT_EQ(table(second, HashSource::final, HashKind::groups)->rpHashs(), 2u);
  second.start();
  settle(host);
  const auto& final = table(second, HashSource::final, HashKind::groups);
  EXPECT_EQ(final->rpHashs(), 1u);
  EXPECT_EQ(final->rpHash(IpGenPrefix("239.1.1.1/32")).address(), IpGenAddr("10.0.0.1"));
  EXPECT_EQ(second.allocRequests()->deallocRequestCount(), 1u);
}

}  // namespace
