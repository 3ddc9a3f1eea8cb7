#pragma once
// Mirra::internal::ProcessIdentity: which process a table's writer is, recorded where its readers
// find it, so that a reader waiting on the writer can tell one that is alive (running, or stopped
// by a signal or a debugger) from one that is gone.
//
// A process id alone may be reused by a later process; the time the process started (in clock
// ticks after boot, as the kernel reports it) tells them apart. Where the kernel does not show a
// process's state to another user, a process that still exists counts as running.

#include <cstdint>

#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

struct ProcessIdentity {
  long pid = 0;               // 0: none
  std::uint64_t started = 0;  // 0: unknown
};

ProcessIdentity thisProcess();

// The writer state of the process `identity` names (WriterState::Kind::gone for none).
WriterState writerStateOf(const ProcessIdentity& identity);

}  // namespace internal
}  // namespace Mirra
