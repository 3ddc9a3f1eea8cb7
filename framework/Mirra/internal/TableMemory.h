#pragma once
// Mirra::internal::TableMemory: where a table's bytes live, one generation at a time.
//
// A table's memory is replaced as a whole when it grows or is rebuilt: the writer prepares a new
// generation beside the current one, fills it, and publishes it; attachments notice that the
// generation number moved and pick up the new memory. Heap memory serves in-process tables;
// SharedTableMemory maps named shared-memory segments that other processes attach to.
//
// Invariants:
//  1. current() is the memory of the generation published last (no base before the first one);
//     a prepared generation is invisible until publish().
//  2. generation() is one atomic load, cheap enough to check before every read; it changes
//     whenever current() would return other memory.
//  3. Memory returned by prepare() is zeroed and aligned for the slot array, and preparing it
//     costs no time in proportion to its size: its pages arrive zeroed from the kernel when they
//     are first touched.
//  4. A generation that publish() replaces, or a prepared one that prepare() gives up, is released
//     a bounded piece per releaseRetired() call, so that no single write pays for unmapping it.
//  5. Memory that cannot be read as the table's (a segment missing, replaced or damaged) is
//     reported by current() throwing MemoryDamage with what is wrong; the table reports it.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/Mirra/internal/SharedWord.h"

namespace Mirra {
namespace internal {

// The writer of a table as another attachment finds it.
struct WriterState {
  enum class Kind : std::uint8_t {
    none,     // no writer can be at work elsewhere (this attachment's memory is the writer's own)
    running,  // a live process
    stopped,  // a live process that a signal or a debugger has stopped
    gone      // no writer process any more
  };
  Kind kind = Kind::none;
  long pid = 0;
  bool alive() const { return kind == Kind::running || kind == Kind::stopped; }
};

// A table's memory could not be read as the table's; what() says what is wrong.
class MemoryDamage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One generation's memory as mapped.
struct Mapping {
  unsigned char* base = nullptr;
  std::size_t bytes = 0;
};

class TableMemory {
 public:
  virtual ~TableMemory() = default;

  std::uint64_t generation() const { return loadAcquire(generationWord_); }
  // The memory of the current generation, mapped anew when it moved; its number in *generation.
  // Throws MemoryDamage (invariant 5).
  virtual Mapping current(std::uint64_t* generation) = 0;
  // REQUIRES: writable(). A new zeroed generation of `bytes`, not yet published. `operation` names
  // the table operation that asked for it in the Kel::RangeException thrown when it cannot be made.
  virtual unsigned char* prepare(std::size_t bytes, const char* operation) = 0;
  // REQUIRES: prepare() was called. Makes the prepared generation current; the old one is retired.
  // Returns what could not be done about the old one ("" when all went well).
  virtual std::string publish() = 0;
  // Releases a bounded piece of the retired generations, if any; the writer calls it once per
  // write.
  virtual void releaseRetired() = 0;
  virtual bool writable() const = 0;
  // Whether other processes can see this memory, and under which name.
  virtual bool shared() const = 0;
  virtual const std::string& name() const = 0;
  // The writer as this attachment finds it now (Kind::none for the writer's own memory).
  virtual WriterState writerState() const = 0;
  // Writer: the damage that attaching found in the memory outside the generations and mended,
  // each as a report to make; emptied by the call.
  virtual std::vector<std::string> takeAttachFindings() { return {}; }
  // Writer: puts back what a stray write changed in the memory outside the generations; returns
  // what it put back ("" when nothing). Only called when strayed().
  virtual bool strayed() const { return false; }
  virtual std::string mend() { return ""; }

  // Test seam: runs after a generation is published and before the one it replaced is removed.
  std::function<void()> publishedHook;

 protected:
  const std::uint64_t* generationWord_ = nullptr;
};

}  // namespace internal
}  // namespace Mirra
