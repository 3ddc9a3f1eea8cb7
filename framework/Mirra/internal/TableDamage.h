#pragma once
// Mirra::internal::Damage: what a check of a table's memory found wrong, and where.
//
// Checks return a Damage rather than throwing, so that a reader can first rule out the writer's
// work in progress; only the table decides whether to report it. WriterMetDamage is thrown inside a
// writer operation that must not go on over damage; the table catches it, repairs and starts over.

#include <cstdint>

#include "framework/Mirra/internal/TableLayout.h"
#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

enum class Fault : std::uint8_t {
  none,
  checksum,
  indexEntry,
  linkOutside,
  notMember,
  endlessWalk,
  halfWritten,
  unfinishedRelink,
  headerFixed,   // the fixed part fails its check
  sizeMismatch,  // the fixed part checks out, but its sizes do not fill the memory mapped
  headerWord,    // `slot` is the HeaderWord that fails its check
  // A word the writer holds odd stayed so past the reader's wait while the writer is alive:
  stalledSlot,    // slot `slot`
  stalledRelink,  // the tree links
  stalledWrite    // a write met while checking what looked like damage
};

struct Damage {
  Damage() = default;
  Damage(Fault found, SlotIndex at, WriterState writerFound = WriterState())
      : fault(found), slot(at), writer(writerFound) {}

  Fault fault = Fault::none;
  SlotIndex slot = kNoSlot;  // or the index entry's position, or the header word
  WriterState writer;        // for the stalled faults: the writer as the reader found it
  bool found() const { return fault != Fault::none; }
};

struct WriterMetDamage {};

}  // namespace internal
}  // namespace Mirra
