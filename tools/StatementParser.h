#pragma once
// PimrpTool::parseStatement: one line of a pimrp script turned into a typed Statement.
//
// The grammar is a table of statement forms, each named by its leading keywords ("no rp-address",
// "show rp") and read by its own function; a new statement is one more row. Parsing checks the
// form of every word (keywords, addresses, prefixes without host bits, decimal numbers, names)
// and nothing that depends on the meaning of a value; the Validator does that.
//
// Guarantees:
//  1. A line without words (blank, or a comment only) yields no statement.
//  2. Every refusal is a StatementError whose message quotes the offending word; no other
//     exception escapes, whatever the bytes of the line.

#include <optional>
#include <string_view>

#include "tools/Statement.h"

namespace PimrpTool {

std::optional<Statement> parseStatement(std::string_view line);

}  // namespace PimrpTool
