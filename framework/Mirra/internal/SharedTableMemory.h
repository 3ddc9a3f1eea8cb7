#pragma once
// Mirra::internal::SharedTableMemory: a table's memory in named POSIX shared-memory segments, so
// that processes other than the writer read the table.
//
// A table named N is a small control segment "/N" and one data segment per generation,
// "/N.g<generation>", which holds the table header, the slot array and the hash index. The control
// segment records the format (key, value and slot sizes) and the current generation; a writer that
// grows or rebuilds the table fills the next data segment, publishes its number in the control
// segment, then unlinks the old one (readers that still map it keep their mapping until they move)
// and unmaps its own mapping of it a piece per later write. A data segment is sized with
// ftruncate, which leaves it zeroed without touching its pages.
//
// Invariants:
//  1. At most one writer per table: the writer holds an open-file-description write lock on the
//     control segment, which the kernel releases when the writer's process ends however it ends.
//     A second writer is refused with "MirraMap::attach() table N already has a writer".
//  2. A reader maps every segment read-only (PROT_READ): it cannot write the table.
//  3. A writer attaching to a table that exists continues it; one attaching to a name that does
//     not exist creates it. A reader needs the table to exist and to have the expected format.
//  4. No pointer into process memory is stored in any segment.

#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/Mirra/internal/RetiredMappings.h"
#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

// Sizes a table records so that an attachment compiled for other types is refused.
struct TableShape {
  std::uint32_t keySize;
  std::uint32_t valueSize;
  std::uint32_t slotSize;
};

class SharedTableMemory : public TableMemory {
 public:
  // Throws Kel::RangeException, with the reason, when the table cannot be attached.
  SharedTableMemory(const std::string& name, bool writer, TableShape shape);
  ~SharedTableMemory() override;
  SharedTableMemory(const SharedTableMemory&) = delete;
  SharedTableMemory& operator=(const SharedTableMemory&) = delete;

  // Removes the segments of table `name`; attachments keep their mappings. False when there was
  // no such table.
  static bool unlink(const std::string& name);

  unsigned char* current(std::uint64_t* generation) override;
  unsigned char* prepare(std::size_t bytes) override;
  void publish() override;
  void releaseRetired() override { retired_.releasePiece(); }
  bool writable() const override { return writer_; }
  bool shared() const override { return true; }
  const std::string& name() const override { return name_; }
  bool otherWriterAlive() const override;

 private:
  struct Control;

  void release();
  void openControl(TableShape shape);
  void createControl(TableShape shape);
  void checkControl(TableShape shape) const;
  std::string dataPath(std::uint64_t generation) const;
  [[noreturn]] void fail(const std::string& reason) const;
  [[noreturn]] void failSystem(const std::string& operation) const;

  const std::string name_;
  const std::string path_;
  const bool writer_;
  int controlFd_ = -1;
  Control* control_ = nullptr;
  unsigned char* mapped_ = nullptr;
  std::size_t mappedBytes_ = 0;
  std::uint64_t mappedGeneration_ = 0;
  unsigned char* prepared_ = nullptr;
  std::size_t preparedBytes_ = 0;
  RetiredMappings retired_;
};

// Writes a shared table's report to the system log.
void systemLog(bool problem, const std::string& message);

}  // namespace internal
}  // namespace Mirra
