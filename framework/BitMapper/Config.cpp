#include "framework/BitMapper/Config.h"

namespace BitMapper {

void Config::allocRequestKeyIs(const BitMapperKey& key) {
  if (key == allocRequestKey_) return;
  allocRequestKey_ = key;
  notify(&NotifieeConst::onAllocRequestKey);
}

void Config::allocRequestCountInc(unsigned count) {
  if (count == 0) return;
  allocRequestCount_ += count;
  requestsAppend(RequestKind::alloc, allocRequestKey_, count);
  notify(&NotifieeConst::onAllocRequestCount);
}

void Config::deallocRequestKeyIs(const BitMapperKey& key) {
  if (key == deallocRequestKey_) return;
  deallocRequestKey_ = key;
  notify(&NotifieeConst::onDeallocRequestKey);
}

void Config::deallocRequestCountInc(unsigned count) {
  if (count == 0) return;
  deallocRequestCount_ += count;
  requestsAppend(RequestKind::dealloc, deallocRequestKey_, count);
  notify(&NotifieeConst::onDeallocRequestCount);
}

void Config::requestsAppend(RequestKind kind, const BitMapperKey& key, unsigned count) {
  requests_.insert(requests_.end(), count, Request{kind, key});
}

std::ostream& operator<<(std::ostream& os, Config::RequestKind kind) {
  return os << (kind == Config::RequestKind::alloc ? "alloc" : "dealloc");
}

std::ostream& operator<<(std::ostream& os, const Config::Request& request) {
  return os << request.kind << " " << request.key;
}

}  // namespace BitMapper
