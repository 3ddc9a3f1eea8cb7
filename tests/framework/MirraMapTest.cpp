#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/MirraMap.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "tests/framework/MirraTestEntry.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Mirra::testing::MirraMapBackdoor;

using MirraTest::Entry;
using MirraTest::Table;

IpGenPrefix prefix(const char* text) { return IpGenPrefix(Kel::String(text)); }
Entry entry(const char* text, std::uint32_t payload) { return Entry{prefix(text), payload}; }

// A random prefix of either family, mostly inside a few /8 and /16 ranges so that keys nest.
IpGenPrefix randomPrefix(std::mt19937& rng) {
  if (rng() % 2 == 0) {
    const std::uint32_t address = 0xe0000000u | (static_cast<std::uint32_t>(rng()) & 0x030fffffu);
    return IpGenPrefix(IpGenAddr::ip4(address), rng() % 33);
  }
  std::array<std::uint8_t, 16> bytes{};
  bytes[0] = 0xff;
  bytes[1] = static_cast<std::uint8_t>(rng() % 4);
  for (std::size_t i = 2; i < 16; ++i) bytes[i] = static_cast<std::uint8_t>(rng() % 3);
  return IpGenPrefix(IpGenAddr(Ipkit::Ip6Addr(bytes)), rng() % 129);
}

std::vector<IpGenPrefix> keysOf(const Table& table) {
  std::vector<IpGenPrefix> keys;
  for (const Entry& member : table) keys.push_back(member.key);
  return keys;
}

std::vector<IpGenPrefix> keysOf(const std::map<IpGenPrefix, std::uint32_t>& oracle) {
  std::vector<IpGenPrefix> keys;
  for (const auto& [key, payload] : oracle) keys.push_back(key);
  return keys;
}

TEST(MirraMap, RandomInsertsAndErases_IterateInKeyOrderLikeOrderedMap) {
  std::mt19937 rng(4242u);
  Table table;
  std::map<IpGenPrefix, std::uint32_t> oracle;
  for (int round = 0; round < 40; ++round) {
    for (int op = 0; op < 150; ++op) {
      const IpGenPrefix key = randomPrefix(rng);
      if (rng() % 3 == 0) {
        EXPECT_EQ(table.erase(key), oracle.erase(key) == 1);
      } else {
        const std::uint32_t payload = rng() % 5;
        const auto found = oracle.find(key);
        const bool changes = found == oracle.end() || found->second != payload;
        EXPECT_EQ(table.insert(Entry{key, payload}), changes);
        oracle[key] = payload;
      }
    }
    ASSERT_EQ(keysOf(table), keysOf(oracle));
    ASSERT_EQ(table.members(), oracle.size());
  }
  for (const auto& [key, payload] : oracle) EXPECT_EQ(table.lookup(key).payload, payload);
  EXPECT_GT(oracle.size(), 1000u);
}

TEST(MirraMap, Members_CountsKeysHeld) {
  Table table;
  EXPECT_EQ(table.members(), 0u);
  table.insert(entry("239.0.0.0/8", 1));
  table.insert(entry("ff05::/16", 2));
  table.insert(entry("239.0.0.0/8", 3));
  EXPECT_EQ(table.members(), 2u);
  table.erase(prefix("239.0.0.0/8"));
  table.erase(prefix("232.0.0.0/8"));
  EXPECT_EQ(table.members(), 1u);
  EXPECT_EQ(table.reader().members(), 1u);
}

TEST(MirraMap, Iteration_IPv4BeforeIPv6_CoveringPrefixBeforeLonger) {
  Table table;
  for (const char* text :
       {"ff05::/16", "239.1.0.0/16", "239.0.0.0/8", "224.0.0.0/4", "239.0.0.0/16", "ff05::1/128"}) {
    table.insert(entry(text, 0));
  }
  EXPECT_EQ(keysOf(table), (std::vector<IpGenPrefix>{prefix("224.0.0.0/4"), prefix("239.0.0.0/8"),
                                                     prefix("239.0.0.0/16"), prefix("239.1.0.0/16"),
                                                     prefix("ff05::/16"), prefix("ff05::1/128")}));
}

