#pragma once
// PimrpTool::Validator: decides whether a parsed statement may be applied, before anything is.
//
// It checks what the words mean: priorities 0..255, hash mask lengths 0..32 for IPv4 and 0..128
// for IPv6 groups, sequence numbers 1..4294967295, an RP and its group range of one family,
// group ranges and queried groups inside the multicast space, unicast RP addresses, access lists
// with IPv4 rules bound to IPv4 RPs only, the VRF name within the limit of its type, a VRF
// named only before the first rp-address, and the known groups of each family within a bound
// (--max-groups): it keeps the known groups the statements so far leave, as spans.
//
// Invariants:
//  1. check() throws StatementError, naming the first thing wrong and quoting its word, or
//     returns having recorded what later statements are judged against; a refused statement
//     leaves that record unchanged, so a whole script can be checked line by line and every
//     bad line reported.
//  2. The same Validator judges a script and then every statement typed after it, so the order
//     rules hold across both.
//  3. A Validator for a read-only attachment to shared tables refuses every statement but
//     show rp-hash: the others would change state, or need state the attachment does not have.

#include <cstdint>
#include <string>
#include <utility>

#include "tools/KnownGroupSpans.h"
#include "tools/Statement.h"

namespace PimrpTool {

// The most groups one group statement may name: 2^20, a /12 of IPv4, a /108 of IPv6.
constexpr unsigned kMaxGroupBits = 20;

// The known groups a family may hold unless told otherwise: 4,194,304 (2^22), four times a large
// router's million groups.
constexpr std::uint64_t kDefaultMaxGroups = std::uint64_t{1} << 22;

class Validator {
 public:
  // readOnlyTables: the name of the shared tables a read-only session is attached to; empty for
  // a session that writes. maxGroups: the most known groups of one family.
  explicit Validator(std::string readOnlyTables = "", std::uint64_t maxGroups = kDefaultMaxGroups)
      : readOnlyTables_(std::move(readOnlyTables)), maxGroups_(maxGroups) {}

  void check(const Statement& statement);

  bool rpAddressSeen() const { return rpAddressSeen_; }
  // The known groups of a family that the statements accepted so far leave.
  // REQUIRES: af is ipv4 or ipv6.
  std::uint64_t knownGroups(Ipkit::AddressFamily af) const { return groupsOf(af).count(); }

 private:
  void checkReadOnly(const Statement& statement) const;
  const KnownGroupSpans& groupsOf(Ipkit::AddressFamily af) const {
    return af == Ipkit::AddressFamily::ipv4 ? ipv4Groups_ : ipv6Groups_;
  }
  KnownGroupSpans& groupsOf(Ipkit::AddressFamily af) {
    return af == Ipkit::AddressFamily::ipv4 ? ipv4Groups_ : ipv6Groups_;
  }
  // Refuses a group statement that would take its family past maxGroups_, else records it.
  void countGroups(const Statement& statement);

  std::string readOnlyTables_;
  std::uint64_t maxGroups_;
  bool rpAddressSeen_ = false;
  KnownGroupSpans ipv4Groups_;
  KnownGroupSpans ipv6Groups_;
};

}  // namespace PimrpTool
