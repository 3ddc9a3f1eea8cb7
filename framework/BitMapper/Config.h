#pragma once
// BitMapper::Config: the request channel to a bit-allocation service owned by another agent.
//
// A client makes a request in two steps: it writes the request's key (allocRequestKeyIs or
// deallocRequestKeyIs), then raises the matching counter by one (allocRequestCountInc(1) or
// deallocRequestCountInc(1)). The counter, not the key, marks a request: asking twice in a row for
// the same key changes the key once and the counter twice.
//
// A consumer may watch the counters (onAllocRequestCount / onDeallocRequestCount, where the key
// attribute holds the key of the request just made), or read requests(), every request in the order
// made, and drain it with requestsDelAll().
//
// Invariants:
//  1. Only a change notifies: writing the key it already holds, or raising a counter by 0, stores
//     and notifies nothing.
//  2. Raising a counter by n appends n requests of the current key to requests() before the
//     counter's reactors are called; a counter set lower (nothing here does) appends none.
//  3. requests().size() equals the sum of both counters minus the requests drained, as long as
//     the counters only rise.
//  4. requests() is the entity's own record of what was asked, not an attribute: nobody is
//     notified of it.

#include <cstddef>
#include <vector>

#include "framework/BitMapper/BitMapperKey.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Types.h"

namespace BitMapper {

class Config : public Kel::Entity {
 public:
  enum class RequestKind { alloc, dealloc };
  struct Request {
    RequestKind kind;
    BitMapperKey key;
    bool operator==(const Request& other) const { return kind == other.kind && key == other.key; }
  };

  class NotifieeConst : public Kel::Notifiee<Config> {
   public:
    KEL_ON(AllocRequestKey)
    KEL_ON(AllocRequestCount)
    KEL_ON(DeallocRequestKey)
    KEL_ON(DeallocRequestCount)
  };

  KEL_SCALAR(allocRequestKey, AllocRequestKey, BitMapperKey(), BitMapperKey)
  KEL_COUNTER_HOOKED(allocRequestCount, AllocRequestCount, 0, U64)
  KEL_SCALAR(deallocRequestKey, DeallocRequestKey, BitMapperKey(), BitMapperKey)
  KEL_COUNTER_HOOKED(deallocRequestCount, DeallocRequestCount, 0, U64)

  const std::vector<Request>& requests() const { return requests_; }
  void requestsDelAll() { requests_.clear(); }

 private:
  // The counters' hooks: each request the rise made, in the key written before it.
  void allocRequestCountChanged(U64 previous);
  void deallocRequestCountChanged(U64 previous);
  void requestsAppend(RequestKind kind, const BitMapperKey& key, U64 previous, U64 count);

  std::vector<Request> requests_;
};

std::ostream& operator<<(std::ostream& os, Config::RequestKind kind);
std::ostream& operator<<(std::ostream& os, const Config::Request& request);

}  // namespace BitMapper
