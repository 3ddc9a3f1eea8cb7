// The merge of the static and BSR RP hash tables into the final table: the override rule, its
// fallbacks and its deliberate asymmetry, the allocation requests, start-up over a surviving final
// table, corruption met in a walk, and the traces of every step.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/BitMapper/Config.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "rp/PimRpHashSm.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using Lines = std::vector<std::string>;
using TestSupport::TraceLine;
using TestSupport::TraceLines;

const std::string kTraceFile = "PimRpHashSm";
const std::string kSm = "void Routing::Pim::RpHashSm::";
const std::string kRpHashIs = kSm + "rpHashIs(const Routing::Pim::RpHash&)";
const std::string kRpHashDel = kSm + "rpHashDel(const Ipkit::IpGenPrefix&)";

// One trace record of the merge's trace file: its level and whole text.
RpHash entry(const char* prefix, const char* rp, RpPriority priority = 10, bool override = false,
             Mode mode = modePimSm) {
  return RpHash(IpGenPrefix(prefix), IpGenAddr(rp), priority, 30, override, mode);
}
// What the intermediate computation writes for a prefix whose RP has the wrong mode.
RpHash placeholder(const char* prefix, bool override = false, Mode mode = modePimSm) {
  return RpHash(IpGenPrefix(prefix), IpGenAddr(), kRpPriorityNone, kRpHashMaskLenNone, override,
                mode);
}
std::string text(const RpHash& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// What the allocator's reactors see, in order: a key written (the channel announces a key only
// when it changes) as "allocRequestKeyIs 10.0.0.1", a counter raised as "allocRequestCountInc 1".
class BitMapRecorder : public BitMapper::Config::NotifieeConst {
 public:
  explicit BitMapRecorder(const Kel::PtrConst<BitMapper::Config>& bitMap) { notifierIs(bitMap); }
  void onAllocRequestKey() override {
    steps.push_back("allocRequestKeyIs " + notifier()->allocRequestKey().addr().valueToStrep());
  }
  void onAllocRequestCount() override {
    steps.push_back("allocRequestCountInc " +
                    std::to_string(notifier()->allocRequestCount() - allocSeen_));
    allocSeen_ = notifier()->allocRequestCount();
  }
  void onDeallocRequestKey() override {
    steps.push_back("deallocRequestKeyIs " + notifier()->deallocRequestKey().addr().valueToStrep());
  }
  void onDeallocRequestCount() override {
    steps.push_back("deallocRequestCountInc " +
                    std::to_string(notifier()->deallocRequestCount() - deallocSeen_));
    deallocSeen_ = notifier()->deallocRequestCount();
  }

  Lines steps;

 private:
  U64 allocSeen_ = 0;
  U64 deallocSeen_ = 0;
};

class RpHashMergeTest : public ::testing::Test {
 protected:
  ~RpHashMergeTest() override {
    sm_ = nullptr;
    recorder_->notifierIs(nullptr);
  }

  void start(Mode mode = modePimSm) { sm_ = rpHashSmFactory(mode, static_, bsr_, final_, bitMap_); }
  RpHash final(const char* prefix) const { return final_->rpHash(IpGenPrefix(prefix)); }

  // The requests made so far, one line per request: "alloc 10.0.0.1", "dealloc 10.0.0.2".
  Lines requests() const { return RpTest::allocRequests(*bitMap_); }
  // Every key write and counter raise on the allocator, in order.
  const Lines& requestSteps() const { return recorder_->steps; }

  Kel::Ptr<RpHashStatus> static_{new RpHashStatus};
  Kel::Ptr<RpHashStatus> bsr_{new RpHashStatus};
  Kel::Ptr<RpHashStatus> final_{new RpHashStatus};
  Kel::Ptr<BitMapper::Config> bitMap_{new BitMapper::Config};
  Kel::Ptr<RpHashSm> sm_;
  Kel::Ptr<BitMapRecorder> recorder_{new BitMapRecorder(bitMap_)};
};

// ---- The rule -----------------------------------------------------------------------------------

TEST_F(RpHashMergeTest, Merge_StaticWithoutOverrideAndBsr_BsrEntryAfterEitherRewrite) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.2", 20));

  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.3", 5));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.2", 20));

  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.4", 30));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.4", 30));
}

