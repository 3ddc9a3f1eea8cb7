#pragma once
// Mirra::internal segment files: the names of a shared table's segments, how they are found, and
// how their owners and permissions read in messages.
//
// A table named N is made of the segments (POSIX shared-memory objects, which Linux keeps as files
// under /dev/shm):
//   N          the control segment: the table's format and the number of its published generation
//   N.lock     the writer's lock, which only the writer's user can open
//   N.g<k>     a generation of the table's memory, k = 1, 2, ...; readers read the published one
//
// Invariants:
//  1. A plain table name (letters, digits, '.', '_', '-', not starting with '.', at most 200
//     characters) that does not itself end like a segment of another table (".lock", ".g" and
//     digits) names segments of that table only.
//  2. Segment names are given without the leading '/' of shm_open.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Mirra {
namespace internal {

// Why `name` cannot name a table, or "" when it can.
std::string tableNameRefusal(const std::string& name);

std::string lockSegment(const std::string& table);
std::string generationSegment(const std::string& table, std::uint64_t generation);
// The generation number of `segment` when it is one of `table`'s generations.
bool generationOf(const std::string& table, const std::string& segment, std::uint64_t* generation);

// The segments of `table` that exist, generations first (in ascending order), then the control
// segment, then the lock; false, with the reason in *why, when they cannot be listed.
bool segmentsOf(const std::string& table, std::vector<std::string>* segments, std::string* why);

// "root (uid 0)", or "uid 1234" for a user without a name.
std::string userText(uid_t user);
// "0644": the permission bits of `mode`.
std::string modeText(mode_t mode);

}  // namespace internal
}  // namespace Mirra
