#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "model/Pim/RpHashStatus.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;

RpHash entryFor(const char* prefix, const char* rp, RpPriority priority = 10) {
  return RpHash(IpGenPrefix(prefix), IpGenAddr(rp), priority, 30, false, modePimSm);
}

struct Watcher : RpHashStatus::NotifieeConst {
  std::vector<std::string> keys;
  void onRpHash(const IpGenPrefix& prefix) override { keys.push_back(prefix.valueToStrep()); }
};

TEST(RpHash, Default_IsAbsenceMarker) {
  const RpHash entry;
  EXPECT_TRUE(entry.key().isNull());
  EXPECT_EQ(entry.address().af(), Ipkit::ipunknown());
  EXPECT_EQ(entry.priority(), 256u);
  EXPECT_EQ(entry.hashMaskLen(), 128u);
  EXPECT_FALSE(entry.override());
  EXPECT_EQ(entry.mode(), modePimNone);
  EXPECT_TRUE(!entry.info());
}

TEST(RpHash, Equality_ComparesAllSixFields) {
  const RpHash base = entryFor("239.0.0.0/8", "10.0.0.1");
  EXPECT_EQ(base, entryFor("239.0.0.0/8", "10.0.0.1"));
  EXPECT_NE(base, entryFor("239.0.0.0/9", "10.0.0.1"));
  EXPECT_NE(base, entryFor("239.0.0.0/8", "10.0.0.2"));
  EXPECT_NE(base, entryFor("239.0.0.0/8", "10.0.0.1", 11));
  EXPECT_NE(base, RpHash(base.key(), base.address(), 10, 31, false, modePimSm));
  EXPECT_NE(base, RpHash(base.key(), base.address(), 10, 30, true, modePimSm));
  EXPECT_NE(base, RpHash(base.key(), base.address(), 10, 30, false, modePimBidir));
}

TEST(RpHash, StreamForm_Readable) {
  std::ostringstream out;
  out << entryFor("239.0.0.0/8", "10.0.0.1");
  EXPECT_EQ(out.str(),
            "RpHash(239.0.0.0/8 -> 10.0.0.1, priority 10, hashMaskLen 30, override "
            "False, modePimSm)");
}

TEST(RpHashStatus, LookupNeverWritten_YieldsDefaultEntry) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  const RpHash found = table->rpHash(IpGenPrefix("239.1.1.1/32"));
  EXPECT_EQ(found, RpHash());
  EXPECT_EQ(found.priority(), 256u);
  EXPECT_EQ(found.hashMaskLen(), 128u);
  EXPECT_FALSE(found.override());
  EXPECT_EQ(found.mode(), modePimNone);
  EXPECT_EQ(found.address().af(), Ipkit::ipunknown());
}

TEST(RpHashStatus, DeleteAbsentPrefix_ChangesNothing) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  Watcher watcher;
  watcher.notifierIs(table);
  table->rpHashDel(IpGenPrefix("232.0.0.0/8"));
  EXPECT_TRUE(watcher.keys.empty());
  EXPECT_EQ(table->rpHashs(), 1u);
  EXPECT_EQ(table->rpHash(IpGenPrefix("239.0.0.0/8")), entryFor("239.0.0.0/8", "10.0.0.1"));
  watcher.notifierIs(nullptr);
}

TEST(RpHashStatus, AddReplaceRemove_EachNotifiesKey_SameValueNotifiesNothing) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  Watcher watcher;
  watcher.notifierIs(table);
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.2"));
  table->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(watcher.keys, (std::vector<std::string>{"239.0.0.0/8", "239.0.0.0/8", "239.0.0.0/8"}));
  EXPECT_EQ(table->rpHashs(), 0u);
  watcher.notifierIs(nullptr);
}

