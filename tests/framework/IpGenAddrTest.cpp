#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>
#include <unordered_map>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/Ip4Addr.h"
#include "framework/Ipkit/Ip6Addr.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Exception.h"
#include "tests/support/Refusal.h"

namespace {

using Ipkit::IpGenAddr;

template <class T>
std::string printed(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

// The parse must fail with exactly this message.
void expectRefused(const std::string& text, const std::string& message) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::ParseException>([&] { IpGenAddr addr(text); }), message);
}

const std::array<std::uint8_t, 16> kZero{};

std::array<std::uint8_t, 16> bytesOf(std::initializer_list<int> list) {
  std::array<std::uint8_t, 16> bytes{};
  std::size_t i = 0;
  for (int b : list) bytes[i++] = static_cast<std::uint8_t>(b);
  return bytes;
}

TEST(AddressFamilyTest, AddressFamily_Print_NamesEachFamily) {
  EXPECT_EQ(printed(Ipkit::ipunknown()), "ipunknown");
  EXPECT_EQ(printed(Ipkit::ipv4()), "ipv4");
  EXPECT_EQ(printed(Ipkit::ipv6()), "ipv6");
  EXPECT_EQ(Ipkit::ipv4(), Ipkit::AddressFamily::ipv4);
  EXPECT_EQ(static_cast<int>(Ipkit::AddressFamily{}), 0);
}

TEST(Ip4AddrTest, Ip4Addr_PrintAndCompare_DottedQuadInNumericOrder) {
  EXPECT_EQ(printed(Ipkit::Ip4Addr(0xc0a80001u)), "192.168.0.1");
  EXPECT_EQ(printed(Ipkit::Ip4Addr()), "0.0.0.0");
  EXPECT_EQ(printed(Ipkit::Ip4Addr(0xffffffffu)), "255.255.255.255");
  EXPECT_LT(Ipkit::Ip4Addr(1), Ipkit::Ip4Addr(2));
  EXPECT_EQ(Ipkit::Ip4Addr(7), Ipkit::Ip4Addr(7));
  static_assert(Ipkit::Ip4Addr(5).value() == 5, "constexpr construction");
}

TEST(Ip4AddrTest, Ip4Addr_PrintOnHexStream_StaysDecimal) {
  std::ostringstream os;
  os << std::hex << Ipkit::Ip4Addr(0x0a0b0c0du);
  EXPECT_EQ(os.str(), "10.11.12.13");
}

TEST(Ip6AddrTest, Ip6Addr_Default_IsAllZero) {
  EXPECT_EQ(Ipkit::Ip6Addr().bytes(), kZero);
  EXPECT_EQ(printed(Ipkit::Ip6Addr()), "::");
}

TEST(Ip6AddrTest, Ip6Addr_U64AndU32_ReadBigEndian) {
  const Ipkit::Ip6Addr a(
      bytesOf({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 1, 0x80, 0, 0, 0, 0xde, 0xad, 0xbe, 0xef}));
  EXPECT_EQ(a.u64(0), 0x20010db800000001ull);
  EXPECT_EQ(a.u64(1), 0x80000000deadbeefull);
  EXPECT_EQ(a.u32(0), 0x20010db8u);
  EXPECT_EQ(a.u32(1), 1u);
  EXPECT_EQ(a.u32(2), 0x80000000u);
  EXPECT_EQ(a.u32(3), 0xdeadbeefu);
}

TEST(Ip6AddrTest, Ip6Addr_U64OutOfRange_Throws) {
  EXPECT_THROW(Ipkit::Ip6Addr().u64(2), Kel::RangeException);
  EXPECT_THROW(Ipkit::Ip6Addr().u32(4), Kel::RangeException);
}

