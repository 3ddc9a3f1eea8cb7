// The per-source RP hash reactor's start-up, its nested candidate reactors and the candidate path
// that rewrites per-prefix and per-group entries.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/Assert.h"
#include "framework/Kel/Exception.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "tests/rp/RpHashSmTestSupport.h"
#include "tests/support/Refusal.h"

namespace RpHashSmTest {
namespace {

using Routing::Pim::rpHashAlgorithmModulo;

class RpHashIntermediate : public RpHashSmFixture {};

TEST_F(RpHashIntermediate, Start_MissingInput_RaisesAssertionNamingEveryInput) {
  groups_ = nullptr;
  const auto e = TestSupport::thrownBy<Kel::AssertionException>([&] { start(); });
  ASSERT_TRUE(e);
  EXPECT_EQ(std::string(e->what()),
            "groupMrt() && crpStatus() && crpCompute() && rpHashStatus() && rpConfig()");
  EXPECT_EQ(e->traceFile(), "PimRpHashSm");
  EXPECT_EQ(e->function(), "void Routing::Pim::RpHashIntermediateSm::handleInitialized()");
}

TEST_F(RpHashIntermediate, Start_UnknownFamily_RaisesUnsupportedAddressFamily) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::AssertionException>(
                [&] { start(modePimSm, Ipkit::ipunknown()); }),
            "0 && \"Unsupported Address Family\"");
}

TEST_F(RpHashIntermediate, Start_TrieNamedAfterFamily) {
  start(modePimSm, Ipkit::ipv4());
  EXPECT_EQ(sm_->trie()->name(), Kel::Name("crpTrie4"));
  EXPECT_EQ(sm_->crpCompute()->grpTrie(), sm_->trie());
  sm_ = nullptr;
  start(modePimSm, Ipkit::ipv6());
  EXPECT_EQ(sm_->trie()->name(), Kel::Name("crpTrie6"));
}

TEST_F(RpHashIntermediate, Start_Defaults) {
  start();
  EXPECT_TRUE(sm_->initialized());
  EXPECT_FALSE(sm_->reviewedOnce());
  EXPECT_EQ(sm_->minDelay(), 0.01);
  EXPECT_EQ(sm_->maxDelay(), 0.05);
  EXPECT_EQ(sm_->backlogQuantum(), 0.01);
  EXPECT_EQ(sm_->groupsProcessed(), 0u);
  EXPECT_EQ(sm_->yieldBeforeFinishingCount(), 0u);
  EXPECT_EQ(sm_->bookmark(), IpGenAddr());
  EXPECT_EQ(sm_->pimMode(), modePimSm);
  EXPECT_TRUE(sm_->reviewTimer());
}

TEST_F(RpHashIntermediate, NullCrpSet_RefusedWithMutatorText) {
  start();
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { sm_->crpSetIs(nullptr); }),
            "null _crpSet parameter to mutator for "
            "Routing::Pim::RpHashIntermediateSm::crpSet not allowed");
  EXPECT_TRUE(sm_->crpSet().empty());
}

TEST_F(RpHashIntermediate, NullCrp_RefusedWithMutatorText) {
  start();
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  const auto reactor = sm_->crpSet(IpGenPrefix("239.0.0.0/8"));
  ASSERT_TRUE(reactor);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { reactor->crpIs(nullptr); }),
            "null _crp parameter to mutator for "
            "Routing::Pim::RpHashIntermediateSm::KelCrpSet::crp not allowed");
  EXPECT_TRUE(reactor->crp().empty());
}

