#pragma once
// PimrpTool statement warnings: what a good statement, read alone, does that its writer may not
// expect. A warning never changes what is applied or the exit status.
//
//  - A binding or bootstrap candidate whose priority or hash mask the library treats as not set
//    ('priority none', 'hashmask none', and an IPv6 'hashmask 128', which is the library's value
//    for a mask not set): the per-range RP hash tables get no entry from such a candidate until
//    its values are set.
//  - An IPv6 hash mask of 96 or less: the IPv6 hash reads only a group's last 32 bits, which
//    such a mask clears, so every group of the range hashes alike and one RP serves them all.
//
// Warnings that depend on what came before (an RP bound to one range both by a group binding and
// by an access list) are the Session's to find, since only the library's state tells them.

#include <string>
#include <vector>

#include "tools/Statement.h"

namespace PimrpTool {

// The warnings of one statement, each once, in a fixed order; none for most statements.
std::vector<std::string> statementWarnings(const Statement& statement);

}  // namespace PimrpTool