TEST_F(RpHashMergeTest, Merge_StaticWithOverride_StaticEntryAndBsrChangeNotProgrammed) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10, true));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 10, true));

  TestSupport::TraceCapture capture(kTraceFile);
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.4", 30));
  EXPECT_EQ(capture.levelled(),
            (TraceLines{
                {9, kSm + "handleBsrHash(const Ipkit::IpGenPrefix&) ( 239.0.0.0/8 )"},
                {5,
                 "No programming BSR hash for prefix 239.0.0.0/8 since static "
                 "override is set for it"},
            }));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 10, true));
}

TEST_F(RpHashMergeTest, Merge_OnlyStatic_StaticEntryWritten) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 10));
}

TEST_F(RpHashMergeTest, Merge_OnlyBsr_BsrEntryWritten) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.2", 20));
}

TEST_F(RpHashMergeTest, Merge_BsrRemovedWithUsableStaticWithoutOverride_StaticEntryWritten) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  bsr_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 10));
}

TEST_F(RpHashMergeTest, Merge_BsrRemovedWithUsableStaticWithOverride_StaticEntryWritten) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10, true));
  bsr_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 10, true));
}

TEST_F(RpHashMergeTest, Merge_BsrRemovedWithoutStatic_FinalDeletedWithOneDealloc) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  bsr_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(final("239.0.0.0/8"), RpHash());
  EXPECT_EQ(final_->rpHashs(), 0u);
  EXPECT_EQ(requests(), (Lines{"alloc 10.0.0.2", "dealloc 10.0.0.2"}));
}

TEST_F(RpHashMergeTest, Merge_StaticRemovedWithUsableBsr_BsrEntryWritten) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10, true));
  static_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.2", 20));
}

TEST_F(RpHashMergeTest, Merge_BsrPlaceholder_NeverDisplacesUsableStatic) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  bsr_->rpHashIs(placeholder("239.0.0.0/8"));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 10));
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 11));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 11));
}

TEST_F(RpHashMergeTest, Merge_BsrPlaceholderWithoutStatic_FinalDeleted) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  bsr_->rpHashIs(placeholder("239.0.0.0/8"));
  EXPECT_EQ(final("239.0.0.0/8"), RpHash());
  EXPECT_EQ(final_->rpHashs(), 0u);
  EXPECT_EQ(requests(), (Lines{"alloc 10.0.0.2", "dealloc 10.0.0.2"}));
}

TEST_F(RpHashMergeTest, Merge_StaticPlaceholderWithoutBsr_NothingWritten) {
  start();
  static_->rpHashIs(placeholder("239.0.0.0/8"));
  EXPECT_EQ(final_->rpHashs(), 0u);
  EXPECT_EQ(requests(), Lines{});
}

TEST_F(RpHashMergeTest, Merge_EntryOfOtherMode_ChangesNothing) {
  start(modePimSm);
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10, false, modePimBidir));
  bsr_->rpHashIs(entry("232.0.0.0/8", "10.0.0.2", 20, false, modePimBidir));
  EXPECT_EQ(final_->rpHashs(), 0u);
  EXPECT_EQ(requests(), Lines{});
}

TEST_F(RpHashMergeTest, Merge_EntryOfOtherModeOverExistingEntry_ExistingEntryKept) {
  start(modePimSm);
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20, false, modePimBidir));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 10));
  EXPECT_EQ(requests(), (Lines{"alloc 10.0.0.1"}));
}

TEST_F(RpHashMergeTest, Merge_ModeZero_EntriesOfEveryModeWritten) {
  start(modePimNone);
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10, false, modePimBidir));
  bsr_->rpHashIs(entry("232.0.0.0/8", "10.0.0.2", 20, false, modePimSm));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 10, false, modePimBidir));
  EXPECT_EQ(final("232.0.0.0/8"), entry("232.0.0.0/8", "10.0.0.2", 20, false, modePimSm));
}

TEST_F(RpHashMergeTest, Merge_Ipv6Prefixes_SameRule) {
  start();
  static_->rpHashIs(entry("ff05::/16", "2001:db8::1", 10, true));
  bsr_->rpHashIs(entry("ff05::/16", "2001:db8::2", 20));
  bsr_->rpHashIs(entry("ff0e::/16", "2001:db8::2", 20));
  EXPECT_EQ(final("ff05::/16"), entry("ff05::/16", "2001:db8::1", 10, true));
  EXPECT_EQ(final("ff0e::/16"), entry("ff0e::/16", "2001:db8::2", 20));
}

// ---- The asymmetry of a static entry with override and no address -------------------------------

