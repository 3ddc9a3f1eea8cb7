#include "tools/Validation.h"

#include <algorithm>
#include <string>

#include "framework/Kel/Exception.h"
#include "framework/L3/VrfName.h"
#include "tools/StatementError.h"

namespace PimrpTool {
namespace {

using Ipkit::AddressFamily;

constexpr std::uint64_t kMaxPriority = 255;
constexpr std::uint64_t kMaxSequence = 4294967295ull;

std::uint64_t maxHashMask(AddressFamily af) { return af == AddressFamily::ipv4 ? 32 : 128; }

const char* familyName(AddressFamily af) { return af == AddressFamily::ipv4 ? "IPv4" : "IPv6"; }

void checkRange(const Number& number, const std::string& what, std::uint64_t low,
                std::uint64_t high, const std::string& context = "") {
  if (number.value >= low && number.value <= high) return;
  throw StatementError(what + " " + quoted(number.word) + " out of range " + std::to_string(low) +
                       ".." + std::to_string(high) + context);
}

void checkPriority(const Number& priority) { checkRange(priority, "priority", 0, kMaxPriority); }

void checkHashMask(const Number& hashMask, AddressFamily groupFamily) {
  checkRange(hashMask, "hashmask", 0, maxHashMask(groupFamily),
             std::string(" for an ") + familyName(groupFamily) + " group range");
}

void checkSequence(const Number& sequence) {
  checkRange(sequence, "sequence number", 1, kMaxSequence);
}

// Why an address cannot be a router's unicast address, or "" when it can be one. An IPv4-mapped
// IPv6 address (::ffff:a.b.c.d) is judged by the IPv4 address it carries.
std::string notUnicastReason(const Ipkit::IpGenAddr& address) {
  if (address.isMulticast()) return "it is a multicast address";
  if (address == Ipkit::IpGenAddr(Ipkit::Ip4Addr(0)) ||
      address == Ipkit::IpGenAddr(Ipkit::Ip6Addr())) {
    return "it is the unspecified address";
  }
  if (address == Ipkit::IpGenAddr(Ipkit::Ip4Addr(0xffffffffu))) {
    return "it is the broadcast address";
  }
  const auto& bytes = address.bytes();
  const bool mapped =
      address.af() == AddressFamily::ipv6 &&
      std::all_of(bytes.begin(), bytes.begin() + 10, [](auto b) { return b == 0; }) &&
      bytes[10] == 0xff && bytes[11] == 0xff;
  if (!mapped) return "";
  const Ipkit::IpGenAddr carried(std::to_string(bytes[12]) + "." + std::to_string(bytes[13]) + "." +
                                 std::to_string(bytes[14]) + "." + std::to_string(bytes[15]));
  const std::string why = notUnicastReason(carried);
  if (why.empty()) return "";
  return "it maps IPv4 address " + carried.valueToStrep() + ", which " + why.substr(3);
}

// An RP is a router's unicast address; a group, unspecified or broadcast address there is a typo.
void checkRpAddress(const Address& rp) {
  const std::string why = notUnicastReason(rp.value);
  if (why.empty()) return;
  throw StatementError("RP address " + quoted(rp.word) + " is not a unicast address: " + why);
}

const char* multicastSpace(AddressFamily af) {
  return af == AddressFamily::ipv4 ? "224.0.0.0/4" : "ff00::/8";
}

void checkGroupRange(const Prefix& group) {
  const unsigned multicastLength = group.value.af() == AddressFamily::ipv4 ? 4 : 8;
  if (group.value.len() >= multicastLength && group.value.address().isMulticast()) return;
  throw StatementError("group range " + quoted(group.word) + " is not within " +
                       multicastSpace(group.value.af()));
}

void checkSameFamily(const Address& rp, const Prefix& group) {
  if (rp.value.af() == group.value.af()) return;
  throw StatementError("RP " + quoted(rp.word) + " and group range " + quoted(group.word) +
                       " are of different families");
}

void checkRpForGroup(const Address& rp, const Prefix& group) {
  checkRpAddress(rp);
  checkSameFamily(rp, group);
  checkGroupRange(group);
}

// Access lists exist for IPv4 only, so only an IPv4 RP can serve the groups one permits.
void checkRpForAcl(const Address& rp, const std::string& acl) {
  checkRpAddress(rp);
  if (rp.value.af() == AddressFamily::ipv4) return;
  throw StatementError("RP " + quoted(rp.word) + " cannot use access list " + quoted(acl) +
                       ": access lists are IPv4 only");
}

void checkOptions(const BindingOptions& options, AddressFamily groupFamily) {
  if (options.priority.form == OptionValue::Form::number) checkPriority(options.priority.number);
  if (options.hashMask.form == OptionValue::Form::number) {
    checkHashMask(options.hashMask.number, groupFamily);
  }
}

// One overload per statement; a statement without one does not compile.
struct StatementChecks {
  bool& rpAddressSeen;

