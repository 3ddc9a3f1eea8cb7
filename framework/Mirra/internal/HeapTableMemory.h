#pragma once
// Mirra::internal::HeapTableMemory: the memory of an in-process table, in heap blocks. Every
// attachment of the table shares this object, so all of them see a published generation at once.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

class HeapTableMemory : public TableMemory {
 public:
  HeapTableMemory() { generationWord_ = &generation_; }

  unsigned char* current(std::uint64_t* generation) override {
    *generation = generation_;
    return current_.get();
  }
  unsigned char* prepare(std::size_t bytes) override {
    prepared_.reset(static_cast<unsigned char*>(std::aligned_alloc(kAlignment, roundUp(bytes))));
    if (!prepared_) throw std::bad_alloc();
    std::memset(prepared_.get(), 0, bytes);
    return prepared_.get();
  }
  void publish() override {
    current_ = std::move(prepared_);
    storeRelease(&generation_, generation_ + 1);
  }
  bool writable() const override { return true; }
  bool shared() const override { return false; }
  const std::string& name() const override { return name_; }
  bool otherWriterAlive() const override { return false; }

 private:
  static constexpr std::size_t kAlignment = 64;
  static std::size_t roundUp(std::size_t bytes) {
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
  }
  struct Free {
    void operator()(unsigned char* block) const { std::free(block); }
  };

  std::uint64_t generation_ = 0;
  std::unique_ptr<unsigned char, Free> current_;
  std::unique_ptr<unsigned char, Free> prepared_;
  const std::string name_;
};

}  // namespace internal
}  // namespace Mirra
