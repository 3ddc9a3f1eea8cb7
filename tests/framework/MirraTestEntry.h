#pragma once
// The in-process table the Mirra suites exercise: payloads keyed by group prefix, so that keys
// of both families nest as RP hash keys do.

#include <cstdint>

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Mirra/MirraMap.h"

namespace MirraTest {

struct Entry {
  Ipkit::IpGenPrefix key;
  std::uint32_t payload = 0;
  bool operator==(const Entry& other) const { return key == other.key && payload == other.payload; }
};
struct EntryKey {
  const Ipkit::IpGenPrefix& operator()(const Entry& entry) const { return entry.key; }
};
using Table = Mirra::MirraMap<Ipkit::IpGenPrefix, Entry, EntryKey>;

}  // namespace MirraTest
