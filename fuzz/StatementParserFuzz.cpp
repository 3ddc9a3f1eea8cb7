// libFuzzer target: arbitrary bytes as a pimrp script or as statements typed into a session,
// against a freshly wired library. A script is checked whole (lines too long, bad words quoted,
// addresses judged) and applied with its access-list rules in runs; a stream is read line by
// line with the line cap and each accepted statement applied at once. Any crash, hang, sanitizer
// report, or a statement the checks let through that the library then refuses, is a finding.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

#include "framework/Kel/System.h"
#include "tools/Interpreter.h"
#include "tools/Output.h"
#include "tools/Session.h"

namespace {

// Swallows everything: the answers are produced for their code paths, not read.
class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return c; }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static NullBuffer nothing;
  static std::ostream sink(&nothing);
  Kel::System::virtualTimeIs(0.0);
  PimrpTool::Session session;
  // The first byte picks the output, so that both printers see every kind of answer, and the
  // way in: a script or a stream.
  const bool json = size > 0 && (data[0] & 1u) != 0;
  const bool script = size > 0 && (data[0] & 2u) != 0;
  const auto output =
      json ? PimrpTool::jsonOutputFactory(sink) : PimrpTool::humanOutputFactory(sink);
  PimrpTool::Interpreter interpreter(session, *output, sink);
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::istringstream in(text);
  // An accepted statement that the library refuses means the checks missed something.
  const int status =
      script ? interpreter.runScript("fuzz", text)
             : interpreter.runStream(
                   "fuzz",
                   [&in](std::string& line) { return PimrpTool::lineFromStream(in, line); },
                   [] { return true; });
  if (status == PimrpTool::kExitInternal) std::abort();
  return 0;
}