TEST(MirraMap, LowerBound_PresentKey_PositionsOnIt) {
  Table table;
  for (const char* text : {"239.0.0.0/8", "239.1.0.0/16", "239.2.0.0/16"})
    table.insert(entry(text, 7));
  const auto at = table.lowerBound(prefix("239.1.0.0/16"));
  ASSERT_NE(at, table.end());
  EXPECT_EQ(at->key, prefix("239.1.0.0/16"));
  EXPECT_EQ(at->payload, 7u);
}

TEST(MirraMap, LowerBound_VanishedKey_PositionsOnNextKey) {
  Table table;
  for (const char* text : {"239.0.0.0/8", "239.1.0.0/16", "239.2.0.0/16"})
    table.insert(entry(text, 7));
  table.erase(prefix("239.1.0.0/16"));
  auto at = table.lowerBound(prefix("239.1.0.0/16"));
  ASSERT_NE(at, table.end());
  EXPECT_EQ(at->key, prefix("239.2.0.0/16"));
  ++at;
  EXPECT_EQ(at, table.end());
  EXPECT_EQ(table.lowerBound(prefix("239.3.0.0/16")), table.end());
  EXPECT_EQ(table.lowerBound(prefix("1.0.0.0/8"))->key, prefix("239.0.0.0/8"));
}

TEST(MirraMap, LowerBoundOfPrefix_WalkWhileContained_VisitsExactlyItsRange) {
  std::mt19937 rng(99u);
  Table table;
  std::set<IpGenPrefix> keys;
  for (int i = 0; i < 3000; ++i) {
    const IpGenPrefix key = randomPrefix(rng);
    table.insert(Entry{key, 0});
    keys.insert(key);
  }
  for (int i = 0; i < 200; ++i) {
    const IpGenPrefix range = randomPrefix(rng);
    std::vector<IpGenPrefix> walked;
    for (auto at = table.lowerBound(range); at != table.end() && range.contains(at->key); ++at) {
      walked.push_back(at->key);
    }
    std::vector<IpGenPrefix> expected;
    for (const IpGenPrefix& key : keys) {
      if (range.contains(key)) expected.push_back(key);
    }
    ASSERT_EQ(walked, expected) << range;
  }
}

TEST(MirraMap, IterationWhileWriterErasesCurrent_ContinuesAtNextKey) {
  Table table;
  for (std::uint32_t i = 0; i < 100; ++i) {
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(0xef000000u + i), 32), i});
  }
  std::vector<std::uint32_t> seen;
  for (auto at = table.begin(); at != table.end(); ++at) {
    seen.push_back(at->payload);
    if (at->payload % 2 == 0) table.erase(at->key);
  }
  ASSERT_EQ(seen.size(), 100u);
  for (std::uint32_t i = 0; i < 100; ++i) EXPECT_EQ(seen[i], i);
  EXPECT_EQ(table.members(), 50u);
}

TEST(MirraMap, IterationWhileWriterInsertsBehindAndAhead_VisitsOnlyThoseAhead) {
  Table table;
  for (std::uint32_t i = 0; i < 50; ++i) {
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(0xef000000u + 4 * i), 32), 0});
  }
  std::vector<IpGenPrefix> seen;
  for (auto at = table.begin(); at != table.end(); ++at) {
    seen.push_back(at->key);
    const std::uint32_t here = at->key.address().ip4Addr().value();
    if (here % 4 != 0) continue;  // only original members insert
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(here - 1), 32), 1});  // behind
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(here + 2), 32), 2});  // ahead
  }
  std::vector<IpGenPrefix> expected;
  for (std::uint32_t i = 0; i < 50; ++i) {
    expected.push_back(IpGenPrefix(IpGenAddr::ip4(0xef000000u + 4 * i), 32));
    expected.push_back(IpGenPrefix(IpGenAddr::ip4(0xef000000u + 4 * i + 2), 32));
  }
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(table.members(), 150u);
}

