#include "tools/Interpreter.h"

#include <string_view>

#include "framework/Kel/Exception.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "tools/SharedTables.h"
#include "tools/StatementError.h"
#include "tools/StatementParser.h"

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

std::string lineTooLong() {
  return "line longer than " + std::to_string(kMaxLineLength) +
         " bytes; the input is not read past it";
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

void Interpreter::doReport(const std::string& name, std::size_t line, const std::string& message) {
  errors_ << name << ':' << line << ": error: " << message << '\n';
}

bool Interpreter::doApply(const std::string& name, std::size_t line, const Statement& statement,
                          Commit commit) {
  try {
    const auto answer = session_.apply(statement, commit);
    if (answer) output_.show(*answer);
    return true;
  } catch (const Mirra::CorruptionDetectedException& damage) {
    doReport(name, line, damagedTableMessage(damage));
    failure_ = kExitBadScript;
  } catch (const Kel::Exception& refusal) {
    doReport(name, line, std::string("internal error: ") + refusal.what());
    failure_ = kExitInternal;
  }
  return false;
}

bool Interpreter::doCommit(const std::string& name, std::size_t line) {
  try {
    session_.commit();
    return true;
  } catch (const Mirra::CorruptionDetectedException& damage) {
    doReport(name, line, damagedTableMessage(damage));
    failure_ = kExitBadScript;
  } catch (const Kel::Exception& refusal) {
    doReport(name, line, std::string("internal error: ") + refusal.what());
    failure_ = kExitInternal;
  }
  return false;
}

bool scriptChecked(const std::string& name, const std::string& text, Validator& checking,
                   std::ostream& errors) {
  bool refused = false;
  const auto report = [&](std::size_t line, const std::string& message) {
    errors << name << ':' << line << ": error: " << message << '\n';
    refused = true;
  };
  forEachLine(text, [&](std::size_t line, std::string_view words) {
    if (words.size() > kMaxLineLength) {
      report(line, lineTooLong());
      return false;
    }
    try {
      const auto statement = parseStatement(words);
      if (statement) checking.check(*statement);
    } catch (const StatementError& error) {
      report(line, error.what());
    }
    return true;
  });
  return !refused;
}

int Interpreter::runScript(const std::string& name, const std::string& text) {
  // Checked against a copy, so that a refused script leaves the order rules as they were.
  Validator checking = validator_;
  if (!scriptChecked(name, text, checking, errors_)) return kExitBadScript;
  validator_ = checking;
  // Parsing again instead of keeping every statement keeps a long script's memory to that of
  // its text: the statements are far larger than their lines.
  bool applied = true;
  std::size_t lastLine = 0;
  forEachLine(text, [&](std::size_t line, std::string_view words) {
    const auto statement = parseStatement(words);
    if (statement) applied = doApply(name, line, *statement, Commit::inRuns);
    if (statement) lastLine = line;
    return applied;
  });
  return applied && doCommit(name, lastLine) ? kExitOk : failure_;
}

int Interpreter::runStream(const std::string& name, const LineSource& nextLine,
                           const std::function<bool()>& flush) {
  bool refused = false;
  std::size_t lineNumber = 0;
  std::string text;
  while (nextLine(text)) {
    ++lineNumber;
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
