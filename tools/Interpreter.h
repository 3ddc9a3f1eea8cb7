#pragma once
// PimrpTool::Interpreter: reads statements, has each checked, applies them to a Session and
// prints the answers of show statements.
//
// Two ways to run:
//  - runScript: a whole script is parsed and checked first; if any statement is bad, every bad
//    one is reported, nothing is applied, nothing is printed, and the status is kExitBadScript.
//  - runStream: statements are read and applied one at a time as they arrive; a bad one is
//    reported and skipped, the session keeps its state, and the final status is
//    kExitStatementFailed if any statement was refused.
// A script's consecutive rules of one access list reach the library as one change of the list
// (Session, Commit::inRuns); on a stream each statement is one change.
// Errors read "NAME:LINE: error: MESSAGE" on the error stream.
//
// Invariants:
//  1. One Validator judges everything this interpreter runs, so rules about order (vrf before
//     the first rp-address) hold across scripts and streams run one after the other.
//  2. A refusal by the library while applying an accepted statement means the checks missed
//     something: it is reported as an internal error and running stops (kExitInternal).

#include <functional>
#include <istream>
#include <ostream>
#include <string>

#include "tools/Output.h"
#include "tools/Session.h"
#include "tools/Validation.h"

namespace PimrpTool {

constexpr int kExitOk = 0;
constexpr int kExitStatementFailed = 1;
constexpr int kExitBadScript = 2;
constexpr int kExitInternal = 3;

class Interpreter {
 public:
  Interpreter(Session& session, Output& output, std::ostream& errors)
      : session_(session), output_(output), errors_(errors) {}

  int runScript(const std::string& name, const std::string& text);
  // `prompt` runs before each line is read (it may do nothing); `flush` after each statement.
  int runStream(const std::string& name, std::istream& in, const std::function<void()>& prompt,
                const std::function<void()>& flush);

 private:
  void doReport(const std::string& name, std::size_t line, const std::string& message);
  // False when the library refused the statement (reported).
  bool doApply(const std::string& name, std::size_t line, const Statement& statement,
               Commit commit);
  // Commits the run of rules that a script's last statements collected; false when the library
  // refused it (reported at `line`, the last statement's).
  bool doCommit(const std::string& name, std::size_t line);

  Session& session_;
  Output& output_;
  std::ostream& errors_;
  Validator validator_;
};

}  // namespace PimrpTool
