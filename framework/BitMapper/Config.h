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
//     counter's reactors are called.
//  3. requests().size() equals the sum of both counters minus the requests drained.

#include <cstddef>
#include <vector>

#include "framework/BitMapper/BitMapperKey.h"
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
    virtual void onAllocRequestKey() {}
    virtual void onAllocRequestCount() {}
    virtual void onDeallocRequestKey() {}
    virtual void onDeallocRequestCount() {}
  };

  const BitMapperKey& allocRequestKey() const { return allocRequestKey_; }
  void allocRequestKeyIs(const BitMapperKey& key);
  U64 allocRequestCount() const { return allocRequestCount_; }
  void allocRequestCountInc(unsigned count);

  const BitMapperKey& deallocRequestKey() const { return deallocRequestKey_; }
  void deallocRequestKeyIs(const BitMapperKey& key);
  U64 deallocRequestCount() const { return deallocRequestCount_; }
  void deallocRequestCountInc(unsigned count);

  const std::vector<Request>& requests() const { return requests_; }
  void requestsDelAll() { requests_.clear(); }

 private:
  void requestsAppend(RequestKind kind, const BitMapperKey& key, unsigned count);

  BitMapperKey allocRequestKey_;
  U64 allocRequestCount_ = 0;
  BitMapperKey deallocRequestKey_;
  U64 deallocRequestCount_ = 0;
  std::vector<Request> requests_;
};

std::ostream& operator<<(std::ostream& os, Config::RequestKind kind);
std::ostream& operator<<(std::ostream& os, const Config::Request& request);

}  // namespace BitMapper
