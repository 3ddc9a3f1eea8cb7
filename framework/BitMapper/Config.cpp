#include "framework/BitMapper/Config.h"

namespace BitMapper {

void Config::allocRequestCountChanged(U64 previous) {
  requestsAppend(RequestKind::alloc, allocRequestKey(), previous, allocRequestCount());
}

void Config::deallocRequestCountChanged(U64 previous) {
  requestsAppend(RequestKind::dealloc, deallocRequestKey(), previous, deallocRequestCount());
}

void Config::requestsAppend(RequestKind kind, const BitMapperKey& key, U64 previous, U64 count) {
  if (count <= previous) return;
  requests_.insert(requests_.end(), count - previous, Request{kind, key});
}

std::ostream& operator<<(std::ostream& os, Config::RequestKind kind) {
  return os << (kind == Config::RequestKind::alloc ? "alloc" : "dealloc");
}

std::ostream& operator<<(std::ostream& os, const Config::Request& request) {
  return os << request.kind << " " << request.key;
}

}  // namespace BitMapper