  void operator()(const VrfStatement& s) const {
    try {
      L3::VrfName name(s.name);
    } catch (const Kel::RangeException&) {
      throw StatementError("VRF name " + quoted(s.name) + " is longer than " +
                           std::to_string(L3::VrfName::maxLength) + " characters");
    }
    // The static configuration carries its VRF name from creation on; naming another VRF once
    // RPs are configured would silently move them.
    if (rpAddressSeen) {
      throw StatementError("vrf " + quoted(s.name) + " must come before the first rp-address");
    }
  }
  void operator()(const RpGroupStatement& s) const {
    checkRpForGroup(s.rp, s.group);
    checkOptions(s.options, s.group.value.af());
    rpAddressSeen = true;
  }
  void operator()(const RpAclStatement& s) const {
    checkRpForAcl(s.rp, s.acl);
    checkOptions(s.options, AddressFamily::ipv4);
    rpAddressSeen = true;
  }
  void operator()(const RpModeStatement& s) const {
    checkRpAddress(s.rp);
    rpAddressSeen = true;
  }
  // A removal that could never match anything is a typo, not a harmless no-op: the same checks.
  void operator()(const NoRpGroupStatement& s) const { checkRpForGroup(s.rp, s.group); }
  void operator()(const NoRpAclStatement& s) const { checkRpForAcl(s.rp, s.acl); }
  void operator()(const NoRpStatement& s) const { checkRpAddress(s.rp); }
  void operator()(const AclRuleStatement& s) const {
    checkSequence(s.sequence);
    if (s.prefix && s.prefix->value.af() != AddressFamily::ipv4) {
      throw StatementError("access-list rule prefix " + quoted(s.prefix->word) +
                           " is not IPv4: access lists are IPv4 only");
    }
  }
  void operator()(const NoAclRuleStatement& s) const { checkSequence(s.sequence); }
  void operator()(const NoAclStatement&) const {}
  void operator()(const BsrRpStatement& s) const {
    checkRpForGroup(s.rp, s.group);
    checkPriority(s.priority);
    checkHashMask(s.hashMask, s.group.value.af());
  }
  void operator()(const NoBsrRpStatement& s) const { checkRpForGroup(s.rp, s.group); }
  void operator()(const RpHashAlgorithmStatement&) const {}
  void operator()(const ShowRpStatement& s) const {
    if (!s.group.value.isMulticast()) {
      throw StatementError("group " + quoted(s.group.word) + " is not a multicast address");
    }
    if (!s.join) return;
    checkRpAddress(*s.join);
    if (s.join->value.af() != s.group.value.af()) {
      throw StatementError("join RP " + quoted(s.join->word) + " and group " +
                           quoted(s.group.word) + " are of different families");
    }
  }
  void operator()(const ShowCandidatesStatement&) const {}
  void operator()(const ShowAclStatement&) const {}
};

}  // namespace

void Validator::check(const Statement& statement) {
  // Work on a copy of the record so that a refused statement leaves it as it was.
  bool rpAddressSeen = rpAddressSeen_;
  std::visit(StatementChecks{rpAddressSeen}, statement);
  rpAddressSeen_ = rpAddressSeen;
}

}  // namespace PimrpTool