TEST(MirraMap, IterationWhileWriterGrowsTable_EveryStayingMemberOnceInOrder) {
  Table table;
  for (std::uint32_t i = 0; i < 10; ++i) {
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(0xef000000u + 1000 * i), 32), 0});
  }
  const std::size_t slotsBefore = MirraMapBackdoor::slots(table);
  std::vector<IpGenPrefix> seen;
  std::uint32_t added = 0;
  for (auto at = table.begin(); at != table.end(); ++at) {
    seen.push_back(at->key);
    // Far ahead of every original member: grows the table several times over.
    for (int i = 0; i < 100; ++i, ++added) {
      table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(0xf0000000u + added), 32), 1});
    }
    if (seen.size() == 10) break;
  }
  EXPECT_GT(MirraMapBackdoor::slots(table), slotsBefore);
  std::vector<IpGenPrefix> expected;
  for (std::uint32_t i = 0; i < 10; ++i) {
    expected.push_back(IpGenPrefix(IpGenAddr::ip4(0xef000000u + 1000 * i), 32));
  }
  EXPECT_EQ(seen, expected);
}

TEST(MirraMap, IterationUnderRandomWriterChanges_StayingMembersOnceAscending) {
  std::mt19937 rng(7u);
  for (int trial = 0; trial < 20; ++trial) {
    Table table;
    std::set<IpGenPrefix> initial;
    for (int i = 0; i < 300; ++i) {
      const IpGenPrefix key = randomPrefix(rng);
      table.insert(Entry{key, 0});
      initial.insert(key);
    }
    std::set<IpGenPrefix> touched;  // erased or re-inserted at some point of the walk
    std::vector<IpGenPrefix> seen;
    for (auto at = table.begin(); at != table.end(); ++at) {
      seen.push_back(at->key);
      for (int op = 0; op < 5; ++op) {
        const IpGenPrefix key = randomPrefix(rng);
        touched.insert(key);
        if (rng() % 2 == 0) {
          table.erase(key);
        } else {
          table.insert(Entry{key, 1});
        }
      }
    }
    for (std::size_t i = 1; i < seen.size(); ++i) ASSERT_LT(seen[i - 1], seen[i]);
    const std::set<IpGenPrefix> seenSet(seen.begin(), seen.end());
    for (const IpGenPrefix& key : initial) {
      if (touched.count(key) == 0) {
        ASSERT_EQ(seenSet.count(key), 1u) << key;
      }
    }
  }
}

class MirraMapCorruption : public ::testing::Test {
 protected:
  void SetUp() override {
    for (std::uint32_t i = 0; i < 8; ++i) {
      table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(0xef000000u + 256 * i), 24), i});
    }
    table.corruptionHandlerIs([this](const std::string& message) { handled.push_back(message); });
    debug.clear();
  }
  static IpGenPrefix key(std::uint32_t i) {
    return IpGenPrefix(IpGenAddr::ip4(0xef000000u + 256 * i), 24);
  }
  std::string slotText(const IpGenPrefix& damaged) const {
    return "slot " + std::to_string(MirraMapBackdoor::slotOf(table, damaged)) + " of " +
           std::to_string(MirraMapBackdoor::slots(table)) + " fails its checksum";
  }
  static std::string lookupFailure(const Table& attachment, const IpGenPrefix& wanted) {
    return TestSupport::refusalOf<Mirra::CorruptionDetectedException>(
        [&] { attachment.lookup(wanted); });
  }

  TestSupport::TraceCapture debug{"Debug"};
  Table table;
  std::vector<std::string> handled;
};

TEST_F(MirraMapCorruption, DamagedValue_LookupReportsOnceThenThrows) {
  const std::string message = slotText(key(3));
  ASSERT_TRUE(MirraMapBackdoor::damageValue(table, key(3)));
  EXPECT_EQ(lookupFailure(table, key(3)), message);
  EXPECT_EQ(handled, std::vector<std::string>{message});
  EXPECT_EQ(debug.lines(), std::vector<std::string>{"MirraMap::corruptionDetected() " + message});
  EXPECT_EQ(table.corruptions(), 1u);
  EXPECT_EQ(table.lastCorruption(), message);
  EXPECT_EQ(table.lookup(key(4)).payload, 4u);
}

TEST_F(MirraMapCorruption, DamagedKeyByte_LookupOfOriginalKeyReportsInsteadOfAbsent) {
  const std::string message = slotText(key(5));
  ASSERT_TRUE(MirraMapBackdoor::damageKey(table, key(5), 2));  // 239.0.5.0 -> 239.0.95.0
  EXPECT_EQ(lookupFailure(table, key(5)), message);
  EXPECT_THROW(table.contains(key(5)), Mirra::CorruptionDetectedException);
  EXPECT_EQ(table.corruptions(), 2u);
}

