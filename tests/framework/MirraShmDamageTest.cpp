// Damage to the parts of a shared table that everything else relies on: every byte of a
// generation's header and of the control segment flipped one at a time, with no writer and under a
// running writer; and the reports a reader makes of damage it meets again and again.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/MirraMap.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "tests/framework/MirraShmTestSupport.h"
#include "tests/support/TraceCapture.h"

namespace {

using Mirra::AttachMode;
using Mirra::internal::HeaderWord;
using Mirra::testing::MirraMapBackdoor;
using MirraShmTest::Record;
using MirraShmTest::recordFor;
using MirraShmTest::SegmentGuard;
using MirraShmTest::Table;

constexpr std::uint64_t kMembers = 7;  // fewer than half of 16 slots: no growth under way
constexpr std::size_t kHeaderBytes = 128;
constexpr std::size_t kControlBytes = 64;
const unsigned char kMasks[] = {0x01, 0xff};

// Whether a read may refuse (CorruptionDetectedException) where the table is damaged.
enum class Refusal { allowed, wrong };

// What a reader makes of the table: "right" when every answer it gives is the table's own (with
// Refusal::allowed a read may still refuse), "refused: WHY" when it cannot attach, "wrong: WHAT"
// when an answer is not the table's, "read refused: WHAT" when a read refused that must not.
std::string readerVerdict(const Table& reader, std::uint64_t members, Refusal refusal) {
  std::string refused;
  const auto refusesOr = [&](auto read, auto right) {
    try {
      return right(read());
    } catch (const Mirra::CorruptionDetectedException& damage) {
      if (refusal == Refusal::wrong && refused.empty()) refused = damage.what();
      return refusal == Refusal::allowed;
    }
  };
  const auto verdict = [&](const std::string& what) {
    return refused.empty() ? "wrong: " + what : "read refused: " + refused;
  };
  for (std::uint64_t key = 0; key <= members; ++key) {
    const Record expected = key < members ? recordFor(key, 1) : Record();
    if (!refusesOr([&] { return reader.lookup(key); },
                   [&](const Record& seen) { return seen == expected; })) {
      return verdict("lookup of " + std::to_string(key));
    }
  }
  if (!refusesOr([&] { return reader.members(); },
                 [&](std::size_t seen) { return seen == members; })) {
    return verdict("members");
  }
  const auto walk = [&] {
    std::vector<std::uint64_t> keys;
    for (const Record& record : reader) keys.push_back(record.key);
    return keys;
  };
  const auto allKeys = [&](const std::vector<std::uint64_t>& keys) {
    if (keys.size() != members) return false;
    for (std::uint64_t key = 0; key < members; ++key) {
      if (keys[key] != key) return false;
    }
    return true;
  };
  if (!refusesOr(walk, allKeys)) return verdict("iteration");
  return "right";
}
std::string readerVerdict(const std::string& name, std::uint64_t members, Refusal refusal) {
  try {
    const Table reader = Table::attachShared(name, AttachMode::reader);
    return readerVerdict(reader, members, refusal);
  } catch (const Kel::Exception& refused) {
    return std::string("refused: ") + refused.what();
  }
}

// Gives a segment `bytes` bytes, as a stray ftruncate by the owner's user would; false when it
// cannot.
bool segmentResized(const std::string& segment, std::size_t bytes) {
  const int fd = open(MirraShmTest::segmentFile(segment).c_str(), O_RDWR);
  if (fd < 0) return false;
  const bool done = ftruncate(fd, static_cast<off_t>(bytes)) == 0;
  close(fd);
  return done;
}

// Writes `value` into header word `word` of a generation, with the check it needs to pass: damage
// no single stray byte makes, but a wrong value all the same. False when it cannot.
bool headerWordForged(const std::string& generation, HeaderWord word, std::uint64_t value) {
  const int fd = open(MirraShmTest::segmentFile(generation).c_str(), O_RDWR);
  if (fd < 0) return false;
  const std::uint64_t image = Mirra::internal::headerWordImage(word, value);
  const off_t offset = static_cast<off_t>(offsetof(Mirra::internal::TableHeader, words) +
                                          static_cast<std::size_t>(word) * sizeof(image));
  const bool done = pwrite(fd, &image, sizeof(image), offset) == sizeof(image);
  close(fd);
  return done;
}

// Header words whose values pass their checks and that the sizes of a table of 16 slots do not
// allow.
struct ForgedWord {
  HeaderWord word;
  std::uint64_t value;
};
const ForgedWord kForgedWords[] = {
    {HeaderWord::root, 16},       {HeaderWord::filled, 17},    {HeaderWord::used, 17},
    {HeaderWord::ready, 2},       {HeaderWord::advertised, 2}, {HeaderWord::freeSlot, 16},
    {HeaderWord::tombstones, 33}, {HeaderWord::published, 0},  {HeaderWord::published, 2}};
std::string forged(const ForgedWord& forged) {
  return std::string("word ") + Mirra::internal::headerWordName(forged.word) + " forged as " +
         std::to_string(forged.value);
}

std::string flipped(std::size_t offset, unsigned char mask) {
  char text[40];
  std::snprintf(text, sizeof(text), "byte %zu flipped by 0x%02x", offset, mask);
  return text;
}

class MirraShmDamage : public ::testing::Test {
 protected:
  TestSupport::TraceCapture debug{"Debug"};
  // A fresh table of kMembers members, written by a writer that has gone.
  void freshTable() {
    Table::unlinkShared(name());
    const Table writer = MirraShmTest::filledWriter(name(), kMembers, 1);
  }
  const std::string& name() const { return segment.name(); }
  std::string generation(int number) const { return name() + ".g" + std::to_string(number); }
  SegmentGuard segment{::testing::UnitTest::GetInstance()->current_test_info()->name()};
};

// The whole header is covered by checks: each flip is found by a reader or by the next writer,
// which rebuilds the table from its slots, all of them intact.
TEST_F(MirraShmDamage, EveryHeaderByteFlipped_ReadersRightOrRefuse_NextWriterRepairsAll) {
  for (std::size_t offset = 0; offset < kHeaderBytes; ++offset) {
    for (const unsigned char mask : kMasks) {
      freshTable();
      ASSERT_TRUE(MirraShmTest::flipSegmentByte(name() + ".g1", offset, mask));
      const std::string verdict = readerVerdict(name(), kMembers, Refusal::allowed);
      EXPECT_TRUE(verdict == "right" || verdict.rfind("refused: ", 0) == 0)
          << flipped(offset, mask) << ": " << verdict;
      {
        const Table writer = Table::attachShared(name(), AttachMode::singleWriter);
        EXPECT_GE(writer.corruptions(), 1u) << flipped(offset, mask);
      }
      EXPECT_EQ(readerVerdict(name(), kMembers, Refusal::wrong), "right") << flipped(offset, mask);
    }
  }
}

// The control segment: its fixed part and published generation are found damaged and rebuilt,
// the generation found again; its writer's identity and its reserved word are not read by
// anything a reader answers.
TEST_F(MirraShmDamage, EveryControlByteFlipped_ReadersRightOrRefuse_NextWriterRepairsAll) {
  constexpr std::size_t kCheckedControlBytes = 40;  // the fixed part, its check, `published`
  for (std::size_t offset = 0; offset < kControlBytes; ++offset) {
    for (const unsigned char mask : kMasks) {
      freshTable();
      ASSERT_TRUE(MirraShmTest::flipSegmentByte(name(), offset, mask));
      const std::string verdict = readerVerdict(name(), kMembers, Refusal::allowed);
      EXPECT_TRUE(verdict == "right" || verdict.rfind("refused: ", 0) == 0)
          << flipped(offset, mask) << ": " << verdict;
      if (offset < kCheckedControlBytes) {
        EXPECT_NE(verdict, "right") << flipped(offset, mask);
      }
      {
        const Table writer = Table::attachShared(name(), AttachMode::singleWriter);
        if (offset < kCheckedControlBytes) {
          EXPECT_GE(writer.corruptions(), 1u) << flipped(offset, mask);
        }
      }
      EXPECT_EQ(readerVerdict(name(), kMembers, Refusal::wrong), "right") << flipped(offset, mask);
    }
  }
}

// Under a running writer: readers already attached keep their own copy of the sizes, read every
// other header word checked, and answer right or refuse; the writer never reads the shared
// header, answers right, writes on and puts the header back as it closes its next write.
TEST_F(MirraShmDamage, EveryHeaderByteFlippedUnderRunningWriter_NoCrash_NextWritePutsItBack) {
  for (std::size_t offset = 0; offset < kHeaderBytes; ++offset) {
    for (const unsigned char mask : kMasks) {
      Table::unlinkShared(name());
      Table writer = MirraShmTest::filledWriter(name(), kMembers, 1);
      Table reader = Table::attachShared(name(), AttachMode::reader);
      MirraMapBackdoor::writerWaitIs(reader, std::chrono::milliseconds(10));
      MirraMapBackdoor::damageHeaderByte(writer, offset, mask);
      const std::string verdict = readerVerdict(reader, kMembers, Refusal::allowed);
      EXPECT_TRUE(verdict == "right") << flipped(offset, mask) << ": " << verdict;
      // The writer's own reads never meet the damage: they answer, and never refuse.
      for (std::uint64_t key = 0; key < kMembers; ++key) {
        EXPECT_EQ(writer.lookup(key), recordFor(key, 1)) << flipped(offset, mask);
      }
      std::uint64_t walked = 0;
      for (const Record& record : writer) EXPECT_EQ(record.key, walked++) << flipped(offset, mask);
      EXPECT_EQ(walked, kMembers) << flipped(offset, mask);
      EXPECT_EQ(writer.members(), kMembers) << flipped(offset, mask);
      EXPECT_TRUE(writer.insert(recordFor(kMembers, 1))) << flipped(offset, mask);
      EXPECT_EQ(writer.corruptions(), 1u) << flipped(offset, mask);
      EXPECT_EQ(readerVerdict(name(), kMembers + 1, Refusal::wrong), "right")
          << flipped(offset, mask);
      EXPECT_EQ(readerVerdict(reader, kMembers + 1, Refusal::wrong), "right")
          << flipped(offset, mask);
    }
  }
}

// A generation of 16 slots (7 members, in slots 0 to 6) made longer or cut short: readers refuse
// it, and the next writer rebuilds from the slots that lie whole within it.
TEST_F(MirraShmDamage, GenerationResized_ReaderRefuses_NextWriterKeepsTheSlotsWithin) {
  constexpr std::size_t kSlot = MirraMapBackdoor::slotSize<Table>();
  constexpr std::size_t kBytes = kHeaderBytes + 16 * kSlot + 32 * 8;
  const std::string mismatch = "the generation's memory is not the size its header gives";
  const struct {
    std::size_t bytes;
    std::uint64_t membersKept;
  } cases[] = {{kBytes + 1, kMembers},
               {kBytes + 4096, kMembers},
               {kBytes - 1, kMembers},               // the index's last entry cut
               {kHeaderBytes + 4 * kSlot + 10, 4}};  // slots 0 to 3 whole, no index
  for (const auto& resized : cases) {
    const std::string size = std::to_string(resized.bytes) + " bytes";
    freshTable();
    ASSERT_TRUE(segmentResized(generation(1), resized.bytes)) << size;
    EXPECT_EQ(readerVerdict(name(), kMembers, Refusal::allowed), "refused: " + mismatch) << size;
    {
      const Table writer = Table::attachShared(name(), AttachMode::singleWriter);
      EXPECT_EQ(writer.corruptions(), resized.membersKept == kMembers ? 1u : 2u) << size;
      EXPECT_EQ(writer.lastCorruption(),
                resized.membersKept == kMembers
                    ? mismatch
                    : "the generation's memory ends after slot 4 of its 16: the members of the "
                      "slots past its end are lost")
          << size;
    }
    EXPECT_EQ(readerVerdict(name(), resized.membersKept, Refusal::wrong), "right") << size;
  }
}

TEST_F(MirraShmDamage, GenerationCutBelowItsHeader_ReaderRefuses_NextWriterStartsAfresh) {
  const struct {
    std::size_t bytes;
    std::string refusal;
    std::string repair;
  } cases[] = {{100, "the table header fails its check (its fixed part)",
                "the generation's size fits no table: the table starts afresh and its members are "
                "lost"},
               {0, "its published generation " + generation(1) + " is empty",
                "its published generation " + generation(1) +
                    " cannot be mapped: the table starts afresh and its members are lost"}};
  for (const auto& cut : cases) {
    freshTable();
    ASSERT_TRUE(segmentResized(generation(1), cut.bytes)) << cut.bytes;
    EXPECT_EQ(readerVerdict(name(), kMembers, Refusal::allowed), "refused: " + cut.refusal)
        << cut.bytes;
    {
      const Table writer = Table::attachShared(name(), AttachMode::singleWriter);
      EXPECT_EQ(writer.lastCorruption(), cut.repair) << cut.bytes;
    }
    EXPECT_EQ(readerVerdict(name(), 0, Refusal::wrong), "right") << cut.bytes;
  }
}

TEST_F(MirraShmDamage, HeaderWordOutOfRangeWithItsCheck_ReaderRefuses_NextWriterRebuilds) {
  for (const ForgedWord& word : kForgedWords) {
    freshTable();
    ASSERT_TRUE(headerWordForged(generation(1), word.word, word.value)) << forged(word);
    EXPECT_EQ(readerVerdict(name(), kMembers, Refusal::allowed),
              std::string("refused: the table header fails its check (its word ") +
                  Mirra::internal::headerWordName(word.word) + ")")
        << forged(word);
    {
      const Table writer = Table::attachShared(name(), AttachMode::singleWriter);
      EXPECT_EQ(writer.corruptions(), 1u) << forged(word);
    }
    EXPECT_EQ(readerVerdict(name(), kMembers, Refusal::wrong), "right") << forged(word);
  }
}

// A reader attached before the word was forged reads it on every use: it answers right or
// refuses (members() refuses a count beyond the slots), and the writer's next write puts it back.
TEST_F(MirraShmDamage,
       HeaderWordOutOfRangeUnderRunningWriter_ReaderRightOrRefuses_WritePutsItBack) {
  for (const ForgedWord& word : kForgedWords) {
    Table::unlinkShared(name());
    Table writer = MirraShmTest::filledWriter(name(), kMembers, 1);
    Table reader = Table::attachShared(name(), AttachMode::reader);
    MirraMapBackdoor::writerWaitIs(reader, std::chrono::milliseconds(10));
    ASSERT_TRUE(headerWordForged(generation(1), word.word, word.value)) << forged(word);
    EXPECT_EQ(readerVerdict(reader, kMembers, Refusal::allowed), "right") << forged(word);
    if (word.word == HeaderWord::used) {
      EXPECT_THROW(reader.members(), Mirra::CorruptionDetectedException);
    }
    EXPECT_TRUE(writer.insert(recordFor(kMembers, 1))) << forged(word);
    EXPECT_EQ(writer.corruptions(), 1u) << forged(word);
    EXPECT_EQ(readerVerdict(reader, kMembers + 1, Refusal::wrong), "right") << forged(word);
  }
}

// The control segment emptied, cut short, made longer or zeroed: readers refuse it, and the next
// writer writes it anew and takes up the table's published generation again, members and all.
TEST_F(MirraShmDamage, ControlResizedOrEmptied_ReaderRefuses_NextWriterFindsTheGenerationAgain) {
  const std::string takenUp = "; generation " + generation(1) + " taken up instead";
  const auto sizeRefusal = [](std::size_t bytes) {
    return "the control segment fails its check (its size, " + std::to_string(bytes) + " bytes)";
  };
  const struct {
    std::size_t bytes;  // 0: emptied; kControlBytes: zeroed
    std::string refusal;
    std::string repair;
  } cases[] = {
      {0, "MirraMap::attach() table " + name() + " is not created yet",
       "the control segment was left unfilled" + takenUp},
      {kControlBytes, "MirraMap::attach() table " + name() + " is not created yet",
       "the control segment was left unfilled" + takenUp},
      {40, sizeRefusal(40), sizeRefusal(40) + takenUp},
      {kControlBytes + 1, sizeRefusal(kControlBytes + 1), sizeRefusal(kControlBytes + 1) + takenUp},
      {4096, sizeRefusal(4096), sizeRefusal(4096) + takenUp}};
  for (const auto& damage : cases) {
    freshTable();
    ASSERT_TRUE(segmentResized(name(), 0)) << damage.bytes;
    ASSERT_TRUE(segmentResized(name(), damage.bytes)) << damage.bytes;
    EXPECT_EQ(readerVerdict(name(), kMembers, Refusal::allowed), "refused: " + damage.refusal)
        << damage.bytes;
    {
      const Table writer = Table::attachShared(name(), AttachMode::singleWriter);
      EXPECT_EQ(writer.lastCorruption(), damage.repair) << damage.bytes;
      EXPECT_EQ(writer.corruptions(), 1u) << damage.bytes;
    }
    EXPECT_EQ(readerVerdict(name(), kMembers, Refusal::wrong), "right") << damage.bytes;
  }
}

TEST_F(MirraShmDamage, SameDamageMetAgainAndAgain_TenReportsASecondThenTheCountSuppressed) {
  Table writer = MirraShmTest::filledWriter(name(), kMembers, 1);
  ASSERT_TRUE(MirraMapBackdoor::damageValue(writer, std::uint64_t{3}));
  Table reader = Table::attachShared(name(), AttachMode::reader);
  auto now = std::chrono::steady_clock::now();
  MirraMapBackdoor::reportClockIs(reader, [&now] { return now; });
  std::size_t handled = 0;
  reader.corruptionHandlerIs([&handled](const std::string&) { ++handled; });
  now += std::chrono::seconds(1);  // a second of its own, without the attach report
  debug.clear();
  const auto lookups = [&](int count) {
    for (int lookup = 0; lookup < count; ++lookup) {
      EXPECT_THROW(reader.lookup(3), Mirra::CorruptionDetectedException);
    }
  };
  lookups(25);
  const long slot = MirraMapBackdoor::slotOf(reader, std::uint64_t{3});
  const std::string report = "MirraMap::corruptionDetected() table " + name() + ": slot " +
                             std::to_string(slot) + " of 16 fails its checksum";
  EXPECT_EQ(debug.lines(), std::vector<std::string>(10, report));
  EXPECT_EQ(handled, 25u);
  EXPECT_EQ(reader.corruptions(), 25u);
  debug.clear();
  now += std::chrono::milliseconds(999);
  lookups(1);
  EXPECT_EQ(debug.lines(), std::vector<std::string>());
  now += std::chrono::milliseconds(1);
  lookups(1);
  EXPECT_EQ(debug.lines(),
            (std::vector<std::string>{"MirraMap::reportsSuppressed() table " + name() +
                                          ": 16 reports suppressed (at most 10 a second are "
                                          "written)",
                                      report}));
}

}  // namespace
