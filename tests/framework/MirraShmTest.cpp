#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/MirraMap.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "tests/framework/MirraShmTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Mirra::AttachMode;
using Mirra::testing::MirraMapBackdoor;
using MirraShmTest::answerFromChild;
using MirraShmTest::Record;
using MirraShmTest::recordFor;
using MirraShmTest::segmentExists;
using MirraShmTest::SegmentGuard;
using MirraShmTest::Table;

std::string attachFailure(const std::string& name, AttachMode mode) {
  return TestSupport::refusalOf<Kel::RangeException>([&] { Table::attachShared(name, mode); });
}

class MirraShm : public ::testing::Test {
 protected:
  TestSupport::TraceCapture debug{"Debug"};
  SegmentGuard segment{::testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(MirraShm, ReaderInAnotherProcess_SeesMembersLookupsAndKeyOrder) {
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  for (std::uint64_t key : {30u, 10u, 20u}) writer.insert(recordFor(key, 1));
  writer.erase(20);
  const std::string seen = answerFromChild([&] {
    const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
    std::string answer = "members:" + std::to_string(reader.members());
    for (const Record& record : reader) {
      answer += " " + std::to_string(record.key) + "/" + std::to_string(record.round);
    }
    answer += reader.lookup(20) == Record() ? " 20 absent" : " 20 present";
    answer += reader.lookup(30) == recordFor(30, 1) ? " 30 whole" : " 30 wrong";
    return answer;
  });
  EXPECT_EQ(seen, "members:2 10/1 30/1 20 absent 30 whole");
}

TEST_F(MirraShm, SecondWriter_RefusedWithReason) {
  const Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  EXPECT_EQ(attachFailure(segment.name(), AttachMode::singleWriter),
            "MirraMap::attach() table " + segment.name() + " already has a writer");
  const std::string fromChild =
      answerFromChild([&] { return attachFailure(segment.name(), AttachMode::singleWriter); });
  EXPECT_EQ(fromChild, "MirraMap::attach() table " + segment.name() + " already has a writer");
}

TEST_F(MirraShm, WriterGone_NextWriterContinuesTable) {
  {
    Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
    for (std::uint64_t key = 0; key < 40; ++key) writer.insert(recordFor(key, 2));
    writer.erase(7);
  }
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  EXPECT_EQ(writer.members(), 39u);
  EXPECT_EQ(writer.lookup(8), recordFor(8, 2));
  EXPECT_EQ(writer.lookup(7), Record());
  EXPECT_TRUE(writer.insert(recordFor(7, 3)));
  std::vector<std::uint64_t> keys;
  for (const Record& record : writer) keys.push_back(record.key);
  ASSERT_EQ(keys.size(), 40u);
  for (std::uint64_t key = 0; key < 40; ++key) EXPECT_EQ(keys[key], key);
  EXPECT_EQ(writer.corruptions(), 0u);
}

TEST_F(MirraShm, ReaderAttachment_RefusesWritesThroughTheInterface) {
  const Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { reader.insert(recordFor(1, 1)); }),
            "MirraMap::insert() on a reader attachment not allowed");
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { reader.erase(1); }),
            "MirraMap::erase() on a reader attachment not allowed");
  EXPECT_EQ(
      TestSupport::refusalOf<Kel::RangeException>([&] { reader.collectionReadyIs(true, true); }),
      "MirraMap::collectionReadyIs() on a reader attachment not allowed");
  EXPECT_EQ(
      TestSupport::refusalOf<Kel::RangeException>([&] { reader.advertiseCollectionReady(true); }),
      "MirraMap::advertiseCollectionReady() on a reader attachment not allowed");
  EXPECT_EQ(writer.members(), 0u);
}

TEST_F(MirraShm, ReaderMapping_IsReadOnly_AStrayWriteFaults) {
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  writer.insert(recordFor(5, 1));
  constexpr int kFaulted = 11;
  constexpr int kWritten = 42;
  MirraShmTest::ChildProcess child = MirraShmTest::ChildProcess::run([&] {
    const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
    struct sigaction onFault {};
    onFault.sa_handler = [](int) { _exit(kFaulted); };
    sigaction(SIGSEGV, &onFault, nullptr);
    MirraMapBackdoor::damageValue(reader, std::uint64_t{5});
    return kWritten;
  });
  EXPECT_EQ(child.wait(), kFaulted);
  EXPECT_EQ(writer.lookup(5), recordFor(5, 1));
}

TEST_F(MirraShm, Unlink_RemovesSegments_ReaderThenRefused) {
  {
    Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
    writer.insert(recordFor(1, 1));
    EXPECT_TRUE(segmentExists(segment.name()));
    EXPECT_TRUE(segmentExists(segment.name() + ".g1"));
  }
  EXPECT_TRUE(Table::unlinkShared(segment.name()).found());
  EXPECT_FALSE(segmentExists(segment.name()));
  EXPECT_FALSE(segmentExists(segment.name() + ".g1"));
  EXPECT_FALSE(Table::unlinkShared(segment.name()).found());
  EXPECT_EQ(attachFailure(segment.name(), AttachMode::reader),
            "MirraMap::attach() table " + segment.name() + " does not exist");
}

TEST_F(MirraShm, Growth_PublishesNewGenerationAndUnlinksOld) {
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  for (std::uint64_t key = 0; key < 17; ++key) writer.insert(recordFor(key, 1));
  EXPECT_FALSE(segmentExists(segment.name() + ".g1"));
  EXPECT_TRUE(segmentExists(segment.name() + ".g2"));
  EXPECT_EQ(MirraMapBackdoor::slots(reader), 32u);
  EXPECT_EQ(reader.members(), 17u);
  EXPECT_EQ(reader.lookup(16), recordFor(16, 1));
}