TEST_F(RpHashMergeTest, Asymmetry_OverridePlaceholderThenBsrChange_FinalKeepsOldBsrEntry) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  static_->rpHashIs(placeholder("239.0.0.0/8", true));
  // The static change falls back to the BSR entry: the placeholder has no address.
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.2", 20));
  // The BSR change is refused: the placeholder carries the flag.
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.4", 40));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.2", 20));
}

TEST_F(RpHashMergeTest, Asymmetry_BsrChangeThenOverridePlaceholderChange_FinalTakesNewBsrEntry) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  static_->rpHashIs(placeholder("239.0.0.0/8", true));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.4", 40));
  static_->rpHashIs(placeholder("239.0.0.0/8", true, modePimBidir));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.4", 40));
}

TEST_F(RpHashMergeTest, Asymmetry_OverridePlaceholderAndNoFinalEntry_BsrAddNotProgrammed) {
  static_->rpHashIs(placeholder("239.0.0.0/8", true));
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  EXPECT_EQ(final_->rpHashs(), 0u);
  EXPECT_EQ(requests(), Lines{});
}

TEST_F(RpHashMergeTest, Asymmetry_AtStartup_StaticPassWritesBsrAndBsrPassLeavesIt) {
  static_->rpHashIs(placeholder("239.0.0.0/8", true));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  start();
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.2", 20));
}

// ---- Allocation requests ------------------------------------------------------------------------

TEST_F(RpHashMergeTest, Requests_NewEntry_OneAllocKeyBeforeCounter) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  EXPECT_EQ(requestSteps(), (Lines{"allocRequestKeyIs 10.0.0.1", "allocRequestCountInc 1"}));
}

TEST_F(RpHashMergeTest, Requests_ChangeOfRp_OneDeallocThenOneAllocKeysBeforeCounters) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  EXPECT_EQ(requestSteps(), (Lines{
                                "allocRequestKeyIs 10.0.0.1",
                                "allocRequestCountInc 1",
                                "deallocRequestKeyIs 10.0.0.1",
                                "deallocRequestCountInc 1",
                                "allocRequestKeyIs 10.0.0.2",
                                "allocRequestCountInc 1",
                            }));
}

TEST_F(RpHashMergeTest, Requests_RewriteWithSameAddress_NoRequest) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  const Lines before = requests();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 99, true, modePimSm));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 20));
  EXPECT_EQ(final("239.0.0.0/8"), entry("239.0.0.0/8", "10.0.0.1", 99, true));
  EXPECT_EQ(requests(), before);
}

TEST_F(RpHashMergeTest, Requests_Deletion_OneDealloc) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  static_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(requestSteps(), (Lines{
                                "allocRequestKeyIs 10.0.0.1",
                                "allocRequestCountInc 1",
                                "deallocRequestKeyIs 10.0.0.1",
                                "deallocRequestCountInc 1",
                            }));
}

TEST_F(RpHashMergeTest, Requests_KeyCarriesTheEmptyInterface) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  ASSERT_EQ(bitMap_->requests().size(), 1u);
  EXPECT_EQ(bitMap_->requests()[0].key,
            BitMapper::BitMapperKey(Ipkit::IntfId(""), IpGenAddr("10.0.0.1")));
}

TEST_F(RpHashMergeTest, Requests_NoConfig_SameFinalTableAndNoRequest) {
  Kel::Ptr<RpHashStatus> plainFinal(new RpHashStatus);
  TestSupport::TraceCapture capture(kTraceFile);
  const auto plain = rpHashSmFactory(modePimSm, static_, bsr_, plainFinal, nullptr);
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  bsr_->rpHashIs(entry("232.0.0.0/8", "10.0.0.2", 20));
  static_->rpHashIs(entry("232.0.0.0/8", "10.0.0.3", 20, true));
  bsr_->rpHashDel(IpGenPrefix("239.0.0.0/8"));

  std::map<IpGenPrefix, RpHash> withConfig, without;
  for (const RpHash& value : final_->rpHash()) withConfig.emplace(value.key(), value);
  for (const RpHash& value : plainFinal->rpHash()) without.emplace(value.key(), value);
  EXPECT_EQ(without, withConfig);
  EXPECT_EQ(without.size(), 2u);
  // Only the merge with an allocator announces requests: one alloc and one dealloc line per
  // request it made, none for the other.
  int requestLines = 0;
  for (const TraceLine& record : capture.levelled()) {
    if (record.text.find(" request for ") != std::string::npos) ++requestLines;
  }
  EXPECT_EQ(requestLines, static_cast<int>(requests().size()));
}

