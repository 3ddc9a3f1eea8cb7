#include <gtest/gtest.h>

#include <sstream>

#include "framework/Kel/Exception.h"
#include "model/Pim/PimTypes.h"
#include "tests/support/Refusal.h"

namespace {

using namespace Routing::Pim;

TEST(PimTypes, ModeValues_AreTheProtocolOnes) {
  EXPECT_EQ(static_cast<U32>(modePimNone), 0u);
  EXPECT_EQ(static_cast<U32>(modePimSm), 1u);
  EXPECT_EQ(static_cast<U32>(modePimBidir), 2u);
  EXPECT_EQ(static_cast<U32>(rpTypeStatic), 1u);
  EXPECT_EQ(static_cast<U32>(rpHashAlgorithmModulo), 1u);
}

TEST(PimTypes, Mode_PrintedAndParsedByName) {
  std::ostringstream out;
  out << modePimSm << " " << modePimBidir << " " << modePimNone;
  EXPECT_EQ(out.str(), "modePimSm modePimBidir modePimNone");
  EXPECT_EQ(modeFromStrep("modePimBidir"), modePimBidir);
  EXPECT_EQ(modeToStrep(static_cast<Mode>(7)), "7");
}

TEST(PimTypes, UnknownName_ParseThrowsNamingText) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::ParseException>([&] { modeFromStrep("sparse"); }),
            "invalid mode 'sparse'");
  EXPECT_THROW(rpHashAlgorithmFromStrep("hash"), Kel::ParseException);
  EXPECT_EQ(rpHashAlgorithmFromStrep("rpHashAlgorithmModulo"), rpHashAlgorithmModulo);
  EXPECT_EQ(rpTypeFromStrep("rpTypeStatic"), rpTypeStatic);
}

TEST(PimTypes, Unsigned_OutOfRangeOrJunk_Throws) {
  EXPECT_EQ(unsignedFromStrep("255", 255, "priority"), 255u);
  EXPECT_EQ(TestSupport::refusalOf<Kel::ParseException>(
                [&] { unsignedFromStrep("256", 255, "priority"); }),
            "invalid priority '256': above 255");
  EXPECT_THROW(unsignedFromStrep("-1", 255, "priority"), Kel::ParseException);
  EXPECT_THROW(unsignedFromStrep("", 255, "priority"), Kel::ParseException);
  EXPECT_THROW(unsignedFromStrep("1 ", 255, "priority"), Kel::ParseException);
}

TEST(PimTypes, Sentinels_AreOneAboveValidRange) {
  EXPECT_EQ(kRpPriorityNone, 256u);
  EXPECT_EQ(kRpHashMaskLenNone, 128u);
}

}  // namespace
