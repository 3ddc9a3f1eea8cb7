#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/System.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimGroupFilterSm.h"
#include "rp/PimGroupFilterStatus.h"
#include "tests/rp/GroupFilterTestSupport.h"
#include "tests/support/TraceCapture.h"

namespace {

using GroupFilterTest::FamilyCase;
using GroupFilterTest::prefix;
using Ipkit::IpGenPrefix;
using Routing::Pim::GroupFilterSm;
using Routing::Pim::groupFilterSmFactory;
using Routing::Pim::GroupFilterStatus;
using Routing::Pim::groupFilterStatusFactory;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimSm;
using Routing::Pim::RpHash;
using Routing::Pim::RpHashStatus;
using TestSupport::TraceCapture;
using TestSupport::TraceLine;
using TestSupport::TraceLines;

const char* const kTraceFile = "PimGroupFilterSm";

TraceLine line(int level, const std::string& text) { return {level, text}; }
TraceLine added(const IpGenPrefix& key) {
  return line(4, "handleRpHash(" + key.valueToStrep() + ") added");
}
TraceLine deleted(const IpGenPrefix& key) {
  return line(4, "handleRpHash(" + key.valueToStrep() + ") deleted");
}
TraceLine suspendingAt(const IpGenPrefix& key) {
  return line(3, "doReview(), Suspending review at " + key.valueToStrep());
}
const TraceLine kHandleInitialized{8, "handleInitialized"};
const TraceLine kDoReview{8, "doReview"};
const TraceLine kFinished{3, "doReview(), Finished review"};

// The time source of the sliced reviews: each read moves time on by kStep, and a slice's quantum
// is a whole number of steps, so a slice handles exactly that many entries.
constexpr double kStep = 1.0 / 1024;
constexpr double kStart = 100.0;

class GroupFilterSmTest : public ::testing::TestWithParam<FamilyCase> {
 protected:
  void SetUp() override { Kel::System::virtualTimeIs(kStart); }
  void TearDown() override { Kel::System::realTimeIs(); }

  const FamilyCase& family() const { return GetParam(); }
  bool ipv4() const { return family().af == Ipkit::ipv4(); }

  // The i-th of a run of distinct group ranges of the family, ascending with i.
  IpGenPrefix keyAt(unsigned i) const {
    char text[64];
    if (ipv4()) {
      std::snprintf(text, sizeof text, "239.%u.%u.0/24", i / 256, i % 256);
    } else {
      std::snprintf(text, sizeof text, "ff3e:%x::/32", i);
    }
    return prefix(text);
  }
  RpHash entryFor(const IpGenPrefix& key, const char* rp = nullptr) const {
    const char* address = rp ? rp : ipv4() ? "10.0.0.1" : "2001:db8::1";
    return RpHash(key, Ipkit::IpGenAddr(address), 10, 30, false, modePimSm);
  }
  void write(const IpGenPrefix& key) { table->rpHashIs(entryFor(key)); }
  Kel::Ptr<GroupFilterSm> start(const Kel::Ptr<GroupFilterStatus>& status) {
    return groupFilterSmFactory(table, status, clock);
  }
  // Switches to stepping time and starts a reactor whose review slices handle `perSlice`
  // entries each (at least one).
  Kel::Ptr<GroupFilterSm> startSliced(unsigned perSlice) {
    Kel::System::steppingTimeIs(kStart, kStep);
    auto sm = start(bidir);
    sm->reviewQuantumIs(perSlice * kStep);
    return sm;
  }
  // How many times each prefix was handled with the given outcome ("added" or "deleted").
  std::map<IpGenPrefix, int> handled(const TraceCapture& capture,
                                     const std::string& outcome) const {
    std::map<IpGenPrefix, int> counts;
    const std::string head = "handleRpHash(";
    const std::string tail = ") " + outcome;
    for (const auto& traced : capture.levelled({4})) {
      const std::string& text = traced.text;
      if (text.size() <= head.size() + tail.size()) continue;
      if (text.compare(text.size() - tail.size(), tail.size(), tail) != 0) continue;
      ++counts[prefix(text.substr(head.size(), text.size() - head.size() - tail.size()).c_str())];
    }
    return counts;
  }
  std::vector<IpGenPrefix> suspensions(const TraceCapture& capture) const {
    std::vector<IpGenPrefix> keys;
    const std::string head = "doReview(), Suspending review at ";
    for (const auto& traced : capture.levelled({3})) {
      if (traced.text.compare(0, head.size(), head) == 0) {
        keys.push_back(prefix(traced.text.substr(head.size()).c_str()));
      }
    }
    return keys;
  }
  // The table's keys in ascending order.
  std::vector<IpGenPrefix> tableKeys() const {
    std::set<IpGenPrefix> keys;
    for (const RpHash& entry : table->rpHash()) keys.insert(entry.key());
    return {keys.begin(), keys.end()};
  }
  // Whether the trie holds exactly the table's keys.
  void expectTrieMatchesTable(const Kel::Ptr<GroupFilterStatus>& status) const {
    const auto keys = tableKeys();
    EXPECT_EQ(status->trie()->routes(), keys.size());
    for (const auto& key : keys) EXPECT_TRUE(status->trie()->hasRoute(key)) << key;
  }
  // Writes `count` entries keyAt(0), keyAt(gap), keyAt(2 * gap)... in random order.
  std::vector<IpGenPrefix> fill(unsigned count, unsigned gap) {
    std::vector<IpGenPrefix> keys;
    for (unsigned i = 0; i < count; ++i) keys.push_back(keyAt(i * gap));
    std::vector<IpGenPrefix> shuffled = keys;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(7u));
    for (const auto& key : shuffled) write(key);
    return keys;
  }