// ---- Start-up -----------------------------------------------------------------------------------

TEST_F(RpHashMergeTest, Startup_BothInputsPresent_FinalTableReconciled) {
  static_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  static_->rpHashIs(entry("239.2.0.0/16", "10.0.0.1", 10, true));
  static_->rpHashIs(entry("239.3.0.0/16", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.1.0.0/16", "10.0.0.2", 20));
  bsr_->rpHashIs(entry("239.2.0.0/16", "10.0.0.2", 20));
  bsr_->rpHashIs(entry("239.4.0.0/16", "10.0.0.2", 20));
  start();
  EXPECT_TRUE(sm_->initialized());
  EXPECT_EQ(final_->rpHashs(), 4u);
  EXPECT_EQ(final("239.1.0.0/16"), entry("239.1.0.0/16", "10.0.0.2", 20));
  EXPECT_EQ(final("239.2.0.0/16"), entry("239.2.0.0/16", "10.0.0.1", 10, true));
  EXPECT_EQ(final("239.3.0.0/16"), entry("239.3.0.0/16", "10.0.0.1", 10));
  EXPECT_EQ(final("239.4.0.0/16"), entry("239.4.0.0/16", "10.0.0.2", 20));
}

TEST_F(RpHashMergeTest, Restart_SurvivingFinalTable_ExactlyStaleEntriesGoEachWithDealloc) {
  static_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.2.0.0/16", "10.0.0.2", 20));
  bsr_->rpHashIs(entry("239.5.0.0/16", "10.0.0.2", 20));
  // What the previous merge left: two current entries, one entry whose RP has changed since, two
  // entries neither input holds any more.
  final_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  final_->rpHashIs(entry("239.2.0.0/16", "10.0.0.2", 20));
  final_->rpHashIs(entry("239.5.0.0/16", "10.0.0.7", 20));
  final_->rpHashIs(entry("239.3.0.0/16", "10.0.0.8", 10));
  final_->rpHashIs(entry("239.4.0.0/16", "10.0.0.9", 10));
  start();
  EXPECT_EQ(final_->rpHashs(), 3u);
  EXPECT_EQ(final("239.1.0.0/16"), entry("239.1.0.0/16", "10.0.0.1", 10));
  EXPECT_EQ(final("239.2.0.0/16"), entry("239.2.0.0/16", "10.0.0.2", 20));
  EXPECT_EQ(final("239.5.0.0/16"), entry("239.5.0.0/16", "10.0.0.2", 20));
  EXPECT_EQ(requests(), (Lines{
                            "dealloc 10.0.0.7",
                            "alloc 10.0.0.2",
                            "dealloc 10.0.0.8",
                            "dealloc 10.0.0.9",
                        }));
}

TEST_F(RpHashMergeTest, Restart_FinalEntryWhoseBsrInputIsPlaceholder_DeletedWithDealloc) {
  // The BSR pass meets the placeholder and, with no static entry to fall back to, deletes.
  bsr_->rpHashIs(placeholder("239.1.0.0/16"));
  final_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  start();
  EXPECT_EQ(final_->rpHashs(), 0u);
  EXPECT_EQ(requests(), (Lines{"dealloc 10.0.0.1"}));
}

TEST_F(RpHashMergeTest, Construction_NullInput_RefusedAndFinalTableUntouched) {
  final_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  using ::testing::StrEq;
  using ::testing::ThrowsMessage;
  EXPECT_THAT([&] { rpHashSmFactory(modePimSm, nullptr, bsr_, final_, bitMap_); },
              ThrowsMessage<Kel::RangeException>(StrEq(
                  "null _staticHash parameter to mutator for Routing::Pim::RpHashSm::staticHash "
                  "not allowed")));
  EXPECT_THAT([&] { rpHashSmFactory(modePimSm, static_, nullptr, final_, bitMap_); },
              ThrowsMessage<Kel::RangeException>(StrEq(
                  "null _bsrHash parameter to mutator for Routing::Pim::RpHashSm::bsrHash not "
                  "allowed")));
  EXPECT_THAT(
      [&] { rpHashSmFactory(modePimSm, static_, bsr_, nullptr, bitMap_); },
      ThrowsMessage<Kel::RangeException>(
          StrEq("null _rpHashStatus parameter to mutator for Routing::Pim::RpHashSm::rpHashStatus "
                "not allowed")));
  EXPECT_EQ(final_->rpHashs(), 1u);
  EXPECT_EQ(static_->notifiees() + bsr_->notifiees(), 0u);
  EXPECT_EQ(requests(), Lines{});
}

TEST_F(RpHashMergeTest, Lifetime_MergeDropped_InputsNoLongerFollowedAndFinalKept) {
  start();
  static_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  sm_ = nullptr;
  EXPECT_EQ(static_->notifiees() + bsr_->notifiees(), 0u);
  static_->rpHashDel(IpGenPrefix("239.1.0.0/16"));
  bsr_->rpHashIs(entry("239.2.0.0/16", "10.0.0.2", 20));
  EXPECT_EQ(final_->rpHashs(), 1u);
  EXPECT_EQ(final("239.1.0.0/16"), entry("239.1.0.0/16", "10.0.0.1", 10));
}

// A reader of the final table that drops the merge from inside the merge's own write.
class Dropper : public RpHashStatus::NotifieeConst {
 public:
  Dropper(const Kel::PtrConst<RpHashStatus>& table, Kel::Ptr<RpHashSm>* merge) : merge_(merge) {
    notifierIs(table);
  }
  void onRpHash(const IpGenPrefix& prefix) override {
    (void)prefix;
    *merge_ = nullptr;
  }

 private:
  Kel::Ptr<RpHashSm>* merge_;
};

TEST_F(RpHashMergeTest, Lifetime_MergeDroppedInsideItsOwnWrite_HandlerFinishes) {
  start();
  Kel::Ptr<Dropper> dropper(new Dropper(final_, &sm_));
  bsr_->rpHashIs(entry("239.1.0.0/16", "10.0.0.2", 20));
  EXPECT_FALSE(sm_);
  EXPECT_EQ(final("239.1.0.0/16"), entry("239.1.0.0/16", "10.0.0.2", 20));
  EXPECT_EQ(bsr_->notifiees(), 0u);
  dropper->notifierIs(nullptr);
}

// ---- Corruption met by a walk -------------------------------------------------------------------

void damage(const RpHashStatus& table, const char* prefix) {
  ASSERT_TRUE(Mirra::testing::MirraMapBackdoor::damageValue(table.rpHash(), IpGenPrefix(prefix)));
}

TEST_F(RpHashMergeTest, Corruption_StaticWalkMeetsDamage_ReportedOnceAndWalkEnds) {
  static_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  static_->rpHashIs(entry("239.2.0.0/16", "10.0.0.1", 10));
  static_->rpHashIs(entry("239.3.0.0/16", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("232.0.0.0/8", "10.0.0.2", 20));
  damage(*static_, "239.2.0.0/16");
  start();
  EXPECT_EQ(static_->corruptions(), 1u);
  EXPECT_FALSE(static_->lastCorruption().empty());
  // The walk goes in key order and stops at the damaged entry: nothing at or after it is merged.
  EXPECT_EQ(final("239.2.0.0/16"), RpHash());
  EXPECT_EQ(final("239.3.0.0/16"), RpHash());
  // The BSR pass and the clean-up still run.
  EXPECT_EQ(final("232.0.0.0/8"), entry("232.0.0.0/8", "10.0.0.2", 20));
  EXPECT_TRUE(sm_->initialized());
}

TEST_F(RpHashMergeTest, Corruption_BsrWalkMeetsDamage_ReportedOnceAndWalkEnds) {
  bsr_->rpHashIs(entry("239.1.0.0/16", "10.0.0.2", 20));
  damage(*bsr_, "239.1.0.0/16");
  start();
  EXPECT_EQ(bsr_->corruptions(), 1u);
  EXPECT_EQ(final_->rpHashs(), 0u);
  EXPECT_EQ(requests(), Lines{});
}

TEST_F(RpHashMergeTest, Corruption_CleanUpWalkMeetsDamage_ReportedOnceAndEntryLeft) {
  final_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  damage(*final_, "239.1.0.0/16");
  start();
  EXPECT_EQ(final_->corruptions(), 1u);
  EXPECT_EQ(final_->rpHashs(), 1u);
  EXPECT_EQ(static_->corruptions() + bsr_->corruptions(), 0u);
  EXPECT_EQ(requests(), Lines{});
}

TEST_F(RpHashMergeTest, Corruption_LookupOfTheOtherInputInAWalk_Propagates) {
  static_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.1.0.0/16", "10.0.0.2", 20));
  damage(*bsr_, "239.1.0.0/16");
  EXPECT_THROW(start(), Mirra::CorruptionDetectedException);
  EXPECT_EQ(bsr_->corruptions(), 1u);
  EXPECT_EQ(static_->corruptions(), 0u);
  EXPECT_EQ(static_->notifiees() + bsr_->notifiees(), 0u);
}

// ---- TraceLines
// -------------------------------------------------------------------------------------

TEST_F(RpHashMergeTest, Traces_Construction_EveryStepOfTheReconciliation) {
  static_->rpHashIs(entry("239.1.0.0/16", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.1.0.0/16", "10.0.0.2", 20));
  final_->rpHashIs(entry("239.9.0.0/16", "10.0.0.9", 10));
  TestSupport::TraceCapture capture(kTraceFile);
  start();
  const std::string bsrEntry = text(entry("239.1.0.0/16", "10.0.0.2", 20));
  EXPECT_EQ(
      capture.levelled(),
      (TraceLines{
          {9, kSm + "handleStaticHash()"},
          {8, kSm + "handleStaticHash(const Ipkit::IpGenPrefix&)( 239.1.0.0/16 )"},
          {5, "Static RP 10.0.0.1 has override False"},
          {5, "Updating RP Hash to BSR entry since BSR entry exists and override is False"},
          {9, kRpHashIs + bsrEntry},
          {9, kRpHashIs + ", alloc request for " + bsrEntry},
          {9, kSm + "handleBsrHash()"},
          {9, kSm + "handleBsrHash(const Ipkit::IpGenPrefix&) ( 239.1.0.0/16 )"},
          {5, "handleBsrHash: Adding " + bsrEntry},
          {9, kRpHashIs + bsrEntry},
          {9, kSm + "handleInitialized()"},
          {9, kSm + "doRemoveExtraRpHashGroups()"},
          {5, "doRemoveExtraRpHashGroups: Deleting group 239.9.0.0/16"},
          {9, kRpHashDel + "239.9.0.0/16"},
          {9, kRpHashDel + ", dealloc request for " + text(entry("239.9.0.0/16", "10.0.0.9", 10))},
      }));
}

TEST_F(RpHashMergeTest, Traces_StaticWithOverride_OverrideTrueAndAdding) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  TestSupport::TraceCapture capture(kTraceFile);
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10, true));
  const std::string oldEntry = text(entry("239.0.0.0/8", "10.0.0.2", 20));
  const std::string newEntry = text(entry("239.0.0.0/8", "10.0.0.1", 10, true));
  EXPECT_EQ(capture.levelled(),
            (TraceLines{
                {8, kSm + "handleStaticHash(const Ipkit::IpGenPrefix&)( 239.0.0.0/8 )"},
                {5, "Static RP 10.0.0.1 has override True"},
                {5, "handleStaticHash: Adding " + newEntry},
                {9, kRpHashIs + newEntry},
                {9, kRpHashIs + ", dealloc request for " + oldEntry},
                {9, kRpHashIs + ", alloc request for " + newEntry},
            }));
}

TEST_F(RpHashMergeTest, Traces_StaticRemoved_FallBackToBsrAdding) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10, true));
  TestSupport::TraceCapture capture(kTraceFile, 5);
  static_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(capture.levelled(),
            (TraceLines{
                {5, "handleStaticHashDel: Adding " + text(entry("239.0.0.0/8", "10.0.0.2", 20))},
            }));
}