// The values that mean "not set yet" keep a candidate out of the computation, a real hash mask
// length of 128 included, until the attribute changes.
TEST_F(RpHashIntermediate, Candidate_NotSetValues_NeverComputeUntilChanged) {
  start();
  auto set = status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  auto crp = set->rpIs(IpGenAddr("10.0.0.1"));
  crp->priorityIs(1);
  crp->pimModeIs(modePimSm);  // hash mask length still 128
  const auto reactor = sm_->crpSet(IpGenPrefix("239.0.0.0/8"))->crp(IpGenAddr("10.0.0.1"));
  EXPECT_FALSE(reactor->initialized());
  EXPECT_TRUE(prefixEntries().empty());

  crp->hashMaskLenIs(30);
  crp->priorityIs(256);
  EXPECT_TRUE(reactor->initialized());  // once initialized it stays so
  crp->priorityIs(1);

  auto other = set->rpIs(IpGenAddr("10.0.0.2"));
  other->priorityIs(0);
  other->hashMaskLenIs(30);  // mode still 0
  EXPECT_FALSE(sm_->crpSet(IpGenPrefix("239.0.0.0/8"))->crp(IpGenAddr("10.0.0.2"))->initialized());
  EXPECT_EQ(prefixEntries(),
            std::vector<RpHash>({entry("239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm)}));
  other->pimModeIs(modePimSm);
  EXPECT_TRUE(sm_->crpSet(IpGenPrefix("239.0.0.0/8"))->crp(IpGenAddr("10.0.0.2"))->initialized());
  EXPECT_EQ(prefixEntries(),
            std::vector<RpHash>({entry("239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm)}));
}

TEST_F(RpHashIntermediate, Candidate_Priority256_NeverComputes) {
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 256, 30, modePimSm});
  EXPECT_FALSE(sm_->crpSet(IpGenPrefix("239.0.0.0/8"))->crp(IpGenAddr("10.0.0.1"))->initialized());
  EXPECT_TRUE(prefixEntries().empty());
}

TEST_F(RpHashIntermediate, Candidate_Mode0_NeverComputes) {
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimNone});
  EXPECT_FALSE(sm_->crpSet(IpGenPrefix("239.0.0.0/8"))->crp(IpGenAddr("10.0.0.1"))->initialized());
  EXPECT_TRUE(prefixEntries().empty());
}

TEST_F(RpHashIntermediate, RemoveOnlyCandidate_PrefixLeavesTrie_EntriesBecomePlaceholders) {
  group("239.1.1.1");
  group("225.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  runUntilIdle();
  ASSERT_EQ(groupEntries(),
            std::vector<RpHash>({placeholder("225.1.1.1/32", modePimSm),
                                 entry("239.1.1.1/32", "10.0.0.1", 1, 30, modePimSm)}));
  ASSERT_TRUE(sm_->trie()->hasRoute(IpGenPrefix("239.0.0.0/8")));

  candidateGone("239.0.0.0/8", "10.0.0.1");
  EXPECT_FALSE(sm_->trie()->hasRoute(IpGenPrefix("239.0.0.0/8")));
  EXPECT_EQ(groupEntries(), std::vector<RpHash>({placeholder("225.1.1.1/32", modePimSm),
                                                 placeholder("239.1.1.1/32", modePimSm)}));
  EXPECT_EQ(prefixEntries(), std::vector<RpHash>({placeholder("239.0.0.0/8", modePimSm)}));
}

TEST_F(RpHashIntermediate, RemoveNonRpCandidate_LeavesOverlappingEntryUntouched) {
  group("239.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  candidate({"239.0.0.0/8", "10.0.0.2", 5, 30, modePimSm});
  runUntilIdle();
  ASSERT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.1", 0, 30, modePimSm)}));
  // Made stale on purpose: only a rewrite would bring it back.
  rpHash_->rpHashIs(entry("239.1.1.1/32", "10.0.0.1", 0, 31, modePimSm));
  candidateGone("239.0.0.0/8", "10.0.0.2");
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.1", 0, 31, modePimSm)}));
}

TEST_F(RpHashIntermediate, RemoveNonRpCandidate_ModuloAlgorithm_RewritesOverlappingEntry) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  group("239.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  candidate({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  candidate({"239.0.0.0/8", "10.0.0.3", 0, 30, modePimSm});
  runUntilIdle();
  // 239.1.1.1 is 4009820417; mod 3 is 2: the third candidate.
  ASSERT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.3", 0, 30, modePimSm)}));
  candidateGone("239.0.0.0/8", "10.0.0.1");
  // mod 2 is 1: the second of the two left.
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.3", 0, 30, modePimSm)}));
  candidateGone("239.0.0.0/8", "10.0.0.2");
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.3", 0, 30, modePimSm)}));
}

TEST_F(RpHashIntermediate, RemoveNonRpCandidate_ModuloAlgorithm_MovesGroupToNewIndex) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  group("239.1.1.2");  // 4009820418: mod 3 is 0, mod 2 is 0
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  candidate({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  candidate({"239.0.0.0/8", "10.0.0.3", 0, 30, modePimSm});
  runUntilIdle();
  ASSERT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.2/32", "10.0.0.1", 0, 30, modePimSm)}));
  rpHash_->rpHashIs(entry("239.1.1.2/32", "10.0.0.1", 0, 31, modePimSm));
  candidateGone("239.0.0.0/8", "10.0.0.3");
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.2/32", "10.0.0.1", 0, 30, modePimSm)}));
}

TEST_F(RpHashIntermediate, Mode0Instance_WritesWhateverModeTheSelectionReturns) {
  group("239.1.1.1");
  group("238.1.1.1");
  start(modePimNone);
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimBidir});
  candidate({"238.0.0.0/8", "10.0.0.2", 1, 30, modePimSm});
  runUntilIdle();
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("238.1.1.1/32", "10.0.0.2", 1, 30, modePimSm),
                                 entry("239.1.1.1/32", "10.0.0.1", 1, 30, modePimBidir)}));
  EXPECT_EQ(prefixEntries(),
            std::vector<RpHash>({entry("238.0.0.0/8", "10.0.0.2", 1, 30, modePimSm),
                                 entry("239.0.0.0/8", "10.0.0.1", 1, 30, modePimBidir)}));
}

TEST_F(RpHashIntermediate, OtherModeCandidate_PrefixGetsPlaceholderOfInstanceMode) {
  start(modePimBidir);
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  EXPECT_EQ(prefixEntries(), std::vector<RpHash>({placeholder("239.0.0.0/8", modePimBidir)}));
}

// A set that already holds candidates when the reactor meets it computes them before its prefix
// enters the trie, so its per-prefix entry is the placeholder until a candidate changes.
TEST_F(RpHashIntermediate, SetWithCandidatesAtStart_ComputesBeforePrefixEntersTrie) {
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  traceFrom(8);
  start();
  EXPECT_EQ(prefixEntries(), std::vector<RpHash>({placeholder("239.0.0.0/8", modePimSm)}));
  const auto lines = capture_.levelled();
  auto at = [&](const std::string& text) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
      if (lines[i].text == text) return i;
    }
    return lines.size();
  };
  const std::size_t computed =
      at("doAddRpHashGuts: Adding RpHash(239.0.0.0/8 -> unknown, priority 256, hashMaskLen 128, "
         "override False, modePimSm)");
  const std::size_t added = at("Added 239.0.0.0/8 to trie");
  ASSERT_LT(added, lines.size());
  EXPECT_LT(computed, added);
  status_->crpSetMutable(IpGenPrefix("239.0.0.0/8"))
      ->rpMutable(IpGenAddr("10.0.0.1"))
      ->priorityIs(2);
  EXPECT_EQ(prefixEntries(),
            std::vector<RpHash>({entry("239.0.0.0/8", "10.0.0.1", 2, 30, modePimSm)}));
}

