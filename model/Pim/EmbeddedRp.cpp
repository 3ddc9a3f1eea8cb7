#include "model/Pim/EmbeddedRp.h"

#include <array>
#include <sstream>

namespace Routing {
namespace Pim {
namespace {

// Where the fields sit in the group's bytes; the flags are the high half of byte 1, which
// groupSpace() checks.
constexpr std::size_t kReservedRiidByte = 2;
constexpr std::size_t kPlenByte = 3;
constexpr std::size_t kNetworkPrefixByte = 4;
constexpr std::size_t kNetworkPrefixBytes = 8;

}  // namespace

const Ipkit::IpGenPrefix& EmbeddedRp::groupSpace() {
  static const Ipkit::IpGenPrefix space(Kel::String("ff70::/12"));
  return space;
}

EmbeddedRp EmbeddedRp::ofGroup(const Ipkit::IpGenAddr& group) {
  EmbeddedRp embedded;
  embedded.group_ = group;
  if (!groupSpace().contains(group)) return embedded;
  const auto& bytes = group.bytes();
  const unsigned reserved = bytes[kReservedRiidByte] >> 4;
  embedded.riid_ = bytes[kReservedRiidByte] & 0xf;
  embedded.plen_ = bytes[kPlenByte];
  if (reserved != 0) {
    embedded.validity_ = EmbeddedRpValidity::reservedBitsSet;
  } else if (embedded.riid_ == 0) {
    embedded.validity_ = EmbeddedRpValidity::riidZero;
  } else if (embedded.plen_ == 0) {
    embedded.validity_ = EmbeddedRpValidity::plenZero;
  } else if (embedded.plen_ > kMaxPlen) {
    embedded.validity_ = EmbeddedRpValidity::plenAbove64;
  } else {
    embedded.validity_ = EmbeddedRpValidity::valid;
  }
  if (!embedded.valid()) return embedded;
  std::array<std::uint8_t, 16> prefixBytes{};
  for (std::size_t at = 0; at < kNetworkPrefixBytes; ++at) {
    prefixBytes[at] = bytes[kNetworkPrefixByte + at];
  }
  // The prefix constructor clears the bits past plen; the RIID then fills the last 4 bits.
  embedded.networkPrefix_ =
      Ipkit::IpGenPrefix(Ipkit::IpGenAddr(Ipkit::Ip6Addr(prefixBytes)), embedded.plen_);
  std::array<std::uint8_t, 16> rpBytes = embedded.networkPrefix_.address().bytes();
  rpBytes[15] = embedded.riid_;
  embedded.rp_ = Ipkit::IpGenAddr(Ipkit::Ip6Addr(rpBytes));
  return embedded;
}

Kel::String EmbeddedRp::valueToStrep() const {
  std::ostringstream out;
  out << *this;
  return out.str();
}

const char* embeddedRpValidityWord(EmbeddedRpValidity validity) {
  switch (validity) {
    case EmbeddedRpValidity::valid:
      return "valid";
    case EmbeddedRpValidity::notEmbeddedRpGroup:
      return "not within ff70::/12";
    case EmbeddedRpValidity::reservedBitsSet:
      return "reserved bits are not 0";
    case EmbeddedRpValidity::riidZero:
      return "RIID is 0";
    case EmbeddedRpValidity::plenZero:
      return "plen is 0";
    case EmbeddedRpValidity::plenAbove64:
      break;
  }
  return "plen is above 64";
}

std::ostream& operator<<(std::ostream& out, const EmbeddedRp& embedded) {
  out << "EmbeddedRp(" << embedded.group();
  if (!embedded.valid()) return out << ": " << embeddedRpValidityWord(embedded.validity()) << ")";
  return out << " -> " << embedded.rp() << ", riid " << embedded.riid() << ", plen "
             << embedded.plen() << ", prefix " << embedded.networkPrefix() << ")";
}

}  // namespace Pim
}  // namespace Routing
