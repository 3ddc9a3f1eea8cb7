#pragma once
// The ring-buffer trace facility.
//
// Code writes diagnostics through a TraceFile handle named after its source unit ("PimRpCompute")
// at a level 0..9. Each handle has its own set of enabled levels.
//
// Invariants:
//  1. A message whose level is off for its handle is never formatted: KEL_TRACE tests the level
//     before evaluating any of its stream arguments.
//  2. Every message written is kept, whole, in one process-wide ring of the most recent records,
//     with its trace file name, level, source line and function; the oldest go first.
//  3. A sink, when set, also receives every record as it is written (the tool streams traces to
//     standard error this way); the ring keeps it regardless.
//  4. Handles with the same name share their levels, so levels may be set before the code that
//     traces has run.

#include <cstdint>
#include <deque>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace Kel {

struct TraceRecord {
  std::string traceFile;
  int level = 0;
  std::string text;
  int line = 0;
  std::string function;
};

class TraceFile {
 public:
  static constexpr int kMaxLevel = 9;

  // The handle of the named trace file, created on first use; the reference stays valid for the
  // life of the process.
  static TraceFile& named(const std::string& name);

  const std::string& name() const { return name_; }
  bool enabled(int level) const { return (levels_ >> level) & 1u; }

  // REQUIRES: 0 <= level <= kMaxLevel.
  void levelIs(int level, bool on);
  // Enables levels 0..highest and disables the rest; a negative value disables all.
  void levelsUpToIs(int highest);

  // Appends a formatted message; called by KEL_TRACE once the level is known to be on.
  void write(int level, std::string text, int line, const char* function) const;

  explicit TraceFile(std::string name) : name_(std::move(name)) {}

 private:
  std::string name_;
  std::uint16_t levels_ = 0;
};

// Every trace file known so far, and the switch for all of them at once.
void traceLevelsUpToIs(int highest);
std::vector<std::string> traceFileNames();

class TraceRing {
 public:
  static constexpr std::size_t kDefaultCapacity = 1 << 16;

  static TraceRing& instance();

  void append(TraceRecord record);
  const std::deque<TraceRecord>& records() const { return records_; }
  // The texts of the records of one trace file, oldest first.
  std::vector<std::string> lines(const std::string& traceFile) const;
  void clear() { records_.clear(); }

  std::size_t capacity() const { return capacity_; }
  void capacityIs(std::size_t capacity);

  void sinkIs(std::function<void(const TraceRecord&)> sink) { sink_ = std::move(sink); }

 private:
  std::deque<TraceRecord> records_;
  std::size_t capacity_ = kDefaultCapacity;
  std::function<void(const TraceRecord&)> sink_;
};

}  // namespace Kel

// KEL_TRACE_FILE(function, "Name"): defines `const Kel::TraceFile& function()`, the handle of
// the trace file "Name", looked up once. Every unit names its trace file this way: a function of
// its own in an anonymous namespace, or the definition of a class's declared
// `static const Kel::TraceFile& trace();` (KEL_TRACE_FILE(Class::trace, "Name")).
#define KEL_TRACE_FILE(function, name)                                            \
  const ::Kel::TraceFile& function() {                                            \
    static const ::Kel::TraceFile& kelTraceFile_ = ::Kel::TraceFile::named(name); \
    return kelTraceFile_;                                                         \
  }

// KEL_TRACE(handle, level, a << b << c): writes a message built from the streamed pieces when
// `level` is enabled for `handle`; otherwise evaluates nothing after the level test.
#define KEL_TRACE(handle, level, ...)                                            \
  do {                                                                           \
    const ::Kel::TraceFile& kelTraceHandle_ = (handle);                          \
    if (kelTraceHandle_.enabled(level)) {                                        \
      std::ostringstream kelTraceStream_;                                        \
      kelTraceStream_ << __VA_ARGS__;                                            \
      kelTraceHandle_.write((level), kelTraceStream_.str(), __LINE__, __func__); \
    }                                                                            \
  } while (0)