TEST(RpHashStatus, ManyEntries_IterationAndCountSeeEveryOne) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  for (unsigned i = 0; i < 5000; ++i) {
    table->rpHashIs(RpHash(IpGenPrefix::hostPrefix(IpGenAddr::ip4(0xef000000u + i)),
                           IpGenAddr("10.0.0.1"), i % 256, 30, false, modePimSm));
  }
  for (unsigned i = 0; i < 5000; i += 2) {
    table->rpHashDel(IpGenPrefix::hostPrefix(IpGenAddr::ip4(0xef000000u + i)));
  }
  EXPECT_EQ(table->rpHashs(), 2500u);
  std::size_t seen = 0;
  for (const RpHash entry : table->rpHash()) {
    const unsigned i = entry.key().address().ip4Addr().value() - 0xef000000u;
    EXPECT_EQ(i % 2, 1u);
    EXPECT_EQ(entry.priority(), i % 256);
    ++seen;
  }
  EXPECT_EQ(seen, 2500u);
  EXPECT_EQ(table->rpHash(IpGenPrefix::hostPrefix(IpGenAddr::ip4(0xef000001u))).priority(), 1u);
  EXPECT_EQ(table->rpHash(IpGenPrefix::hostPrefix(IpGenAddr::ip4(0xef000002u))), RpHash());
}

TEST(RpHashStatus, Reader_SeesWriterChangesAndCannotWrite) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  const auto reader = table->reader();
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  EXPECT_EQ(reader.lookup(IpGenPrefix("239.0.0.0/8")).address(), IpGenAddr("10.0.0.1"));
  EXPECT_EQ(reader.mode(), Mirra::AttachMode::reader);
  auto copy = reader;
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { copy.insert(entryFor("232.0.0.0/8", "10.0.0.1")); }),
            "MirraMap::insert() on a reader attachment not allowed");
}

TEST(RpHashStatus, CorruptedEntry_ReaderGetsExceptionAndHandlerRecordsMessage) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  table->rpHashIs(entryFor("232.0.0.0/8", "10.0.0.2"));
  Mirra::testing::MirraMapBackdoor::damageValue(table->rpHash(), IpGenPrefix("239.0.0.0/8"));
  TestSupport::TraceCapture debug("Debug");
  const std::string message = TestSupport::refusalOf<Mirra::CorruptionDetectedException>(
      [&] { table->rpHash(IpGenPrefix("239.0.0.0/8")); });
  EXPECT_EQ(table->lastCorruption(), message);
  EXPECT_NE(message.find("fails its checksum"), std::string::npos);
  EXPECT_EQ(debug.lines(), std::vector<std::string>{"MirraMap::corruptionDetected() " + message});
  EXPECT_THROW(table->reader().lookup(IpGenPrefix("239.0.0.0/8")),
               Mirra::CorruptionDetectedException);
  // Other entries still read.
  EXPECT_EQ(table->rpHash(IpGenPrefix("232.0.0.0/8")).address(), IpGenAddr("10.0.0.2"));
}

TEST(RpHashStatus, Iteration_AscendingPrefixOrderIPv4BeforeIPv6) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  for (const char* prefix : {"ff3e::/32", "239.1.0.0/16", "232.0.0.0/8", "239.0.0.0/8"}) {
    table->rpHashIs(entryFor(prefix, "10.0.0.1"));
  }
  std::vector<std::string> keys;
  for (const RpHash& entry : table->rpHash()) keys.push_back(entry.key().valueToStrep());
  EXPECT_EQ(keys,
            (std::vector<std::string>{"232.0.0.0/8", "239.0.0.0/8", "239.1.0.0/16", "ff3e::/32"}));
}

TEST(RpHashStatus, RpHashFrom_VanishedBookmarkResumesAtNextKey) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  for (const char* prefix : {"232.0.0.0/8", "239.0.0.0/8", "239.1.0.0/16"}) {
    table->rpHashIs(entryFor(prefix, "10.0.0.1"));
  }
  const IpGenPrefix bookmark("239.0.0.0/8");
  EXPECT_EQ(table->rpHashFrom(bookmark)->key(), bookmark);
  table->rpHashDel(bookmark);
  EXPECT_EQ(table->rpHashFrom(bookmark)->key(), IpGenPrefix("239.1.0.0/16"));
  EXPECT_EQ(table->rpHashFrom(IpGenPrefix("239.2.0.0/16")), table->rpHash().end());
}

