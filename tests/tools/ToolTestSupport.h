#pragma once
// Shared helpers for the tool's tests: statements from text, as a script would give them.

#include <gtest/gtest.h>

#include <string>
#include <variant>

#include "tools/Statement.h"
#include "tools/StatementParser.h"

namespace ToolTest {

// The statement of one line. REQUIRES: the line holds a statement that parses.
inline PimrpTool::Statement statementOf(const std::string& line) {
  const auto statement = PimrpTool::parseStatement(line);
  if (statement) return *statement;
  ADD_FAILURE() << "no statement in: " << line;
  return PimrpTool::Statement();
}

template <class S>
S statementAs(const std::string& line) {
  const auto statement = statementOf(line);
  if (std::holds_alternative<S>(statement)) return std::get<S>(statement);
  ADD_FAILURE() << "another statement in: " << line;
  return S();
}

}  // namespace ToolTest