TEST_F(RpHashIntermediate, CandidateTraces_SetCreated_CandidateCompletedStepByStep) {
  start();
  traceFrom(9);
  auto set = status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  auto crp = set->rpIs(IpGenAddr("10.0.0.1"));
  crp->priorityIs(1);
  crp->hashMaskLenIs(30);
  crp->pimModeIs(modePimSm);
  crp->overrideIs(true);
  const std::string init = sig(kCrp, "handleInitialized()");
  const std::string notYet = init + "Not computing RP Hash since needed attributes are not set yet";
  const std::string update = sig(kCrp, "doUpdateRpHash(bool) ( true )");
  const std::string guts = std::string(kUpdateGuts) +
                           " ( 239.0.0.0/8, true, 10.0.0.1, modePimSm, rpHashAlgorithmRfc7761 )";
  EXPECT_EQ(
      capture_.levelled(),
      TraceLines({
          {9, sig(kCrpSet, "handleInitialized()")},
          {8, "Added 239.0.0.0/8 to trie"},
          {9, init},
          {8, init + " Prefix=239.0.0.0/8, RP=10.0.0.1, Priority=256, HashMaskLen=128, "
                     "pimMode=modePimNone"},
          {8, notYet},
          {9, sig(kCrp, "handlePriority()")},
          {9, init},
          {8, init + " Prefix=239.0.0.0/8, RP=10.0.0.1, Priority=1, HashMaskLen=128, "
                     "pimMode=modePimNone"},
          {8, notYet},
          {5, "Updated RP 10.0.0.1 to have priority 1"},
          {9, sig(kCrp, "handleHashMask()")},
          {9, init},
          {8, init + " Prefix=239.0.0.0/8, RP=10.0.0.1, Priority=1, HashMaskLen=30, "
                     "pimMode=modePimNone"},
          {8, notYet},
          {5, "Updated RP 10.0.0.1 to have hashMaskLen 30"},
          {9, sig(kCrp, "handleMode()")},
          {9, init},
          {8, init + " Prefix=239.0.0.0/8, RP=10.0.0.1, Priority=1, HashMaskLen=30, "
                     "pimMode=modePimSm"},
          {9, update},
          {9, guts},
          {5,
           "doAddRpHashGuts: RP for group 239.0.0.0/8 is 10.0.0.1 with priority 1 and hashmask "
           "length 30 with override flag as False and mode modePimSm"},
          {5,
           "doAddRpHashGuts: Adding RpHash(239.0.0.0/8 -> 10.0.0.1, priority 1, hashMaskLen 30, "
           "override False, modePimSm)"},
          {5, "Updated RP 10.0.0.1 to have mode modePimSm"},
          {9, sig(kCrp, "handleOverride()")},
          {9, update},
          {9, guts},
          {5,
           "doAddRpHashGuts: RP for group 239.0.0.0/8 is 10.0.0.1 with priority 1 and hashmask "
           "length 30 with override flag as True and mode modePimSm"},
          {5,
           "doAddRpHashGuts: Adding RpHash(239.0.0.0/8 -> 10.0.0.1, priority 1, hashMaskLen 30, "
           "override True, modePimSm)"},
          {5, "Updated RP 10.0.0.1 to have override flag as True"},
      }));
}

