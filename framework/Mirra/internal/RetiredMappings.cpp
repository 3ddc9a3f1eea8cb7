#include "framework/Mirra/internal/RetiredMappings.h"

#include <sys/mman.h>
#include <unistd.h>

namespace Mirra {
namespace internal {

namespace {

std::size_t pageSize() {
  static const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

}  // namespace

RetiredMappings::~RetiredMappings() {
  for (const Mapping& mapping : mappings_) munmap(mapping.base, mapping.bytes);
}

void RetiredMappings::add(unsigned char* base, std::size_t bytes) {
  const std::size_t page = pageSize();
  mappings_.push_back(Mapping{base, (bytes + page - 1) / page * page});
}

void RetiredMappings::releasePiece() {
  if (mappings_.empty()) return;
  Mapping& last = mappings_.back();
  // Pieces are whole pages, so the part left mapped stays a whole number of pages.
  const std::size_t piece = kPiece - kPiece % pageSize();
  if (last.bytes <= piece) {
    munmap(last.base, last.bytes);
    mappings_.pop_back();
    return;
  }
  last.bytes -= piece;
  munmap(last.base + last.bytes, piece);
}

}  // namespace internal
}  // namespace Mirra