  Kel::Ptr<RpHashStatus> table{new RpHashStatus()};
  Kel::Ptr<Kel::Clock> clock{new Kel::Clock()};
  Kel::Ptr<GroupFilterStatus> bidir = groupFilterStatusFactory(GetParam().af, modePimBidir);
};

TEST_P(GroupFilterSmTest, GroupFilterSm_Construction_InitializedWithReviewDueNow) {
  TraceCapture capture(kTraceFile);
  auto sm = start(bidir);
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->reviewQuantum(), 0.1);
  EXPECT_TRUE(sm->reviewBookmark().isNull());
  EXPECT_EQ(sm->rpHashStatus(), table);
  EXPECT_EQ(sm->status(), bidir);
  EXPECT_EQ(sm->clock(), clock);
  EXPECT_EQ(clock->pendingWakeups(), 1u);
  EXPECT_EQ(clock->nextWakeup(), kStart);
  EXPECT_EQ(capture.levelled(), (TraceLines{kHandleInitialized}));
}

TEST_P(GroupFilterSmTest, GroupFilterSm_EmptyTable_FirstReviewFinishesAtOnce) {
  TraceCapture capture(kTraceFile);
  auto sm = start(bidir);
  EXPECT_EQ(clock->runDue(), 1u);
  EXPECT_EQ(capture.levelled(), (TraceLines{kHandleInitialized, kDoReview, kFinished}));
  EXPECT_EQ(bidir->trie()->routes(), 0u);
  EXPECT_EQ(bidir->changeCount(), 0u);
  EXPECT_TRUE(sm->reviewBookmark().isNull());
  EXPECT_EQ(clock->pendingWakeups(), 0u);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_TablePresentAtStart_RangesAddedByTheReview) {
  const auto keys = fill(3, 1);
  TraceCapture capture(kTraceFile);
  auto sm = start(bidir);
  EXPECT_EQ(bidir->trie()->routes(), 0u);
  clock->runDue();
  EXPECT_EQ(capture.levelled(), (TraceLines{kHandleInitialized, kDoReview, added(keys[0]),
                                            added(keys[1]), added(keys[2]), kFinished}));
  expectTrieMatchesTable(bidir);
  EXPECT_EQ(bidir->changeCount(), 3u);
  EXPECT_TRUE(bidir->permitGroup(keys[1]));
  EXPECT_FALSE(bidir->permitGroup(keyAt(5)));
}

