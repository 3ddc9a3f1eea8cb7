#include "framework/Mirra/internal/HeapTableMemory.h"

#include <sys/mman.h>

#include <new>

namespace Mirra {
namespace internal {

HeapTableMemory::~HeapTableMemory() {
  if (current_.base) munmap(current_.base, current_.bytes);
  if (prepared_.base) munmap(prepared_.base, prepared_.bytes);
}

unsigned char* HeapTableMemory::prepare(std::size_t bytes, const char* /*operation*/) {
  retire(&prepared_);  // a generation given up before it was published
  void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (at == MAP_FAILED) throw std::bad_alloc();
  // No huge pages: where the kernel compacts memory to find one, the write that touches it can
  // stall for milliseconds, longer than a review slice may take.
  prepared_ = Block{static_cast<unsigned char*>(at), bytes};
  return prepared_.base;
}

std::string HeapTableMemory::publish() {
  retire(&current_);
  current_ = prepared_;
  prepared_ = Block{};
  storeRelease(&generation_, generation_ + 1);
  if (publishedHook) publishedHook();
  return "";
}

void HeapTableMemory::retire(Block* block) {
  if (block->base) retired_.add(block->base, block->bytes);
  *block = Block{};
}

}  // namespace internal
}  // namespace Mirra
