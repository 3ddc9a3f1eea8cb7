// The generations of a shared table's memory: what a writer that died leaves and who removes it,
// names someone else took, a generation that has gone missing, and removing a table.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/MirraMap.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "tests/framework/MirraShmTestSupport.h"
#include "tests/support/TraceCapture.h"

namespace {

using Mirra::AttachMode;
using Mirra::testing::MirraMapBackdoor;
using MirraShmTest::Record;
using MirraShmTest::recordFor;
using MirraShmTest::segmentExists;
using MirraShmTest::SegmentGuard;
using MirraShmTest::Table;

// The keys a fresh reader finds, in order, or what stopped it.
std::string keysSeen(const std::string& name) {
  try {
    const Table reader = Table::attachShared(name, AttachMode::reader);
    std::string keys;
    for (const Record& record : reader) keys += std::to_string(record.key) + " ";
    return keys + "members:" + std::to_string(reader.members());
  } catch (const Kel::Exception& error) {
    return std::string("threw: ") + error.what();
  }
}
std::string keysUpTo(std::uint64_t count) {
  std::string keys;
  for (std::uint64_t key = 0; key < count; ++key) keys += std::to_string(key) + " ";
  return keys + "members:" + std::to_string(count);
}

// A segment made by hand, as anybody with access to /dev/shm could.
bool segmentMade(const std::string& segment) {
  const int fd = shm_open(("/" + segment).c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
  if (fd < 0) return false;
  close(fd);
  return true;
}

class MirraShmGeneration : public ::testing::Test {
 protected:
  TestSupport::TraceCapture debug{"Debug"};
  SegmentGuard segment{::testing::UnitTest::GetInstance()->current_test_info()->name()};
  std::string generation(int number) const {
    return segment.name() + ".g" + std::to_string(number);
  }
};

// Growth from 16 slots publishes generation 2 during the 11th write.
constexpr std::uint64_t kKeysToPublishSecond = 11;

TEST_F(MirraShmGeneration, KilledBetweenPublishAndUnlink_NextWriterRemovesTheOldOne) {
  MirraShmTest::ChildProcess child = MirraShmTest::ChildProcess::run([&] {
    Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
    MirraMapBackdoor::publishedHookIs(writer, [] { raise(SIGKILL); });
    for (std::uint64_t key = 0; key < kKeysToPublishSecond; ++key) {
      writer.insert(recordFor(key, 1));
    }
    return 0;
  });
  ASSERT_EQ(child.wait(), -SIGKILL);
  EXPECT_TRUE(segmentExists(generation(1)));
  EXPECT_TRUE(segmentExists(generation(2)));
  EXPECT_EQ(keysSeen(segment.name()), keysUpTo(kKeysToPublishSecond - 1));
  {
    Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
    EXPECT_FALSE(segmentExists(generation(1)));
    EXPECT_TRUE(segmentExists(generation(2)));
    EXPECT_EQ(writer.corruptions(), 0u);
  }
  EXPECT_EQ(keysSeen(segment.name()), keysUpTo(kKeysToPublishSecond - 1));
}

TEST_F(MirraShmGeneration, KilledWhileFillingNext_NextWriterRemovesIt) {
  MirraShmTest::ChildProcess child = MirraShmTest::ChildProcess::run([&] {
    const Table writer = MirraShmTest::filledWriter(segment.name(), 9, 1);
    if (!MirraMapBackdoor::growing(writer)) return 1;
    raise(SIGKILL);
    return 0;
  });
  ASSERT_EQ(child.wait(), -SIGKILL);
  EXPECT_TRUE(segmentExists(generation(2)));
  { const Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter); }
  EXPECT_TRUE(segmentExists(generation(1)));
  EXPECT_FALSE(segmentExists(generation(2)));
  EXPECT_EQ(keysSeen(segment.name()), keysUpTo(9));
}

TEST_F(MirraShmGeneration, WriterExitsWhileFillingNext_NothingUnpublishedLeft) {
  MirraShmTest::ChildProcess child = MirraShmTest::ChildProcess::run([&] {
    // Held past the end of the process, as a program that leaves its tables to the exit does.
    static Table* const writer = new Table(MirraShmTest::filledWriter(segment.name(), 9, 1));
    if (!MirraMapBackdoor::growing(*writer)) return 1;
    std::exit(0);
  });
  ASSERT_EQ(child.wait(), 0);
  EXPECT_TRUE(segmentExists(generation(1)));
  EXPECT_FALSE(segmentExists(generation(2)));
  EXPECT_EQ(keysSeen(segment.name()), keysUpTo(9));
}

TEST_F(MirraShmGeneration, NamesTakenBySomeoneElse_GrowthTakesTheNextFreeName) {
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  ASSERT_TRUE(segmentMade(generation(2)));
  ASSERT_TRUE(segmentMade(generation(3)));
  for (std::uint64_t key = 0; key < kKeysToPublishSecond; ++key) writer.insert(recordFor(key, 1));
  EXPECT_EQ(MirraMapBackdoor::slots(writer), 32u);
  EXPECT_FALSE(segmentExists(generation(1)));
  EXPECT_TRUE(segmentExists(generation(4)));
  EXPECT_EQ(keysSeen(segment.name()), keysUpTo(kKeysToPublishSecond));
  EXPECT_EQ(writer.corruptions(), 0u);
}

TEST_F(MirraShmGeneration, NoNameLeft_GrowthReportsItNamingTheOperation_WritesGoOn) {
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  for (int number = 2; number < 2 + 64; ++number) ASSERT_TRUE(segmentMade(generation(number)));
  debug.clear();
  for (std::uint64_t key = 0; key < 12; ++key) writer.insert(recordFor(key, 1));
  EXPECT_EQ(MirraMapBackdoor::slots(writer), 16u);
  const std::string failure = "MirraMap::grow() table " + segment.name() +
                              " cannot create a new generation: the 64 names from " +
                              generation(2) + " on are all taken";
  EXPECT_EQ(debug.lines(), std::vector<std::string>{failure});
  EXPECT_EQ(keysSeen(segment.name()), keysUpTo(12));
}

TEST_F(MirraShmGeneration, PublishedGenerationMissing_ReaderSaysSo_WriterStartsAfresh) {
  { const Table writer = MirraShmTest::filledWriter(segment.name(), 3, 1); }
  ASSERT_EQ(shm_unlink(("/" + generation(1)).c_str()), 0);
  const std::string missing = "its published generation " + generation(1) + " is missing";
  EXPECT_EQ(keysSeen(segment.name()), "threw: " + missing);
  debug.clear();
  {
    const Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
    EXPECT_EQ(writer.lastCorruption(),
              missing + ": the table starts afresh and its members are lost");
  }
  EXPECT_EQ(debug.lines(),
            (std::vector<std::string>{
                "MirraMap::corruptionDetected() table " + segment.name() + ": " + missing +
                    ": the table starts afresh and its members are lost",
                "MirraMap::attach() " + segment.name() + " as writer members:0 slots:16"}));
  EXPECT_EQ(keysSeen(segment.name()), "members:0");
}

TEST_F(MirraShmGeneration, Unlink_RemovesEveryGenerationLeftAndReportsThem) {
  { const Table writer = MirraShmTest::filledWriter(segment.name(), 3, 1); }
  ASSERT_TRUE(segmentMade(generation(5)));
  ASSERT_TRUE(MirraShmTest::flipSegmentByte(segment.name(), 0, 0xff));  // the control's magic
  const Mirra::UnlinkReport report = Table::unlinkShared(segment.name());
  EXPECT_EQ(report.removed, (std::vector<std::string>{generation(1), generation(5), segment.name(),
                                                      segment.name() + ".lock"}));
  EXPECT_EQ(report.failures, std::vector<std::string>());
  EXPECT_FALSE(segmentExists(generation(1)));
  EXPECT_FALSE(segmentExists(generation(5)));
  EXPECT_FALSE(Table::unlinkShared(segment.name()).found());
}

TEST_F(MirraShmGeneration, UnlinkByAnotherUser_EachSegmentItCannotRemoveReported) {
  const std::string why = MirraShmTest::otherUserUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  { const Table writer = MirraShmTest::filledWriter(segment.name(), 3, 1); }
  const std::string seen = MirraShmTest::answerFromChild(
      [&] {
        const Mirra::UnlinkReport report = Table::unlinkShared(segment.name());
        std::string answer = std::to_string(report.removed.size()) + " removed";
        for (const std::string& failure : report.failures) answer += "; " + failure;
        return answer;
      },
      true);
  const std::string refused = ": Permission denied";
  EXPECT_EQ(seen, "0 removed; " + generation(1) + refused + "; " + segment.name() + refused + "; " +
                      segment.name() + ".lock" + refused);
  EXPECT_EQ(keysSeen(segment.name()), keysUpTo(3));
}

}  // namespace