TEST_P(GroupFilterSmTest, GroupFilterSm_TableLargerThanOneQuantum_SuspendsWithIncreasingKeys) {
  const auto keys = fill(5, 1);
  TraceCapture capture(kTraceFile);
  auto sm = startSliced(2);
  ASSERT_TRUE(clock->runNext());
  EXPECT_EQ(sm->reviewBookmark(), keys[2]);
  EXPECT_EQ(clock->pendingWakeups(), 1u);
  clock->runDue();
  EXPECT_EQ(capture.levelled(),
            (TraceLines{kHandleInitialized, kDoReview, added(keys[0]), added(keys[1]),
                        suspendingAt(keys[2]), kDoReview, added(keys[2]), added(keys[3]),
                        suspendingAt(keys[4]), kDoReview, added(keys[4]), kFinished}));
  EXPECT_TRUE(sm->reviewBookmark().isNull());
  EXPECT_EQ(clock->pendingWakeups(), 0u);
  expectTrieMatchesTable(bidir);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_QuantumUsedUpOnTheLastEntry_FinishesWithoutSuspending) {
  const auto keys = fill(2, 1);
  TraceCapture capture(kTraceFile);
  auto sm = startSliced(2);
  clock->runDue();
  EXPECT_EQ(capture.levelled(),
            (TraceLines{kHandleInitialized, kDoReview, added(keys[0]), added(keys[1]), kFinished}));
}

TEST_P(GroupFilterSmTest, GroupFilterSm_QuantumShorterThanOneEntry_StillOneEntryPerStep) {
  const auto keys = fill(3, 1);
  TraceCapture capture(kTraceFile);
  auto sm = startSliced(0);
  clock->runDue();
  EXPECT_EQ(
      capture.levelled(),
      (TraceLines{kHandleInitialized, kDoReview, added(keys[0]), suspendingAt(keys[1]), kDoReview,
                  added(keys[1]), suspendingAt(keys[2]), kDoReview, added(keys[2]), kFinished}));
}

TEST_P(GroupFilterSmTest, GroupFilterSm_EntryRemovedDuringSuspendedReview_RangeRemovedAtOnce) {
  const auto keys = fill(4, 1);
  auto sm = startSliced(1);
  clock->runNext();
  ASSERT_EQ(sm->reviewBookmark(), keys[1]);
  clock->runNext();
  ASSERT_EQ(sm->reviewBookmark(), keys[2]);
  ASSERT_TRUE(bidir->trie()->hasRoute(keys[0]));
  TraceCapture capture(kTraceFile);
  table->rpHashDel(keys[0]);
  table->rpHashDel(keys[3]);
  EXPECT_EQ(capture.levelled(), (TraceLines{deleted(keys[0]), deleted(keys[3])}));
  EXPECT_FALSE(bidir->trie()->hasRoute(keys[0]));
  EXPECT_FALSE(bidir->permitGroup(keys[0]));
  EXPECT_EQ(sm->reviewBookmark(), keys[2]);
  capture.clear();
  clock->runDue();
  EXPECT_EQ(capture.levelled(), (TraceLines{kDoReview, added(keys[2]), kFinished}));
  expectTrieMatchesTable(bidir);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_EntryAdded_RangeInsertedAtOnceAndCounted) {
  auto sm = start(bidir);
  clock->runDue();
  TraceCapture capture(kTraceFile);
  write(prefix(family().range));
  EXPECT_EQ(capture.levelled(), (TraceLines{added(prefix(family().range))}));
  EXPECT_TRUE(bidir->trie()->hasRoute(prefix(family().range)));
  EXPECT_EQ(bidir->changeCount(), 1u);
  EXPECT_TRUE(bidir->permitGroup(prefix(family().inside)));
  EXPECT_FALSE(bidir->permitGroup(prefix(family().outside)));
}

