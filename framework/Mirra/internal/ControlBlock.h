#pragma once
// Mirra::internal::ControlBlock: the whole content of a shared table's control segment: what the
// table is made of, which generation readers are to read, and which process writes it.
//
// Invariants:
//  1. The fixed part is written once by the writer that creates the table (magic last, with
//     release) and carries its own check (CheckedWord.h).
//  2. published, writerPid and writerStarted are checked words, each stored whole by the writer:
//     a reader never takes a damaged byte for a generation number or a writer.
//  3. A control segment of the former format 1 was 32 bytes (magic, format, three sizes and the
//     generation, unchecked); it is recognised, so that it is refused by its format rather than
//     taken for damage.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "framework/Mirra/internal/CheckedWord.h"
#include "framework/Mirra/internal/SharedWord.h"

namespace Mirra {
namespace internal {

constexpr std::uint64_t kControlMagic = 0x6c7274436172694dull;  // "MiraCtrl" read little-endian
// 2: every part checked; the writer's process recorded; generations published by number.
constexpr std::uint32_t kControlFormat = 2;
constexpr std::uint32_t kFormerControlFormat = 1;
constexpr std::size_t kFormerControlBytes = 32;

struct ControlFixed {
  std::uint64_t magic;
  std::uint32_t format;
  std::uint32_t keySize;
  std::uint32_t valueSize;
  std::uint32_t slotSize;
};

struct ControlBlock {
  ControlFixed fixed;
  std::uint64_t fixedCheck;
  std::uint64_t published;      // checked: the number of the generation readers read; 0 none yet
  std::uint64_t writerPid;      // checked: the writer's process id; 0 when no writer is attached
  std::uint64_t writerStarted;  // checked: when that process started (ProcessIdentity.h)
  std::uint64_t reserved;
};
static_assert(sizeof(ControlBlock) == 64, "a control segment is one cache line");

enum class ControlWord : std::uint8_t { published, writerPid, writerStarted };

inline std::uint64_t* controlWordAt(ControlBlock& control, ControlWord word) {
  return word == ControlWord::published   ? &control.published
         : word == ControlWord::writerPid ? &control.writerPid
                                          : &control.writerStarted;
}
inline const std::uint64_t* controlWordAt(const ControlBlock& control, ControlWord word) {
  return controlWordAt(const_cast<ControlBlock&>(control), word);
}
inline std::size_t controlWordPosition(ControlWord word) {
  return 4 + static_cast<std::size_t>(word);
}
inline bool loadControlWord(const ControlBlock& control, ControlWord word, std::uint64_t* value) {
  return checkedValue(loadAcquire(controlWordAt(control, word)), controlWordPosition(word), value);
}
inline std::uint64_t controlWordImage(ControlWord word, std::uint64_t value) {
  return checkedWord(value, controlWordPosition(word));
}

inline std::uint64_t controlFixedCheckOf(const ControlFixed& fixed) {
  std::uint64_t words[sizeof(ControlFixed) / 8];
  std::memcpy(words, &fixed, sizeof(words));
  return blockCheckOf(words, sizeof(ControlFixed) / 8);
}
// The fixed part of `control` as it reads now, and whether it passes its check.
inline bool loadControlFixed(const ControlBlock& control, ControlFixed* fixed) {
  std::memcpy(fixed, &control.fixed, sizeof(*fixed));
  std::uint64_t check = 0;
  std::memcpy(&check, &control.fixedCheck, sizeof(check));
  return check == controlFixedCheckOf(*fixed);
}

}  // namespace internal
}  // namespace Mirra
