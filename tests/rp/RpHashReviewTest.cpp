// The paced review of the per-source RP hash reactor: the queue of changed groups, the
// time-boxed slices with their bookmark and back-pressure, the algorithm change and the clean-up
// of a table that survived a restart.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "tests/rp/RpHashSmTestSupport.h"
#include "tests/rp/StaticRpTestSupport.h"

namespace RpHashSmTest {
namespace {

using Routing::Pim::rpHashAlgorithmModulo;

class RpHashReview : public RpHashSmFixture {
 protected:
  // Seven groups 239.1.1.1 .. 239.1.1.7 under one candidate.
  void sevenGroups() {
    for (int i = 1; i <= 7; ++i) group(("239.1.1." + std::to_string(i)).c_str());
  }
  std::vector<std::string> queued() const {
    std::vector<std::string> texts;
    for (const auto& [address, present] : sm_->changedGroup()) {
      texts.push_back(address.valueToStrep() + (present ? " +" : " -"));
    }
    return texts;
  }
  static std::string adding(const char* group, const char* rp) {
    return "doReview: Adding " + text(entry(group, rp, 1, 30, modePimSm));
  }
};

TEST_F(RpHashReview, Start_QueuesEveryKnownGroupAndKicks) {
  group("239.1.1.2");
  group("239.1.1.1");
  start();
  EXPECT_EQ(queued(), std::vector<std::string>({"239.1.1.1 +", "239.1.1.2 +"}));
  EXPECT_TRUE(sm_->reviewTimer()->reviewPending());
  EXPECT_NEAR(clock_->nextWakeup(), kStartTime + 0.01, 1e-6);
}

TEST_F(RpHashReview, HandleGroup_QueuesWithFlagAndTraces) {
  start();
  runUntilIdle();
  traceFrom(9);
  group("239.1.1.1");
  groupGone("239.1.1.1");
  const std::string handle = sig(kSm, "handleGroup(const Ipkit::IpGenAddr&)( 239.1.1.1 )");
  EXPECT_EQ(capture_.levelled(),
            TraceLines({
                {9, handle},
                {9, sig(kSm, "doKickReview()")},
                {8, "Added 239.1.1.1 for group added to change. count is 1"},
                {9, handle},
                {8, "Added 239.1.1.1 for group removed from change. count is 1"},
            }));
  EXPECT_EQ(queued(), std::vector<std::string>({"239.1.1.1 -"}));
}

TEST_F(RpHashReview, WholeGroupCollectionChanged_QueuesKnownGroupsAndGoneOnes) {
  group("239.1.1.1");
  group("239.1.1.2");
  start();
  runUntilIdle();
  ASSERT_EQ(groupEntries().size(), 2u);
  traceFrom(9);
  groups_->groupDelAll();
  group("239.1.1.3");
  runUntilIdle();
  traceFrom(9);
  // Entries the per-key notifications did not correct are found by the full pass.
  rpHash_->rpHashIs(placeholder("239.1.1.9/32", modePimSm));
  groups_->groupNotify();
  EXPECT_EQ(capture_.levelled().front(), (TraceLine{9, sig(kSm, "handleGroup()")}));
  EXPECT_EQ(queued(), std::vector<std::string>({"239.1.1.3 +", "239.1.1.9 -"}));
  runUntilIdle();
  EXPECT_EQ(groupEntries(), std::vector<RpHash>({placeholder("239.1.1.3/32", modePimSm)}));
}

TEST_F(RpHashReview, DoKickReview_ReviewPending_AsksTimerNothingMore) {
  start();
  ASSERT_TRUE(sm_->reviewTimer()->reviewPending());
  const double wakeup = clock_->nextWakeup();
  Kel::System::virtualTimeAdvanceTo(kStartTime + 0.005);
  sm_->doKickReview();
  EXPECT_EQ(clock_->nextWakeup(), wakeup);
  EXPECT_EQ(clock_->pendingWakeups(), 1u);
}

TEST_F(RpHashReview, AddedThenRemovedBeforeReview_HandledOnceAsRemoved_EntryDeleted) {
  group("239.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  runUntilIdle();
  ASSERT_EQ(groupEntries().size(), 1u);
  const auto processed = sm_->groupsProcessed();
  groupGone("239.1.1.1");
  group("239.1.1.1");
  groupGone("239.1.1.1");
  traceFrom(4);
  runUntilIdle();
  EXPECT_EQ(capture_.levelled(), TraceLines({
                                     {4, "doReview(), Starting review"},
                                     {4, "doReview: Deleting group 239.1.1.1/32"},
                                     {4, "doReview(), Finished review"},
                                 }));
  EXPECT_EQ(sm_->groupsProcessed(), processed + 1);
  EXPECT_TRUE(groupEntries().empty());
}

TEST_F(RpHashReview, ClogggedAttributeLog_OneGroupPerSlice_YieldCountedPerSlice) {
  group("239.1.1.1");
  group("239.1.1.2");
  group("239.1.1.3");
  start();
  attrLog_->attrLogOutCloggedIs(true);
  traceFrom(4);
  ASSERT_TRUE(clock_->runNext());
  EXPECT_EQ(sm_->groupsProcessed(), 1u);
  EXPECT_EQ(sm_->yieldBeforeFinishingCount(), 1u);
  EXPECT_EQ(sm_->bookmark(), IpGenAddr("239.1.1.2"));
  ASSERT_TRUE(clock_->runNext());
  EXPECT_EQ(sm_->groupsProcessed(), 2u);
  EXPECT_EQ(sm_->yieldBeforeFinishingCount(), 2u);
  ASSERT_TRUE(clock_->runNext());
  EXPECT_EQ(sm_->groupsProcessed(), 3u);
  EXPECT_EQ(sm_->yieldBeforeFinishingCount(), 2u);  // the last slice finished
  EXPECT_EQ(capture_.levelled(),
            TraceLines({
                {4, "doReview(), Starting review"},
                {4, "doReview: Adding " + text(placeholder("239.1.1.1/32", modePimSm))},
                {4, "doReview(), Suspending review. 2 groups remaining."},
                {4, "doReview(), Resuming review at bookmark 239.1.1.2"},
                {4, "doReview: Adding " + text(placeholder("239.1.1.2/32", modePimSm))},
                {4, "doReview(), Suspending review. 1 groups remaining."},
                {4, "doReview(), Resuming review at bookmark 239.1.1.3"},
                {4, "doReview: Adding " + text(placeholder("239.1.1.3/32", modePimSm))},
                {4, "doReview(), Finished review"},
            }));
}

TEST_F(RpHashReview, NoAttributeLog_ReviewRunsWithoutBackPressure) {
  attrLog_ = nullptr;
  group("239.1.1.1");
  group("239.1.1.2");
  start();
  runUntilIdle();
  EXPECT_EQ(sm_->groupsProcessed(), 2u);
  EXPECT_EQ(sm_->yieldBeforeFinishingCount(), 0u);
}

// With time stepping 4 ms per read, a 10 ms slice handles three groups: the reads after the
// first and second groups fall inside the deadline, the one after the third beyond it.
TEST_F(RpHashReview, SliceStopsAtDeadline_SuspendsWithBookmark_NextSliceResumesThere) {
  sevenGroups();
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  Kel::System::steppingTimeIs(kStartTime, 0.004);
  traceFrom(4);
  ASSERT_TRUE(clock_->runNext());
  EXPECT_EQ(sm_->groupsProcessed(), 3u);
  EXPECT_EQ(sm_->yieldBeforeFinishingCount(), 1u);
  EXPECT_EQ(sm_->bookmark(), IpGenAddr("239.1.1.4"));
  EXPECT_EQ(sm_->changedGroup().size(), 4u);
  EXPECT_EQ(capture_.levelled(), TraceLines({
                                     {4, "doReview(), Starting review"},
                                     {4, adding("239.1.1.1/32", "10.0.0.1")},
                                     {4, adding("239.1.1.2/32", "10.0.0.1")},
                                     {4, adding("239.1.1.3/32", "10.0.0.1")},
                                     {4, "doReview(), Suspending review. 4 groups remaining."},
                                 }));
  // The slice asked to continue at once, outside the timer.
  EXPECT_EQ(sm_->kelClock()->timeMin(), Kel::System::currentTime() - 0.004);
  traceFrom(4);
  ASSERT_TRUE(clock_->runNext());
  EXPECT_EQ(sm_->groupsProcessed(), 6u);
  EXPECT_EQ(sm_->yieldBeforeFinishingCount(), 2u);
  EXPECT_EQ(sm_->bookmark(), IpGenAddr("239.1.1.7"));
  EXPECT_EQ(capture_.levelled(), TraceLines({
                                     {4, "doReview(), Resuming review at bookmark 239.1.1.4"},
                                     {4, adding("239.1.1.4/32", "10.0.0.1")},
                                     {4, adding("239.1.1.5/32", "10.0.0.1")},
                                     {4, adding("239.1.1.6/32", "10.0.0.1")},
                                     {4, "doReview(), Suspending review. 1 groups remaining."},
                                 }));
  traceFrom(4);
  ASSERT_TRUE(clock_->runNext());
  EXPECT_EQ(sm_->groupsProcessed(), 7u);
  EXPECT_EQ(sm_->bookmark(), IpGenAddr());
  EXPECT_EQ(capture_.levelled(), TraceLines({
                                     {4, "doReview(), Resuming review at bookmark 239.1.1.7"},
                                     {4, adding("239.1.1.7/32", "10.0.0.1")},
                                     {4, "doReview(), Finished review"},
                                 }));
  EXPECT_EQ(groupEntries().size(), 7u);
  EXPECT_FALSE(clock_->runNext());
}

TEST_F(RpHashReview, BookmarkGroupLeftQueue_ResumesAtNextHigherQueuedAddress) {
  sevenGroups();
  start();
  Kel::System::steppingTimeIs(kStartTime, 0.004);
  ASSERT_TRUE(clock_->runNext());
  ASSERT_EQ(sm_->bookmark(), IpGenAddr("239.1.1.4"));
  sm_->changedGroupDel(IpGenAddr("239.1.1.4"));
  sm_->changedGroupDel(IpGenAddr("239.1.1.5"));
  traceFrom(4);
  ASSERT_TRUE(clock_->runNext());
  EXPECT_EQ(capture_.levelled(),
            TraceLines({
                {4, "doReview(), Resuming review at bookmark 239.1.1.4"},
                {4, "doReview: Adding " + text(placeholder("239.1.1.6/32", modePimSm))},
                {4, "doReview: Adding " + text(placeholder("239.1.1.7/32", modePimSm))},
                {4, "doReview(), Finished review"},
            }));
}

TEST_F(RpHashReview, EntryQueuedBelowBookmark_ReachedByALaterSlice) {
  sevenGroups();
  start();
  Kel::System::steppingTimeIs(kStartTime, 0.004);
  ASSERT_TRUE(clock_->runNext());
  ASSERT_EQ(sm_->bookmark(), IpGenAddr("239.1.1.4"));
  group("239.1.1.0");  // below the bookmark; the queue is not empty, so no kick
  EXPECT_EQ(clock_->pendingWakeups(), 1u);
  ASSERT_TRUE(clock_->runNext());  // 4, 5, 6
  ASSERT_TRUE(clock_->runNext());  // 7, then the end of the queue with 239.1.1.0 left
  EXPECT_EQ(sm_->bookmark(), IpGenAddr());
  EXPECT_EQ(queued(), std::vector<std::string>({"239.1.1.0 +"}));
  traceFrom(4);
  ASSERT_TRUE(clock_->runNext());
  EXPECT_EQ(capture_.levelled(),
            TraceLines({
                {4, "doReview(), Starting review"},
                {4, "doReview: Adding " + text(placeholder("239.1.1.0/32", modePimSm))},
                {4, "doReview(), Finished review"},
            }));
  EXPECT_EQ(groupEntries().size(), 8u);
}

TEST_F(RpHashReview, EmptyQueue_FinishedAtOnce_RecordsFinishTime) {
  start();
  runUntilIdle();
  Kel::System::virtualTimeAdvanceTo(kStartTime + 7.0);
  traceFrom(9);
  sm_->doReview();
  EXPECT_EQ(capture_.levelled(), TraceLines({
                                     {9, sig(kSm, "doReview()")},
                                     {4, "doReview(), Starting review"},
                                     {4, "doReview(), Finished review"},
                                 }));
  EXPECT_EQ(sm_->reviewTimer()->lastReviewTime(), kStartTime + 7.0);
}

TEST_F(RpHashReview, OtherModeSelection_PlaceholderWithMismatchTrace) {
  group("239.1.1.1");
  start(modePimBidir);
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  traceFrom(9);
  runUntilIdle();
  TraceLines review;
  for (const TraceLine& line : capture_.levelled()) {
    if (line.text.rfind("doReview", 0) == 0) review.push_back(line);
  }
  EXPECT_EQ(review, TraceLines({
                        {4, "doReview(), Starting review"},
                        {9, "doReview: mismatch mode modePimSm expected mode: modePimBidir"},
                        {4, "doReview: Adding " + text(placeholder("239.1.1.1/32", modePimBidir))},
                        {4, "doReview(), Finished review"},
                    }));
  EXPECT_EQ(groupEntries(), std::vector<RpHash>({placeholder("239.1.1.1/32", modePimBidir)}));
}

// A reader that deletes every entry it sees written, once: the review reads its write back,
// finds nothing and writes once more.
class EntryEater : public Routing::Pim::RpHashStatus::NotifieeConst {
 public:
  explicit EntryEater(const Kel::Ptr<Routing::Pim::RpHashStatus>& table) : table_(table) {}
  void onRpHash(const IpGenPrefix& prefix) override {
    if (eaten || table_->rpHash(prefix) == RpHash()) return;
    eaten = true;
    table_->rpHashDel(prefix);
  }
  bool eaten = false;

 private:
  Kel::Ptr<Routing::Pim::RpHashStatus> table_;
};

TEST_F(RpHashReview, EntryDeletedByAReaderOfTheWrite_WrittenOnceMore) {
  group("239.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  Kel::Ptr<EntryEater> eater(new EntryEater(rpHash_));
  eater->notifierIs(rpHash_);
  runUntilIdle();
  eater->notifierIs(nullptr);
  EXPECT_TRUE(eater->eaten);
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.1", 1, 30, modePimSm)}));
}

TEST_F(RpHashReview, Restart_EntriesOfUnknownGroupsDeletedDuringStartUp) {
  group("239.1.1.1");
  rpHash_->rpHashIs(entry("239.1.1.1/32", "10.0.0.1", 1, 30, modePimSm));
  rpHash_->rpHashIs(entry("239.9.9.9/32", "10.0.0.1", 1, 30, modePimSm));
  traceFrom(9);
  start();
  TraceLines lines = capture_.levelled();
  lines.resize(std::min<std::size_t>(lines.size(), 3));
  EXPECT_EQ(lines, TraceLines({
                       {9, sig(kSm, "handleInitialized()")},
                       {9, sig(kSm, "doRemoveExtraRpHashGroups()")},
                       {5, "doRemoveExtraRpHashGroups: Deleting group 239.9.9.9/32"},
                   }));
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.1", 1, 30, modePimSm)}));
}

TEST_F(RpHashReview, FreshTable_NoCleanUpAtStartUp) {
  group("239.1.1.1");
  traceFrom(9);
  start();
  for (const TraceLine& line : capture_.levelled()) {
    EXPECT_EQ(line.text.find("doRemoveExtraRpHashGroups"), std::string::npos) << line;
  }
}

TEST_F(RpHashReview, RemoveExtra_CorruptTable_ReportedAndWalkEnds) {
  rpHash_->rpHashIs(entry("239.9.9.8/32", "10.0.0.1", 1, 30, modePimSm));
  rpHash_->rpHashIs(entry("239.9.9.9/32", "10.0.0.1", 1, 30, modePimSm));
  Mirra::testing::MirraMapBackdoor::damageValue(rpHash_->rpHash(), IpGenPrefix("239.9.9.8/32"));
  Mirra::testing::MirraMapBackdoor::damageValue(rpHash_->rpHash(), IpGenPrefix("239.9.9.9/32"));
  start();
  EXPECT_FALSE(rpHash_->lastCorruption().empty());
  EXPECT_EQ(rpHash_->rpHashs(), 2u);  // nothing deleted after the corruption was met
  EXPECT_TRUE(sm_->initialized());
}

TEST_F(RpHashReview, AlgorithmChange_PrefixTableRewritten_EveryGroupRecomputed) {
  group("239.1.1.1");
  group("239.1.1.2");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  candidate({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  candidate({"239.0.0.0/8", "10.0.0.3", 0, 30, modePimSm});
  runUntilIdle();
  traceFrom(9);
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  const auto lines = capture_.levelled();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], (TraceLine{9, sig(kSm, "handleRpHashAlgorithm() : rpHashAlgorithmModulo")}));
  EXPECT_EQ(lines[1], (TraceLine{9, sig(kSm, "doProcessCrpSets()")}));
  EXPECT_EQ(queued(), std::vector<std::string>({"239.1.1.1 +", "239.1.1.2 +"}));
  runUntilIdle();
  // 239.1.1.1 is 4009820417 (mod 3 = 2), 239.1.1.2 is 4009820418 (mod 3 = 0); the prefix itself
  // is 239.0.0.0, 4009754624 (mod 3 = 2).
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.3", 0, 30, modePimSm),
                                 entry("239.1.1.2/32", "10.0.0.1", 0, 30, modePimSm)}));
  EXPECT_EQ(prefixEntries(),
            std::vector<RpHash>({entry("239.0.0.0/8", "10.0.0.3", 0, 30, modePimSm)}));
}

TEST_F(RpHashReview, ReviewTimerIs_SameClockReactor_ParametersUpdatedInPlace) {
  start();
  const Oru::ReviewTimer* timer = sm_->reviewTimer().ptr();
  sm_->reviewTimerIs(sm_->kelClock().ptr(), 2.0f, 3, 0.02f, 0.04f);
  EXPECT_EQ(sm_->reviewTimer().ptr(), timer);
  EXPECT_EQ(timer->fillInterval(), 2.0f);
  EXPECT_EQ(timer->maxCredits(), 3u);
  EXPECT_EQ(timer->minDelay(), 0.02f);
  EXPECT_EQ(timer->maxDelay(), 0.04f);
}

TEST_F(RpHashReview, ReviewTimerIs_OtherClockReactor_NewTimer_DelDropsIt) {
  start();
  Kel::Ptr<Kel::Clock::NotifieeConst> other(new Kel::Clock::NotifieeConst);
  other->notifierIs(clock_);
  sm_->reviewTimerIs(other.ptr(), 1.0f, 4, 0.01f, 0.05f);
  ASSERT_TRUE(sm_->reviewTimer());
  EXPECT_EQ(sm_->reviewTimer()->clock(), other.ptr());
  sm_->reviewTimerDel();
  EXPECT_FALSE(sm_->reviewTimer());
}

TEST_F(RpHashReview, NoTimer_ChangesQueueButScheduleNothing) {
  start();
  runUntilIdle();
  sm_->reviewTimerDel();
  group("239.1.1.1");
  EXPECT_EQ(queued(), std::vector<std::string>({"239.1.1.1 +"}));
  EXPECT_EQ(clock_->pendingWakeups(), 0u);
  sm_->doReview();
  EXPECT_EQ(groupEntries(), std::vector<RpHash>({placeholder("239.1.1.1/32", modePimSm)}));
}

TEST_F(RpHashReview, Start_TimerBuiltWithReviewParameters) {
  start();
  const Oru::ReviewTimer* timer = sm_->reviewTimer().ptr();
  EXPECT_EQ(timer->clock(), sm_->kelClock().ptr());
  EXPECT_EQ(timer->fillInterval(), 1.0f);
  EXPECT_EQ(timer->maxCredits(), 4u);
  EXPECT_EQ(timer->minDelay(), 0.01f);
  EXPECT_EQ(timer->maxDelay(), 0.05f);
}

TEST_F(RpHashReview, DroppedReactor_PendingWakeUpNeverDelivered) {
  group("239.1.1.1");
  start();
  sm_ = nullptr;
  EXPECT_EQ(clock_->pendingWakeups(), 0u);
  EXPECT_EQ(runUntilIdle(), 0u);
  EXPECT_TRUE(groupEntries().empty());
}

// End to end: the static candidate reactor fills the status from configuration, three reactors
// (mode 0, sparse, bidirectional) compute their tables over the same known groups, and follow
// candidate and group changes.
class RpHashStory : public StaticRpTest::StaticRpFixture {
 protected:
  struct Instance {
    Kel::Ptr<Routing::Pim::RpHashStatus> groupTable{new Routing::Pim::RpHashStatus};
    Kel::Ptr<Routing::Pim::RpHashStatus> prefixTable{new Routing::Pim::RpHashStatus};
    Kel::Ptr<Routing::Pim::RpHashIntermediateSm> sm;
  };