TEST_F(MirraMapCorruption, UsedStateByteTurnedEmpty_LookupReportsInsteadOfAbsent) {
  const std::string message = slotText(key(2));
  ASSERT_TRUE(MirraMapBackdoor::damageState(table, key(2), 0x3c));
  EXPECT_EQ(lookupFailure(table, key(2)), message);
  EXPECT_EQ(handled, std::vector<std::string>{message});
}

TEST_F(MirraMapCorruption, DamagedErasedSlot_LookupsStillAnswerAndGrowthReportsIt) {
  const long erasedSlot = MirraMapBackdoor::slotOf(table, key(7));
  table.erase(key(7));
  MirraMapBackdoor::damageStateAt(table, static_cast<std::size_t>(erasedSlot), 0xa5);
  for (std::uint32_t i = 0; i < 7; ++i) EXPECT_EQ(table.lookup(key(i)).payload, i);
  EXPECT_EQ(table.lookup(key(7)), Entry());
  EXPECT_EQ(keysOf(table).size(), 7u);
  EXPECT_TRUE(handled.empty());
  const std::size_t slotsBefore = MirraMapBackdoor::slots(table);
  std::uint32_t added = 0;
  while (MirraMapBackdoor::slots(table) == slotsBefore) {
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(0xe1000000u + added++), 32), 0});
  }
  EXPECT_EQ(handled, std::vector<std::string>{"slot " + std::to_string(erasedSlot) + " of " +
                                              std::to_string(slotsBefore) + " fails its checksum"});
  EXPECT_EQ(table.members(), 7u + added);
}

TEST_F(MirraMapCorruption, DamagedIndexEntry_LookupOfItsKeyReportsAndWriterRepairs) {
  const std::string message = "index entry " +
                              std::to_string(MirraMapBackdoor::entryOf(table, key(2))) + " of " +
                              std::to_string(MirraMapBackdoor::entries(table)) + " fails its check";
  ASSERT_TRUE(MirraMapBackdoor::damageEntry(table, key(2)));
  EXPECT_EQ(lookupFailure(table, key(2)), message);
  EXPECT_TRUE(table.insert(Entry{key(2), 20}));
  EXPECT_EQ(handled, (std::vector<std::string>{message, message}));
  EXPECT_EQ(table.lookup(key(2)).payload, 20u);
  EXPECT_EQ(table.members(), 8u);
}

TEST_F(MirraMapCorruption, WriterRewritesDamagedKey_ReportsOnceAndRepairs) {
  const std::string message = slotText(key(3));
  MirraMapBackdoor::damageValue(table, key(3));
  EXPECT_TRUE(table.insert(Entry{key(3), 30}));
  EXPECT_EQ(handled, std::vector<std::string>{message});
  EXPECT_EQ(table.lookup(key(3)).payload, 30u);
  EXPECT_EQ(table.members(), 8u);
  EXPECT_EQ(keysOf(table).size(), 8u);
  EXPECT_EQ(table.corruptions(), 1u);
}

TEST_F(MirraMapCorruption, WriterDeletesDamagedKey_ErasedAndCounted) {
  MirraMapBackdoor::damageValue(table, key(6));
  EXPECT_TRUE(table.erase(key(6)));
  EXPECT_EQ(handled.size(), 1u);
  EXPECT_EQ(table.lookup(key(6)), Entry());
  EXPECT_EQ(table.members(), 7u);
  EXPECT_FALSE(table.erase(key(6)));
  EXPECT_EQ(handled.size(), 1u);
}

TEST_F(MirraMapCorruption, Growth_SkipsDamagedSlotAndReportsIt) {
  const std::string message = slotText(key(1));
  MirraMapBackdoor::damageValue(table, key(1));
  const std::size_t slotsBefore = MirraMapBackdoor::slots(table);
  std::uint32_t added = 0;
  while (MirraMapBackdoor::slots(table) == slotsBefore) {
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(0xe1000000u + added++), 32), 0});
  }
  EXPECT_EQ(handled, std::vector<std::string>{message});
  EXPECT_EQ(table.lookup(key(1)), Entry());
  EXPECT_EQ(table.members(), 7u + added);
  EXPECT_EQ(keysOf(table).size(), 7u + added);
}

