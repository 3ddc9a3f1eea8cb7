#pragma once
// Shared helpers for the tool's tests: statements from text, as a script would give them, answers
// as each output prints them, and shared tables that a test owns.

#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <variant>

#include "tools/Output.h"
#include "tools/SharedTables.h"
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

inline std::string jsonOf(const PimrpTool::ShowResult& result) {
  std::ostringstream out;
  PimrpTool::jsonOutputFactory(out)->show(result);
  return out.str();
}

inline std::string humanOf(const PimrpTool::ShowResult& result) {
  std::ostringstream out;
  PimrpTool::humanOutputFactory(out)->show(result);
  return out.str();
}

// The shared tables of one test: a name unique to the test process and the test
// ("pimrp-test-<pid>-<test>"), whose tables (of every VRF) are removed when the guard is made (a
// crashed earlier run may have left them) and when it goes, however the test ends.
class SharedTablesGuard {
 public:
  SharedTablesGuard()
      : name_("pimrp-test-" + std::to_string(getpid()) + "-" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name()) {
    removeAll();
  }
  ~SharedTablesGuard() { removeAll(); }
  SharedTablesGuard(const SharedTablesGuard&) = delete;
  SharedTablesGuard& operator=(const SharedTablesGuard&) = delete;

  const std::string& name() const { return name_; }

 private:
  // Those of every VRF.
  void removeAll() const { PimrpTool::sharedTablesUnlinkAll(name_); }

  const std::string name_;
};

}  // namespace ToolTest