  RpHashStory()
      : groups_(new Routing::Pim::GroupStatus),
        clock_(new Kel::Clock),
        attrLog_(new Routing::Pim::PimAttrLogSm),
        pimConfig_(new Routing::Pim::RpConfig) {}
  ~RpHashStory() override {
    for (Instance* instance : {&any_, &sparse_, &bidir_}) instance->sm = nullptr;
  }

  void startHash() {
    for (auto [instance, mode] : {std::pair<Instance*, Mode>{&any_, modePimNone},
                                  {&sparse_, modePimSm},
                                  {&bidir_, modePimBidir}}) {
      instance->sm = Routing::Pim::rpHashIntermediateSmFactory(
          Ipkit::ipv4(), groups_, status_, instance->groupTable, instance->prefixTable, clock_,
          mode, attrLog_, pimConfig_);
    }
  }
  void runUntilIdle() {
    for (int guard = 0; guard < 1000 && clock_->pendingWakeups() != 0; ++guard) {
      clock_->runUntil(clock_->nextWakeup());
    }
  }
  void knownGroup(const char* address) { groups_->groupIs(IpGenAddr(address), true); }
  // An RP serving `prefix` with the given values; hash mask length 0 means "not configured".
  void staticRp(const char* address, const char* prefix, Routing::Pim::RpPriority priority,
                Routing::Pim::RpHashMaskLen hashMaskLen, Mode mode) {
    auto config = rp(address);
    config->modeIs(mode);
    config->priorityGrpIs(IpGenPrefix(prefix), priority);
    if (hashMaskLen != 0) config->hashMaskGrpIs(IpGenPrefix(prefix), hashMaskLen);
    config->groupIs(IpGenPrefix(prefix), true);
  }
  static std::vector<RpHash> table(const Kel::Ptr<Routing::Pim::RpHashStatus>& status) {
    return entries(*status);
  }

