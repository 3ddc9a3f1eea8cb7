#include "tools/TraceOption.h"

#include <algorithm>

#include "framework/Kel/Trace.h"
#include "tools/StatementError.h"

namespace PimrpTool {

const std::vector<std::string>& libraryTraceFiles() {
  static const std::vector<std::string> names = {"PimCrpGrpTrieBuilderSm", "PimGroupFilter",
                                                 "PimGroupFilterSm",       "PimRpCandidateStaticSm",
                                                 "PimRpCompute",           "PimRpHashSm"};
  return names;
}

namespace {

bool knownTraceFile(const std::string& name) {
  const auto& library = libraryTraceFiles();
  if (std::find(library.begin(), library.end(), name) != library.end()) return true;
  const auto registered = Kel::traceFileNames();
  return std::find(registered.begin(), registered.end(), name) != registered.end();
}

}  // namespace

TraceRequest traceRequestFromText(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw TraceRequestError("expected NAME=LEVEL, got " + quoted(text));
  }
  TraceRequest request;
  request.name = text.substr(0, equals);
  const std::string level = text.substr(equals + 1);
  const std::string levels = "0.." + std::to_string(Kel::TraceFile::kMaxLevel);
  if (level.empty()) {
    throw TraceRequestError("missing LEVEL after " + quoted(text) + ": expected NAME=LEVEL, " +
                            "LEVEL " + levels);
  }
  if (level.find_first_not_of("0123456789") != std::string::npos) {
    throw TraceRequestError("level " + quoted(level) + " is not a number: expected " + levels);
  }
  if (level.size() != 1 || level[0] > '0' + Kel::TraceFile::kMaxLevel) {
    throw TraceRequestError("level " + quoted(level) + " out of range " + levels);
  }
  request.level = level[0] - '0';
  if (request.name != "all" && !knownTraceFile(request.name)) {
    std::string known;
    for (const auto& name : libraryTraceFiles()) known += " " + name;
    throw TraceRequestError("unknown trace file " + quoted(request.name) + " (known: all" + known +
                            ")");
  }
  return request;
}

void traceRequestApply(const TraceRequest& request) {
  if (request.name != "all") {
    Kel::TraceFile::named(request.name).levelsUpToIs(request.level);
    return;
  }
  // A handle is created on first use; creating the library's now makes "all" cover units that
  // have not traced yet.
  for (const auto& name : libraryTraceFiles()) Kel::TraceFile::named(name);
  Kel::traceLevelsUpToIs(request.level);
}

void traceSinkIs(std::ostream& out) {
  Kel::TraceRing::instance().sinkIs([&out](const Kel::TraceRecord& record) {
    out << '[' << record.traceFile << ' ' << record.level << "] " << record.text << '\n';
  });
}

}  // namespace PimrpTool
