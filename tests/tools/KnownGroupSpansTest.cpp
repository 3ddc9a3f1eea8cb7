#include <gtest/gtest.h>

#include <string>

#include "tools/KnownGroupSpans.h"

namespace {

using Ipkit::IpGenPrefix;
using PimrpTool::KnownGroupSpans;

IpGenPrefix range(const std::string& text) { return IpGenPrefix(text); }

TEST(KnownGroupSpans, Empty_HoldsNothing) {
  const KnownGroupSpans spans;
  EXPECT_EQ(spans.count(), 0u);
  EXPECT_EQ(spans.missingIn(range("239.0.0.0/12")), 1u << 20);
}

TEST(KnownGroupSpans, Add_CountsEachAddressOnce) {
  KnownGroupSpans spans;
  spans.add(range("239.1.1.0/24"));
  EXPECT_EQ(spans.count(), 256u);
  EXPECT_EQ(spans.missingIn(range("239.1.0.0/16")), 65536u - 256u);
  EXPECT_EQ(spans.missingIn(range("239.1.1.7/32")), 0u);
  spans.add(range("239.1.1.7/32"));
  spans.add(range("239.1.0.0/23"));
  EXPECT_EQ(spans.count(), 512u);
}

TEST(KnownGroupSpans, AdjacentAndOverlappingSpans_CountOnceAcrossThem) {
  KnownGroupSpans spans;
  spans.add(range("239.0.0.1/32"));
  spans.add(range("239.0.0.3/32"));
  spans.add(range("239.0.0.2/32"));
  spans.add(range("239.0.0.0/32"));
  EXPECT_EQ(spans.count(), 4u);
  EXPECT_EQ(spans.missingIn(range("239.0.0.0/30")), 0u);
  EXPECT_EQ(spans.missingIn(range("239.0.0.0/29")), 4u);
}

TEST(KnownGroupSpans, Remove_SplitsASpanAndForgetsWhatWasNotHeld) {
  KnownGroupSpans spans;
  spans.add(range("239.0.0.0/24"));
  spans.remove(range("239.0.0.16/28"));
  EXPECT_EQ(spans.count(), 240u);
  EXPECT_EQ(spans.missingIn(range("239.0.0.0/24")), 16u);
  spans.remove(range("238.0.0.0/8"));
  spans.remove(range("239.0.0.16/28"));
  EXPECT_EQ(spans.count(), 240u);
  spans.remove(range("239.0.0.0/24"));
  EXPECT_EQ(spans.count(), 0u);
}

TEST(KnownGroupSpans, Ipv6_UpToTheHighestAddress) {
  KnownGroupSpans spans;
  spans.add(range("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128"));
  spans.add(range("ffff:ffff:ffff:ffff:ffff:ffff:fff0:0/108"));
  EXPECT_EQ(spans.count(), 1u << 20);
  spans.add(range("ffff:ffff:ffff:ffff:ffff:ffff:ffe0:0/108"));
  EXPECT_EQ(spans.count(), 2u << 20);
  EXPECT_EQ(spans.missingIn(range("ffff:ffff:ffff:ffff:ffff:ffff:ffc0:0/106")), 2u << 20);
  spans.remove(range("ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe/127"));
  EXPECT_EQ(spans.count(), (2u << 20) - 2);
}

}  // namespace
