#pragma once
// Mirra shared tables: how an attachment to a table in shared memory is made (AttachMode,
// AttachOptions) and what removing one did (UnlinkReport).
//
// Who may do what (the checks are made on every segment as it is opened):
//  - A writer writes only segments its own user owns that neither group nor others may write. It
//    creates every segment exclusively, and gives every segment of the table (those an earlier
//    writer made too) the mode of its options; it refuses, writing nothing, a table whose
//    segments belong to another user or are writable by others.
//  - A reader reads only tables owned by root, by its own user or by the one user its options
//    name, and none that group or others may write.
//  - Exactly one writer at a time: it holds a lock on a segment that only its user can open, so
//    that no reader and no other user can keep a writer from starting.
//
// What a reader waits for (kWriterWaitLimit): a writer in another process may be in the middle of
// a write when a read meets the words it is changing. One read (a lookup, members(), one step of a
// walk) waits for such a writer at most kWriterWaitLimit in all, while the writer's process is
// alive; past it the read throws CorruptionDetectedException saying that the writer, naming its
// process, is alive but stalled (or stopped, by a signal or a debugger). A write left unfinished
// by a writer that has gone is reported at once, without waiting.

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace Mirra {

enum class AttachMode { singleWriter, reader };

// The longest a read of a shared table waits, in all, for a live writer in the middle of a write.
constexpr std::chrono::milliseconds kWriterWaitLimit{1000};

struct AttachOptions {
  // The permissions a writer gives the table's segments (the lock is always 0600): the owner reads
  // and writes; group and others may at most read (0600, 0640, 0604 or 0644).
  mode_t mode = 0644;
  // A user whose tables a reader trusts besides root and its own user.
  std::optional<uid_t> trustedOwner;
};

// Whether `mode` is one a table's segments may have (see AttachOptions::mode).
inline bool tableModeAllowed(mode_t mode) { return (mode & 0600) == 0600 && (mode & ~0644) == 0; }

// What unlinkShared did: the segments it removed and those it could not remove, each with the
// reason ("NAME.g3: Permission denied").
struct UnlinkReport {
  std::vector<std::string> removed;
  std::vector<std::string> failures;
  bool found() const { return !removed.empty() || !failures.empty(); }
  bool complete() const { return failures.empty(); }
};

}  // namespace Mirra
