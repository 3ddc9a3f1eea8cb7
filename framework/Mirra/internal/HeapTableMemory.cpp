#include "framework/Mirra/internal/HeapTableMemory.h"

#include <sys/mman.h>

#include <new>

namespace Mirra {
namespace internal {

namespace {

constexpr std::size_t kHugePage = 2 * 1024 * 1024;

}  // namespace

HeapTableMemory::~HeapTableMemory() {
  if (current_.base) munmap(current_.base, current_.bytes);
  if (prepared_.base) munmap(prepared_.base, prepared_.bytes);
}

unsigned char* HeapTableMemory::prepare(std::size_t bytes) {
  retire(&prepared_);  // a generation given up before it was published
  void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (at == MAP_FAILED) throw std::bad_alloc();
  // Lookups and inserts land on random index entries and tree nodes: with 4 KiB pages nearly
  // every one of them in a large table also misses the address translation cache, and a growing
  // table takes a page fault per 4 KiB. Huge pages, where the kernel offers them, avoid both (a
  // write that touches a new one pays for zeroing 2 MiB, a bounded cost); the advice is only a
  // hint, so its failure is fine.
  if (bytes >= kHugePage) madvise(at, bytes, MADV_HUGEPAGE);
  prepared_ = Block{static_cast<unsigned char*>(at), bytes};
  return prepared_.base;
}

void HeapTableMemory::publish() {
  retire(&current_);
  current_ = prepared_;
  prepared_ = Block{};
  storeRelease(&generation_, generation_ + 1);
}

void HeapTableMemory::retire(Block* block) {
  if (block->base) retired_.add(block->base, block->bytes);
  *block = Block{};
}

}  // namespace internal
}  // namespace Mirra