TEST_F(RpHashIntermediate, CandidateTraces_WalkNamesOverlappingAndOtherKeys) {
  group("239.1.1.1");
  group("225.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  runUntilIdle();
  traceFrom(8);
  status_->crpSetMutable(IpGenPrefix("239.0.0.0/8"))
      ->rpMutable(IpGenAddr("10.0.0.1"))
      ->priorityIs(2);
  EXPECT_EQ(
      capture_.levelled(),
      TraceLines({
          {8, " RP hash key 225.1.1.1/32does not overlap 239.0.0.0/8"},
          {8, " RP hash key 239.1.1.1/32overlaps 239.0.0.0/8"},
          {5,
           "doAddRpHashGuts: RP for group 239.1.1.1/32 is 10.0.0.1 with priority 2 and hashmask "
           "length 30 with override flag as False and mode modePimSm"},
          {5,
           "doAddRpHashGuts: Adding RpHash(239.1.1.1/32 -> 10.0.0.1, priority 2, hashMaskLen 30, "
           "override False, modePimSm)"},
          {5,
           "doAddRpHashGuts: RP for group 239.0.0.0/8 is 10.0.0.1 with priority 2 and hashmask "
           "length 30 with override flag as False and mode modePimSm"},
          {5,
           "doAddRpHashGuts: Adding RpHash(239.0.0.0/8 -> 10.0.0.1, priority 2, hashMaskLen 30, "
           "override False, modePimSm)"},
          {5, "Updated RP 10.0.0.1 to have priority 2"},
      }));
}

TEST_F(RpHashIntermediate, CandidateTraces_MismatchingMode_PlaceholderWritten) {
  start(modePimBidir);
  traceFrom(5);
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  EXPECT_EQ(capture_.levelled(),
            TraceLines({
                {5, "Updated RP 10.0.0.1 to have priority 1"},
                {5, "Updated RP 10.0.0.1 to have hashMaskLen 30"},
                {5, "doAddRpHashGuts: mismatching pimMode modePimSm expected mode modePimBidir"},
                {5,
                 "doAddRpHashGuts: RP for group 239.0.0.0/8 is unknown with priority 256 and "
                 "hashmask length 128 with override flag as False and mode modePimBidir"},
                {5,
                 "doAddRpHashGuts: Adding RpHash(239.0.0.0/8 -> unknown, priority 256, "
                 "hashMaskLen 128, override False, modePimBidir)"},
                {5, "Updated RP 10.0.0.1 to have mode modePimSm"},
            }));
}

TEST_F(RpHashIntermediate, CandidateTraces_RemovedRp_RecomputedWithUpdateGutsTexts) {
  group("239.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  candidate({"239.0.0.0/8", "10.0.0.2", 2, 30, modePimSm});
  runUntilIdle();
  traceFrom(9);
  candidateGone("239.0.0.0/8", "10.0.0.1");
  const std::string del = sig(kCrp, "handleDel()");
  const std::string guts = kUpdateGuts;
  EXPECT_EQ(capture_.levelled(),
            TraceLines({
                {9, del},
                {5, del + "Deleting RP 10.0.0.1 from RP Set with prefix 239.0.0.0/8"},
                {9, sig(kCrp, "doUpdateRpHash(bool) ( false )")},
                {8, " RP hash key 239.1.1.1/32overlaps 239.0.0.0/8"},
                {9, guts + " ( 239.1.1.1/32, false, 10.0.0.1, modePimSm, rpHashAlgorithmRfc7761 )"},
                {5, guts + "Removing RP 10.0.0.1 for group 239.1.1.1/32"},
                {5,
                 "doUpdateRpHashGuts: RP for group 239.1.1.1/32 is 10.0.0.2 with priority 2 and "
                 "hashmask length 30 with override flag as False and mode modePimSm"},
                {5,
                 "doUpdateRpHashGuts: Adding RpHash(239.1.1.1/32 -> 10.0.0.2, priority 2, "
                 "hashMaskLen 30, override False, modePimSm)"},
                {9, guts + " ( 239.0.0.0/8, false, 10.0.0.1, modePimSm, rpHashAlgorithmRfc7761 )"},
                {5, guts + "Removing RP 10.0.0.1 for group 239.0.0.0/8"},
                {5,
                 "doUpdateRpHashGuts: RP for group 239.0.0.0/8 is 10.0.0.2 with priority 2 and "
                 "hashmask length 30 with override flag as False and mode modePimSm"},
                {5,
                 "doUpdateRpHashGuts: Adding RpHash(239.0.0.0/8 -> 10.0.0.2, priority 2, "
                 "hashMaskLen 30, override False, modePimSm)"},
            }));
}

TEST_F(RpHashIntermediate, CandidateTraces_RemovedOtherMode_UpdateGutsMismatchText) {
  start(modePimBidir);
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimBidir});
  candidate({"239.0.0.0/8", "10.0.0.2", 1, 30, modePimSm});
  traceFrom(5);
  candidateGone("239.0.0.0/8", "10.0.0.1");
  const std::string del = sig(kCrp, "handleDel()");
  EXPECT_EQ(capture_.levelled(),
            TraceLines({
                {5, del + "Deleting RP 10.0.0.1 from RP Set with prefix 239.0.0.0/8"},
                {5, std::string(kUpdateGuts) + "Removing RP 10.0.0.1 for group 239.0.0.0/8"},
                {5, "doUpdateRpHashGuts: mismatching pimMode modePimSm expected mode modePimBidir"},
                {5,
                 "doUpdateRpHashGuts: RP for group 239.0.0.0/8 is unknown with priority 256 and "
                 "hashmask length 128 with override flag as False and mode modePimBidir"},
                {5,
                 "doUpdateRpHashGuts: Adding RpHash(239.0.0.0/8 -> unknown, priority 256, "
                 "hashMaskLen 128, override False, modePimBidir)"},
            }));
}

