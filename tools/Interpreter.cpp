#include "tools/Interpreter.h"

#include <string_view>
#include <utility>

#include "framework/Kel/Exception.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "tools/SharedTables.h"
#include "tools/StatementError.h"
#include "tools/StatementParser.h"
#include "tools/StatementWarnings.h"

namespace PimrpTool {
namespace {

// Calls visit(lineNumber, line) for each line of text, numbered from 1, while it returns true.
template <class Visit>
void forEachLine(const std::string& text, Visit&& visit) {
  std::size_t lineNumber = 0;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    if (!visit(++lineNumber, std::string_view(text).substr(start, end - start))) return;
    start = end + 1;
  }
}

// Editors of some systems begin a UTF-8 file with one; it is no part of the first statement.
void dropByteOrderMark(std::string& line) {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  if (line.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
    line.erase(0, kByteOrderMark.size());
  }
}

std::string diagnostic(const std::string& name, std::size_t line, const char* kind,
                       const std::string& message) {
  return name + ':' + std::to_string(line) + ": " + kind + ": " + message + '\n';
}

std::string lineTooLong() {
  return "line longer than " + std::to_string(kMaxLineLength) +
         " bytes; the input is not read past it";
}

std::string scriptTooLong(std::size_t maxBytes) {
  return "script longer than " + std::to_string(maxBytes) +
         " bytes; the input is not read past this line";
}

std::string tooManyErrors() {
  return std::to_string(kMaxScriptErrors) + " errors; the input is not read past this line";
}

// The warnings of the good lines of `text`, read alone (every line of it is good).
void printWarnings(const std::string& name, const std::string& text, std::ostream& diagnostics) {
  forEachLine(text, [&](std::size_t line, std::string_view words) {
    const auto statement = parseStatement(words);
    if (!statement) return true;
    for (const auto& warning : statementWarnings(*statement)) {
      diagnostics << diagnostic(name, line, "warning", warning);
    }
    return true;
  });
}

// Whether applying the statement can change the configuration, or warn: known groups only fill
// tables, and shows only answer.
bool configures(const Statement& statement) {
  return !isShowStatement(statement) && !std::holds_alternative<GroupStatement>(statement) &&
         !std::holds_alternative<NoGroupStatement>(statement);
}

}  // namespace

bool lineFromStream(std::istream& in, std::string& line) {
  line.clear();
  std::streambuf* const buffer = in.rdbuf();
  for (;;) {
    const int c = buffer->sbumpc();
    if (c == std::char_traits<char>::eof()) {
      in.setstate(std::ios::eofbit);
      return !line.empty();
    }
    if (c == '\n') return true;
    line += static_cast<char>(c);
    if (line.size() > kMaxLineLength) return true;
  }
}

LineSource linesOf(const std::string& text) {
  return [&text, next = std::size_t{0}](std::string& line) mutable {
    if (next >= text.size()) return false;
    const std::size_t end = std::min(text.find('\n', next), text.size());
    // Cut one byte past the longest line, as lineFromStream cuts it, and go on from there.
    const std::size_t length = std::min(end - next, kMaxLineLength + 1);
    line.assign(text, next, length);
    next += length == end - next ? length + 1 : length;
    return true;
  };
}

std::optional<std::string> scriptRead(const std::string& name, const LineSource& nextLine,
                                      Validator& checking, std::ostream& diagnostics,
                                      std::size_t maxBytes) {
  std::string text;
  std::string line;
  std::size_t lineNumber = 0;
  std::size_t errors = 0;
  const auto refuse = [&](const std::string& message) {
    // The good lines read so far warn only now that the script will not apply: one that applies
    // prints its warnings as it applies each statement.
    if (errors++ == 0) printWarnings(name, text, diagnostics);
    diagnostics << diagnostic(name, lineNumber, "error", message);
  };
  while (nextLine(line)) {
    ++lineNumber;
    if (lineNumber == 1) dropByteOrderMark(line);
    if (line.size() > kMaxLineLength) {
      refuse(lineTooLong());
      break;
    }
    if (text.size() + line.size() + 1 > maxBytes) {
      refuse(scriptTooLong(maxBytes));
      break;
    }
    try {
      const auto statement = parseStatement(line);
      if (statement) checking.check(*statement);
      if (statement && errors != 0) {
        for (const auto& warning : statementWarnings(*statement)) {
          diagnostics << diagnostic(name, lineNumber, "warning", warning);
        }
      }
    } catch (const StatementError& error) {
      refuse(error.what());
      if (errors == kMaxScriptErrors) {
        diagnostics << diagnostic(name, lineNumber, "error", tooManyErrors());
        break;
      }
    }
    text.append(line).push_back('\n');
  }
  if (errors != 0) return std::nullopt;
  return text;
}

