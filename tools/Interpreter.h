#pragma once
// PimrpTool::Interpreter: reads statements, has each checked, applies them to a Session and
// prints the answers of show statements.
//
// Two ways to run:
//  - runScript: a whole script is read and checked first (scriptRead); if any statement is bad,
//    every bad one is reported, nothing is applied, nothing is printed, and the status is
//    kExitBadScript. Reading stops at a line longer than kMaxLineLength, at the line that would
//    take the script past kMaxScriptBytes, and after kMaxScriptErrors errors, so that an input
//    that never ends (/dev/zero, /dev/urandom, an endless pipe) ends at once in bounded memory.
//  - runStream: statements are read and applied one at a time as they arrive; a bad one is
//    reported and skipped, the session keeps its state, and the final status is
//    kExitStatementFailed if any statement was refused. A line longer than kMaxLineLength ends
//    the stream there.
// A script's consecutive rules of one access list reach the library as one change of the list
// (Session, Commit::inRuns); on a stream each statement is one change. A UTF-8 byte order mark
// at the start of either is skipped.
//
// Diagnostics read "NAME:LINE: error: MESSAGE" and "NAME:LINE: warning: MESSAGE". A warning is
// printed when the statement it is about is applied (a run of rules: at its last rule, where the
// list's new rules take effect) and changes nothing: what it says comes from the statement
// itself (statementWarnings) or from the library's state around the change (the Session's). A
// script refused as a whole prints, with its errors and in line order, the warnings of its good
// lines read alone; those about the library's state are not printed, since nothing was applied.
//
// Invariants:
//  1. One Validator judges everything this interpreter runs, so what it records (the VRFs opened,
//     the section a statement stands in, the count of known groups) holds across scripts and
//     streams run one after the other.
//  2. A refusal by the library while applying an accepted statement means the checks missed
//     something: it is reported as an internal error and running stops (kExitInternal). A shared
//     table found damaged, or a VRF's shared tables that cannot be attached, is bad input
//     instead: reported naming the tables, and running stops (kExitBadScript).

#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <optional>
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
// The most bytes a script may hold, line ends included: 64 MiB.
constexpr std::size_t kMaxScriptBytes = std::size_t{64} << 20;
// The most errors reported for one script; reading stops at the last of them.
constexpr std::size_t kMaxScriptErrors = 100;

// Reads the next line of `in` into `line`, without its line end; false at the end of the input.
// Reads at most kMaxLineLength + 1 bytes of one line: a longer line comes back cut there, which
// the Interpreter refuses.
bool lineFromStream(std::istream& in, std::string& line);

// The next line of an input into `line`; false at its end.
using LineSource = std::function<bool(std::string& line)>;

// The lines of `text`, as lineFromStream reads them. REQUIRES: text outlives the source.
LineSource linesOf(const std::string& text);

// Reads a whole script from `nextLine`, checking each statement with `checking` as it comes and
// reporting each bad line to `diagnostics` (with the warnings of the good lines, once a line is
// bad). Returns the text read, without a leading byte order mark, when every line is good;
// nothing when a line is bad or reading stopped at a limit (`maxBytes`, kMaxLineLength,
// kMaxScriptErrors). Lets a caller refuse a script before it creates anything for it.
std::optional<std::string> scriptRead(const std::string& name, const LineSource& nextLine,
                                      Validator& checking, std::ostream& diagnostics,
                                      std::size_t maxBytes = kMaxScriptBytes);

// What applying a script reaches: everything, or the configuration alone (known groups and
// shows are left out: they give no warning, and only fill tables or print answers).
enum class ApplyScope { everything, configuration };

class Interpreter {
 public:
  // Over a session attached read-only to shared tables, only show rp-hash is accepted.
  // `maxGroups` bounds the known groups of each family (Validator).
  Interpreter(Session& session, Output& output, std::ostream& diagnostics,
              std::uint64_t maxGroups = kDefaultMaxGroups)
      : session_(session),
        output_(output),
        diagnostics_(diagnostics),
        validator_(Validator::forTables(session.tableHome(), maxGroups)) {}

  int runScript(const std::string& name, const std::string& text);
  int runScript(const std::string& name, const LineSource& nextLine);
  // Applies the text of a script that `checked` read and judged whole (scriptRead), which
  // becomes this interpreter's judge. REQUIRES: `checked` started from a copy of this
  // interpreter's judge, or of one like it.
  int applyScript(const std::string& name, const std::string& text, Validator checked,
                  ApplyScope scope = ApplyScope::everything);
  // `flush` runs after each statement; when it returns false (the answers cannot be written)
  // running stops.
  int runStream(const std::string& name, const LineSource& nextLine,
                const std::function<bool()>& flush);

  const Validator& validator() const { return validator_; }

 private:
  void doReport(const std::string& name, std::size_t line, const std::string& message);
  // Prints the warnings the session found since they were last taken, and `more`.
  void doWarn(const std::string& name, std::size_t line, const std::vector<std::string>& more);
  // Runs a change of the session; false when the library refused it, found a table damaged or
  // could not attach a VRF's tables (reported at `line`; failure_ then holds the exit status).
  bool doGuarded(const std::string& name, std::size_t line, const std::function<void()>& change);
  // False when the statement could not be applied (doGuarded).
  bool doApply(const std::string& name, std::size_t line, const Statement& statement,
               Commit commit);
  // Commits the run of rules that a script's last statements collected; false when it could not
  // be committed, as doApply. Reported, with the run's warnings, at
  // `line`, the run's last rule.
  bool doCommit(const std::string& name, std::size_t line);

  Session& session_;
  Output& output_;
  std::ostream& diagnostics_;
  Validator validator_;
  int failure_ = kExitInternal;
};

}  // namespace PimrpTool
