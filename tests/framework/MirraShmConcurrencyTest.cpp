#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

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
using MirraShmTest::Record;
using MirraShmTest::recordFor;
using MirraShmTest::SegmentGuard;
using MirraShmTest::Table;
using MirraShmTest::wholeRecordOf;

// A child reader that tells the parent when it has attached, then answers when it is done. A test
// that ends without its answer ends the child too.
class ReaderProcess {
 public:
  template <class Body>
  ReaderProcess(const std::string& name, Body body) {
    int ready[2];
    int answer[2];
    if (pipe(ready) != 0 || pipe(answer) != 0) return;
    child_ = MirraShmTest::ChildProcess(fork());
    if (child_.pid() == 0) {
      close(ready[0]);
      close(answer[0]);
      std::string result;
      try {
        const Table reader = Table::attachShared(name, AttachMode::reader);
        const char attached = 'a';
        if (write(ready[1], &attached, 1) != 1) _exit(3);
        result = body(reader);
      } catch (const std::exception& error) {
        result = std::string("threw: ") + error.what();
      }
      if (write(answer[1], result.data(), result.size()) < 0) _exit(4);
      _exit(0);
    }
    close(ready[1]);
    close(answer[1]);
    char attached = 0;
    attached_ = read(ready[0], &attached, 1) == 1;
    close(ready[0]);
    answerFd_ = answer[0];
  }
  ~ReaderProcess() {
    if (answerFd_ >= 0) close(answerFd_);
  }
  ReaderProcess(const ReaderProcess&) = delete;
  ReaderProcess& operator=(const ReaderProcess&) = delete;
  bool attached() const { return attached_; }
  std::string answer() {
    std::string text;
    char buffer[512];
    for (ssize_t got; (got = read(answerFd_, buffer, sizeof(buffer))) > 0;)
      text.append(buffer, got);
    close(answerFd_);
    answerFd_ = -1;
    child_.wait();
    return text;
  }

 private:
  MirraShmTest::ChildProcess child_;
  int answerFd_ = -1;
  bool attached_ = false;
};

// Keys in [0, bound) in a fixed scattered order.
struct KeyWalk {
  std::uint64_t state = 88172645463325252ull;
  std::uint64_t next(std::uint64_t bound) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state % bound;
  }
};

// A child writer that fills keys [0, entries) with round 1, then writes `record`, stopping itself
// (SIGSTOP) inside the `slotWrite`th slot write of it, that slot marked busy; continued, it
// finishes and ends with 0. Returns it once it has stopped; started() is false when it did not
// stop.
MirraShmTest::ChildProcess writerStoppedInside(const std::string& name, std::uint64_t entries,
                                               const Record& record, int slotWrite) {
  MirraShmTest::ChildProcess child = MirraShmTest::ChildProcess::run([&] {
    Table writer = MirraShmTest::filledWriter(name, entries, 1);
    int slotWrites = 0;
    MirraMapBackdoor::midWriteHookIs(writer, [&slotWrites, slotWrite] {
      if (++slotWrites == slotWrite) raise(SIGSTOP);
    });
    writer.insert(record);
    return 0;
  });
  if (!child.waitStopped()) return MirraShmTest::ChildProcess();
  return child;
}

// The writer stopped in the middle of rewriting `victim` with round 2.
MirraShmTest::ChildProcess writerStoppedInsideWrite(const std::string& name, std::uint64_t entries,
                                                    std::uint64_t victim) {
  return writerStoppedInside(name, entries, recordFor(victim, 2), 1);
}

// How a walk of the whole table ends: "walked N" in ascending key order, or why it stopped.
std::string walkOutcome(const Table& reader) {
  std::uint64_t walked = 0;
  std::uint64_t last = 0;
  try {
    for (const Record& record : reader) {
      if (walked > 0 && record.key <= last) return "out of order at " + std::to_string(record.key);
      last = record.key;
      ++walked;
    }
  } catch (const Mirra::CorruptionDetectedException& error) {
    return error.what();
  }
  return "walked " + std::to_string(walked);
}