TEST_F(RpHashMergeTest, Traces_StaticRemovedWithoutBsr_DeletingGroup) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  TestSupport::TraceCapture capture(kTraceFile);
  static_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(
      capture.levelled(),
      (TraceLines{
          {8, kSm + "handleStaticHash(const Ipkit::IpGenPrefix&)( 239.0.0.0/8 )"},
          {9, kSm + "handleStaticHashDel(const Ipkit::IpGenPrefix&)"},
          {5, "handleStaticHashDel: Deleting group 239.0.0.0/8"},
          {9, kRpHashDel + "239.0.0.0/8"},
          {9, kRpHashDel + ", dealloc request for " + text(entry("239.0.0.0/8", "10.0.0.1", 10))},
      }));
}

TEST_F(RpHashMergeTest, Traces_BsrRemoved_FallBackToStaticAdding) {
  start();
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  TestSupport::TraceCapture capture(kTraceFile);
  bsr_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  const std::string oldEntry = text(entry("239.0.0.0/8", "10.0.0.2", 20));
  const std::string staticEntry = text(entry("239.0.0.0/8", "10.0.0.1", 10));
  EXPECT_EQ(capture.levelled(),
            (TraceLines{
                {9, kSm + "handleBsrHash(const Ipkit::IpGenPrefix&) ( 239.0.0.0/8 )"},
                {9, kSm + "handleBsrHashDel(const Ipkit::IpGenPrefix&)"},
                {5, "handleBsrHashDel: Adding " + staticEntry},
                {9, kRpHashIs + staticEntry},
                {9, kRpHashIs + ", dealloc request for " + oldEntry},
                {9, kRpHashIs + ", alloc request for " + staticEntry},
            }));
}