  Kel::Ptr<Routing::Pim::GroupStatus> groups_;
  Kel::Ptr<Kel::Clock> clock_;
  Kel::Ptr<Routing::Pim::PimAttrLogSm> attrLog_;
  Kel::Ptr<Routing::Pim::RpConfig> pimConfig_;
  Instance any_;
  Instance sparse_;
  Instance bidir_;
};

TEST_F(RpHashStory, StaticCandidates_ThreeModes_TablesFollowChanges) {
  staticRp("10.0.0.1", "239.0.0.0/8", 1, 30, modePimSm);
  staticRp("10.0.0.2", "238.0.0.0/8", 5, 30, modePimBidir);
  staticRp("10.0.0.3", "239.1.0.0/16", 0, 0, modePimSm);  // hash mask length stays 128
  start();
  for (const char* g : {"239.2.2.2", "239.1.1.1", "238.1.1.1", "225.1.1.1"}) knownGroup(g);
  startHash();
  runUntilIdle();

  // Groups come from the review, which takes every candidate the selection takes (10.0.0.3 with
  // its 128 included). The per-prefix entries of sets that held candidates at start-up were
  // computed before their prefixes entered the trie, so they hold placeholders; 10.0.0.3 never
  // computes on the candidate path, so 239.1.0.0/16 has no per-prefix entry at all.
  const RpHash g239_1 = entry("239.1.1.1/32", "10.0.0.3", 0, 128, modePimSm);
  const RpHash g239_2 = entry("239.2.2.2/32", "10.0.0.1", 1, 30, modePimSm);
  const RpHash g238 = entry("238.1.1.1/32", "10.0.0.2", 5, 30, modePimBidir);
  EXPECT_EQ(table(any_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimNone), g238, g239_1, g239_2}));
  EXPECT_EQ(table(sparse_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimSm),
                                 placeholder("238.1.1.1/32", modePimSm), g239_1, g239_2}));
  EXPECT_EQ(table(bidir_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimBidir), g238,
                                 placeholder("239.1.1.1/32", modePimBidir),
                                 placeholder("239.2.2.2/32", modePimBidir)}));
  for (auto [instance, mode] : {std::pair<Instance*, Mode>{&any_, modePimNone},
                                {&sparse_, modePimSm},
                                {&bidir_, modePimBidir}}) {
    EXPECT_EQ(
        table(instance->prefixTable),
        std::vector<RpHash>({placeholder("238.0.0.0/8", mode), placeholder("239.0.0.0/8", mode)}));
  }

  // A better sparse candidate for 239.0.0.0/8: the candidate path rewrites the overlapping groups
  // and the prefix at once.
  staticRp("10.0.0.4", "239.0.0.0/8", 0, 30, modePimSm);
  const RpHash g239_2new = entry("239.2.2.2/32", "10.0.0.4", 0, 30, modePimSm);
  const RpHash p239 = entry("239.0.0.0/8", "10.0.0.4", 0, 30, modePimSm);
  EXPECT_EQ(table(sparse_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimSm),
                                 placeholder("238.1.1.1/32", modePimSm), g239_1, g239_2new}));
  EXPECT_EQ(table(any_.groupTable), std::vector<RpHash>({placeholder("225.1.1.1/32", modePimNone),
                                                         g238, g239_1, g239_2new}));
  EXPECT_EQ(table(sparse_.prefixTable),
            std::vector<RpHash>({placeholder("238.0.0.0/8", modePimSm), p239}));
  EXPECT_EQ(table(bidir_.prefixTable),
            std::vector<RpHash>({placeholder("238.0.0.0/8", modePimBidir),
                                 placeholder("239.0.0.0/8", modePimBidir)}));

  // 10.0.0.1 goes: it is the RP of no entry, so every entry stays as it was.
  rpConfig_->rpTableDel(IpGenAddr("10.0.0.1"));
  EXPECT_EQ(table(sparse_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimSm),
                                 placeholder("238.1.1.1/32", modePimSm), g239_1, g239_2new}));
  EXPECT_EQ(table(sparse_.prefixTable),
            std::vector<RpHash>({placeholder("238.0.0.0/8", modePimSm), p239}));

  // 10.0.0.3 gets a real hash mask length: now it computes, and 239.1.0.0/16 gets its entry.
  rp("10.0.0.3")->hashMaskGrpIs(IpGenPrefix("239.1.0.0/16"), 30);
  const RpHash g239_1new = entry("239.1.1.1/32", "10.0.0.3", 0, 30, modePimSm);
  EXPECT_EQ(table(sparse_.prefixTable),
            std::vector<RpHash>({placeholder("238.0.0.0/8", modePimSm), p239,
                                 entry("239.1.0.0/16", "10.0.0.3", 0, 30, modePimSm)}));
  EXPECT_EQ(table(sparse_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimSm),
                                 placeholder("238.1.1.1/32", modePimSm), g239_1new, g239_2new}));
  EXPECT_EQ(table(bidir_.prefixTable),
            std::vector<RpHash>({placeholder("238.0.0.0/8", modePimBidir),
                                 placeholder("239.0.0.0/8", modePimBidir),
                                 placeholder("239.1.0.0/16", modePimBidir)}));

  // Groups change: the review deletes the one that left and computes the one that came.
  groups_->groupDel(IpGenAddr("239.2.2.2"));
  knownGroup("239.3.3.3");
  runUntilIdle();
  const RpHash g239_3 = entry("239.3.3.3/32", "10.0.0.4", 0, 30, modePimSm);
  EXPECT_EQ(table(sparse_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimSm),
                                 placeholder("238.1.1.1/32", modePimSm), g239_1new, g239_3}));

  // The only bidirectional RP goes with its set: the bidirectional tables fall back to the
  // placeholder for its group; the sparse table's placeholder, whose RP was never 10.0.0.2, is
  // left as it was; every per-prefix entry of 238.0.0.0/8 goes with the set.
  rpConfig_->rpTableDel(IpGenAddr("10.0.0.2"));
  EXPECT_EQ(
      table(bidir_.groupTable),
      std::vector<RpHash>(
          {placeholder("225.1.1.1/32", modePimBidir), placeholder("238.1.1.1/32", modePimBidir),
           placeholder("239.1.1.1/32", modePimBidir), placeholder("239.3.3.3/32", modePimBidir)}));
  EXPECT_EQ(table(any_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimNone),
                                 placeholder("238.1.1.1/32", modePimNone), g239_1new, g239_3}));
  EXPECT_EQ(table(sparse_.groupTable),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimSm),
                                 placeholder("238.1.1.1/32", modePimSm), g239_1new, g239_3}));
  EXPECT_EQ(table(sparse_.prefixTable),
            std::vector<RpHash>({p239, entry("239.1.0.0/16", "10.0.0.3", 0, 30, modePimSm)}));
  EXPECT_EQ(table(bidir_.prefixTable),
            std::vector<RpHash>({placeholder("239.0.0.0/8", modePimBidir),
                                 placeholder("239.1.0.0/16", modePimBidir)}));
}

}  // namespace
}  // namespace RpHashSmTest