TEST_F(RpHashIntermediate, CandidateTraces_SetDeleted_CandidatesGoThenPrefixEntry) {
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  traceFrom(8);
  status_->crpSetDel(IpGenPrefix("239.0.0.0/8"));
  const std::string del = sig(kCrp, "handleDel()");
  EXPECT_EQ(capture_.levelled(),
            TraceLines({
                {5, del + "Deleting RP 10.0.0.1 from RP Set with prefix 239.0.0.0/8"},
                {8, "Deleted 239.0.0.0/8 from trie"},
                {5, std::string(kUpdateGuts) + "Removing RP 10.0.0.1 for group 239.0.0.0/8"},
                {5, "doUpdateRpHashGuts: mismatching pimMode modePimNone expected mode modePimSm"},
                {5,
                 "doUpdateRpHashGuts: RP for group 239.0.0.0/8 is unknown with priority 256 and "
                 "hashmask length 128 with override flag as False and mode modePimSm"},
                {5,
                 "doUpdateRpHashGuts: Adding RpHash(239.0.0.0/8 -> unknown, priority 256, "
                 "hashMaskLen 128, override False, modePimSm)"},
            }));
  EXPECT_TRUE(prefixEntries().empty());
  EXPECT_FALSE(sm_->crpSet(IpGenPrefix("239.0.0.0/8")));
}