TEST(RpHashStatus, ForEachRpHashWithin_VisitsThePrefixAndWhatItContainsOnly) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  for (const char* prefix : {"224.0.0.0/4", "239.0.0.0/8", "239.0.0.0/16", "239.1.2.3/32",
                             "239.255.0.0/16", "240.0.0.0/8", "ff3e::/32"}) {
    table->rpHashIs(entryFor(prefix, "10.0.0.1"));
  }
  std::vector<std::string> keys;
  table->forEachRpHashWithin(IpGenPrefix("239.0.0.0/8"), [&](const RpHash& entry) {
    keys.push_back(entry.key().valueToStrep());
  });
  EXPECT_EQ(keys, (std::vector<std::string>{"239.0.0.0/8", "239.0.0.0/16", "239.1.2.3/32",
                                            "239.255.0.0/16"}));
}

TEST(RpHashStatus, ForEachRpHashWithin_VisitorDeletesEachEntry_WalkCompletes) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  for (unsigned i = 0; i < 200; ++i) {
    table->rpHashIs(RpHash(IpGenPrefix::hostPrefix(IpGenAddr::ip4(0xef000000u + i)),
                           IpGenAddr("10.0.0.1"), 10, 30, false, modePimSm));
  }
  table->rpHashIs(entryFor("239.0.1.0/24", "10.0.0.1"));
  std::size_t visited = 0;
  table->forEachRpHashWithin(IpGenPrefix("239.0.0.0/24"), [&](const RpHash& entry) {
    ++visited;
    table->rpHashDel(entry.key());
  });
  EXPECT_EQ(visited, 200u);
  EXPECT_EQ(table->rpHashs(), 1u);
}

TEST(RpHashStatus, WriterRewritesCorruptedEntry_NotifiesAndReadsAgain) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  Mirra::testing::MirraMapBackdoor::damageValue(table->rpHash(), IpGenPrefix("239.0.0.0/8"));
  Watcher watcher;
  watcher.notifierIs(table);
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  EXPECT_EQ(watcher.keys, std::vector<std::string>{"239.0.0.0/8"});
  EXPECT_EQ(table->corruptions(), 1u);
  EXPECT_EQ(table->rpHash(IpGenPrefix("239.0.0.0/8")), entryFor("239.0.0.0/8", "10.0.0.1"));
  watcher.notifierIs(nullptr);
}

TEST(RpHashStatus, ReaderAttachmentDetects_RecordsItselfNotTheWriter) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  const auto reader = table->reader();
  Mirra::testing::MirraMapBackdoor::damageValue(table->rpHash(), IpGenPrefix("239.0.0.0/8"));
  EXPECT_THROW(reader.lookup(IpGenPrefix("239.0.0.0/8")), Mirra::CorruptionDetectedException);
  EXPECT_EQ(reader.corruptions(), 1u);
  EXPECT_EQ(table->corruptions(), 0u);
  EXPECT_EQ(table->lastCorruption(), "");
}

TEST(RpHashStatus, CaughtCorruptionHandedBack_ReportedOnce) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus);
  table->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  Mirra::testing::MirraMapBackdoor::damageValue(table->rpHash(), IpGenPrefix("239.0.0.0/8"));
  TestSupport::TraceCapture debug("Debug");
  const auto caught = TestSupport::thrownBy<Mirra::CorruptionDetectedException>(
      [&] { table->rpHash(IpGenPrefix("239.0.0.0/8")); });
  ASSERT_TRUE(caught);
  table->corruptionDetected(*caught);
  EXPECT_EQ(table->corruptions(), 1u);
  EXPECT_EQ(debug.lines().size(), 1u);
}

TEST(MirraMap, ReadyAndAdvertise_DebugMessagesAsWritten) {
  RpHashStatus::Table table;
  TestSupport::TraceCapture debug("Debug");
  table.collectionReadyIs(true, false);
  table.advertiseCollectionReady(true);
  table.advertiseCollectionReady(true);
  table.advertiseCollectionReady(false);
  table.detach();
  EXPECT_EQ(debug.lines(),
            (std::vector<std::string>{
                "MirraMap::collectionReadyIs() ready:1 notifying:0",
                "MirraMap::advertiseCollectionReady() in synchronous mode",
                "MirraMap::advertiseCollectionReady() collection already advertised",
                "MirraMap::advertiseCollectionReady() notifications unexpectedly disabled",
                "MirraMap::detach() ",
            }));
  EXPECT_EQ(table.mode(), Mirra::AttachMode::reader);
  EXPECT_EQ(table.members(), 0u);
}

