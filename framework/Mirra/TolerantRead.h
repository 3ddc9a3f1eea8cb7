#pragma once
// Reads that treat a damaged table as "absent": a reader that must not fail because another
// process's bytes went bad runs its lookup or walk through tolerantRead, which hands a
// CorruptionDetectedException back to the table it came from (the table's own report, made as it
// raised it, is acknowledged rather than repeated) and tells the caller that the read ended there.
//
// Table is a Mirra::MirraMap or an entity that holds one and forwards
// corruptionDetected(const CorruptionDetectedException&) to it.

#include "framework/Mirra/CorruptionDetectedException.h"

namespace Mirra {

// Runs read(), which reads `table`. Returns true when it ran to its end; false, after handing the
// exception back to `table`, when it met damage (what it did before stays done). Any other
// exception passes through.
template <class Table, class Read>
bool tolerantRead(const Table& table, Read&& read) {
  try {
    read();
    return true;
  } catch (const CorruptionDetectedException& damage) {
    table.corruptionDetected(damage);
    return false;
  }
}

// table.lookup(key), or the absence value (a default-constructed one) when the lookup met damage.
template <class Table, class Key>
auto tolerantLookup(const Table& table, const Key& key) -> decltype(table.lookup(key)) {
  using Value = decltype(table.lookup(key));
  Value value{};
  // A fresh absence value on failure: a lookup whose result the compiler builds in place may have
  // written part of it into `value` before it threw.
  if (!tolerantRead(table, [&] { value = table.lookup(key); })) return Value{};
  return value;
}

}  // namespace Mirra