TEST_F(MirraMapCorruption, IterationMeetsDamage_ThrowsAfterHandlerAndRestartsOnceRepaired) {
  for (std::uint32_t i = 0; i < 8; ++i) MirraMapBackdoor::damageValue(table, key(i));
  std::vector<std::uint32_t> seen;
  const auto e = TestSupport::thrownBy<Mirra::CorruptionDetectedException>([&] {
    for (const Entry& member : table) seen.push_back(member.payload);
  });
  ASSERT_TRUE(e);
  EXPECT_EQ(handled, std::vector<std::string>{e->what()});
  EXPECT_TRUE(seen.empty());
  table.insert(Entry{key(0), 100});  // the writer's next write drops every damaged slot
  EXPECT_EQ(handled.size(), 9u);
  EXPECT_EQ(keysOf(table), std::vector<IpGenPrefix>{key(0)});
}

TEST_F(MirraMapCorruption, IteratorStepMeetsDamage_IteratorStaysAndWalkResumesAfterRepair) {
  auto at = table.lowerBound(key(2));
  MirraMapBackdoor::damageValue(table, key(3));
  // The step to the next key reads that key's slot, so it meets the damage.
  EXPECT_THROW(++at, Mirra::CorruptionDetectedException);
  EXPECT_EQ(at->payload, 2u);
  EXPECT_EQ(handled.size(), 1u);
  table.erase(key(3));
  std::vector<std::uint32_t> resumed;
  for (auto again = table.lowerBound(at->key); again != table.end(); ++again) {
    resumed.push_back(again->payload);
  }
  EXPECT_EQ(resumed, (std::vector<std::uint32_t>{2, 4, 5, 6, 7}));
  EXPECT_EQ(handled.size(), 2u);
}

// The checksum covers every byte of a slot but its two sequence bytes: the state and padding
// bytes, the checksum itself, the tree links, the key, the value and the bytes after it.
TEST_F(MirraMapCorruption, AnyDamagedSlotByte_LookupsReportItNeverValueOrAbsent) {
  for (std::size_t byte = 2; byte < MirraMapBackdoor::slotSize<Table>(); ++byte) {
    Table fresh;
    for (std::uint32_t i = 0; i < 8; ++i) fresh.insert(Entry{key(i), i});
    const Table reader = fresh.reader();
    const std::string message = "slot " + std::to_string(MirraMapBackdoor::slotOf(fresh, key(6))) +
                                " of " + std::to_string(MirraMapBackdoor::slots(fresh)) +
                                " fails its checksum";
    ASSERT_TRUE(MirraMapBackdoor::damageSlotByte(fresh, key(6), byte));
    EXPECT_EQ(lookupFailure(fresh, key(6)), message) << "byte " << byte;
    EXPECT_EQ(lookupFailure(reader, key(6)), message) << "byte " << byte;
    EXPECT_THROW(fresh.contains(key(6)), Mirra::CorruptionDetectedException) << "byte " << byte;
    EXPECT_EQ(fresh.lookup(key(5)), (Entry{key(5), 5})) << "byte " << byte;
    EXPECT_EQ(fresh.corruptions(), 2u) << "byte " << byte;
    EXPECT_EQ(reader.corruptions(), 1u) << "byte " << byte;
  }
}

// Nobody but the writer changes an in-process table, so a slot found in the middle of a write
// can only be one whose write never finished: it is reported at once, never read.
TEST_F(MirraMapCorruption, ReadInsideSlotWrite_InProcessReaderReportsHalfWritten) {
  const Table reader = table.reader();
  const std::string message = "slot " + std::to_string(MirraMapBackdoor::slotOf(table, key(3))) +
                              " of " + std::to_string(MirraMapBackdoor::slots(table)) +
                              " was left half-written";
  std::vector<std::string> seen;
  MirraMapBackdoor::midWriteHookIs(table, [&] { seen.push_back(lookupFailure(reader, key(3))); });
  EXPECT_TRUE(table.insert(Entry{key(3), 30}));
  MirraMapBackdoor::midWriteHookIs(table, {});
  EXPECT_EQ(seen, std::vector<std::string>{message});
  EXPECT_EQ(reader.corruptions(), 1u);
  EXPECT_EQ(reader.lastCorruption(), message);
  EXPECT_TRUE(handled.empty());
  EXPECT_EQ(reader.lookup(key(3)), (Entry{key(3), 30}));
  EXPECT_EQ(table.lookup(key(3)), (Entry{key(3), 30}));
}