TEST_F(RpHashMergeTest, Traces_BsrRemovedWithoutStatic_DeletingGroup) {
  start();
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  TestSupport::TraceCapture capture(kTraceFile, 5);
  bsr_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(capture.levelled(), (TraceLines{{5, "handleBsrHashDel: Deleting group 239.0.0.0/8"}}));
}

TEST_F(RpHashMergeTest, Traces_EntryOfOtherMode_Ignoring) {
  start(modePimBidir);
  TestSupport::TraceCapture capture(kTraceFile);
  bsr_->rpHashIs(entry("239.0.0.0/8", "10.0.0.2", 20));
  const std::string bsrEntry = text(entry("239.0.0.0/8", "10.0.0.2", 20));
  EXPECT_EQ(capture.levelled(),
            (TraceLines{
                {9, kSm + "handleBsrHash(const Ipkit::IpGenPrefix&) ( 239.0.0.0/8 )"},
                {5, "handleBsrHash: Adding " + bsrEntry},
                {9, kRpHashIs + bsrEntry},
                {9, kRpHashIs + ", Ignoring " + bsrEntry + ", My mode: modePimBidir"},
            }));
}

TEST_F(RpHashMergeTest, Traces_LevelsOff_NothingWritten) {
  TestSupport::TraceCapture capture(kTraceFile, -1);
  static_->rpHashIs(entry("239.0.0.0/8", "10.0.0.1", 10));
  start();
  static_->rpHashDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(capture.levelled(), TraceLines{});
}

