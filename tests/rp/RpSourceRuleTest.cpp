#include <gtest/gtest.h>

#include <string>

#include "rp/PimRpSourceRule.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;

const IpGenPrefix kRange("239.0.0.0/8");

RpHash entry(const char* rp, bool override = false) {
  return RpHash(kRange, IpGenAddr(rp), 0, 30, override, modePimSm);
}
// What a source's review writes when its winner is of another mode: present, no RP.
RpHash placeholder(bool override = false) {
  return RpHash(kRange, IpGenAddr(), kRpPriorityNone, kRpHashMaskLenNone, override, modePimSm);
}

std::string wordOf(const RpHash& staticEntry, const RpHash& bsrEntry) {
  return rpSourceReasonWord(rpSourceReasonOfEntries(staticEntry, bsrEntry));
}

TEST(RpSourceRule, StaticWins_OnOverrideOrWhenBootstrapHasNone) {
  EXPECT_TRUE(rpStaticWins(true, true));
  EXPECT_TRUE(rpStaticWins(true, false));
  EXPECT_TRUE(rpStaticWins(false, false));
  EXPECT_FALSE(rpStaticWins(false, true));
}

TEST(RpSourceRule, Reason_EachCaseAndItsWord) {
  EXPECT_EQ(rpSourceReason(false, false, false), RpSourceReason::noRp);
  EXPECT_EQ(rpSourceReason(false, true, false), RpSourceReason::noRp);
  EXPECT_EQ(rpSourceReason(true, false, false), RpSourceReason::onlyStatic);
  EXPECT_EQ(rpSourceReason(true, true, false), RpSourceReason::onlyStatic);
  EXPECT_EQ(rpSourceReason(false, false, true), RpSourceReason::onlyBootstrap);
  EXPECT_EQ(rpSourceReason(true, false, true), RpSourceReason::bootstrapBeatsStatic);
  EXPECT_EQ(rpSourceReason(true, true, true), RpSourceReason::staticOverride);
  EXPECT_EQ(rpSourceReason(false, true, true), RpSourceReason::staticOverrideWithoutRp);
  EXPECT_STREQ(rpSourceReasonWord(RpSourceReason::noRp), "no RP");
  EXPECT_STREQ(rpSourceReasonWord(RpSourceReason::onlyStatic), "only static");
  EXPECT_STREQ(rpSourceReasonWord(RpSourceReason::onlyBootstrap), "only bootstrap");
  EXPECT_STREQ(rpSourceReasonWord(RpSourceReason::bootstrapBeatsStatic), "bootstrap beats static");
  EXPECT_STREQ(rpSourceReasonWord(RpSourceReason::staticOverride), "static override");
  EXPECT_STREQ(rpSourceReasonWord(RpSourceReason::staticOverrideWithoutRp),
               "static override without RP");
}

TEST(RpSourceRule, Entries_PresentAndUsable) {
  EXPECT_FALSE(rpHashPresent(RpHash()));
  EXPECT_FALSE(rpHashUsable(RpHash()));
  EXPECT_TRUE(rpHashPresent(placeholder()));
  EXPECT_FALSE(rpHashUsable(placeholder()));
  EXPECT_TRUE(rpHashUsable(entry("10.0.0.1")));
}

TEST(RpSourceRule, ReasonOfEntries_ReadAsTheMergeReadsThem) {
  EXPECT_EQ(wordOf(RpHash(), RpHash()), "no RP");
  EXPECT_EQ(wordOf(placeholder(), placeholder()), "no RP");
  EXPECT_EQ(wordOf(entry("10.0.0.1"), RpHash()), "only static");
  EXPECT_EQ(wordOf(entry("10.0.0.1"), placeholder()), "only static");
  EXPECT_EQ(wordOf(placeholder(), entry("10.1.0.1")), "only bootstrap");
  EXPECT_EQ(wordOf(entry("10.0.0.1"), entry("10.1.0.1")), "bootstrap beats static");
  EXPECT_EQ(wordOf(entry("10.0.0.1", true), entry("10.1.0.1")), "static override");
  // The flag of a present static entry counts even without an RP.
  EXPECT_EQ(wordOf(placeholder(true), entry("10.1.0.1")), "static override without RP");
}

}  // namespace