TEST(Ip6AddrTest, Ip6Addr_Print_CanonicalText) {
  EXPECT_EQ(printed(Ipkit::Ip6Addr(
                bytesOf({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}))),
            "2001:db8::1");
  // A lone zero word is not compressed.
  EXPECT_EQ(printed(Ipkit::Ip6Addr(
                bytesOf({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1}))),
            "2001:db8:0:1:1:1:1:1");
  // The longer run wins; on a tie, the first.
  EXPECT_EQ(
      printed(Ipkit::Ip6Addr(bytesOf({0x20, 0x01, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1}))),
      "2001:0:0:1::1");
  EXPECT_EQ(printed(Ipkit::Ip6Addr(
                bytesOf({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1}))),
            "2001:db8::1:0:0:1");
  EXPECT_EQ(printed(Ipkit::Ip6Addr(bytesOf({0xff, 0x0e}))), "ff0e::");
  EXPECT_EQ(printed(Ipkit::Ip6Addr(bytesOf({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}))),
            "::1");
  EXPECT_EQ(printed(Ipkit::Ip6Addr(
                bytesOf({0xAB, 0xCD, 0, 0x0F, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34}))),
            "abcd:f:1000::1234");
  EXPECT_EQ(
      printed(Ipkit::Ip6Addr(bytesOf({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 1, 2, 3, 4}))),
      "::ffff:1.2.3.4");
}

TEST(IpGenAddrTest, IpGenAddr_Layout_FixedSizeAndTriviallyCopyable) {
  EXPECT_EQ(sizeof(IpGenAddr), 17u);
  EXPECT_TRUE(std::is_trivially_copyable_v<IpGenAddr>);
}

TEST(IpGenAddrTest, IpGenAddr_Default_StandsForNoAddress) {
  const IpGenAddr none;
  EXPECT_EQ(none.af(), Ipkit::ipunknown());
  EXPECT_EQ(none.bytes(), kZero);
  EXPECT_EQ(none.valueToStrep(), "unknown");
  EXPECT_EQ(printed(none), "unknown");
  EXPECT_FALSE(none.isMulticast());
  EXPECT_NE(none, IpGenAddr::ip4(0));
}

TEST(IpGenAddrTest, IpGenAddr_ParseIp4_BytesInFrontRestZero) {
  const IpGenAddr a("192.168.1.20");
  EXPECT_EQ(a.af(), Ipkit::ipv4());
  EXPECT_EQ(a.bytes(), bytesOf({192, 168, 1, 20}));
  EXPECT_EQ(a.ip4Addr(), Ipkit::Ip4Addr(0xc0a80114u));
  EXPECT_EQ(a, IpGenAddr::ip4(0xc0a80114u));
  EXPECT_EQ(a, IpGenAddr(Ipkit::Ip4Addr(0xc0a80114u)));
  EXPECT_EQ(a.valueToStrep(), "192.168.1.20");
  EXPECT_EQ(IpGenAddr("0.0.0.0").valueToStrep(), "0.0.0.0");
  EXPECT_EQ(IpGenAddr("255.255.255.255").ip4Addr().value(), 0xffffffffu);
}

TEST(IpGenAddrTest, IpGenAddr_ParseIp4LeadingZeros_ReadAsDecimal) {
  EXPECT_EQ(IpGenAddr("010.001.000.099"), IpGenAddr("10.1.0.99"));
}

TEST(IpGenAddrTest, IpGenAddr_ParseIp6_AllTextForms) {
  const IpGenAddr full("2001:0db8:0000:0000:0000:ff00:0042:8329");
  EXPECT_EQ(full.af(), Ipkit::ipv6());
  EXPECT_EQ(full.bytes(),
            bytesOf({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0xff, 0, 0, 0x42, 0x83, 0x29}));
  EXPECT_EQ(IpGenAddr("2001:db8::ff00:42:8329"), full);
  EXPECT_EQ(IpGenAddr("2001:DB8::FF00:42:8329"), full);
  EXPECT_EQ(full.valueToStrep(), "2001:db8::ff00:42:8329");
  EXPECT_EQ(IpGenAddr("::").bytes(), kZero);
  EXPECT_EQ(IpGenAddr("::").af(), Ipkit::ipv6());
  EXPECT_EQ(IpGenAddr("::1").valueToStrep(), "::1");
  EXPECT_EQ(IpGenAddr("ff02::").valueToStrep(), "ff02::");
  EXPECT_EQ(IpGenAddr("1:2:3:4:5:6:7::").valueToStrep(), "1:2:3:4:5:6:7:0");
  EXPECT_EQ(IpGenAddr("::2:3:4:5:6:7:8").valueToStrep(), "0:2:3:4:5:6:7:8");
  EXPECT_EQ(IpGenAddr("1:0:0:2::3").valueToStrep(), "1:0:0:2::3");
}