// ---- Property: the final table is the rule applied to the inputs --------------------------------

// The rule, applied afresh to the two entries of one prefix.
RpHash ruleOf(const RpHash& staticEntry, const RpHash& bsrEntry) {
  const auto usable = [](const RpHash& value) {
    return value != RpHash() && value.address() != IpGenAddr();
  };
  if (usable(staticEntry) && (staticEntry.override() || !usable(bsrEntry))) return staticEntry;
  if (usable(bsrEntry)) return bsrEntry;
  return RpHash();
}

class MergeProperty {
 public:
  // overridePlaceholders: whether static placeholders may carry the override flag, the one case
  // where the final entry depends on the order of the changes.
  MergeProperty(unsigned seed, bool overridePlaceholders)
      : random_(seed), overridePlaceholders_(overridePlaceholders) {}

  // One random write or deletion to one of the inputs.
  void step(RpHashStatus& staticHash, RpHashStatus& bsrHash) {
    const bool toStatic = pick(2) == 0;
    RpHashStatus& input = toStatic ? staticHash : bsrHash;
    const char* prefix = kPrefixes[pick(kPrefixCount)];
    if (pick(4) == 0) {
      input.rpHashDel(IpGenPrefix(prefix));
      return;
    }
    const bool ipv6 = IpGenPrefix(prefix).address().af() == Ipkit::AddressFamily::ipv6;
    const char* const* addresses = ipv6 ? kIpv6Rps : kIpv4Rps;
    const bool override = pick(3) == 0;
    const Mode mode = pick(2) == 0 ? modePimSm : modePimBidir;
    if (pick(6) == 0) {
      const bool flag = override && (overridePlaceholders_ || !toStatic);
      input.rpHashIs(placeholder(prefix, flag, mode));
      return;
    }
    input.rpHashIs(
        entry(prefix, addresses[pick(3)], static_cast<RpPriority>(pick(3)), override, mode));
  }

  static constexpr int kPrefixCount = 8;
  static constexpr const char* kPrefixes[kPrefixCount] = {
      "239.0.0.0/8", "239.1.0.0/16", "232.0.0.0/8", "224.1.2.3/32",
      "ff05::/16",   "ff3e::/32",    "ff0e::1/128", "ff15::/16"};

