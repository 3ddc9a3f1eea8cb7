#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"
#include "framework/Kel/Exception.h"
#include "tests/support/Refusal.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;

// The parse must fail with exactly this message.
void expectRefused(const std::string& text, const std::string& message) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::ParseException>([&] { IpGenPrefix prefix(text); }),
            message);
}

void expectRangeRefused(const IpGenAddr& addr, unsigned len, const std::string& message) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { IpGenPrefix prefix(addr, len); }),
            message);
}

TEST(IpGenPrefixTest, IpGenPrefix_Layout_FixedSizeAndTriviallyCopyable) {
  EXPECT_EQ(sizeof(IpGenPrefix), 18u);
  EXPECT_TRUE(std::is_trivially_copyable_v<IpGenPrefix>);
}

TEST(IpGenPrefixTest, IpGenPrefix_Default_StandsForNoPrefix) {
  const IpGenPrefix none;
  EXPECT_TRUE(none.isNull());
  EXPECT_EQ(none.af(), Ipkit::ipunknown());
  EXPECT_EQ(none.len(), 0u);
  EXPECT_EQ(none.address(), IpGenAddr());
  EXPECT_EQ(none.valueToStrep(), "unknown");
  EXPECT_FALSE(none.contains(none));
  EXPECT_FALSE(none.contains(IpGenAddr()));
  EXPECT_FALSE(IpGenPrefix("0.0.0.0/0").contains(none));
  EXPECT_FALSE(IpGenPrefix("0.0.0.0/0").isNull());
}

TEST(IpGenPrefixTest, IpGenPrefix_ParseAndPrint_BothFamilies) {
  const IpGenPrefix v4("239.0.0.0/8");
  EXPECT_EQ(v4.af(), Ipkit::ipv4());
  EXPECT_EQ(v4.address(), IpGenAddr("239.0.0.0"));
  EXPECT_EQ(v4.len(), 8u);
  EXPECT_EQ(v4.valueToStrep(), "239.0.0.0/8");
  std::ostringstream os;
  os << std::hex << v4;
  EXPECT_EQ(os.str(), "239.0.0.0/8");

  const IpGenPrefix v6("FF00::/8");
  EXPECT_EQ(v6.af(), Ipkit::ipv6());
  EXPECT_EQ(v6.len(), 8u);
  EXPECT_EQ(v6.valueToStrep(), "ff00::/8");
  EXPECT_EQ(IpGenPrefix("0.0.0.0/0").valueToStrep(), "0.0.0.0/0");
  EXPECT_EQ(IpGenPrefix("::/0").valueToStrep(), "::/0");
  EXPECT_EQ(IpGenPrefix("2001:db8::1/128").valueToStrep(), "2001:db8::1/128");
  EXPECT_EQ(IpGenPrefix("::ffff:10.0.0.0/104").valueToStrep(), "::ffff:10.0.0.0/104");
}

TEST(IpGenPrefixTest, IpGenPrefix_HostBitsSet_ClearedOnConstruction) {
  EXPECT_EQ(IpGenPrefix("10.1.2.3/8").valueToStrep(), "10.0.0.0/8");
  EXPECT_EQ(IpGenPrefix("10.1.2.3/8"), IpGenPrefix("10.0.0.0/8"));
  EXPECT_EQ(IpGenPrefix("10.255.255.255/13").valueToStrep(), "10.248.0.0/13");
  EXPECT_EQ(IpGenPrefix(IpGenAddr("192.168.77.77"), 20).address(), IpGenAddr("192.168.64.0"));
  EXPECT_EQ(IpGenPrefix("1.2.3.4/0").valueToStrep(), "0.0.0.0/0");
  EXPECT_EQ(IpGenPrefix("2001:db8:ffff::1/35").valueToStrep(), "2001:db8:e000::/35");
  EXPECT_EQ(IpGenPrefix("ff3e:ffff::/12").valueToStrep(), "ff30::/12");
  EXPECT_EQ(IpGenPrefix("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/127").valueToStrep(),
            "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe/127");
}