class MirraShmConcurrency : public ::testing::Test {
 protected:
  TestSupport::TraceCapture debug{"Debug"};
  SegmentGuard segment{::testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(MirraShmConcurrency, WriterRewritesWhileReaderReads_NoTornValue) {
  constexpr std::uint64_t kEntries = 100000;
  constexpr std::uint64_t kRounds = 4;
  constexpr std::uint64_t kDoneKey = kEntries;  // inserted once the rewriting is over
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  for (std::uint64_t key = 0; key < kEntries; ++key) writer.insert(recordFor(key, 0));
  ReaderProcess reader(segment.name(), [&](const Table& table) {
    KeyWalk walk;
    std::uint64_t reads = 0;
    std::uint64_t torn = 0;
    std::uint64_t rewritten = 0;
    for (bool done = false; !done;) {
      for (int batch = 0; batch < 4096; ++batch, ++reads) {
        const std::uint64_t key = walk.next(kEntries);
        const Record record = table.lookup(key);
        if (!wholeRecordOf(record, key)) ++torn;
        if (record.round > 0) ++rewritten;
      }
      done = table.contains(kDoneKey);
    }
    return std::to_string(reads) + " " + std::to_string(torn) + " " + std::to_string(rewritten);
  });
  ASSERT_TRUE(reader.attached());
  for (std::uint64_t round = 1; round <= kRounds; ++round) {
    for (std::uint64_t key = 0; key < kEntries; ++key) writer.insert(recordFor(key, round));
  }
  writer.insert(recordFor(kDoneKey, 0));
  unsigned long long reads = 0;
  unsigned long long torn = 1;
  unsigned long long rewritten = 0;
  const std::string answer = reader.answer();
  ASSERT_EQ(std::sscanf(answer.c_str(), "%llu %llu %llu", &reads, &torn, &rewritten), 3) << answer;
  RecordProperty("reads", std::to_string(reads));
  RecordProperty("readsOfRewrittenValues", std::to_string(rewritten));
  std::printf("reader: %llu reads, %llu of rewritten values, %llu torn\n", reads, rewritten, torn);
  EXPECT_EQ(torn, 0u);
  EXPECT_GT(rewritten, 0u);
  EXPECT_GE(reads, 4096u);
}

TEST_F(MirraShmConcurrency, WriterKilledMidWrite_HalfWrittenSlotReportedNewWriterRepairs) {
  constexpr std::uint64_t kEntries = 1000;
  constexpr std::uint64_t kVictim = 500;
  MirraShmTest::ChildProcess child = writerStoppedInsideWrite(segment.name(), kEntries, kVictim);
  ASSERT_TRUE(child.started());
  child.signal(SIGKILL);
  EXPECT_EQ(child.wait(), -SIGKILL);

  Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  std::vector<std::string> handled;
  reader.corruptionHandlerIs([&](const std::string& message) { handled.push_back(message); });
  for (std::uint64_t key = 0; key < kEntries; ++key) {
    if (key == kVictim) continue;
    EXPECT_EQ(reader.lookup(key), recordFor(key, 1)) << key;
  }
  const long slot = MirraMapBackdoor::slotOf(reader, kVictim);
  const std::string expected = "slot " + std::to_string(slot) + " of 2048 was left half-written";
  EXPECT_EQ(
      TestSupport::refusalOf<Mirra::CorruptionDetectedException>([&] { reader.lookup(kVictim); }),
      expected);
  EXPECT_EQ(handled, std::vector<std::string>{expected});

  debug.clear();
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  EXPECT_EQ(debug.lines(),
            (std::vector<std::string>{
                "MirraMap::corruptionDetected() table " + segment.name() + ": " + expected,
                "MirraMap::attach() " + segment.name() + " as writer members:999 slots:2048"}));
  EXPECT_TRUE(writer.insert(recordFor(kVictim, 2)));
  EXPECT_EQ(reader.lookup(kVictim), recordFor(kVictim, 2));
  EXPECT_EQ(reader.members(), kEntries);
  std::uint64_t expectedKey = 0;
  for (const Record& record : reader) EXPECT_EQ(record.key, expectedKey++);
  EXPECT_EQ(expectedKey, kEntries);
}

TEST_F(MirraShmConcurrency, ReaderMeetsSlotOfStoppedWriter_WaitsAndReadsNewValueOnceResumed) {
  constexpr std::uint64_t kEntries = 100;
  constexpr std::uint64_t kVictim = 50;
  MirraShmTest::ChildProcess child = writerStoppedInsideWrite(segment.name(), kEntries, kVictim);
  ASSERT_TRUE(child.started());

  const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  EXPECT_EQ(reader.lookup(kVictim + 1), recordFor(kVictim + 1, 1));
  // The writer is alive, so the reader waits for the slot it holds rather than report it.
  std::thread resume([&child] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    child.signal(SIGCONT);
  });
  const Record read = reader.lookup(kVictim);
  resume.join();
  EXPECT_EQ(read, recordFor(kVictim, 2));
  EXPECT_EQ(reader.corruptions(), 0u);
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(reader.members(), kEntries);
}

// The real wait, measured once: a reader gives up on a writer stopped inside a slot write after
// Mirra::kWriterWaitLimit, and says that the writer is stopped, not that the slot was left
// half-written.
TEST_F(MirraShmConcurrency, WriterStoppedInsideSlotWrite_ReaderGivesUpAtItsBound_SaysStopped) {
  constexpr std::uint64_t kEntries = 100;
  constexpr std::uint64_t kVictim = 50;
  MirraShmTest::ChildProcess child = writerStoppedInsideWrite(segment.name(), kEntries, kVictim);
  ASSERT_TRUE(child.started());
  const pid_t writerPid = child.pid();
  const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  const long slot = MirraMapBackdoor::slotOf(reader, kVictim);
  const auto start = std::chrono::steady_clock::now();
  const std::string refusal =
      TestSupport::refusalOf<Mirra::CorruptionDetectedException>([&] { reader.lookup(kVictim); });
  const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::steady_clock::now() - start)
                          .count();
  child.signal(SIGKILL);
  EXPECT_EQ(child.wait(), -SIGKILL);
  RecordProperty("waitedMs", std::to_string(waited));
  std::printf("reader gave up after %lld ms\n", static_cast<long long>(waited));
  const long long limit = Mirra::kWriterWaitLimit.count();
  EXPECT_EQ(limit, 1000);  // the bound the README states
  EXPECT_EQ(refusal, "slot " + std::to_string(slot) + " of 256 is still being written after " +
                         std::to_string(limit) + " ms; its writer, pid " +
                         std::to_string(writerPid) + ", is alive but stopped");
  EXPECT_GE(waited, limit);
  EXPECT_LT(waited, limit + 1000);
}