TEST_P(GroupFilterSmTest, GroupFilterSm_EntryReplaced_RangeKeptAndCountedAgain) {
  auto sm = start(bidir);
  clock->runDue();
  write(prefix(family().range));
  TraceCapture capture(kTraceFile);
  table->rpHashIs(entryFor(prefix(family().range), ipv4() ? "10.0.0.2" : "2001:db8::2"));
  EXPECT_EQ(capture.levelled(), (TraceLines{added(prefix(family().range))}));
  EXPECT_EQ(bidir->trie()->routes(), 1u);
  EXPECT_EQ(bidir->changeCount(), 2u);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_SparseModeFilter_FilledTheSameWay) {
  auto sparse = groupFilterStatusFactory(family().af, modePimSm);
  write(prefix(family().range));
  auto sm = start(sparse);
  clock->runDue();
  EXPECT_TRUE(sparse->trie()->hasRoute(prefix(family().range)));
  EXPECT_FALSE(sparse->permitGroup(prefix(family().inside)));
  EXPECT_TRUE(sparse->permitGroup(prefix(family().outside)));
  table->rpHashDel(prefix(family().range));
  EXPECT_TRUE(sparse->permitGroup(prefix(family().inside)));
  EXPECT_EQ(sparse->changeCount(), 2u);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_NotificationForPrefixNeverInTrieAndAbsent_CountsOnly) {
  write(prefix(family().range));
  auto sm = start(bidir);
  clock->runDue();
  const auto before = bidir->changeCount();
  const IpGenPrefix never = keyAt(77);
  TraceCapture capture(kTraceFile);
  sm->handleRpHash(never);
  EXPECT_EQ(capture.levelled(), (TraceLines{deleted(never)}));
  EXPECT_EQ(bidir->trie()->routes(), 1u);
  EXPECT_TRUE(bidir->trie()->hasRoute(prefix(family().range)));
  EXPECT_FALSE(bidir->trie()->hasRoute(never));
  EXPECT_EQ(bidir->changeCount(), before + 1);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_PrefixOfOtherFamily_LeftAlone) {
  auto sm = start(bidir);
  clock->runDue();
  TraceCapture capture(kTraceFile);
  const IpGenPrefix foreign = prefix(family().otherFamilyGroup);
  table->rpHashIs(entryFor(foreign, ipv4() ? "2001:db8::1" : "10.0.0.1"));
  sm->handleInitialized();
  clock->runDue();
  EXPECT_EQ(capture.levelled(), (TraceLines{kHandleInitialized, kDoReview, kFinished}));
  EXPECT_EQ(bidir->trie()->routes(), 0u);
  EXPECT_EQ(bidir->changeCount(), 0u);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_NotInitialized_ReviewDoesNothing) {
  write(prefix(family().range));
  auto sm = start(bidir);
  sm->initializedIs(false);
  TraceCapture capture(kTraceFile);
  clock->runDue();
  EXPECT_EQ(capture.levelled(), (TraceLines{kDoReview}));
  EXPECT_EQ(bidir->trie()->routes(), 0u);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_InitializedAgainDuringReview_ReviewsFromTheFirstKey) {
  const auto keys = fill(4, 1);
  auto sm = startSliced(2);
  clock->runNext();
  ASSERT_EQ(sm->reviewBookmark(), keys[2]);
  TraceCapture capture(kTraceFile);
  sm->handleInitialized();
  EXPECT_TRUE(sm->reviewBookmark().isNull());
  clock->runDue();
  EXPECT_EQ(capture.levelled(), (TraceLines{kHandleInitialized, kDoReview, added(keys[0]),
                                            added(keys[1]), suspendingAt(keys[2]), kDoReview,
                                            added(keys[2]), added(keys[3]), kFinished}));
}

TEST_P(GroupFilterSmTest, GroupFilterSm_WithoutClock_NoReviewUntilAsked) {
  write(prefix(family().range));
  auto sm = groupFilterSmFactory(table, bidir, nullptr);
  EXPECT_EQ(sm->clock(), nullptr);
  EXPECT_EQ(bidir->trie()->routes(), 0u);
  sm->doReview();
  EXPECT_TRUE(bidir->trie()->hasRoute(prefix(family().range)));
}

TEST_P(GroupFilterSmTest, GroupFilterSm_WithoutTable_ReviewFinishesEmpty) {
  TraceCapture capture(kTraceFile);
  auto sm = groupFilterSmFactory(nullptr, bidir, clock);
  clock->runDue();
  sm->handleRpHash(prefix(family().range));
  EXPECT_EQ(capture.levelled(), (TraceLines{kHandleInitialized, kDoReview, kFinished}));
  EXPECT_EQ(bidir->changeCount(), 0u);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_Dropped_TableChangesNoLongerReachTheFilter) {
  auto sm = start(bidir);
  clock->runDue();
  sm = nullptr;
  write(prefix(family().range));
  EXPECT_EQ(bidir->trie()->routes(), 0u);
  EXPECT_EQ(table->notifiees(), 0u);
  EXPECT_EQ(clock->notifiees(), 0u);
}

// Damages the stored value of one key as a stray write from another process would, from inside
// the table's notification for that key, before the reactors registered after it run.
class Disrupter : public RpHashStatus::NotifieeConst {
 public:
  Disrupter(const Kel::PtrConst<RpHashStatus>& table, const IpGenPrefix& target) : target_(target) {
    notifierIs(table);
  }
  void onRpHash(const IpGenPrefix& prefix) override {
    if (armed && prefix == target_) {
      Mirra::testing::MirraMapBackdoor::damageValue(notifier()->rpHash(), prefix);
    }
  }
  bool armed = false;

