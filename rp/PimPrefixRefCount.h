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
    virtual void onCounter(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
  };

  explicit PrefixRefCount(const Ipkit::IpGenAddr& rpAddr) : rpAddr_(rpAddr) {}

  const Ipkit::IpGenAddr& rpAddr() const { return rpAddr_; }

  const CounterCollection& counter() const { return counter_; }
  // The count of `prefix`; an absent counter reads 0.
  U32 counter(const Ipkit::IpGenPrefix& prefix) const { return counter_.find(prefix); }

  void counterIs(const Ipkit::IpGenPrefix& prefix, U32 value) {
    if (counter_.set(prefix, value)) notify(&NotifieeConst::onCounter, prefix);
  }
  U32 counterInc(const Ipkit::IpGenPrefix& prefix, U32 n) {
    const U32 value = counter(prefix) + n;
    counterIs(prefix, value);
    return value;
  }
  // Unsigned wrap-around below zero is intended (invariant 2).
  U32 counterDec(const Ipkit::IpGenPrefix& prefix, U32 n) {
    const U32 value = counter(prefix) - n;
    counterIs(prefix, value);
    return value;
  }
  void counterDel(const Ipkit::IpGenPrefix& prefix) {
    if (counter_.erase(prefix)) notify(&NotifieeConst::onCounter, prefix);
  }
  void counterDelAll() {
    counter_.eraseAll(
        [&](const Ipkit::IpGenPrefix& prefix) { notify(&NotifieeConst::onCounter, prefix); });
  }

 private:
  const Ipkit::IpGenAddr rpAddr_;
  CounterCollection counter_;
};

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