TEST(IpGenAddrTest, IpGenAddr_ParseIp6EmbeddedIp4_LastTwoWords) {
  const IpGenAddr mapped("::ffff:1.2.3.4");
  EXPECT_EQ(mapped.bytes(), bytesOf({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 1, 2, 3, 4}));
  EXPECT_EQ(mapped.valueToStrep(), "::ffff:1.2.3.4");
  EXPECT_EQ(IpGenAddr("::ffff:0102:0304"), mapped);
  EXPECT_EQ(IpGenAddr("1:2:3:4:5:6:10.0.0.1").valueToStrep(), "1:2:3:4:5:6:a00:1");
  EXPECT_EQ(IpGenAddr("::10.0.0.1").valueToStrep(), "::a00:1");
}

TEST(IpGenAddrTest, IpGenAddr_PrintParse_RoundTrips) {
  for (const char* text : {"10.0.0.1", "239.255.255.250", "2001:db8::1", "ff05::1:3",
                           "::", "fe80::1:2:3:4", "::ffff:192.0.2.128", "1:2:3:4:5:6:7:8"}) {
    EXPECT_EQ(IpGenAddr(text).valueToStrep(), text);
  }
}

TEST(IpGenAddrTest, IpGenAddr_ParseIteratorRange_SameParser) {
  const std::string text = "group 239.1.2.3 rp";
  EXPECT_EQ(IpGenAddr(text.begin() + 6, text.begin() + 15), IpGenAddr("239.1.2.3"));
  EXPECT_EQ(TestSupport::refusalOf<Kel::ParseException>(
                [&] { IpGenAddr(text.begin() + 6, text.begin() + 16); }),
            "invalid IPv4 address '239.1.2.3 '");
}

TEST(IpGenAddrTest, IpGenAddr_ParseOctetAbove255_ThrowsNamingText) {
  expectRefused("10.0.0.256", "invalid IPv4 address '10.0.0.256'");
  expectRefused("300.0.0.1", "invalid IPv4 address '300.0.0.1'");
}

TEST(IpGenAddrTest, IpGenAddr_ParseMalformedIp4_ThrowsNamingText) {
  expectRefused("10.0.0", "invalid IPv4 address '10.0.0'");
  expectRefused("10.0.0.1.2", "invalid IPv4 address '10.0.0.1.2'");
  expectRefused("10..0.1", "invalid IPv4 address '10..0.1'");
  expectRefused(".10.0.0.1", "invalid IPv4 address '.10.0.0.1'");
  expectRefused("10.0.0.", "invalid IPv4 address '10.0.0.'");
  expectRefused("+10.0.0.1", "invalid IPv4 address '+10.0.0.1'");
  expectRefused("10.+1.0.1", "invalid IPv4 address '10.+1.0.1'");
  expectRefused("10.0.0.0001", "invalid IPv4 address '10.0.0.0001'");
  expectRefused("0x0a.0.0.1", "invalid IPv4 address '0x0a.0.0.1'");
  expectRefused("10", "invalid IPv4 address '10'");
  expectRefused("abc", "invalid IPv4 address 'abc'");
}