TEST_F(MirraMapCorruption, ReaderAndWriterAttachments_EachRecordTheirOwnDetections) {
  const Table reader = table.reader();
  MirraMapBackdoor::damageValue(table, key(4));
  const std::string message = slotText(key(4));
  EXPECT_EQ(lookupFailure(reader, key(4)), message);
  EXPECT_EQ(reader.corruptions(), 1u);
  EXPECT_EQ(reader.lastCorruption(), message);
  EXPECT_EQ(table.corruptions(), 0u);
  EXPECT_TRUE(handled.empty());  // the handler belongs to the writer attachment
  EXPECT_EQ(lookupFailure(table, key(4)), message);
  EXPECT_EQ(table.corruptions(), 1u);
  EXPECT_EQ(reader.corruptions(), 1u);
}

TEST_F(MirraMapCorruption, CaughtExceptionHandedBack_OneReportPerDetection) {
  MirraMapBackdoor::damageValue(table, key(0));
  const auto caught =
      TestSupport::thrownBy<Mirra::CorruptionDetectedException>([&] { table.lookup(key(0)); });
  ASSERT_TRUE(caught);
  table.corruptionDetected(*caught);
  EXPECT_EQ(handled, std::vector<std::string>{caught->what()});
  EXPECT_EQ(debug.lines(), std::vector<std::string>{"MirraMap::corruptionDetected() " +
                                                    std::string(caught->what())});
  EXPECT_EQ(table.corruptions(), 1u);
  // Handed back twice, it is a second detection.
  table.corruptionDetected(*caught);
  EXPECT_EQ(table.corruptions(), 2u);
}

TEST_F(MirraMapCorruption, CallersOwnDetection_ReportedEvenWithTheLastReportsText) {
  MirraMapBackdoor::damageValue(table, key(0));
  const std::string message = lookupFailure(table, key(0));
  table.corruptionDetected(message);
  table.corruptionDetected("route 10.0.0.0/8 names a missing record");
  EXPECT_EQ(handled, (std::vector<std::string>{message, message,
                                               "route 10.0.0.0/8 names a missing record"}));
  EXPECT_EQ(
      debug.lines(),
      (std::vector<std::string>{
          "MirraMap::corruptionDetected() " + message, "MirraMap::corruptionDetected() " + message,
          "MirraMap::corruptionDetected() route 10.0.0.0/8 names a missing record"}));
  EXPECT_EQ(table.corruptions(), 3u);
}

TEST_F(MirraMapCorruption, ReadersExceptionHandedToWriter_ReportedByBoth) {
  const Table reader = table.reader();
  MirraMapBackdoor::damageValue(table, key(2));
  const auto caught =
      TestSupport::thrownBy<Mirra::CorruptionDetectedException>([&] { reader.lookup(key(2)); });
  ASSERT_TRUE(caught);
  table.corruptionDetected(*caught);
  EXPECT_EQ(reader.corruptions(), 1u);
  EXPECT_EQ(table.corruptions(), 1u);
  EXPECT_EQ(handled, std::vector<std::string>{caught->what()});
}

