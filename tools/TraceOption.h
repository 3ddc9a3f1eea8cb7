#pragma once
// PimrpTool trace options: "--trace NAME=LEVEL" turns on levels 0..LEVEL of one trace file (or of
// all of them), and trace records go to a stream as they are written.
//
// A name must be one the library uses, so that a typo is refused instead of tracing nothing.

#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace PimrpTool {

struct TraceRequest {
  std::string name;  // a trace file name, or "all"
  int level = 0;
};

// Thrown for a request that cannot be honoured; the message quotes the offending text.
class TraceRequestError : public std::runtime_error {
 public:
  explicit TraceRequestError(const std::string& message) : std::runtime_error(message) {}
};

// The trace files of the units the tool wires, known before any of them has traced.
const std::vector<std::string>& libraryTraceFiles();

// Parses "NAME=LEVEL" (LEVEL 0..9).
TraceRequest traceRequestFromText(const std::string& text);
// Enables the levels asked for.
void traceRequestApply(const TraceRequest& request);
// Sends every trace record to `out` as it is written, one line each:
// "[TRACEFILE LEVEL] TEXT".
void traceSinkIs(std::ostream& out);

}  // namespace PimrpTool