TEST(IpGenAddrTest, IpGenAddr_ParseTrailingJunk_ThrowsNamingText) {
  expectRefused("10.0.0.1x", "invalid IPv4 address '10.0.0.1x'");
  expectRefused("10.0.0.1 ", "invalid IPv4 address '10.0.0.1 '");
  expectRefused(" 10.0.0.1", "invalid IPv4 address ' 10.0.0.1'");
  expectRefused("2001:db8::1 ", "invalid IPv6 address '2001:db8::1 '");
  expectRefused("fe80::1%eth0", "invalid IPv6 address 'fe80::1%eth0'");
}

TEST(IpGenAddrTest, IpGenAddr_ParseEmpty_ThrowsNamingText) {
  expectRefused("", "invalid address ''");
}

TEST(IpGenAddrTest, IpGenAddr_ParseMalformedIp6_ThrowsNamingText) {
  expectRefused("::g", "invalid IPv6 address '::g'");
  expectRefused(":::", "invalid IPv6 address ':::'");
  expectRefused(":1::2", "invalid IPv6 address ':1::2'");
  expectRefused("1::2:", "invalid IPv6 address '1::2:'");
  expectRefused("1::2::3", "invalid IPv6 address '1::2::3'");
  expectRefused("12345::", "invalid IPv6 address '12345::'");
  expectRefused("1:2:3:4:5:6:7", "invalid IPv6 address '1:2:3:4:5:6:7'");
  expectRefused("1:2:3:4:5:6:7:8:9", "invalid IPv6 address '1:2:3:4:5:6:7:8:9'");
  expectRefused("1:2:3:4:5:6:7:8::", "invalid IPv6 address '1:2:3:4:5:6:7:8::'");
  expectRefused("::1:2:3:4:5:6:7:8", "invalid IPv6 address '::1:2:3:4:5:6:7:8'");
  expectRefused("1:2:3:4::5:6:7:8", "invalid IPv6 address '1:2:3:4::5:6:7:8'");
  expectRefused("[::1]", "invalid IPv6 address '[::1]'");
}

TEST(IpGenAddrTest, IpGenAddr_ParseMisplacedIp4Tail_ThrowsNamingText) {
  expectRefused("1.2.3.4::", "invalid IPv6 address '1.2.3.4::'");
  expectRefused("::1.2.3.4:5", "invalid IPv6 address '::1.2.3.4:5'");
  expectRefused("::ffff:1.2.3.256", "invalid IPv6 address '::ffff:1.2.3.256'");
  expectRefused("::ffff:1.2.3", "invalid IPv6 address '::ffff:1.2.3'");
  expectRefused("1:2:3:4:5:6:7:1.2.3.4", "invalid IPv6 address '1:2:3:4:5:6:7:1.2.3.4'");
  expectRefused("1:2:3:4:5::6:1.2.3.4", "invalid IPv6 address '1:2:3:4:5::6:1.2.3.4'");
}

TEST(IpGenAddrTest, IpGenAddr_WrongFamilyAccessor_Throws) {
  EXPECT_THROW(IpGenAddr("::1").ip4Addr(), Kel::RangeException);
  EXPECT_THROW(IpGenAddr("10.0.0.1").ip6Addr(), Kel::RangeException);
  EXPECT_THROW(IpGenAddr().ip4Addr(), Kel::RangeException);
  EXPECT_EQ(IpGenAddr("::1").ip6Addr(),
            Ipkit::Ip6Addr(bytesOf({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1})));
}

