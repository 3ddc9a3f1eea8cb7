#pragma once
// Mirra::internal::RetiredMappings: memory mappings that a table has replaced, given back to the
// kernel a bounded piece at a time.
//
// Unmapping a large generation at once costs time in proportion to its pages (about 6 ms for
// 80 MB), which would land in the one write that publishes the next generation. So a replaced
// mapping is only queued here, and each later write of the table unmaps at most kPiece bytes of
// it, from its end.
//
// Invariants:
//  1. Nothing queued is read any more by the table that queued it.
//  2. releasePiece() unmaps at most kPiece bytes; the destructor unmaps what is left.

#include <cstddef>
#include <vector>

namespace Mirra {
namespace internal {

class RetiredMappings {
 public:
  static constexpr std::size_t kPiece = 256 * 1024;

  RetiredMappings() = default;
  ~RetiredMappings();
  RetiredMappings(const RetiredMappings&) = delete;
  RetiredMappings& operator=(const RetiredMappings&) = delete;

  // REQUIRES: base..base+bytes is one mapping made by mmap and read no more.
  void add(unsigned char* base, std::size_t bytes);
  void releasePiece();
  bool empty() const { return mappings_.empty(); }

 private:
  struct Mapping {
    unsigned char* base;
    std::size_t bytes;  // still mapped, a whole number of pages
  };
  std::vector<Mapping> mappings_;
};

}  // namespace internal
}  // namespace Mirra
