#pragma once
// Mirra::internal::TableMemory: where a table's bytes live, one generation at a time.
//
// A table's memory is replaced as a whole when it grows or is rebuilt: the writer prepares a new
// generation beside the current one, fills it, and publishes it; attachments notice that the
// generation number moved and pick up the new memory. Heap memory serves in-process tables;
// SharedTableMemory maps named shared-memory segments that other processes attach to.
//
// Invariants:
//  1. current() is the memory of the generation published last (nullptr before the first one);
//     a prepared generation is invisible until publish().
//  2. generation() is one atomic load, cheap enough to check before every read.
//  3. Memory returned by prepare() is zeroed and aligned for the slot array, and preparing it
//     costs no time in proportion to its size: its pages arrive zeroed from the kernel when they
//     are first touched.
//  4. A generation that publish() replaces, or a prepared one that prepare() gives up, is released
//     a bounded piece per releaseRetired() call, so that no single write pays for unmapping it.

#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/Mirra/internal/SharedWord.h"

namespace Mirra {
namespace internal {

class TableMemory {
 public:
  virtual ~TableMemory() = default;

  std::uint64_t generation() const { return loadAcquire(generationWord_); }
  // The memory of the current generation, mapped anew when it moved; its number in *generation.
  virtual unsigned char* current(std::uint64_t* generation) = 0;
  // REQUIRES: writable(). A new zeroed generation of `bytes`, not yet published.
  virtual unsigned char* prepare(std::size_t bytes) = 0;
  // REQUIRES: prepare() was called. Makes the prepared generation current; the old one is retired.
  virtual void publish() = 0;
  // Releases a bounded piece of the retired generations, if any; the writer calls it once per
  // write.
  virtual void releaseRetired() = 0;
  virtual bool writable() const = 0;
  // Whether other processes can see this memory, and under which name.
  virtual bool shared() const = 0;
  virtual const std::string& name() const = 0;
  // Whether a writer is attached in some other process (one that may be in the middle of a write).
  virtual bool otherWriterAlive() const = 0;

 protected:
  const std::uint64_t* generationWord_ = nullptr;
};

}  // namespace internal
}  // namespace Mirra
