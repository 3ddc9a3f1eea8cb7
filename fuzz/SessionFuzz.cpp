// libFuzzer target: arbitrary bytes as the lines of a pimrp script, every statement the checks
// accept applied to a freshly wired library one after the other (a refused line is skipped, not
// the whole script), then the clock settled and every kind of show asked of the result. Any
// crash, hang, sanitizer report or leak is a finding, and so is a library refusal of a statement
// the checks accepted.
//
// Known-group statements naming more than 256 groups are skipped (FuzzLimits.h).

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <variant>

#include "framework/Kel/Exception.h"
#include "fuzz/FuzzLimits.h"
#include "tools/Interpreter.h"
#include "tools/Output.h"
#include "tools/Session.h"
#include "tools/StatementError.h"
#include "tools/StatementParser.h"
#include "tools/Validation.h"

namespace {

class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return c; }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

// Applies one statement; a library refusal of an accepted statement is a finding.
void apply(PimrpTool::Session& session, PimrpTool::Output& output,
           const PimrpTool::Statement& statement) {
  try {
    const auto answer = session.apply(statement);
    if (answer) output.show(*answer);
  } catch (const Kel::Exception&) {
    std::abort();
  }
}

// Every show the language has, over both families, after the clock has settled.
void showEverything(PimrpTool::Session& session, PimrpTool::Output& output) {
  using namespace PimrpTool;
  session.settle();
  for (const char* line :
       {"show candidates static", "show candidates bsr", "show local-rp", "show alloc-requests",
        "show review", "show group-filter 239.1.1.1", "show group-filter ff0e::1",
        "show rp 239.1.1.1 detail", "show rp 239.1.1.1 mode sparse detail",
        "show rp 238.1.1.1 mode bidir detail", "show rp ff0e::1 detail", "show rp 232.1.1.1",
        "show rp mapping", "show rp-hash summary", "show config"}) {
    apply(session, output, *parseStatement(line));
  }
  for (const char* source : {"final", "static", "bsr"}) {
    for (const char* kind : {"groups", "prefixes"}) {
      for (const char* mode : {"sparse", "bidir"}) {
        apply(
            session, output,
            *parseStatement(std::string("show rp-hash ") + source + ' ' + kind + " mode " + mode));
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static NullBuffer nothing;
  static std::ostream sink(&nothing);
  PimrpTool::Session session;
  // The first byte picks the printer, so that both see every kind of answer.
  const auto output = size > 0 && (data[0] & 1u) != 0 ? PimrpTool::jsonOutputFactory(sink)
                                                      : PimrpTool::humanOutputFactory(sink);
  PimrpTool::Validator validator;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view line = text.substr(start, end - start);
    start = end + 1;
    if (line.size() > PimrpTool::kMaxLineLength) break;
    try {
      const auto statement = PimrpTool::parseStatement(line);
      if (!statement || PimrpFuzz::namesTooManyGroups(*statement)) continue;
      validator.check(*statement);
      apply(session, *output, *statement);
    } catch (const PimrpTool::StatementError&) {
    }
  }
  session.commit();
  showEverything(session, *output);
  return 0;
}