 private:
  IpGenPrefix target_;
};

TEST_P(GroupFilterSmTest, GroupFilterSm_LookupMeetsDamagedSlot_ReportedOnceAndTakenAsAbsent) {
  const IpGenPrefix range = prefix(family().range);
  Kel::Ptr<Disrupter> disrupter(new Disrupter(table, range));
  write(range);
  auto sm = start(bidir);
  clock->runDue();
  const auto before = bidir->changeCount();
  TraceCapture capture(kTraceFile);
  TraceCapture debug("Debug");
  disrupter->armed = true;
  table->rpHashIs(entryFor(range, ipv4() ? "10.0.0.2" : "2001:db8::2"));
  EXPECT_EQ(capture.levelled(), (TraceLines{deleted(range)}));
  EXPECT_FALSE(bidir->trie()->hasRoute(range));
  EXPECT_FALSE(bidir->permitGroup(prefix(family().inside)));
  EXPECT_EQ(bidir->changeCount(), before + 1);
  EXPECT_EQ(table->corruptions(), 1u);
  EXPECT_EQ(debug.levelled(),
            (TraceLines{{0, "MirraMap::corruptionDetected() " + table->lastCorruption()}}));
  disrupter->notifierIs(nullptr);
}

TEST_P(GroupFilterSmTest, GroupFilterSm_ReviewMeetsDamage_RetriesAQuantumLaterAfterRepair) {
  const auto keys = fill(3, 1);
  Mirra::testing::MirraMapBackdoor::damageValue(table->rpHash(), keys[0]);
  TraceCapture capture(kTraceFile);
  auto sm = start(bidir);
  EXPECT_EQ(clock->runDue(), 1u);
  EXPECT_EQ(capture.levelled(),
            (TraceLines{kHandleInitialized, kDoReview,
                        line(3, "doReview(), Damaged table, retrying review")}));
  EXPECT_EQ(table->corruptions(), 1u);
  EXPECT_EQ(clock->pendingWakeups(), 1u);
  EXPECT_EQ(clock->nextWakeup(), kStart + 0.1);
  EXPECT_EQ(bidir->trie()->routes(), 0u);
  write(keys[0]);  // the writer's next write of the damaged entry repairs the table
  capture.clear();
  clock->runUntil(kStart + 0.1);
  const auto lines = capture.levelled();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), kDoReview);
  EXPECT_EQ(lines.back(), kFinished);
  EXPECT_TRUE(sm->reviewBookmark().isNull());
  expectTrieMatchesTable(bidir);
  EXPECT_TRUE(bidir->trie()->hasRoute(keys[1]));
  EXPECT_TRUE(bidir->trie()->hasRoute(keys[0]));
}

// A reader of the filter that holds the last reference to the reactor and drops it on the first
// change it sees, from inside the reactor's own review.
class DroppingReader : public GroupFilterStatus::NotifieeConst {
 public:
  explicit DroppingReader(const Kel::PtrConst<GroupFilterStatus>& status) { notifierIs(status); }
  void onChangeCount() override {
    ++changes;
    sm = nullptr;
  }
  Kel::Ptr<GroupFilterSm> sm;
  int changes = 0;
};

// The clock holds the reactor through its wake-up: the slice in progress ends on a live reactor,
// which then goes, and nothing reaches the filter afterwards.
TEST_P(GroupFilterSmTest, GroupFilterSm_DroppedByAFilterReaderDuringReview_SliceEndsThenGone) {
  const auto keys = fill(3, 1);
  DroppingReader reader(bidir);
  reader.sm = start(bidir);
  TraceCapture capture(kTraceFile);
  clock->runDue();
  EXPECT_EQ(capture.levelled(),
            (TraceLines{kDoReview, added(keys[0]), added(keys[1]), added(keys[2]), kFinished}));
  EXPECT_EQ(table->notifiees(), 0u);
  EXPECT_EQ(clock->notifiees(), 0u);
  EXPECT_EQ(clock->pendingWakeups(), 0u);
  write(keyAt(3));
  EXPECT_FALSE(bidir->trie()->hasRoute(keyAt(3)));
  EXPECT_EQ(bidir->changeCount(), 3u);
  reader.notifierIs(nullptr);
}

