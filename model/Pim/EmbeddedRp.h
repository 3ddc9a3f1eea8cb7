#pragma once
// Routing::Pim::EmbeddedRp: the RP that an IPv6 multicast group address names in its own bits
// (embedded RP, RFC 3956), read from the group alone.
//
// Such a group has flags 0111 (R, P and T set), so it lies in ff70::/12, and the layout
//   ff | flags(4) scope(4) | reserved(4) RIID(4) | plen(8) | network prefix(64) | group ID(32)
// Its RP address is the first plen bits of the network-prefix field, then zeros, with RIID as the
// last 4 bits: ff75:130:2001:db8:ffff::100 names 2001:db8:ffff::1 (RIID 1, plen 48).
//
// Invariants:
//  1. ofGroup accepts any address and never throws. validity() is `valid` exactly when the group
//     names an RP; otherwise it is the first rule the group breaks, in this order: outside
//     ff70::/12 (not IPv6, or flags other than 0111), reserved bits not 0, RIID 0, plen 0, plen
//     above 64.
//  2. rp() and networkPrefix() are the derived RP and its plen-bit network prefix when valid(),
//     the unknown address and the null prefix otherwise.
//  3. riid() and plen() are the fields as the group carries them whenever the group lies in
//     ff70::/12, valid or not (so that a refusal can say what it read); 0 outside it.
//  4. A plain value: equality compares every field; the text form is the stream operator's.

#include <cstdint>
#include <ostream>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/String.h"

namespace Routing {
namespace Pim {

enum class EmbeddedRpValidity {
  valid,
  notEmbeddedRpGroup,  // outside ff70::/12
  reservedBitsSet,
  riidZero,
  plenZero,
  plenAbove64,
};

class EmbeddedRp {
 public:
  // The widest network prefix a group can carry: the field is 64 bits long.
  static constexpr unsigned kMaxPlen = 64;

  EmbeddedRp() = default;

  // What `group` names (invariant 1).
  static EmbeddedRp ofGroup(const Ipkit::IpGenAddr& group);
  // The groups that may name an RP: flags 0111, ff70::/12.
  static const Ipkit::IpGenPrefix& groupSpace();

  const Ipkit::IpGenAddr& group() const { return group_; }
  EmbeddedRpValidity validity() const { return validity_; }
  bool valid() const { return validity_ == EmbeddedRpValidity::valid; }
  const Ipkit::IpGenAddr& rp() const { return rp_; }
  const Ipkit::IpGenPrefix& networkPrefix() const { return networkPrefix_; }
  unsigned riid() const { return riid_; }
  unsigned plen() const { return plen_; }

  bool operator==(const EmbeddedRp& other) const {
    return group_ == other.group_ && validity_ == other.validity_ && rp_ == other.rp_ &&
           networkPrefix_ == other.networkPrefix_ && riid_ == other.riid_ && plen_ == other.plen_;
  }
  bool operator!=(const EmbeddedRp& other) const { return !(*this == other); }

  Kel::String valueToStrep() const;

 private:
  Ipkit::IpGenAddr group_;
  EmbeddedRpValidity validity_ = EmbeddedRpValidity::notEmbeddedRpGroup;
  Ipkit::IpGenAddr rp_;
  Ipkit::IpGenPrefix networkPrefix_;
  std::uint8_t riid_ = 0;
  std::uint8_t plen_ = 0;
};

// Why a group names no RP, in words: "not within ff70::/12", "reserved bits are not 0",
// "RIID is 0", "plen is 0", "plen is above 64"; "valid" for a group that names one.
const char* embeddedRpValidityWord(EmbeddedRpValidity validity);

// "EmbeddedRp(ff75:130:2001:db8:ffff::100 -> 2001:db8:ffff::1, riid 1, plen 48, prefix
// 2001:db8:ffff::/48)", or for a group that names none "EmbeddedRp(ff75:30::100: RIID is 0)".
std::ostream& operator<<(std::ostream& out, const EmbeddedRp& embedded);

}  // namespace Pim
}  // namespace Routing