// Growth spread over writes: a table whose next generation is being filled, a few slots per
// write, while readers read the current one.
class MirraMapGrowth : public ::testing::Test {
 protected:
  // Keys in a scattered order, so that the tree is relinked all over.
  static IpGenPrefix key(std::uint32_t i) {
    return IpGenPrefix(IpGenAddr::ip4(0xe0000000u + ((i * 2654435761u) & 0x00ffffffu)), 32);
  }
  void SetUp() override {
    while (!MirraMapBackdoor::growing(table)) add(next++);
    table.corruptionHandlerIs([this](const std::string& message) { handled.push_back(message); });
  }
  void add(std::uint32_t i, std::uint32_t payload = 0) {
    table.insert(Entry{key(i), payload});
    oracle[key(i)] = payload;
  }
  void drop(const IpGenPrefix& gone) {
    table.erase(gone);
    oracle.erase(gone);
  }
  // Adds keys until the growth is published; returns how many writes that took.
  int addUntilGrown() {
    int writes = 0;
    for (; MirraMapBackdoor::growing(table); ++writes) add(next++);
    return writes;
  }
  void expectReaderSeesOracle(const Table& reader) {
    ASSERT_EQ(keysOf(reader), keysOf(oracle));
    for (const auto& [present, payload] : oracle)
      ASSERT_EQ(reader.lookup(present).payload, payload);
    ASSERT_EQ(reader.members(), oracle.size());
  }
  // A member whose slot is already copied (or not yet), or none.
  IpGenPrefix memberWhoseSlot(bool copied) const {
    const auto done = static_cast<long>(MirraMapBackdoor::copiedSlots(table));
    for (const auto& [member, payload] : oracle) {
      if ((MirraMapBackdoor::slotOf(table, member) < done) == copied) return member;
    }
    return IpGenPrefix();
  }

  Table table;
  std::map<IpGenPrefix, std::uint32_t> oracle;
  std::uint32_t next = 0;
  std::vector<std::string> handled;
};

TEST_F(MirraMapGrowth, StartsAtHalfFull_PublishedBeforeFullWithTwiceTheSlots) {
  EXPECT_EQ(MirraMapBackdoor::slots(table), 16u);
  EXPECT_EQ(oracle.size(), 9u);  // the ninth key found half the slots handed out
  EXPECT_EQ(MirraMapBackdoor::copiedSlots(table), 4u);
  const int writes = addUntilGrown();
  EXPECT_EQ(writes, 2);  // four slots per write: 8, then the 10 handed out by then
  EXPECT_EQ(MirraMapBackdoor::slots(table), 32u);
  EXPECT_EQ(oracle.size(), 11u);
  EXPECT_TRUE(handled.empty());
}

TEST_F(MirraMapGrowth, ReaderDuringGrowth_SeesEveryMemberAfterEachWrite) {
  for (std::uint32_t i = 0; i < 300; ++i) add(next++);
  while (!MirraMapBackdoor::growing(table)) add(next++);
  const std::size_t slotsBefore = MirraMapBackdoor::slots(table);
  const Table reader = table.reader();
  int writes = 0;
  for (; MirraMapBackdoor::growing(table); ++writes) {
    add(next, next % 7);
    ++next;
    ASSERT_NO_FATAL_FAILURE(expectReaderSeesOracle(reader));
  }
  EXPECT_GE(writes, 20);
  EXPECT_EQ(MirraMapBackdoor::slots(table), slotsBefore * 2);
  expectReaderSeesOracle(reader);
}

TEST_F(MirraMapGrowth, EraseAndReplaceOfCopiedAndUncopiedMembers_KeptThroughPublication) {
  for (std::uint32_t i = 0; i < 300; ++i) add(next++);
  while (!MirraMapBackdoor::growing(table)) add(next++);
  add(next++);  // a few slots copied
  const IpGenPrefix copiedGone = memberWhoseSlot(true);
  const IpGenPrefix uncopiedGone = memberWhoseSlot(false);
  drop(copiedGone);
  drop(uncopiedGone);
  const IpGenPrefix copiedKept = memberWhoseSlot(true);
  const IpGenPrefix uncopiedKept = memberWhoseSlot(false);
  ASSERT_FALSE(copiedGone == uncopiedGone || copiedKept == uncopiedKept);
  table.insert(Entry{copiedKept, 41});
  oracle[copiedKept] = 41;
  table.insert(Entry{uncopiedKept, 42});
  oracle[uncopiedKept] = 42;
  add(next++, 43);  // reuses the slot freed last
  add(next++, 44);  // and the one before
  addUntilGrown();
  EXPECT_EQ(table.lookup(copiedGone), Entry());
  EXPECT_EQ(table.lookup(uncopiedGone), Entry());
  EXPECT_EQ(table.lookup(copiedKept).payload, 41u);
  EXPECT_EQ(table.lookup(uncopiedKept).payload, 42u);
  expectReaderSeesOracle(table);
  EXPECT_TRUE(handled.empty());
}