TEST_F(MirraShmConcurrency, WriterStoppedInsideSlotWrite_WalkSaysStoppedNotHalfWritten) {
  constexpr std::uint64_t kEntries = 100;
  constexpr std::uint64_t kVictim = 50;
  MirraShmTest::ChildProcess child = writerStoppedInsideWrite(segment.name(), kEntries, kVictim);
  ASSERT_TRUE(child.started());
  const pid_t writerPid = child.pid();
  Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  MirraMapBackdoor::writerWaitIs(reader, std::chrono::milliseconds(50));
  std::uint64_t walked = 0;
  const std::string refusal = TestSupport::refusalOf<Mirra::CorruptionDetectedException>([&] {
    for (const Record& record : reader) walked = record.key + 1;
  });
  child.signal(SIGKILL);
  EXPECT_EQ(child.wait(), -SIGKILL);
  // The walk stops at the first step whose descent passes the slot: the victim's or one before.
  EXPECT_LE(walked, kVictim);
  EXPECT_EQ(refusal, "slot " + std::to_string(MirraMapBackdoor::slotOf(reader, kVictim)) +
                         " of 256 is still being written after 50 ms; its writer, pid " +
                         std::to_string(writerPid) + ", is alive but stopped");
}

// Inserting a new key relinks the tree: the new member's slot is written first, then (the tree's
// structure marked as changing) the slots whose links change. Stopped at the first of those, the
// writer leaves the tree in the middle of a change: a walk waits its bound and says so, and once
// the writer is gone says the change was left unfinished; the next writer rebuilds the tree.
TEST_F(MirraShmConcurrency, WriterStoppedInsideRelink_WalkSaysTreeStillChanging_ThenLeftMidChange) {
  constexpr std::uint64_t kEntries = 100;
  constexpr std::uint64_t kAdded = 1000;
  MirraShmTest::ChildProcess child =
      writerStoppedInside(segment.name(), kEntries, recordFor(kAdded, 1), 2);
  ASSERT_TRUE(child.started());
  const pid_t writerPid = child.pid();
  Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  MirraMapBackdoor::writerWaitIs(reader, std::chrono::milliseconds(50));
  EXPECT_EQ(walkOutcome(reader), "the tree is still being changed after 50 ms; its writer, pid " +
                                     std::to_string(writerPid) + ", is alive but stopped");
  EXPECT_EQ(reader.lookup(kAdded), Record());  // its index entry comes last
  child.signal(SIGKILL);
  EXPECT_EQ(child.wait(), -SIGKILL);
  EXPECT_EQ(walkOutcome(reader), "the tree was left in the middle of a change");
  {
    const Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
    EXPECT_GE(writer.corruptions(), 1u);
  }
  const std::string walked = walkOutcome(reader);
  EXPECT_EQ(walked, "walked " + std::to_string(reader.members()));
  // At most the member whose slot was being written is lost; the new member's slot was whole.
  EXPECT_GE(reader.members(), kEntries);
}

