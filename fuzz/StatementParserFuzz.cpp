// libFuzzer target: arbitrary bytes as statements typed into a pimrp session. Each line is parsed,
// checked, and applied to a freshly wired library when accepted, with the answers printed; any
// crash, hang, sanitizer report or exception other than a refusal of the statement is a finding.

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
  // The first byte picks the output, so that both printers see every kind of answer.
  const bool json = size > 0 && (data[0] & 1u) != 0;
  const auto output =
      json ? PimrpTool::jsonOutputFactory(sink) : PimrpTool::humanOutputFactory(sink);
  PimrpTool::Interpreter interpreter(session, *output, sink);
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  // An accepted statement that the library refuses means the checks missed something.
  const auto doNothing = [] {};
  if (interpreter.runStream("fuzz", in, doNothing, doNothing) == PimrpTool::kExitInternal) {
    std::abort();
  }
  return 0;
}