 private:
  unsigned pick(unsigned count) {
    return std::uniform_int_distribution<unsigned>(0, count - 1)(random_);
  }

  static constexpr const char* kIpv4Rps[3] = {"10.0.0.1", "10.0.0.2", "10.0.0.3"};
  static constexpr const char* kIpv6Rps[3] = {"2001:db8::1", "2001:db8::2", "2001:db8::3"};

  std::mt19937 random_;
  const bool overridePlaceholders_;
};

// Per RP address: allocation requests minus deallocation requests.
std::map<std::string, int> allocationBalance(const Lines& requests) {
  std::map<std::string, int> balance;
  for (const std::string& request : requests) {
    const auto space = request.find(' ');
    const std::string address = request.substr(space + 1);
    balance[address] += request.compare(0, space, "alloc") == 0 ? 1 : -1;
    if (balance[address] == 0) balance.erase(address);
  }
  return balance;
}

std::map<std::string, int> entriesPerAddress(const RpHashStatus& table) {
  std::map<std::string, int> count;
  for (const RpHash& value : table.rpHash()) ++count[value.address().valueToStrep()];
  return count;
}

TEST_F(RpHashMergeTest, Property_RandomInputChanges_FinalIsRuleOfInputsAndRequestsBalance) {
  for (unsigned seed : {1u, 2u, 3u, 4u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    static_ = Kel::Ptr<RpHashStatus>(new RpHashStatus);
    bsr_ = Kel::Ptr<RpHashStatus>(new RpHashStatus);
    final_ = Kel::Ptr<RpHashStatus>(new RpHashStatus);
    bitMap_ = Kel::Ptr<BitMapper::Config>(new BitMapper::Config);
    start(modePimNone);
    MergeProperty property(seed, false);
    for (int i = 0; i < 1500; ++i) {
      property.step(*static_, *bsr_);
      std::size_t expectedMembers = 0;
      for (const char* prefix : MergeProperty::kPrefixes) {
        const IpGenPrefix key(prefix);
        const RpHash expected = ruleOf(static_->rpHash(key), bsr_->rpHash(key));
        ASSERT_EQ(final_->rpHash(key), expected) << "step " << i << " prefix " << prefix;
        if (expected != RpHash()) ++expectedMembers;
      }
      ASSERT_EQ(final_->rpHashs(), expectedMembers) << "step " << i;
      ASSERT_EQ(allocationBalance(requests()), entriesPerAddress(*final_)) << "step " << i;
    }
  }
}

TEST_F(RpHashMergeTest, Property_RandomChangesWithModeAndAsymmetry_RequestsBalanceAndModeKept) {
  for (unsigned seed : {11u, 12u, 13u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    static_ = Kel::Ptr<RpHashStatus>(new RpHashStatus);
    bsr_ = Kel::Ptr<RpHashStatus>(new RpHashStatus);
    final_ = Kel::Ptr<RpHashStatus>(new RpHashStatus);
    bitMap_ = Kel::Ptr<BitMapper::Config>(new BitMapper::Config);
    start(modePimSm);
    MergeProperty property(seed, true);
    for (int i = 0; i < 1500; ++i) {
      property.step(*static_, *bsr_);
      for (const RpHash& value : final_->rpHash()) {
        ASSERT_EQ(value.mode(), modePimSm) << "step " << i;
        ASSERT_NE(value.address(), IpGenAddr()) << "step " << i;
      }
      ASSERT_EQ(allocationBalance(requests()), entriesPerAddress(*final_)) << "step " << i;
    }
  }
}

TEST_F(RpHashMergeTest, Property_RestartAfterRandomChanges_FinalIsRuleOfInputs) {
  MergeProperty property(21, false);
  start(modePimNone);
  for (int i = 0; i < 400; ++i) property.step(*static_, *bsr_);
  sm_ = nullptr;
  // The inputs move on while no merge runs; the new one reconciles what the old one left.
  for (int i = 0; i < 40; ++i) property.step(*static_, *bsr_);
  start(modePimNone);
  for (const char* prefix : MergeProperty::kPrefixes) {
    const IpGenPrefix key(prefix);
    EXPECT_EQ(final_->rpHash(key), ruleOf(static_->rpHash(key), bsr_->rpHash(key))) << prefix;
  }
  EXPECT_EQ(allocationBalance(requests()), entriesPerAddress(*final_));
}

}  // namespace