TEST_F(MirraShmConcurrency, WriterBlockedInsideSlotWrite_ReaderSaysStalled) {
  constexpr std::uint64_t kEntries = 100;
  constexpr std::uint64_t kVictim = 50;
  int blocked[2];
  int release[2];
  ASSERT_EQ(pipe(blocked), 0);
  ASSERT_EQ(pipe(release), 0);
  MirraShmTest::ChildProcess child = MirraShmTest::ChildProcess::run([&] {
    Table writer = MirraShmTest::filledWriter(segment.name(), kEntries, 1);
    MirraMapBackdoor::midWriteHookIs(writer, [&] {
      char byte = 'b';
      if (write(blocked[1], &byte, 1) != 1 || read(release[0], &byte, 1) != 1) _exit(3);
    });
    writer.insert(recordFor(kVictim, 2));
    return 0;
  });
  const pid_t writerPid = child.pid();
  char byte = 0;
  ASSERT_EQ(read(blocked[0], &byte, 1), 1);
  Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  MirraMapBackdoor::writerWaitIs(reader, std::chrono::milliseconds(50));
  const std::string refusal =
      TestSupport::refusalOf<Mirra::CorruptionDetectedException>([&] { reader.lookup(kVictim); });
  EXPECT_EQ(reader.lookup(kVictim + 1), recordFor(kVictim + 1, 1));
  ASSERT_EQ(write(release[1], &byte, 1), 1);
  EXPECT_EQ(child.wait(), 0);
  for (const int end : {blocked[0], blocked[1], release[0], release[1]}) close(end);
  EXPECT_EQ(refusal, "slot " + std::to_string(MirraMapBackdoor::slotOf(reader, kVictim)) +
                         " of 256 is still being written after 50 ms; its writer, pid " +
                         std::to_string(writerPid) + ", is alive but stalled");
  EXPECT_EQ(reader.lookup(kVictim), recordFor(kVictim, 2));
}