void Interpreter::doReport(const std::string& name, std::size_t line, const std::string& message) {
  diagnostics_ << diagnostic(name, line, "error", message);
}

void Interpreter::doWarn(const std::string& name, std::size_t line,
                         const std::vector<std::string>& more) {
  for (const auto& warning : more) diagnostics_ << diagnostic(name, line, "warning", warning);
  for (const auto& warning : session_.warningsTaken()) {
    diagnostics_ << diagnostic(name, line, "warning", warning);
  }
}

bool Interpreter::doGuarded(const std::string& name, std::size_t line,
                            const std::function<void()>& change) {
  try {
    change();
  } catch (const Mirra::CorruptionDetectedException& damage) {
    doReport(name, line, damagedTableMessage(damage));
    failure_ = kExitBadScript;
    return false;
  } catch (const TablesUnavailable& refusal) {
    doReport(name, line, refusal.what());
    failure_ = kExitBadScript;
    return false;
  } catch (const Kel::Exception& refusal) {
    doReport(name, line, std::string("internal error: ") + refusal.what());
    failure_ = kExitInternal;
    return false;
  }
  return true;
}

bool Interpreter::doApply(const std::string& name, std::size_t line, const Statement& statement,
                          Commit commit) {
  const bool applied = doGuarded(name, line, [&] {
    const auto answer = session_.apply(statement, commit);
    if (answer) output_.show(*answer);
  });
  if (applied) doWarn(name, line, statementWarnings(statement));
  return applied;
}

bool Interpreter::doCommit(const std::string& name, std::size_t line) {
  const bool committed = doGuarded(name, line, [&] { session_.commit(); });
  if (committed) doWarn(name, line, {});
  return committed;
}

int Interpreter::runScript(const std::string& name, const std::string& text) {
  return runScript(name, linesOf(text));
}

int Interpreter::runScript(const std::string& name, const LineSource& nextLine) {
  // Checked against a copy, so that a refused script leaves the order rules as they were.
  Validator checking = validator_;
  const auto text = scriptRead(name, nextLine, checking, diagnostics_);
  if (!text) return kExitBadScript;
  return applyScript(name, *text, std::move(checking));
}

int Interpreter::applyScript(const std::string& name, const std::string& text, Validator checked,
                             ApplyScope scope) {
  validator_ = std::move(checked);
  // Parsing again instead of keeping every statement keeps a long script's memory to that of
  // its text: the statements are far larger than their lines.
  bool applied = true;
  std::size_t runLine = 0;  // the line of the last rule statement a run collected
  forEachLine(text, [&](std::size_t line, std::string_view words) {
    const auto statement = parseStatement(words);
    if (!statement || (scope == ApplyScope::configuration && !configures(*statement))) {
      return true;
    }
    if (session_.endsRun(*statement)) applied = doCommit(name, runLine);
    if (applied) applied = doApply(name, line, *statement, Commit::inRuns);
    if (isRuleStatement(*statement)) runLine = line;
    return applied;
  });
  return applied && doCommit(name, runLine) ? kExitOk : failure_;
}

int Interpreter::runStream(const std::string& name, const LineSource& nextLine,
                           const std::function<bool()>& flush) {
  bool refused = false;
  std::size_t lineNumber = 0;
  std::string text;
  while (nextLine(text)) {
    ++lineNumber;
    if (lineNumber == 1) dropByteOrderMark(text);
    if (text.size() > kMaxLineLength) {
      doReport(name, lineNumber, lineTooLong());
      return kExitStatementFailed;
    }
    try {
      const auto statement = parseStatement(text);
      if (!statement) continue;
      validator_.check(*statement);
      if (!doApply(name, lineNumber, *statement, Commit::eachStatement)) return failure_;
    } catch (const StatementError& error) {
      doReport(name, lineNumber, error.what());
      refused = true;
    }
    if (!flush()) return kExitOutputFailed;
  }
  return refused ? kExitStatementFailed : kExitOk;
}

}  // namespace PimrpTool
