#pragma once
// Mirra::internal::Damage: what a check of a table's memory found wrong, and where.
//
// Checks return a Damage rather than throwing, so that a reader can first rule out the writer's
// work in progress; only the table decides whether to report it. WriterMetDamage is thrown inside a
// writer operation that must not go on over damage; the table catches it, repairs and starts over.

#include <cstdint>

#include "framework/Mirra/internal/TableLayout.h"

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
  header
};

struct Damage {
  Fault fault = Fault::none;
  SlotIndex slot = kNoSlot;  // or the index entry's position, for Fault::indexEntry
  bool found() const { return fault != Fault::none; }
};

struct WriterMetDamage {};

}  // namespace internal
}  // namespace Mirra
