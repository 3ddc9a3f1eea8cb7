#include <gtest/gtest.h>

#include <sstream>

#include "framework/Kel/Exception.h"
#include "model/Pim/RpCandidateInfo.h"
#include "tests/support/Refusal.h"

namespace {

using Ipkit::IpGenAddr;
using Routing::Pim::RpCandidateInfo;

constexpr const char kDefaultText[] =
    "Value('Routing::Pim::RpCandidateInfo', ** {'address': unknown, 'priority': 256, "
    "'hashMaskLen': 128, 'override': False, 'mode': modePimNone})";

TEST(RpCandidateInfo, Default_Negates_True) {
  RpCandidateInfo info;
  EXPECT_TRUE(!info);
  EXPECT_EQ(info.address().af(), Ipkit::ipunknown());
  EXPECT_EQ(info.priority(), 256u);
  EXPECT_EQ(info.hashMaskLen(), 128u);
  EXPECT_FALSE(info.override());
  EXPECT_EQ(info.mode(), Routing::Pim::modePimNone);
}

TEST(RpCandidateInfo, DefaultWithSparseMode_Negates_False) {
  RpCandidateInfo info;
  info.modeIs(Routing::Pim::modePimSm);
  EXPECT_FALSE(!info);
}

TEST(RpCandidateInfo, DifferentOverrideOnly_Equality_False) {
  const IpGenAddr rp("10.0.0.1");
  const RpCandidateInfo plain(rp, 10, 30, false, Routing::Pim::modePimSm);
  const RpCandidateInfo overriding(rp, 10, 30, true, Routing::Pim::modePimSm);
  EXPECT_FALSE(plain == overriding);
  EXPECT_TRUE(plain != overriding);
  EXPECT_TRUE(plain == RpCandidateInfo(rp, 10, 30, false, Routing::Pim::modePimSm));
}

TEST(RpCandidateInfo, EachFieldDiffering_Equality_False) {
  const RpCandidateInfo base(IpGenAddr("10.0.0.1"), 10, 30, false, Routing::Pim::modePimSm);
  EXPECT_NE(base, RpCandidateInfo(IpGenAddr("10.0.0.2"), 10, 30, false, Routing::Pim::modePimSm));
  EXPECT_NE(base, RpCandidateInfo(IpGenAddr("10.0.0.1"), 11, 30, false, Routing::Pim::modePimSm));
  EXPECT_NE(base, RpCandidateInfo(IpGenAddr("10.0.0.1"), 10, 31, false, Routing::Pim::modePimSm));
  EXPECT_NE(base,
            RpCandidateInfo(IpGenAddr("10.0.0.1"), 10, 30, false, Routing::Pim::modePimBidir));
}

TEST(RpCandidateInfo, DefaultTextForm_CarriesPriority256AndHashMaskLen128) {
  std::ostringstream out;
  out << RpCandidateInfo();
  EXPECT_EQ(out.str(), kDefaultText);
  EXPECT_EQ(RpCandidateInfo().valueToStrep(), kDefaultText);
}

TEST(RpCandidateInfo, TextForm_OfARealCandidate_Exact) {
  const RpCandidateInfo info(IpGenAddr("2001:db8::1"), 7, 126, true, Routing::Pim::modePimBidir);
  EXPECT_EQ(info.valueToStrep(),
            "Value('Routing::Pim::RpCandidateInfo', ** {'address': 2001:db8::1, 'priority': 7, "
            "'hashMaskLen': 126, 'override': True, 'mode': modePimBidir})");
}

TEST(RpCandidateInfo, Parser_ReadsTextFormBack_SameValue) {
  const RpCandidateInfo info(IpGenAddr("10.1.2.3"), 0, 30, true, Routing::Pim::modePimSm);
  EXPECT_EQ(RpCandidateInfo::fromStrep(info.valueToStrep()), info);
  EXPECT_EQ(RpCandidateInfo::fromStrep(kDefaultText), RpCandidateInfo());
}

TEST(RpCandidateInfo, Parser_BadField_ThrowsNamingTextAndField) {
  const std::string text =
      "Value('Routing::Pim::RpCandidateInfo', ** {'address': 10.0.0.1, 'priority': x, "
      "'hashMaskLen': 128, 'override': False, 'mode': modePimSm})";
  EXPECT_EQ(TestSupport::refusalOf<Kel::ParseException>([&] { RpCandidateInfo::fromStrep(text); }),
            "invalid RpCandidateInfo '" + text + "': invalid priority 'x': not a number");
}

TEST(RpCandidateInfo, Parser_WrongKeyOrTrailingText_Throws) {
  EXPECT_THROW(RpCandidateInfo::fromStrep(
                   "Value('Routing::Pim::RpCandidateInfo', ** {'addr': unknown, 'priority': 256, "
                   "'hashMaskLen': 128, 'override': False, 'mode': modePimNone})"),
               Kel::ParseException);
  EXPECT_THROW(RpCandidateInfo::fromStrep(std::string(kDefaultText) + " "), Kel::ParseException);
  EXPECT_THROW(RpCandidateInfo::fromStrep(""), Kel::ParseException);
}

}  // namespace
