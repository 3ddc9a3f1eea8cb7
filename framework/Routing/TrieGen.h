#pragma once
// Routing::TrieGen: a path-compressed binary prefix trie (PATRICIA style) over the prefixes of one
// address family, mapping each stored prefix to a 32-bit value. It answers "which configured
// group range is the longest one covering this group" without scanning the ranges.
//
// Invariants:
//  1. Every node holds a prefix; a child's prefix extends its parent's and sits on the side given
//     by the child's first bit past the parent's length.
//  2. Every node either carries a route or has two children: deleting a route collapses nodes that
//     no longer branch, so nodes() is exactly the routes plus the branching nodes, and 0 when no
//     route is left.
//  3. Each operation walks at most one node per address bit (33 for IPv4, 129 for IPv6), whatever
//     the number of routes.
//  4. Nodes live in one vector and refer to each other by index; freed nodes are kept on a free
//     list and reused, so churn does not allocate per node.
//  5. All prefixes handed in are of af(); any other family, the empty prefix included, is refused
//     with Kel::RangeException naming the prefix, and the trie is left unchanged.
//  6. Once the trie reaches kStrideOnNodes nodes it keeps a stride table: for every value of the
//     first kStrideBits address bits, the first node a walk would reach at or past that depth and
//     the longest route it would have passed on the way. Lookups of prefixes at least that long
//     start there, skipping the top of the trie, where a walk spends most of its time once the
//     nodes no longer fit in the first-level cache (1024 nodes are 32 KiB): each node of the walk
//     then waits on a slower load. The table always agrees with the nodes: a change at depth
//     d <= kStrideBits rewrites the 2^(kStrideBits - d) entries under it (a fixed bound, not a
//     scan of routes). The table takes 512 KiB; below kStrideOffNodes nodes it is dropped again.
//  7. changedRoute is an announcement, not part of the routes: whoever owns the routes sets it to
//     each route it has added, replaced or withdrawn, once the change is complete everywhere the
//     owner keeps routes, and every such call notifies onChangedRoute() (the same prefix twice
//     included: each call reports a separate change). The trie never sets it itself.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/String.h"

namespace Routing {

class TrieGen : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<TrieGen> {
   public:
    KEL_ON(ChangedRoute)
  };

  // REQUIRES: af is ipv4 or ipv6.
  TrieGen(const Kel::Name& name, Ipkit::AddressFamily af);

  const Kel::Name& name() const { return name_; }
  Ipkit::AddressFamily af() const { return af_; }

  // Inserts the route, or replaces the value of an existing one.
  // REQUIRES: prefix.af() == af().
  void routeIs(const Ipkit::IpGenPrefix& prefix, std::uint32_t value);
  // No effect when the route is absent.
  // REQUIRES: prefix.af() == af().
  void routeDel(const Ipkit::IpGenPrefix& prefix);

  // The longest stored prefix that contains prefix (itself included), or the empty prefix.
  // A prefix of another family (a group of the other family, say) is contained by nothing here.
  Ipkit::IpGenPrefix longestMatch(const Ipkit::IpGenPrefix& prefix) const;
  // The value stored for exactly this prefix, 0 when it has no route (or is of another family).
  std::uint32_t route(const Ipkit::IpGenPrefix& prefix) const;
  bool hasRoute(const Ipkit::IpGenPrefix& prefix) const;

  // The last route announced as changed (invariant 7); the empty prefix before the first. Not a
  // declared scalar: a declared scalar stays silent when given the prefix it holds, while here
  // each call is an event of its own (a route added and then withdrawn is announced twice).
  const Ipkit::IpGenPrefix& changedRoute() const { return changedRoute_; }
  // REQUIRES: prefix.af() == af().
  void changedRouteIs(const Ipkit::IpGenPrefix& prefix) {
    keyOf(prefix);  // refuses another family like every other write
    changedRoute_ = prefix;
    notify(&NotifieeConst::onChangedRoute);
  }

