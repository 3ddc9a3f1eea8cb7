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
// Errors read "NAME:LINE: error: MESSAGE" on the error stream. A line longer than kMaxLineLength
// bytes is an error at that line and ends the reading: the input is not read past it (it may not
// end at all, as /dev/zero does not), a script applies nothing, a stream stops there.
//
// Invariants:
//  1. One Validator judges everything this interpreter runs, so rules about order (vrf before
//     the first rp-address) hold across scripts and streams run one after the other.
//  2. A refusal by the library while applying an accepted statement means the checks missed
//     something: it is reported as an internal error and running stops (kExitInternal). A shared
//     table found damaged is bad input instead: reported naming the table, and running stops
//     (kExitBadScript).

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
constexpr int kExitOutputFailed = 4;  // the answers could not be written

// The longest line a script or a stream may hold, in bytes, without its line end.
constexpr std::size_t kMaxLineLength = 4096;

// Reads the next line of `in` into `line`, without its line end; false at the end of the input.
// Reads at most kMaxLineLength + 1 bytes of one line: a longer line comes back cut there, which
// the Interpreter refuses.
bool lineFromStream(std::istream& in, std::string& line);

// The next line of an input into `line`; false at its end.
using LineSource = std::function<bool(std::string& line)>;

// Checks every statement of a whole script with `checking`, as runScript does before it applies
// anything, and reports each bad line to `errors`; true when every line is good. Lets a caller
// refuse a script before it creates anything for it.
bool scriptChecked(const std::string& name, const std::string& text, Validator& checking,
                   std::ostream& errors);

class Interpreter {
 public:
  // Over a session attached read-only to shared tables, only show rp-hash is accepted.
  Interpreter(Session& session, Output& output, std::ostream& errors)
      : session_(session),
        output_(output),
        errors_(errors),
        validator_(session.tableHome().kind == TableHome::Kind::sharedReader
                       ? session.tableHome().name
                       : "") {}

  int runScript(const std::string& name, const std::string& text);
  // `flush` runs after each statement; when it returns false (the answers cannot be written)
  // running stops.
  int runStream(const std::string& name, const LineSource& nextLine,
                const std::function<bool()>& flush);

 private:
  void doReport(const std::string& name, std::size_t line, const std::string& message);
  // False when the library refused the statement or found a table damaged (reported; failure_
  // then holds the exit status).
  bool doApply(const std::string& name, std::size_t line, const Statement& statement,
               Commit commit);
  // Commits the run of rules that a script's last statements collected; false when the library
  // refused it (reported at `line`, the last statement's, as doApply reports).
  bool doCommit(const std::string& name, std::size_t line);

  Session& session_;
  Output& output_;
  std::ostream& errors_;
  Validator validator_;
  int failure_ = kExitInternal;
};

}  // namespace PimrpTool