// A review of 1,000 entries in slices of 64: every entry that stays in the table is handled once
// by the review, the suspension keys follow the table's ascending order, and changes made while
// the review is suspended are applied by their notifications at once.
TEST_P(GroupFilterSmTest, GroupFilterSm_ThousandEntriesReviewedInSlices_EachEntryOnce) {
  const auto keys = fill(1000, 2);  // odd positions stay free for entries added meanwhile
  TraceCapture capture(kTraceFile);
  auto sm = startSliced(64);
  ASSERT_TRUE(clock->runNext());
  ASSERT_EQ(sm->reviewBookmark(), keys[64]);

  const IpGenPrefix goneAhead = keys[500];
  const IpGenPrefix goneBehind = keys[10];
  const IpGenPrefix newAhead = keyAt(2 * 700 + 1);
  const IpGenPrefix newBehind = keyAt(2 * 20 + 1);
  capture.clear();
  table->rpHashDel(goneAhead);
  table->rpHashDel(goneBehind);
  write(newAhead);
  write(newBehind);
  EXPECT_EQ(capture.levelled(), (TraceLines{deleted(goneAhead), deleted(goneBehind),
                                            added(newAhead), added(newBehind)}));
  EXPECT_FALSE(bidir->trie()->hasRoute(goneAhead));
  EXPECT_FALSE(bidir->trie()->hasRoute(goneBehind));
  EXPECT_TRUE(bidir->trie()->hasRoute(newAhead));
  EXPECT_TRUE(bidir->trie()->hasRoute(newBehind));
  capture.clear();
  clock->runDue();

  const auto finalKeys = tableKeys();
  ASSERT_EQ(finalKeys.size(), 1000u);
  const auto resumeAt = std::find(finalKeys.begin(), finalKeys.end(), keys[64]) - finalKeys.begin();
  std::vector<IpGenPrefix> expectedSuspensions;
  for (auto at = resumeAt + 64; at < static_cast<long>(finalKeys.size()); at += 64) {
    expectedSuspensions.push_back(finalKeys[static_cast<std::size_t>(at)]);
  }
  EXPECT_EQ(suspensions(capture), expectedSuspensions);
  EXPECT_TRUE(std::is_sorted(expectedSuspensions.begin(), expectedSuspensions.end()));
  EXPECT_EQ(capture.levelled({3}).back(), kFinished);

  // After the first slice: every key from the bookmark on, once each; nothing behind it.
  const auto reviewed = handled(capture, "added");
  std::map<IpGenPrefix, int> expected;
  for (auto at = static_cast<std::size_t>(resumeAt); at < finalKeys.size(); ++at) {
    expected[finalKeys[at]] = 1;
  }
  EXPECT_EQ(reviewed, expected);
  EXPECT_TRUE(handled(capture, "deleted").empty());
  expectTrieMatchesTable(bidir);
  EXPECT_EQ(bidir->changeCount(), 64u + 4u + (finalKeys.size() - resumeAt));
}

TEST_P(GroupFilterSmTest, GroupFilterSm_BookmarkKeyDeletedWhileSuspended_ResumesAtNextKey) {
  const auto keys = fill(1000, 1);
  TraceCapture capture(kTraceFile);
  auto sm = startSliced(64);
  ASSERT_TRUE(clock->runNext());
  ASSERT_EQ(sm->reviewBookmark(), keys[64]);
  table->rpHashDel(keys[64]);
  EXPECT_EQ(sm->reviewBookmark(), keys[64]);
  capture.clear();
  ASSERT_TRUE(clock->runNext());
  const auto firstResumed = capture.levelled();
  ASSERT_GE(firstResumed.size(), 2u);
  EXPECT_EQ(firstResumed[0], kDoReview);
  EXPECT_EQ(firstResumed[1], added(keys[65]));
  EXPECT_EQ(firstResumed.back(), suspendingAt(keys[129]));
  clock->runDue();

  std::map<IpGenPrefix, int> expected;
  for (std::size_t at = 65; at < keys.size(); ++at) expected[keys[at]] = 1;
  EXPECT_EQ(handled(capture, "added"), expected);
  EXPECT_EQ(capture.levelled({3}).back(), kFinished);
  expectTrieMatchesTable(bidir);
}

INSTANTIATE_TEST_SUITE_P(Families, GroupFilterSmTest,
                         ::testing::Values(GroupFilterTest::kIpv4, GroupFilterTest::kIpv6),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