  std::size_t nodes() const { return nodes_.size() - freeNodes_; }
  std::size_t routes() const { return routes_; }

  // The stride table's depth, and the sizes at which it is built and dropped; public so that
  // tests can drive a trie across them.
  static constexpr unsigned kStrideBits = 16;
  static constexpr std::size_t kStrideOnNodes = 1024;
  static constexpr std::size_t kStrideOffNodes = 256;

 private:
  static constexpr std::uint32_t kNil = 0xffffffffu;

  // Keys are the prefix's address as two big-endian words (IPv4 in the top half of hi) and its
  // length; the words carry no bits past the length.
  struct Key {
    std::uint64_t hi;
    std::uint64_t lo;
    unsigned len;
  };

  // 32 bytes and aligned to them: two to a cache line, none straddling two. Route values live in
  // values_ so that lookups, which need a value only at the end, do not drag them through the
  // cache.
  struct alignas(32) Node {
    std::uint64_t hi;
    std::uint64_t lo;
    std::uint32_t child[2];
    std::uint8_t len;
    bool hasRoute;
  };

  // Where a walk for the first kStrideBits bits of a key lands: the entry, the first node at or
  // past that depth whose own first kStrideBits bits are the slot's (kNil when the walk ends
  // earlier), and the length of the longest route passed on the way (kNoRoute when none). The
  // length is all a lookup needs of that route: the route contains the key, so its prefix is the
  // key cut to that length. The entry's length and next 16 key bits ride along, and kLeaf marks
  // an entry without children that those bits describe in full: a lookup then settles most keys
  // without loading the entry node, usually a cache miss in a large trie. 8 bytes.
  struct Slot {
    std::uint32_t entry;      // node index, or'ed with kLeaf
    std::uint16_t entryBits;  // the entry's key bits kStrideBits .. kStrideBits + 15
    std::uint8_t entryLen;
    std::uint8_t bestLen;
  };
  static constexpr std::uint32_t kLeaf = 0x80000000u;
  static constexpr std::uint8_t kNoRoute = 0xff;
  static_assert(kStrideBits == 16, "Slot::entryBits holds key bits 16..31");

  Key keyOf(const Ipkit::IpGenPrefix& prefix) const;
  // keyOf without the family check, for a caller that has made it already.
  static Key keyBits(const Ipkit::IpGenPrefix& prefix);
  // The index of the node holding exactly key, or kNil.
  std::uint32_t find(const Key& key) const;
  std::uint32_t nodeNew(std::uint64_t hi, std::uint64_t lo, unsigned len);
  void nodeDel(std::uint32_t index);
  void link(std::uint32_t parent, unsigned side, std::uint32_t child);
  // The walk below the pointer or node at depth len on the path of hi may have changed: rewrite
  // the stride entries under it. Changes deeper than kStrideBits leave the table alone, except
  // for an entry gaining its first child or losing its last, which callers pass as depth
  // kStrideBits.
  void strideChanged(std::uint64_t hi, unsigned len);
  // Rewrites the entries [first, first + 2^(kStrideBits - len)), whose walks all arrive at cur
  // having passed a longest route of length bestLen (or kNoRoute).
  void strideFill(std::uint32_t cur, std::uint8_t bestLen, std::uint32_t first, unsigned len);
  // Builds or drops the table as the trie crosses kStrideOnNodes / kStrideOffNodes.
  void strideResize();

  Kel::Name name_;
  Ipkit::AddressFamily af_;
  std::vector<Node> nodes_;
  std::vector<std::uint32_t> values_;
  std::uint32_t root_ = kNil;
  std::uint32_t freeHead_ = kNil;  // freed nodes chain through child[0]
  std::size_t freeNodes_ = 0;
  std::size_t routes_ = 0;
  std::vector<Slot> stride_;  // empty while the trie is small
  Ipkit::IpGenPrefix changedRoute_;
};

}  // namespace Routing