TEST_F(MirraShm, BadNameOrOtherFormat_Refused) {
  EXPECT_EQ(attachFailure("a/b", AttachMode::singleWriter),
            "MirraMap::attach() table a/b is not a plain name (letters, digits, '.', '_', '-')");
  for (const std::string& likeASegment : {segment.name() + ".lock", segment.name() + ".g12"}) {
    EXPECT_EQ(attachFailure(likeASegment, AttachMode::singleWriter),
              "MirraMap::attach() table " + likeASegment +
                  " ends like a segment of another table ('.lock', '.g' and digits)");
  }
  const Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  struct Small {
    std::uint64_t key = 0;
    bool operator==(const Small& other) const { return key == other.key; }
  };
  struct SmallKey {
    const std::uint64_t& operator()(const Small& small) const { return small.key; }
  };
  using SmallTable = Mirra::MirraMap<std::uint64_t, Small, SmallKey>;
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { SmallTable::attachShared(segment.name(), AttachMode::reader); }),
            "MirraMap::attach() table " + segment.name() +
                " holds keys of 8 bytes, values of 48 bytes in slots of 64 bytes (format 2); "
                "expected 8, 8, 64 (format 2)");
}

// A table of the former format: a control segment of 32 bytes (magic, format 1, the sizes and an
// unchecked generation number).
TEST_F(MirraShm, FormerFormat_RefusedByWriterAndReaderWithClearMessage) {
  const int fd = shm_open(("/" + segment.name()).c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
  ASSERT_GE(fd, 0);
  const std::uint64_t former[4] = {0x6c7274436172694dull, 1 | std::uint64_t{8} << 32,
                                   48 | std::uint64_t{64} << 32, 1};
  ASSERT_EQ(write(fd, former, sizeof(former)), static_cast<ssize_t>(sizeof(former)));
  close(fd);
  const std::string refusal = "MirraMap::attach() table " + segment.name() +
                              " has the former format 1 of shared tables (this build reads format "
                              "2): remove it to start it afresh";
  EXPECT_EQ(attachFailure(segment.name(), AttachMode::singleWriter), refusal);
  EXPECT_EQ(attachFailure(segment.name(), AttachMode::reader), refusal);
}

TEST_F(MirraShm, AttachAndReadyReports_InDebugStream) {
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  writer.insert(recordFor(1, 1));
  const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  writer.collectionReadyIs(true, true);
  writer.advertiseCollectionReady(true);
  writer.advertiseCollectionReady(false);
  EXPECT_TRUE(reader.collectionReady());
  writer.detach();
  EXPECT_EQ(debug.lines(),
            (std::vector<std::string>{
                "MirraMap::attach() " + segment.name() + " as writer members:0 slots:16",
                "MirraMap::attach() " + segment.name() + " as reader members:1 slots:16",
                "MirraMap::collectionReadyIs() ready:1 notifying:1",
                "MirraMap::advertiseCollectionReady() in synchronous mode",
                "MirraMap::advertiseCollectionReady() collection already advertised",
                "MirraMap::advertiseCollectionReady() notifications unexpectedly disabled",
                "MirraMap::detach() ",
            }));
  // The lock went with the detached writer.
  EXPECT_NO_THROW(Table::attachShared(segment.name(), AttachMode::singleWriter));
}

TEST_F(MirraShm, BytesFlippedBehindWritersBack_ReaderElsewhereReportsNeverReturnsValue) {
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  // Fewer than half the slots: no growth is under way, so the writer's next write meets the slot.
  for (std::uint64_t key = 0; key < 7; ++key) writer.insert(recordFor(key, 1));
  const long slot = MirraMapBackdoor::slotOf(writer, std::uint64_t{4});
  ASSERT_TRUE(MirraMapBackdoor::damageValue(writer, std::uint64_t{4}));
  const std::string expected = "slot " + std::to_string(slot) + " of 16 fails its checksum";
  const std::string seen = answerFromChild([&] {
    Table reader = Table::attachShared(segment.name(), AttachMode::reader);
    debug.clear();
    std::vector<std::string> handled;
    reader.corruptionHandlerIs([&](const std::string& message) { handled.push_back(message); });
    std::string answer;
    try {
      const Record record = reader.lookup(4);
      answer = "returned round " + std::to_string(record.round);
    } catch (const Mirra::CorruptionDetectedException& error) {
      answer = std::string("detected: ") + error.what();
    }
    for (std::uint64_t key = 0; key < 7; ++key) {
      if (key != 4 && !(reader.lookup(key) == recordFor(key, 1)))
        answer += " lost " + std::to_string(key);
    }
    answer += " handled:" + std::to_string(handled.size()) + " debug:" + debug.lines().at(0);
    return answer;
  });
  EXPECT_EQ(seen, "detected: " + expected +
                      " handled:1 debug:MirraMap::corruptionDetected() table " + segment.name() +
                      ": " + expected);
  EXPECT_TRUE(writer.insert(recordFor(4, 2)));  // the writer's next write drops the damaged slot
  EXPECT_EQ(writer.corruptions(), 1u);
  EXPECT_EQ(writer.lastCorruption(), expected);
  const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  EXPECT_EQ(reader.lookup(4), recordFor(4, 2));
  EXPECT_EQ(reader.members(), 7u);
}

}  // namespace
