#pragma once
// TestSupport::TraceCapture: turns the levels of one trace file on for a test and reads back, in
// the order written, what the code under test wrote to it. Every suite that checks traces (or the
// framework's debug stream, the trace file "Debug") reads them through this one class.
//
// Invariants:
//  1. Construction (and restart) empties the process-wide trace ring and enables levels
//     0..highestLevel of the file, disabling the others; destruction disables every level.
//  2. Readers see only the records of this capture's file, oldest first.

#include <algorithm>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include "framework/Kel/Trace.h"

namespace TestSupport {

// One record as the ring holds it: its level and its text.
struct TraceLine {
  int level;
  std::string text;
  bool operator==(const TraceLine& other) const {
    return level == other.level && text == other.text;
  }
};

inline std::ostream& operator<<(std::ostream& out, const TraceLine& line) {
  return out << "{" << line.level << ", \"" << line.text << "\"}";
}

using TraceLines = std::vector<TraceLine>;

class TraceCapture {
 public:
  explicit TraceCapture(const std::string& traceFile, int highestLevel = 9)
      : file_(Kel::TraceFile::named(traceFile)) {
    restart(highestLevel);
  }
  ~TraceCapture() { file_.levelsUpToIs(-1); }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  // Empties the ring and enables levels 0..highestLevel only (a negative value: none).
  void restart(int highestLevel) const {
    clear();
    file_.levelsUpToIs(highestLevel);
  }
  void clear() const { Kel::TraceRing::instance().clear(); }

  // The texts written, oldest first.
  std::vector<std::string> lines() const { return Kel::TraceRing::instance().lines(file_.name()); }
  // Every record written, with its level.
  TraceLines levelled() const {
    TraceLines records;
    for (const auto& record : Kel::TraceRing::instance().records()) {
      if (record.traceFile == file_.name()) records.push_back({record.level, record.text});
    }
    return records;
  }
  // The records written at one of `levels`.
  TraceLines levelled(std::initializer_list<int> levels) const {
    TraceLines records;
    for (const auto& record : levelled()) {
      if (std::find(levels.begin(), levels.end(), record.level) != levels.end()) {
        records.push_back(record);
      }
    }
    return records;
  }
  // Whether some text written contains `text`.
  bool wrote(const std::string& text) const {
    const auto written = lines();
    return std::any_of(written.begin(), written.end(), [&text](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  }

 private:
  Kel::TraceFile& file_;
};

}  // namespace TestSupport
