#pragma once
// Shared fixtures for the group filter suites: one set of group ranges per address family, and
// trace records read back whole (trace file, level, text) from the ring.

#include <ostream>
#include <string>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Trace.h"

namespace GroupFilterTest {

// A range of one family, a group inside it and a group outside it.
struct FamilyCase {
  const char* name;
  Ipkit::AddressFamily af;
  const char* range;
  const char* inside;
  const char* outside;
  const char* otherFamilyGroup;
};

inline const FamilyCase kIpv4{"Ipv4",         Ipkit::ipv4(),  "239.0.0.0/8",
                              "239.1.1.1/32", "224.1.1.1/32", "ff3e::1/128"};
inline const FamilyCase kIpv6{"Ipv6",        Ipkit::ipv6(), "ff3e::/16",
                              "ff3e::1/128", "ff05::1/128", "239.1.1.1/32"};

inline std::ostream& operator<<(std::ostream& out, const FamilyCase& family) {
  return out << family.name;
}

struct TraceLine {
  std::string traceFile;
  int level;
  std::string text;
  bool operator==(const TraceLine& other) const {
    return traceFile == other.traceFile && level == other.level && text == other.text;
  }
};

inline std::ostream& operator<<(std::ostream& out, const TraceLine& line) {
  return out << line.traceFile << "/" << line.level << ": \"" << line.text << "\"";
}

// Every record of `traceFile` in the ring, oldest first.
inline std::vector<TraceLine> traceLines(const std::string& traceFile) {
  std::vector<TraceLine> lines;
  for (const auto& record : Kel::TraceRing::instance().records()) {
    if (record.traceFile == traceFile) {
      lines.push_back({record.traceFile, record.level, record.text});
    }
  }
  return lines;
}

// The records of `traceFile` at exactly `level`, oldest first.
inline std::vector<TraceLine> traceLinesAt(const std::string& traceFile, int level) {
  std::vector<TraceLine> lines;
  for (const auto& line : traceLines(traceFile)) {
    if (line.level == level) lines.push_back(line);
  }
  return lines;
}

inline Ipkit::IpGenPrefix prefix(const char* text) { return Ipkit::IpGenPrefix(text); }

}  // namespace GroupFilterTest
