#pragma once
// The scratch sets that one RP selection fills and empties (see RpCompute):
//  - CrpSet: candidates of one mode for the matched group prefix, ascending by address;
//  - RpPrioritySet: candidates sharing one priority;
//  - RpHashMaskSet: candidates sharing one RFC 7761 hash value (`hashMask` is the hash value, not
//    a mask length).
// They hold references to the candidates of the status, never copies. Each keeps its members in
// one small sorted array that keeps its storage when emptied, because a selection fills and
// empties them on every call; the candidate sets of one prefix are small, so up to four members
// live inside the set itself and a selection allocates nothing but the sets.

#include <boost/container/small_vector.hpp>
#include <utility>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Types.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidate.h"

namespace Routing {
namespace Pim {

// The members and the four operations the three sets share.
class CandidateRefSet : public Kel::Entity {
 public:
  using RpCollection = Kel::FlatCollection<
      Ipkit::IpGenAddr, Kel::PtrConst<RpCandidate>, Kel::PtrConst<RpCandidate>,
      boost::container::small_vector<std::pair<Ipkit::IpGenAddr, Kel::PtrConst<RpCandidate>>, 4>>;

  // rp(), rp(address), rpIs(address, candidate) (inserts or replaces), rpDel(address), rpDelAll()
  // (keeps the storage).
  KEL_OWNED_VALUE_COLLECTION(rp, RpCollection)
  U32 rps() const { return static_cast<U32>(rp_.size()); }
};

class CrpSet : public CandidateRefSet {};

// A CandidateRefSet that one value (a priority, a hash value) names. RpCompute keeps emptied
// sets for its next selection and renames them (reuseFor), so that a warm selection allocates
// no set at all.
template <class V>
class NamedRefSet : public CandidateRefSet {
 public:
  explicit NamedRefSet(V value) : value_(value) {}
  // Empties the set before it waits for its next use.
  void recycle() { rpDelAll(); }
  // REQUIRES: empty, and held by nobody but the caller.
  void reuseFor(V value) { value_ = value; }

 protected:
  V value() const { return value_; }

 private:
  V value_;
};

class RpPrioritySet : public NamedRefSet<RpPriority> {
 public:
  using NamedRefSet::NamedRefSet;
  RpPriority priority() const { return value(); }
};

class RpHashMaskSet : public NamedRefSet<U32> {
 public:
  using NamedRefSet::NamedRefSet;
  U32 hashMask() const { return value(); }
};

}  // namespace Pim
}  // namespace Routing