TEST_F(MirraMapGrowth, IterationAndLowerBoundDuringGrowth_AscendingAndComplete) {
  for (std::uint32_t i = 0; i < 300; ++i) add(next++);
  while (!MirraMapBackdoor::growing(table)) add(next++);
  const std::map<IpGenPrefix, std::uint32_t> before = oracle;
  std::vector<IpGenPrefix> seen;
  for (auto at = table.begin(); at != table.end(); ++at) {
    seen.push_back(at->key);
    add(next++);  // moves the growth on between steps, ahead of or behind the walk
    const IpGenPrefix probe = key(next * 7);
    const auto expected = oracle.lower_bound(probe);
    const auto found = table.lowerBound(probe);
    ASSERT_EQ(found == table.end(), expected == oracle.end());
    if (found != table.end()) {
      ASSERT_EQ(found->key, expected->first);
    }
  }
  EXPECT_FALSE(MirraMapBackdoor::growing(table));
  for (std::size_t i = 1; i < seen.size(); ++i) ASSERT_LT(seen[i - 1], seen[i]);
  const std::set<IpGenPrefix> seenSet(seen.begin(), seen.end());
  for (const auto& [member, payload] : before) EXPECT_EQ(seenSet.count(member), 1u) << member;
}

TEST_F(MirraMapGrowth, DamagedSlotNotYetCopied_ReportedWhenMetAndTableRebuilt) {
  const IpGenPrefix damaged = memberWhoseSlot(false);
  const std::string message = "slot " + std::to_string(MirraMapBackdoor::slotOf(table, damaged)) +
                              " of 16 fails its checksum";
  ASSERT_TRUE(MirraMapBackdoor::damageValue(table, damaged));
  oracle.erase(damaged);
  add(next++);
  EXPECT_EQ(handled, std::vector<std::string>{message});
  EXPECT_EQ(table.lookup(damaged), Entry());
  expectReaderSeesOracle(table);
  addUntilGrown();
  expectReaderSeesOracle(table);
  EXPECT_EQ(handled.size(), 1u);
}

TEST_F(MirraMapGrowth, DamagedIndexEntryNotYetVerified_ReportedAndRepaired) {
  IpGenPrefix damaged;
  for (const auto& [member, payload] : oracle) {
    const long entry = MirraMapBackdoor::entryOf(table, member);
    if (entry >= static_cast<long>(MirraMapBackdoor::checkedEntries(table))) damaged = member;
  }
  ASSERT_FALSE(damaged == IpGenPrefix());
  const std::string message = "index entry " +
                              std::to_string(MirraMapBackdoor::entryOf(table, damaged)) + " of " +
                              std::to_string(MirraMapBackdoor::entries(table)) + " fails its check";
  ASSERT_TRUE(MirraMapBackdoor::damageEntry(table, damaged));
  addUntilGrown();
  EXPECT_EQ(handled, std::vector<std::string>{message});
  expectReaderSeesOracle(table);
}

TEST(MirraMap, ManyErasesAndInserts_SlotsReusedTableKeepsItsSize) {
  Table table;
  for (std::uint32_t i = 0; i < 100; ++i)
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(i), 32), i});
  const std::size_t slots = MirraMapBackdoor::slots(table);
  for (std::uint32_t i = 100; i < 20000; ++i) {
    table.erase(IpGenPrefix(IpGenAddr::ip4(i - 100), 32));
    table.insert(Entry{IpGenPrefix(IpGenAddr::ip4(i), 32), i});
  }
  EXPECT_EQ(MirraMapBackdoor::slots(table), slots);
  EXPECT_EQ(table.members(), 100u);
  std::uint32_t expected = 19900;
  for (const Entry& member : table) EXPECT_EQ(member.payload, expected++);
  EXPECT_EQ(expected, 20000u);
}

TEST(MirraMap, ReaderAttachment_RefusesWrites) {
  Table table;
  Table reader = table.reader();
  EXPECT_THROW(reader.insert(entry("239.0.0.0/8", 1)), Kel::RangeException);
  EXPECT_EQ(
      TestSupport::refusalOf<Kel::RangeException>([&] { reader.erase(prefix("239.0.0.0/8")); }),
      "MirraMap::erase() on a reader attachment not allowed");
}

}  // namespace
