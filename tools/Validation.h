#pragma once
// PimrpTool::Validator: decides whether a parsed statement may be applied, before anything is.
//
// It checks what the words mean: priorities 0..255, hash mask lengths 0..32 for IPv4 and 0..128
// for IPv6 groups, sequence numbers 1..4294967295, an RP and its group range of one family,
// group ranges and queried groups inside the multicast space, unicast RP addresses, access lists
// with IPv4 rules bound to IPv4 RPs only, the VRF name within the limit of its type, and a VRF
// named only before the first rp-address.
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

#include <string>
#include <utility>

#include "tools/Statement.h"

namespace PimrpTool {

class Validator {
 public:
  // readOnlyTables: the name of the shared tables a read-only session is attached to; empty for
  // a session that writes.
  explicit Validator(std::string readOnlyTables = "")
      : readOnlyTables_(std::move(readOnlyTables)) {}

  void check(const Statement& statement);

  bool rpAddressSeen() const { return rpAddressSeen_; }

 private:
  void checkReadOnly(const Statement& statement) const;

  std::string readOnlyTables_;
  bool rpAddressSeen_ = false;
};

}  // namespace PimrpTool
