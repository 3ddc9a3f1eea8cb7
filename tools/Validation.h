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

#include "tools/Statement.h"

namespace PimrpTool {

class Validator {
 public:
  void check(const Statement& statement);

  bool rpAddressSeen() const { return rpAddressSeen_; }

 private:
  bool rpAddressSeen_ = false;
};

}  // namespace PimrpTool
