#pragma once
// Mirra::internal::describeDamage: the text by which a table reports what a check found.

#include <chrono>
#include <string>

#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/internal/TableLayout.h"

namespace Mirra {
namespace internal {

// `layout` is the generation the damage was found in; `waitLimit` how long the read waited for
// the writer.
inline std::string describeDamage(const Damage& damage, const TableLayout& layout,
                                  std::chrono::nanoseconds waitLimit) {
  const std::string where =
      "slot " + std::to_string(damage.slot) + " of " + std::to_string(layout.slotCount);
  const auto stalled = [&](const std::string& what) {
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(waitLimit).count();
    return what + " after " + std::to_string(waited) + " ms; its writer, pid " +
           std::to_string(damage.writer.pid) + ", is alive but " +
           (damage.writer.kind == WriterState::Kind::stopped ? "stopped" : "stalled");
  };
  switch (damage.fault) {
    case Fault::checksum:
      return where + " fails its checksum";
    case Fault::indexEntry:
      return "index entry " + std::to_string(damage.slot) + " of " +
             std::to_string(layout.entryCount) + " fails its check";
    case Fault::linkOutside:
      return "a tree link names " + where;
    case Fault::notMember:
      return where + " is linked into the order but holds no member";
    case Fault::endlessWalk:
      return "the ordered walk reached " + where + " after visiting more slots than exist";
    case Fault::halfWritten:
      return where + " was left half-written";
    case Fault::unfinishedRelink:
      return "the tree was left in the middle of a change";
    case Fault::headerFixed:
      return "the table header fails its check (its fixed part)";
    case Fault::sizeMismatch:
      return "the generation's memory is not the size its header gives";
    case Fault::headerWord:
      return std::string("the table header fails its check (its word ") +
             headerWordName(static_cast<HeaderWord>(damage.slot)) + ")";
    case Fault::stalledSlot:
      return stalled(where + " is still being written");
    case Fault::stalledRelink:
      return stalled("the tree is still being changed");
    case Fault::stalledWrite:
      return stalled("a write is still under way");
    case Fault::none:
      break;
  }
  return where;
}

}  // namespace internal
}  // namespace Mirra