// A status over a shared table: a name of this test process, removed before and after the test
// however it ends, so that a crashed earlier run leaves nothing in the way.
class RpHashStatusShared : public ::testing::Test {
 protected:
  void SetUp() override {
    name_ = "pimrp-test-" + std::to_string(getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name();
    RpHashStatus::Table::unlinkShared(name_);
  }
  void TearDown() override { RpHashStatus::Table::unlinkShared(name_); }
  std::string name_;
};

TEST_F(RpHashStatusShared, WritesThroughStatus_SeenByAnotherAttachment) {
  Kel::Ptr<RpHashStatus> writer(
      new RpHashStatus(RpHashStatus::Table::attachShared(name_, Mirra::AttachMode::singleWriter)));
  const RpHashStatus reader(RpHashStatus::Table::attachShared(name_, Mirra::AttachMode::reader));
  writer->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  writer->rpHashIs(entryFor("239.1.0.0/16", "10.0.0.2"));
  EXPECT_EQ(reader.rpHash(IpGenPrefix("239.0.0.0/8")), entryFor("239.0.0.0/8", "10.0.0.1"));
  EXPECT_EQ(reader.rpHashs(), 2u);
  writer->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.3"));
  writer->rpHashDel(IpGenPrefix("239.1.0.0/16"));
  EXPECT_EQ(reader.rpHash(IpGenPrefix("239.0.0.0/8")), entryFor("239.0.0.0/8", "10.0.0.3"));
  EXPECT_EQ(reader.rpHash(IpGenPrefix("239.1.0.0/16")), RpHash());
  EXPECT_EQ(reader.rpHashs(), 1u);
  EXPECT_TRUE(writer->rpHash().shared());
  EXPECT_EQ(writer->rpHash().sharedName(), name_);
}

TEST_F(RpHashStatusShared, AbsentPrefix_YieldsDefaultEntry) {
  const RpHashStatus writer(
      RpHashStatus::Table::attachShared(name_, Mirra::AttachMode::singleWriter));
  const RpHashStatus reader(RpHashStatus::Table::attachShared(name_, Mirra::AttachMode::reader));
  const RpHash absent = reader.rpHash(IpGenPrefix("239.9.0.0/16"));
  EXPECT_EQ(absent, RpHash());
  EXPECT_EQ(absent.address().af(), Ipkit::ipunknown());
  EXPECT_EQ(absent.priority(), 256u);
  EXPECT_EQ(absent.hashMaskLen(), 128u);
  EXPECT_FALSE(absent.override());
  EXPECT_EQ(absent.mode(), modePimNone);
  EXPECT_EQ(writer.rpHash(IpGenPrefix("ff0e::/16")), RpHash());
}

TEST_F(RpHashStatusShared, SurvivesItsWriter_NextWriterContinuesIt) {
  {
    Kel::Ptr<RpHashStatus> first(new RpHashStatus(
        RpHashStatus::Table::attachShared(name_, Mirra::AttachMode::singleWriter)));
    first->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1"));
  }
  Kel::Ptr<RpHashStatus> next(
      new RpHashStatus(RpHashStatus::Table::attachShared(name_, Mirra::AttachMode::singleWriter)));
  EXPECT_EQ(next->rpHashs(), 1u);
  EXPECT_EQ(next->rpHash(IpGenPrefix("239.0.0.0/8")), entryFor("239.0.0.0/8", "10.0.0.1"));
}

TEST_F(RpHashStatusShared, ReaderStatus_RefusesWrites) {
  const RpHashStatus writer(
      RpHashStatus::Table::attachShared(name_, Mirra::AttachMode::singleWriter));
  Kel::Ptr<RpHashStatus> reader(
      new RpHashStatus(RpHashStatus::Table::attachShared(name_, Mirra::AttachMode::reader)));
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { reader->rpHashIs(entryFor("239.0.0.0/8", "10.0.0.1")); }),
            "MirraMap::insert() on a reader attachment not allowed");
  EXPECT_EQ(writer.rpHashs(), 0u);
}

}  // namespace