// The mask is applied a half of the address at a time: every length, the half boundary (63, 64,
// 65) included, keeps exactly its leading bits.
TEST(IpGenPrefixTest, IpGenPrefix_EveryLength_KeepsExactlyLeadingBits) {
  const IpGenAddr ones6("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
  const IpGenAddr ones4("255.255.255.255");
  for (unsigned len = 0; len <= 128; ++len) {
    const IpGenPrefix prefix(ones6, len);
    const auto& bytes = prefix.address().bytes();
    for (unsigned byte = 0; byte < 16; ++byte) {
      const unsigned kept = len >= 8 * (byte + 1) ? 8 : len > 8 * byte ? len - 8 * byte : 0;
      EXPECT_EQ(bytes[byte], (0xff00u >> kept) & 0xffu) << "length " << len;
    }
  }
  for (unsigned len = 0; len <= 32; ++len) {
    const IpGenPrefix prefix(ones4, len);
    const std::uint32_t mask = len == 0 ? 0u : ~0u << (32 - len);
    EXPECT_EQ(prefix.address(), IpGenAddr::ip4(mask)) << "length " << len;
    EXPECT_EQ(prefix.len(), len);
  }
}

TEST(IpGenPrefixTest, IpGenPrefix_HostPrefix_FullLength) {
  const IpGenPrefix h4 = IpGenPrefix::hostPrefix(IpGenAddr("10.9.8.7"));
  EXPECT_EQ(h4.len(), 32u);
  EXPECT_EQ(h4.address(), IpGenAddr("10.9.8.7"));
  EXPECT_EQ(h4.valueToStrep(), "10.9.8.7/32");
  const IpGenPrefix h6 = IpGenPrefix::hostPrefix(IpGenAddr("ff05::1:3"));
  EXPECT_EQ(h6.len(), 128u);
  EXPECT_EQ(h6.valueToStrep(), "ff05::1:3/128");
  EXPECT_THROW(IpGenPrefix::hostPrefix(IpGenAddr()), Kel::RangeException);
}

TEST(IpGenPrefixTest, IpGenPrefix_ParseIteratorRange_SameParser) {
  const std::string text = "[239.1.0.0/16]";
  EXPECT_EQ(IpGenPrefix(text.begin() + 1, text.end() - 1), IpGenPrefix("239.1.0.0/16"));
}

TEST(IpGenPrefixTest, IpGenPrefix_ContainsPrefix_SameFamilyLongerAndSameLeadingBits) {
  const IpGenPrefix p("239.0.0.0/8");
  EXPECT_TRUE(p.contains(p));
  EXPECT_TRUE(p.contains(IpGenPrefix("239.1.0.0/16")));
  EXPECT_TRUE(p.contains(IpGenPrefix("239.255.255.255/32")));
  EXPECT_FALSE(p.contains(IpGenPrefix("238.0.0.0/7")));
  EXPECT_FALSE(p.contains(IpGenPrefix("238.1.0.0/16")));
  EXPECT_FALSE(p.contains(IpGenPrefix("ef00::/16")));
  EXPECT_TRUE(IpGenPrefix("0.0.0.0/0").contains(IpGenPrefix("1.2.3.4/32")));
  EXPECT_FALSE(IpGenPrefix("0.0.0.0/0").contains(IpGenPrefix("::/0")));
  EXPECT_TRUE(IpGenPrefix("ff30::/12").contains(IpGenPrefix("ff3e::/16")));
  EXPECT_FALSE(IpGenPrefix("ff30::/12").contains(IpGenPrefix("ff40::/16")));
  EXPECT_TRUE(IpGenPrefix("2001:db8::/127").contains(IpGenPrefix("2001:db8::1/128")));
  EXPECT_FALSE(IpGenPrefix("2001:db8::/128").contains(IpGenPrefix("2001:db8::1/128")));
}

TEST(IpGenPrefixTest, IpGenPrefix_ContainsAddr_LeadingBitsOfSameFamily) {
  const IpGenPrefix p("224.0.0.0/4");
  EXPECT_TRUE(p.contains(IpGenAddr("224.0.0.1")));
  EXPECT_TRUE(p.contains(IpGenAddr("239.255.255.255")));
  EXPECT_FALSE(p.contains(IpGenAddr("240.0.0.0")));
  EXPECT_FALSE(p.contains(IpGenAddr("::")));
  EXPECT_FALSE(p.contains(IpGenAddr()));
  EXPECT_TRUE(IpGenPrefix("ff00::/8").contains(IpGenAddr("ff0e::1")));
  EXPECT_FALSE(IpGenPrefix("ff00::/8").contains(IpGenAddr("fe80::1")));
  EXPECT_TRUE(IpGenPrefix("10.0.0.1/32").contains(IpGenAddr("10.0.0.1")));
  EXPECT_FALSE(IpGenPrefix("10.0.0.1/32").contains(IpGenAddr("10.0.0.0")));
}

TEST(IpGenPrefixTest, IpGenPrefix_Ordering_ByAddressThenLength) {
  std::vector<IpGenPrefix> sorted = {
      IpGenPrefix(),
      IpGenPrefix("0.0.0.0/0"),
      IpGenPrefix("10.0.0.0/8"),
      IpGenPrefix("10.0.0.0/16"),
      IpGenPrefix("10.0.0.0/32"),
      IpGenPrefix("10.1.0.0/16"),
      IpGenPrefix("239.0.0.0/8"),
      IpGenPrefix("::/0"),
      IpGenPrefix("ff00::/8"),
      IpGenPrefix("ff00::/16"),
      IpGenPrefix("ff05::/16"),
  };
  for (std::size_t i = 0; i + 1 < sorted.size(); ++i) {
    EXPECT_LT(sorted[i], sorted[i + 1]) << sorted[i] << " before " << sorted[i + 1];
    EXPECT_GT(sorted[i + 1], sorted[i]);
    EXPECT_LE(sorted[i], sorted[i]);
    EXPECT_GE(sorted[i], sorted[i]);
    EXPECT_NE(sorted[i], sorted[i + 1]);
  }
}

TEST(IpGenPrefixTest, IpGenPrefix_Equality_AddressAndLength) {
  EXPECT_EQ(IpGenPrefix("10.0.0.0/8"), IpGenPrefix(IpGenAddr("10.0.0.0"), 8));
  EXPECT_NE(IpGenPrefix("10.0.0.0/8"), IpGenPrefix("10.0.0.0/9"));
  EXPECT_NE(IpGenPrefix("0.0.0.0/0"), IpGenPrefix("::/0"));
  EXPECT_EQ(IpGenPrefix(), IpGenPrefix());
}

TEST(IpGenPrefixTest, IpGenPrefix_LengthAboveFamily_RangeExceptionNamingIt) {
  expectRangeRefused(IpGenAddr("10.0.0.0"), 33, "prefix length 33 above 32 for 10.0.0.0");
  expectRangeRefused(IpGenAddr("ff00::"), 129, "prefix length 129 above 128 for ff00::");
  expectRangeRefused(IpGenAddr(), 0, "prefix needs an IPv4 or IPv6 address, got unknown");
}

TEST(IpGenPrefixTest, IpGenPrefix_ParseLengthAbove32_ThrowsNamingText) {
  expectRefused("239.0.0.0/33", "invalid prefix '239.0.0.0/33': length above 32");
  expectRefused("239.0.0.0/99999999999", "invalid prefix '239.0.0.0/99999999999': length above 32");
}

TEST(IpGenPrefixTest, IpGenPrefix_ParseLengthAbove128_ThrowsNamingText) {
  expectRefused("2001:db8::/129", "invalid prefix '2001:db8::/129': length above 128");
}

TEST(IpGenPrefixTest, IpGenPrefix_ParseMissingLength_ThrowsNamingText) {
  expectRefused("1.2.3.4/", "invalid prefix '1.2.3.4/': missing length");
  expectRefused("1.2.3.4", "invalid prefix '1.2.3.4': missing '/' and length");
  expectRefused("", "invalid prefix '': empty text");
}

TEST(IpGenPrefixTest, IpGenPrefix_ParseTrailingJunk_ThrowsNamingText) {
  expectRefused("10.0.0.0/8x", "invalid prefix '10.0.0.0/8x': length not a decimal number");
  expectRefused("10.0.0.0/8 ", "invalid prefix '10.0.0.0/8 ': length not a decimal number");
  expectRefused("10.0.0.0/8/8", "invalid prefix '10.0.0.0/8/8': length not a decimal number");
  expectRefused("10.0.0.0/+8", "invalid prefix '10.0.0.0/+8': length not a decimal number");
  expectRefused("10.0.0.0/-1", "invalid prefix '10.0.0.0/-1': length not a decimal number");
}

TEST(IpGenPrefixTest, IpGenPrefix_ParseBadAddress_ThrowsNamingBoth) {
  expectRefused("10.0.0.256/8", "invalid prefix '10.0.0.256/8': invalid IPv4 address '10.0.0.256'");
  expectRefused("::g/8", "invalid prefix '::g/8': invalid IPv6 address '::g'");
  expectRefused("/8", "invalid prefix '/8': invalid address ''");
  expectRefused("10.0.0.0 /8", "invalid prefix '10.0.0.0 /8': invalid IPv4 address '10.0.0.0 '");
}

TEST(IpGenPrefixTest, IpGenPrefix_Hash_UsableInUnorderedMapAndSeparatesLengths) {
  std::unordered_map<IpGenPrefix, int> map;
  for (unsigned len = 0; len <= 32; ++len) map[IpGenPrefix(IpGenAddr("10.0.0.0"), len)] = len;
  map[IpGenPrefix("ff00::/8")] = 100;
  map[IpGenPrefix()] = 200;
  EXPECT_EQ(map.size(), 35u);
  EXPECT_EQ(map.at(IpGenPrefix("10.0.0.0/8")), 8);
  EXPECT_EQ(map.at(IpGenPrefix("ff00::/8")), 100);
  EXPECT_EQ(map.at(IpGenPrefix()), 200);
  const std::hash<IpGenPrefix> hash;
  EXPECT_NE(hash(IpGenPrefix("10.0.0.0/8")), hash(IpGenPrefix("10.0.0.0/16")));
  EXPECT_EQ(hash(IpGenPrefix("10.1.2.3/8")), hash(IpGenPrefix("10.0.0.0/8")));
}

TEST(IpGenPrefixSetTest, IpGenPrefixSet_InsertDelete_ReportsChangeAndKeepsOrder) {
  Ipkit::IpGenPrefixSet set;
  EXPECT_TRUE(set.empty());
  EXPECT_TRUE(set.prefixIs(IpGenPrefix("ff00::/8")));
  EXPECT_TRUE(set.prefixIs(IpGenPrefix("239.0.0.0/8")));
  EXPECT_TRUE(set.prefixIs(IpGenPrefix("224.0.0.0/4")));
  EXPECT_FALSE(set.prefixIs(IpGenPrefix("239.1.0.0/8")));  // same network once host bits go
  EXPECT_EQ(set.size(), 3u);
  EXPECT_TRUE(set.prefix(IpGenPrefix("239.0.0.0/8")));
  EXPECT_FALSE(set.prefix(IpGenPrefix("239.0.0.0/9")));

  std::vector<std::string> order;
  for (const IpGenPrefix& p : set) order.push_back(p.valueToStrep());
  EXPECT_EQ(order, (std::vector<std::string>{"224.0.0.0/4", "239.0.0.0/8", "ff00::/8"}));

  EXPECT_TRUE(set.prefixDel(IpGenPrefix("239.0.0.0/8")));
  EXPECT_FALSE(set.prefixDel(IpGenPrefix("239.0.0.0/8")));
  EXPECT_EQ(set.size(), 2u);
  set.prefixDelAll();
  EXPECT_TRUE(set.empty());
  EXPECT_EQ(set.begin(), set.end());
}

TEST(IpGenPrefixSetTest, IpGenPrefixSet_Equality_SameMembersWhateverInsertOrder) {
  Ipkit::IpGenPrefixSet a;
  Ipkit::IpGenPrefixSet b;
  a.prefixIs(IpGenPrefix("224.0.0.0/4"));
  a.prefixIs(IpGenPrefix("ff00::/8"));
  b.prefixIs(IpGenPrefix("ff00::/8"));
  EXPECT_FALSE(a == b);
  b.prefixIs(IpGenPrefix("224.0.0.0/4"));
  EXPECT_TRUE(a == b);
  Ipkit::IpGenPrefixSet copy = a;
  copy.prefixDel(IpGenPrefix("ff00::/8"));
  EXPECT_FALSE(copy == a);
  EXPECT_EQ(a.size(), 2u);
}

}  // namespace
