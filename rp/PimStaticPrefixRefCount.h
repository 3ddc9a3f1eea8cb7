#pragma once
// Routing::Pim::Static::PrefixRefCount: for one static RP, how many sources (its explicit group
// entries and each access list it uses) currently give it each group prefix. The candidate of a
// prefix stays in the static status while its count is non-zero, so the RP keeps a prefix as
// long as any one source still gives it.
//
// Invariants:
//  1. counterInc and counterDec create an absent counter at 0 before changing it, and return the
//     value stored.
//  2. counterDec wraps below zero (unsigned arithmetic) and is never clamped: a count driven below
//     zero reads as 4294967295, which the owner treats as still referenced. Clamping would hide a
//     bookkeeping fault by deleting a candidate that some source may still give.
//  3. Every stored change of a counter notifies onCounter(prefix); storing the value already held
//     notifies nothing.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Types.h"

namespace Routing {
namespace Pim {
namespace Static {

class PrefixRefCount : public Kel::Entity {
 public:
  using CounterCollection = Kel::HashCollection<Ipkit::IpGenPrefix, U32>;

  class NotifieeConst : public Kel::Notifiee<PrefixRefCount> {
   public:
    KEL_ON_KEY(Counter, Ipkit::IpGenPrefix)
  };

  KEL_KEY(PrefixRefCount, rpAddr, Ipkit::IpGenAddr)

  // counter(prefix) reads 0 when absent; counterDec wraps below zero (invariant 2).
  KEL_COUNTER_COLLECTION(counter, Counter, CounterCollection)
};

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