TEST(IpGenAddrTest, IpGenAddr_Ordering_FamilyFirstThenBytes) {
  const IpGenAddr none;
  const IpGenAddr low4("0.0.0.0");
  const IpGenAddr high4("255.255.255.255");
  const IpGenAddr low6("::");
  const IpGenAddr high6("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
  EXPECT_LT(none, low4);
  EXPECT_LT(low4, high4);
  EXPECT_LT(high4, low6);
  EXPECT_LT(low6, high6);
  EXPECT_LT(IpGenAddr("9.255.255.255"), IpGenAddr("10.0.0.0"));
  EXPECT_LT(IpGenAddr("1::ffff"), IpGenAddr("2::"));
  EXPECT_LE(low4, low4);
  EXPECT_GE(high6, low6);
  EXPECT_GT(low6, high4);
  EXPECT_FALSE(low4 < low4);
}

TEST(IpGenAddrTest, IpGenAddr_Equality_SameFamilyAndBytes) {
  EXPECT_EQ(IpGenAddr("10.0.0.1"), IpGenAddr::ip4(0x0a000001u));
  EXPECT_NE(IpGenAddr("10.0.0.1"), IpGenAddr("10.0.0.2"));
  // 0.0.0.0 and :: hold the same all-zero bytes; the family alone tells them apart.
  EXPECT_NE(IpGenAddr("0.0.0.0"), IpGenAddr("::"));
  EXPECT_NE(IpGenAddr(), IpGenAddr("0.0.0.0"));
}

TEST(IpGenAddrTest, IpGenAddr_IsMulticast_ClassDAndFf00) {
  EXPECT_TRUE(IpGenAddr("224.0.0.0").isMulticast());
  EXPECT_TRUE(IpGenAddr("239.255.255.255").isMulticast());
  EXPECT_FALSE(IpGenAddr("223.255.255.255").isMulticast());
  EXPECT_FALSE(IpGenAddr("240.0.0.0").isMulticast());
  EXPECT_TRUE(IpGenAddr("ff00::").isMulticast());
  EXPECT_TRUE(IpGenAddr("ff0e::1").isMulticast());
  EXPECT_FALSE(IpGenAddr("fe80::1").isMulticast());
  EXPECT_FALSE(IpGenAddr("::ffff:224.0.0.1").isMulticast());
}

TEST(IpGenAddrTest, IpGenAddr_Hash_UsableAndSpreadInUnorderedMap) {
  std::unordered_map<IpGenAddr, int> map;
  for (std::uint32_t i = 0; i < 1000; ++i)
    map[IpGenAddr::ip4(0xe0000000u + i)] = static_cast<int>(i);
  map[IpGenAddr("ff05::1")] = -1;
  map[IpGenAddr()] = -2;
  EXPECT_EQ(map.size(), 1002u);
  EXPECT_EQ(map.at(IpGenAddr("224.0.1.244")), 500);
  EXPECT_EQ(map.at(IpGenAddr("ff05::1")), -1);
  EXPECT_EQ(map.at(IpGenAddr()), -2);
  // Neighbouring addresses must not pile into few buckets.
  std::size_t longest = 0;
  for (std::size_t b = 0; b < map.bucket_count(); ++b)
    longest = std::max(longest, map.bucket_size(b));
  EXPECT_LE(longest, 8u);
  const std::hash<IpGenAddr> hash;
  EXPECT_NE(hash(IpGenAddr("0.0.0.0")), hash(IpGenAddr("::")));
  EXPECT_EQ(hash(IpGenAddr("10.1.2.3")), hash(IpGenAddr::ip4(0x0a010203u)));
}

TEST(IntfIdTest, IntfId_Default_StandsForNoInterface) {
  const Ipkit::IntfId none;
  EXPECT_TRUE(none.isNull());
  EXPECT_EQ(none.name(), "");
  EXPECT_EQ(printed(none), "none");
  EXPECT_EQ(none, Ipkit::IntfId(""));
}

TEST(IntfIdTest, IntfId_Named_ComparesByName) {
  const Ipkit::IntfId eth0("eth0");
  EXPECT_FALSE(eth0.isNull());
  EXPECT_EQ(eth0.name(), "eth0");
  EXPECT_EQ(printed(eth0), "eth0");
  EXPECT_EQ(eth0, Ipkit::IntfId("eth0"));
  EXPECT_NE(eth0, Ipkit::IntfId("eth1"));
  EXPECT_LT(eth0, Ipkit::IntfId("eth1"));
  EXPECT_LT(Ipkit::IntfId(), eth0);
}

}  // namespace
