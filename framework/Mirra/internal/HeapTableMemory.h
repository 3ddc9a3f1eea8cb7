#pragma once
// Mirra::internal::HeapTableMemory: the memory of an in-process table, in private anonymous
// mappings. Every attachment of the table shares this object, so all of them see a published
// generation at once.
//
// The kernel hands out such mappings zeroed and fills their pages on first touch, so preparing a
// generation costs the same at any size, and a table pays for its memory as it fills it.

#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/Mirra/internal/RetiredMappings.h"
#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

class HeapTableMemory : public TableMemory {
 public:
  HeapTableMemory() { generationWord_ = &generation_; }
  ~HeapTableMemory() override;
  HeapTableMemory(const HeapTableMemory&) = delete;
  HeapTableMemory& operator=(const HeapTableMemory&) = delete;

  Mapping current(std::uint64_t* generation) override {
    *generation = generation_;
    return Mapping{current_.base, current_.bytes};
  }
  unsigned char* prepare(std::size_t bytes, const char* operation) override;
  std::string publish() override;
  void releaseRetired() override { retired_.releasePiece(); }
  bool writable() const override { return true; }
  bool shared() const override { return false; }
  const std::string& name() const override { return name_; }
  WriterState writerState() const override { return WriterState{}; }

 private:
  struct Block {
    unsigned char* base = nullptr;
    std::size_t bytes = 0;
  };
  void retire(Block* block);

  std::uint64_t generation_ = 0;
  Block current_;
  Block prepared_;
  RetiredMappings retired_;
  const std::string name_;
};

}  // namespace internal
}  // namespace Mirra
