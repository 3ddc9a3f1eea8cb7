// Damage to the parts of a shared table that everything else relies on: every byte of a
// generation's header and of the control segment flipped one at a time, with no writer and under a
// running writer; and the reports a reader makes of damage it meets again and again.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
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
using MirraShmTest::SegmentGuard;
using MirraShmTest::Table;

constexpr std::uint64_t kMembers = 7;  // fewer than half of 16 slots: no growth under way
constexpr std::size_t kHeaderBytes = 128;
constexpr std::size_t kControlBytes = 64;
const unsigned char kMasks[] = {0x01, 0xff};

// What a reader makes of the table: "right" when every answer it gives is the table's own (a
// read may still refuse, with CorruptionDetectedException), "refused: WHY" when it cannot attach,
// "wrong: WHAT" when an answer is not the table's.
std::string readerVerdict(const Table& reader, std::uint64_t members) {
  const auto refusesOr = [](auto read, auto right) {
    try {
      return right(read());
    } catch (const Mirra::CorruptionDetectedException&) {
      return true;
    }
  };
  for (std::uint64_t key = 0; key <= members; ++key) {
    const Record expected = key < members ? recordFor(key, 1) : Record();
    if (!refusesOr([&] { return reader.lookup(key); },
                   [&](const Record& seen) { return seen == expected; })) {
      return "wrong: lookup of " + std::to_string(key);
    }
  }
  if (!refusesOr([&] { return reader.members(); },
                 [&](std::size_t seen) { return seen == members; })) {
    return "wrong: members";
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
  if (!refusesOr(walk, allKeys)) return "wrong: iteration";
  return "right";
}
std::string readerVerdict(const std::string& name, std::uint64_t members) {
  try {
    const Table reader = Table::attachShared(name, AttachMode::reader);
    return readerVerdict(reader, members);
  } catch (const Kel::Exception& refusal) {
    return std::string("refused: ") + refusal.what();
  }
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
  SegmentGuard segment{::testing::UnitTest::GetInstance()->current_test_info()->name()};
};

// The whole header is covered by checks: each flip is found by a reader or by the next writer,
// which rebuilds the table from its slots, all of them intact.
TEST_F(MirraShmDamage, EveryHeaderByteFlipped_ReadersRightOrRefuse_NextWriterRepairsAll) {
  for (std::size_t offset = 0; offset < kHeaderBytes; ++offset) {
    for (const unsigned char mask : kMasks) {
      freshTable();
      ASSERT_TRUE(MirraShmTest::flipSegmentByte(name() + ".g1", offset, mask));
      const std::string verdict = readerVerdict(name(), kMembers);
      EXPECT_TRUE(verdict == "right" || verdict.rfind("refused: ", 0) == 0)
          << flipped(offset, mask) << ": " << verdict;
      {
        const Table writer = Table::attachShared(name(), AttachMode::singleWriter);
        EXPECT_GE(writer.corruptions(), 1u) << flipped(offset, mask);
      }
      EXPECT_EQ(readerVerdict(name(), kMembers), "right") << flipped(offset, mask);
      const Table reader = Table::attachShared(name(), AttachMode::reader);
      EXPECT_EQ(reader.corruptions(), 0u) << flipped(offset, mask);
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
      const std::string verdict = readerVerdict(name(), kMembers);
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
      EXPECT_EQ(readerVerdict(name(), kMembers), "right") << flipped(offset, mask);
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
      const std::string verdict = readerVerdict(reader, kMembers);
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
      EXPECT_EQ(readerVerdict(name(), kMembers + 1), "right") << flipped(offset, mask);
      EXPECT_EQ(readerVerdict(reader, kMembers + 1), "right") << flipped(offset, mask);
    }
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