// From 2048 slots to 524288: eight generations, each filled while the reader reads the one before.
TEST_F(MirraShmConcurrency, GrowthWhileReaderReads_ReaderFollowsAndSeesEveryCountedKey) {
  constexpr std::uint64_t kStart = 1000;
  constexpr std::uint64_t kEnd = 200000;
  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  for (std::uint64_t key = 0; key < kStart; ++key) writer.insert(recordFor(key, 0));
  ReaderProcess reader(segment.name(), [&](const Table& table) {
    KeyWalk walk;
    std::uint64_t reads = 0;
    std::uint64_t bad = 0;
    std::uint64_t sizesSeen = 0;
    std::size_t lastSlots = 0;
    for (std::uint64_t members = table.members(); members < kEnd; members = table.members()) {
      // Keys are inserted in ascending order and never erased, so every key below a member
      // count read earlier is present.
      for (int batch = 0; batch < 256; ++batch, ++reads) {
        const std::uint64_t key = walk.next(members);
        if (!wholeRecordOf(table.lookup(key), key)) ++bad;
      }
      const std::size_t slots = MirraMapBackdoor::slots(table);
      if (slots != lastSlots) ++sizesSeen;
      lastSlots = slots;
    }
    std::uint64_t expectedKey = kEnd - 100;
    for (auto at = table.lowerBound(expectedKey); at != table.end(); ++at) {
      if (at->key != expectedKey++) ++bad;
    }
    if (expectedKey != kEnd) ++bad;
    return std::to_string(reads) + " " + std::to_string(bad) + " " + std::to_string(sizesSeen);
  });
  ASSERT_TRUE(reader.attached());
  for (std::uint64_t key = kStart; key < kEnd; ++key) writer.insert(recordFor(key, 0));
  unsigned long long reads = 0;
  unsigned long long bad = 1;
  unsigned long long sizesSeen = 0;
  const std::string answer = reader.answer();
  ASSERT_EQ(std::sscanf(answer.c_str(), "%llu %llu %llu", &reads, &bad, &sizesSeen), 3) << answer;
  RecordProperty("reads", std::to_string(reads));
  RecordProperty("tableSizesSeen", std::to_string(sizesSeen));
  std::printf("reader: %llu reads over %llu table sizes\n", reads, sizesSeen);
  EXPECT_EQ(bad, 0u);
  EXPECT_GE(sizesSeen, 2u);
  EXPECT_EQ(MirraMapBackdoor::slots(writer), 524288u);
  EXPECT_EQ(writer.members(), kEnd);
}

TEST_F(MirraShmConcurrency, WriterDiedWhileGrowing_NextWriterGrowsAfreshAndReadersSeeAll) {
  // 1024 slots; growth starts at the 513th key and copies four slots per write, so at 600 keys
  // it is under way.
  constexpr std::uint64_t kBefore = 600;
  constexpr std::uint64_t kAfter = 900;
  MirraShmTest::ChildProcess child = MirraShmTest::ChildProcess::run([&] {
    const Table writer = MirraShmTest::filledWriter(segment.name(), kBefore, 1);
    if (!MirraMapBackdoor::growing(writer) || MirraMapBackdoor::slots(writer) != 1024) return 1;
    raise(SIGKILL);
    return 0;
  });
  EXPECT_EQ(child.wait(), -SIGKILL);

  Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
  EXPECT_EQ(writer.members(), kBefore);
  EXPECT_EQ(MirraMapBackdoor::slots(writer), 1024u);
  EXPECT_FALSE(MirraMapBackdoor::growing(writer));
  for (std::uint64_t key = kBefore; key < kAfter; ++key) writer.insert(recordFor(key, 2));
  EXPECT_EQ(MirraMapBackdoor::slots(writer), 2048u);
  EXPECT_FALSE(MirraMapBackdoor::growing(writer));
  EXPECT_EQ(writer.corruptions(), 0u);
  const std::string seen = MirraShmTest::answerFromChild([&] {
    const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
    std::uint64_t expectedKey = 0;
    std::uint64_t wrong = 0;
    for (const Record& record : reader) {
      const std::uint64_t round = expectedKey < kBefore ? 1 : 2;
      if (!(record == recordFor(expectedKey++, round))) ++wrong;
    }
    return std::to_string(expectedKey) + " keys in order, " + std::to_string(wrong) + " wrong";
  });
  EXPECT_EQ(seen, "900 keys in order, 0 wrong");
}

}  // namespace