TEST_F(RpHashIntermediate, SetDeleted_LevelNineTraceOfSetHandleDel) {
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  traceFrom(9);
  status_->crpSetDel(IpGenPrefix("239.0.0.0/8"));
  ASSERT_FALSE(capture_.levelled().empty());
  EXPECT_EQ(capture_.levelled().front(), (TraceLine{9, sig(kCrpSet, "handleDel()")}));
}

TEST_F(RpHashIntermediate, SetDeleted_ShorterCoveringPrefixTakesOverGroups) {
  group("239.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  candidate({"239.1.0.0/16", "10.0.0.2", 1, 30, modePimSm});
  runUntilIdle();
  ASSERT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.2", 1, 30, modePimSm)}));
  status_->crpSetDel(IpGenPrefix("239.1.0.0/16"));
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("239.1.1.1/32", "10.0.0.1", 1, 30, modePimSm)}));
  EXPECT_EQ(prefixEntries(),
            std::vector<RpHash>({entry("239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm)}));
}

TEST_F(RpHashIntermediate, DoProcessCrpSets_RewritesEveryPrefixEntry) {
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  rpPrefixHash_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  traceFrom(9);
  sm_->doProcessCrpSets();
  EXPECT_EQ(capture_.levelled().front(), (TraceLine{9, sig(kSm, "doProcessCrpSets()")}));
  EXPECT_EQ(prefixEntries(),
            std::vector<RpHash>({entry("239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm)}));
}

TEST_F(RpHashIntermediate, Ipv6Instance_WalksOnlyOverlappingIpv6Keys) {
  groups_->groupIs(IpGenAddr("ff0e::1"), true);
  groups_->groupIs(IpGenAddr("ff05::1"), true);
  start(modePimSm, Ipkit::ipv6());
  candidate({"ff0e::/16", "2001:db8::1", 1, 126, modePimSm});
  runUntilIdle();
  rpHash_->rpHashIs(entry("ff0e::1/128", "2001:db8::9", 1, 126, modePimSm));
  rpHash_->rpHashIs(entry("ff05::1/128", "2001:db8::9", 1, 126, modePimSm));
  status_->crpSetMutable(IpGenPrefix("ff0e::/16"))
      ->rpMutable(IpGenAddr("2001:db8::1"))
      ->priorityIs(2);
  EXPECT_EQ(groupEntries(),
            std::vector<RpHash>({entry("ff05::1/128", "2001:db8::9", 1, 126, modePimSm),
                                 entry("ff0e::1/128", "2001:db8::1", 2, 126, modePimSm)}));
}

class RpHashIntermediateCorruption : public RpHashIntermediate,
                                     public ::testing::WithParamInterface<int> {};

// With level 8 on the walk visits every key, otherwise only the keys inside the prefix: either
// way a damaged entry ends it, the table reports the damage once, and the prefix's own entry is
// still written.
TEST_P(RpHashIntermediateCorruption, CorruptTableDuringWalk_ReportedWalkEnds_PrefixEntryWritten) {
  group("239.1.1.1");
  group("239.1.1.2");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  runUntilIdle();
  Mirra::testing::MirraMapBackdoor::damageValue(rpHash_->rpHash(), IpGenPrefix("239.1.1.1/32"));
  traceFrom(GetParam());
  status_->crpSetMutable(IpGenPrefix("239.0.0.0/8"))
      ->rpMutable(IpGenAddr("10.0.0.1"))
      ->priorityIs(2);
  EXPECT_EQ(rpHash_->corruptions(), 1u);
  EXPECT_FALSE(rpHash_->lastCorruption().empty());
  EXPECT_EQ(rpHash_->rpHash(IpGenPrefix("239.1.1.2/32")),
            entry("239.1.1.2/32", "10.0.0.1", 1, 30, modePimSm));
  EXPECT_EQ(rpPrefixHash_->rpHash(IpGenPrefix("239.0.0.0/8")),
            entry("239.0.0.0/8", "10.0.0.1", 2, 30, modePimSm));
}

INSTANTIATE_TEST_SUITE_P(TraceLevels, RpHashIntermediateCorruption, ::testing::Values(5, 8));

class RpHashIntermediateWalk : public RpHashIntermediate,
                               public ::testing::WithParamInterface<int> {};

// Keys that contain the set's prefix overlap it as much as the keys inside it do; the walk that
// visits only the prefix's range still reaches them. (The shorter ones have no covering set and
// get the placeholder: what counts here is which entries are rewritten.)
TEST_P(RpHashIntermediateWalk, ShorterAndLongerKeysOverlap_OthersUntouched_AtEveryTraceLevel) {
  start();
  candidate({"239.1.1.0/24", "10.0.0.1", 1, 30, modePimSm});
  for (const char* key : {"0.0.0.0/0", "239.0.0.0/8", "239.1.0.0/16", "239.1.1.0/24",
                          "239.1.1.7/32", "239.1.2.0/24", "239.2.0.0/16", "225.0.0.0/8"}) {
    rpHash_->rpHashIs(entry(key, "10.9.9.9", 7, 31, modePimSm));
  }
  traceFrom(GetParam());
  status_->crpSetMutable(IpGenPrefix("239.1.1.0/24"))
      ->rpMutable(IpGenAddr("10.0.0.1"))
      ->priorityIs(2);
  std::vector<std::string> rewritten;
  for (const RpHash& value : groupEntries()) {
    if (value.priority() != 7) rewritten.push_back(value.key().valueToStrep());
  }
  EXPECT_EQ(rewritten, std::vector<std::string>({"0.0.0.0/0", "239.0.0.0/8", "239.1.0.0/16",
                                                 "239.1.1.0/24", "239.1.1.7/32"}));
}

INSTANTIATE_TEST_SUITE_P(TraceLevels, RpHashIntermediateWalk, ::testing::Values(-1, 5, 8));

// A reader of the per-group table that deletes the candidate set being walked from inside the
// walk's first write.
class SetDeleter : public Routing::Pim::RpHashStatus::NotifieeConst {
 public:
  SetDeleter(const Kel::Ptr<Routing::Pim::RpCandidateStatus>& status, const IpGenPrefix& prefix)
      : status_(status), prefix_(prefix) {}
  void onRpHash(const IpGenPrefix&) override {
    if (fired) return;
    fired = true;
    status_->crpSetDel(prefix_);
  }
  bool fired = false;

 private:
  Kel::Ptr<Routing::Pim::RpCandidateStatus> status_;
  IpGenPrefix prefix_;
};

TEST_F(RpHashIntermediate, Disrupter_CandidateChangeDeletesSetBeingWalked_NothingDangles) {
  for (const char* g : {"239.1.1.1", "239.1.1.2", "239.1.1.3"}) group(g);
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  runUntilIdle();
  Kel::Ptr<SetDeleter> deleter(new SetDeleter(status_, IpGenPrefix("239.0.0.0/8")));
  deleter->notifierIs(rpHash_);
  status_->crpSetMutable(IpGenPrefix("239.0.0.0/8"))
      ->rpMutable(IpGenAddr("10.0.0.1"))
      ->priorityIs(2);
  deleter->notifierIs(nullptr);
  EXPECT_TRUE(deleter->fired);
  EXPECT_FALSE(sm_->crpSet(IpGenPrefix("239.0.0.0/8")));
  EXPECT_FALSE(sm_->trie()->hasRoute(IpGenPrefix("239.0.0.0/8")));
  // The outer walk goes on after the set went: its later writes see no candidate any more.
  for (const RpHash& value : groupEntries()) {
    EXPECT_TRUE(value.priority() == 256 || value.priority() == 2) << text(value);
  }
}

TEST_F(RpHashIntermediate, Disrupter_ReactorDroppedFromInsideWalk_NothingDangles) {
  group("239.1.1.1");
  start();
  candidate({"239.0.0.0/8", "10.0.0.1", 1, 30, modePimSm});
  runUntilIdle();
  struct Dropper : Routing::Pim::RpHashStatus::NotifieeConst {
    Kel::Ptr<Routing::Pim::RpHashIntermediateSm>* sm = nullptr;
    void onRpHash(const IpGenPrefix&) override { *sm = nullptr; }
  };
  Kel::Ptr<Dropper> dropper(new Dropper);
  dropper->sm = &sm_;
  dropper->notifierIs(rpHash_);
  status_->crpSetMutable(IpGenPrefix("239.0.0.0/8"))
      ->rpMutable(IpGenAddr("10.0.0.1"))
      ->priorityIs(2);
  dropper->notifierIs(nullptr);
  EXPECT_FALSE(sm_);
  EXPECT_EQ(rpPrefixHash_->rpHash(IpGenPrefix("239.0.0.0/8")),
            entry("239.0.0.0/8", "10.0.0.1", 2, 30, modePimSm));
}

}  // namespace
}  // namespace RpHashSmTest
