#include "framework/Routing/TrieGen.h"

#include <algorithm>
#include <sstream>

#include "framework/Kel/Exception.h"

namespace Routing {

namespace {

// Masks of the first len bits of a 128-bit key, per word, for len 0..128. A table rather than
// shifts: shifting a 64-bit word by 64 is undefined, and the lookup loop would need a branch per
// word to avoid it.
struct MaskTable {
  std::uint64_t hi[129];
  std::uint64_t lo[129];
  constexpr MaskTable() : hi{}, lo{} {
    for (unsigned len = 0; len <= 128; ++len) {
      hi[len] = len == 0 ? 0 : len >= 64 ? ~0ull : ~0ull << (64 - len);
      lo[len] = len <= 64 ? 0 : len == 128 ? ~0ull : ~0ull << (128 - len);
    }
  }
};

// Built at compile time, so tries used from other translation units' static initialisers see it.
constexpr MaskTable kMasks;

unsigned bitAt(std::uint64_t hi, std::uint64_t lo, unsigned pos) {
  return pos < 64 ? static_cast<unsigned>(hi >> (63 - pos)) & 1u
                  : static_cast<unsigned>(lo >> (127 - pos)) & 1u;
}

// How many leading bits the two keys share, 0..128.
unsigned commonBits(std::uint64_t hi1, std::uint64_t lo1, std::uint64_t hi2, std::uint64_t lo2) {
  if (hi1 != hi2) return static_cast<unsigned>(__builtin_clzll(hi1 ^ hi2));
  if (lo1 != lo2) return 64u + static_cast<unsigned>(__builtin_clzll(lo1 ^ lo2));
  return 128u;
}

std::uint64_t loadBigEndian(const std::uint8_t* bytes) {
  std::uint64_t v = 0;
  for (int i = 0; i < 8; ++i) v = (v << 8) | bytes[i];
  return v;
}

}  // namespace

TrieGen::TrieGen(const Kel::Name& name, Ipkit::AddressFamily af) : name_(name), af_(af) {
  if (af != Ipkit::ipv4() && af != Ipkit::ipv6()) {
    std::ostringstream os;
    os << "trie '" << name << "' needs family ipv4 or ipv6, got " << af;
    throw Kel::RangeException(os.str());
  }
}

TrieGen::Key TrieGen::keyOf(const Ipkit::IpGenPrefix& prefix) const {
  if (prefix.af() != af_) {
    std::ostringstream os;
    os << "trie '" << name_ << "' holds " << af_ << " prefixes: refused '" << prefix << "'";
    throw Kel::RangeException(os.str());
  }
  return keyBits(prefix);
}

TrieGen::Key TrieGen::keyBits(const Ipkit::IpGenPrefix& prefix) {
  // Prefixes arrive with their host bits cleared, so the words need no masking here.
  const auto& bytes = prefix.address().bytes();
  return Key{loadBigEndian(bytes.data()), loadBigEndian(bytes.data() + 8), prefix.len()};
}

std::uint32_t TrieGen::nodeNew(std::uint64_t hi, std::uint64_t lo, unsigned len) {
  const Node fresh{hi, lo, {kNil, kNil}, static_cast<std::uint8_t>(len), false};
  if (freeHead_ != kNil) {
    const std::uint32_t index = freeHead_;
    freeHead_ = nodes_[index].child[0];
    --freeNodes_;
    nodes_[index] = fresh;
    values_[index] = 0;
    return index;
  }
  // Indices keep their top bit free for the stride table's leaf mark.
  if (nodes_.size() >= kLeaf) throw Kel::RangeException("trie '" + name_ + "' is full");
  nodes_.push_back(fresh);
  values_.push_back(0);
  return static_cast<std::uint32_t>(nodes_.size() - 1);
}

void TrieGen::nodeDel(std::uint32_t index) {
  nodes_[index].child[0] = freeHead_;
  nodes_[index].child[1] = kNil;
  nodes_[index].hasRoute = false;
  freeHead_ = index;
  ++freeNodes_;
}

void TrieGen::link(std::uint32_t parent, unsigned side, std::uint32_t child) {
  if (parent == kNil) {
    root_ = child;
  } else {
    nodes_[parent].child[side] = child;
  }
}

void TrieGen::routeIs(const Ipkit::IpGenPrefix& prefix, std::uint32_t value) {
  const Key key = keyOf(prefix);
  std::uint32_t parent = kNil;
  unsigned side = 0;
  std::uint32_t cur = root_;
  while (cur != kNil) {
    // Copied, not referenced: nodeNew may grow the vector under us.
    const Node node = nodes_[cur];
    const unsigned common =
        std::min({commonBits(key.hi, key.lo, node.hi, node.lo), key.len, unsigned{node.len}});
    if (common < node.len) {
      // The node's prefix does not cover the key: the key either becomes the node's new parent,
      // or the two part at a new branching node holding what they share.
      std::uint32_t top;
      if (common == key.len) {
        top = nodeNew(key.hi, key.lo, key.len);
        nodes_[top].child[bitAt(node.hi, node.lo, key.len)] = cur;
        nodes_[top].hasRoute = true;
        values_[top] = value;
      } else {
        const std::uint32_t leaf = nodeNew(key.hi, key.lo, key.len);
        nodes_[leaf].hasRoute = true;
        values_[leaf] = value;
        top = nodeNew(key.hi & kMasks.hi[common], key.lo & kMasks.lo[common], common);
        const unsigned leafSide = bitAt(key.hi, key.lo, common);
        nodes_[top].child[leafSide] = leaf;
        nodes_[top].child[leafSide ^ 1u] = cur;
      }
      link(parent, side, top);
      ++routes_;
      strideChanged(key.hi, parent == kNil ? 0 : nodes_[parent].len + 1u);
      strideResize();
      return;
    }
    if (key.len == node.len) {
      values_[cur] = value;
      if (!node.hasRoute) {
        nodes_[cur].hasRoute = true;
        ++routes_;
        strideChanged(key.hi, key.len);
      }
      return;
    }
    parent = cur;
    side = bitAt(key.hi, key.lo, node.len);
    cur = node.child[side];
  }
  const bool parentWasLeaf =
      parent != kNil && nodes_[parent].child[0] == kNil && nodes_[parent].child[1] == kNil;
  const std::uint32_t leaf = nodeNew(key.hi, key.lo, key.len);
  nodes_[leaf].hasRoute = true;
  values_[leaf] = value;
  link(parent, side, leaf);
  ++routes_;
  if (parent == kNil || nodes_[parent].len < kStrideBits) {
    strideChanged(key.hi, parent == kNil ? 0 : nodes_[parent].len + 1u);
  } else if (parentWasLeaf) {
    strideChanged(key.hi, kStrideBits);  // the parent may be an entry marked as a leaf
  }
  strideResize();
}

void TrieGen::routeDel(const Ipkit::IpGenPrefix& prefix) {
  const Key key = keyOf(prefix);
  // Deleting a leaf can leave its parent branching no more; splicing that parent out needs the
  // grandparent, so the walk keeps two levels of history.
  std::uint32_t grandparent = kNil;
  unsigned grandparentSide = 0;
  std::uint32_t parent = kNil;
  unsigned parentSide = 0;
  std::uint32_t cur = root_;
  while (cur != kNil) {
    const Node& node = nodes_[cur];
    if (node.len > key.len || ((key.hi ^ node.hi) & kMasks.hi[node.len]) != 0 ||
        ((key.lo ^ node.lo) & kMasks.lo[node.len]) != 0) {
      return;
    }
    if (node.len == key.len) break;
    grandparent = parent;
    grandparentSide = parentSide;
    parent = cur;
    parentSide = bitAt(key.hi, key.lo, node.len);
    cur = node.child[parentSide];
  }
  if (cur == kNil || !nodes_[cur].hasRoute) return;

  Node& node = nodes_[cur];
  node.hasRoute = false;
  values_[cur] = 0;
  --routes_;
  if (node.child[0] != kNil && node.child[1] != kNil) {
    strideChanged(key.hi, key.len);  // still branches, but no longer a route to pass
    return;
  }
  if (node.child[0] != kNil || node.child[1] != kNil) {
    link(parent, parentSide, node.child[0] != kNil ? node.child[0] : node.child[1]);
    nodeDel(cur);
    strideChanged(key.hi, parent == kNil ? 0 : nodes_[parent].len + 1u);
    strideResize();
    return;
  }
  nodeDel(cur);
  if (parent == kNil) {
    // The last route is gone: drop the storage rather than keep a free list of the old peak.
    root_ = kNil;
    nodes_.clear();
    values_.clear();
    freeHead_ = kNil;
    freeNodes_ = 0;
    std::vector<Slot>().swap(stride_);
    return;
  }
  Node& up = nodes_[parent];
  up.child[parentSide] = kNil;
  if (up.hasRoute) {
    if (up.len < kStrideBits) {
      strideChanged(key.hi, up.len + 1u);
    } else if (up.child[parentSide ^ 1u] == kNil) {
      strideChanged(key.hi, kStrideBits);  // the parent may be an entry, now a leaf
    }
  } else {
    // A node without a route had two children; with one left it no longer branches.
    link(grandparent, grandparentSide, up.child[parentSide ^ 1u]);
    nodeDel(parent);
    strideChanged(key.hi, grandparent == kNil ? 0 : nodes_[grandparent].len + 1u);
  }
  strideResize();
}

void TrieGen::strideChanged(std::uint64_t hi, unsigned len) {
  if (stride_.empty() || len > kStrideBits) return;
  // Redo the walk down to depth len once; strideFill takes it from there for the whole range.
  std::uint8_t bestLen = kNoRoute;
  std::uint32_t cur = root_;
  while (cur != kNil && nodes_[cur].len < len) {
    const Node& node = nodes_[cur];
    if (((hi ^ node.hi) & kMasks.hi[node.len]) != 0) {
      cur = kNil;
      break;
    }
    if (node.hasRoute) bestLen = node.len;
    cur = node.child[bitAt(hi, 0, node.len)];
  }
  const auto first = static_cast<std::uint32_t>((hi & kMasks.hi[len]) >> (64 - kStrideBits));
  strideFill(cur, bestLen, first, len);
}

void TrieGen::strideFill(std::uint32_t cur, std::uint8_t bestLen, std::uint32_t first,
                         unsigned len) {
  const std::uint32_t count = 1u << (kStrideBits - len);
  const Slot ended{kNil, 0, 0, bestLen};  // walks that end before the table's depth
  const auto fill = [&](std::uint32_t from, std::uint32_t to, Slot slot) {
    std::fill(stride_.begin() + from, stride_.begin() + to, slot);
  };
  if (cur == kNil) {
    fill(first, first + count, ended);
    return;
  }
  const Node& node = nodes_[cur];
  if (node.len >= kStrideBits) {
    // Past the table's depth the node's prefix covers one slot at most; walks of the others
    // part from it within the first kStrideBits bits and end there.
    fill(first, first + count, ended);
    const auto own = static_cast<std::uint32_t>(node.hi >> (64 - kStrideBits));
    if (own >= first && own < first + count) {
      const bool leaf = node.child[0] == kNil && node.child[1] == kNil && node.len <= 32;
      stride_[own] = Slot{cur | (leaf ? kLeaf : 0u), static_cast<std::uint16_t>(node.hi >> 32),
                          node.len, bestLen};
    }
    return;
  }
  const auto nodeFirst = static_cast<std::uint32_t>(node.hi >> (64 - kStrideBits));
  const std::uint32_t nodeCount = 1u << (kStrideBits - node.len);
  if (nodeFirst < first || nodeFirst >= first + count) {
    fill(first, first + count, ended);
    return;
  }
  // Walks outside the node's prefix end at the node; those inside go on to its children.
  fill(first, nodeFirst, ended);
  fill(nodeFirst + nodeCount, first + count, ended);
  const std::uint8_t below = node.hasRoute ? node.len : bestLen;
  const std::uint32_t left = node.child[0];
  const std::uint32_t right = node.child[1];
  const unsigned childLen = node.len + 1u;
  strideFill(left, below, nodeFirst, childLen);
  strideFill(right, below, nodeFirst + nodeCount / 2, childLen);
}

void TrieGen::strideResize() {
  if (stride_.empty()) {
    if (nodes() >= kStrideOnNodes) {
      stride_.resize(std::size_t{1} << kStrideBits);
      strideChanged(0, 0);
    }
  } else if (nodes() < kStrideOffNodes) {
    std::vector<Slot>().swap(stride_);
  }
}

std::uint32_t TrieGen::find(const Key& key) const {
  std::uint32_t cur = root_;
  if (!stride_.empty() && key.len >= kStrideBits) {
    const std::uint32_t entry = stride_[key.hi >> (64 - kStrideBits)].entry;
    cur = entry == kNil ? kNil : entry & ~kLeaf;
  }
  while (cur != kNil) {
    const Node& node = nodes_[cur];
    if (node.len > key.len || ((key.hi ^ node.hi) & kMasks.hi[node.len]) != 0 ||
        ((key.lo ^ node.lo) & kMasks.lo[node.len]) != 0) {
      return kNil;
    }
    if (node.len == key.len) return node.hasRoute ? cur : kNil;
    cur = node.child[bitAt(key.hi, key.lo, node.len)];
  }
  return kNil;
}

Ipkit::IpGenPrefix TrieGen::longestMatch(const Ipkit::IpGenPrefix& prefix) const {
  if (prefix.af() != af_) return Ipkit::IpGenPrefix();
  const Key key = keyBits(prefix);
  // Only the length of the best route is kept: the route contains the key, so its prefix is the
  // key cut to that length, and building the answer needs no further node.
  unsigned bestLen = kNoRoute;
  std::uint32_t cur = root_;
  if (!stride_.empty() && key.len >= kStrideBits) {
    const Slot slot = stride_[key.hi >> (64 - kStrideBits)];
    cur = kNil;
    bestLen = slot.bestLen;
    if (slot.entry != kNil) {
      // The entry's first 16 bits are the slot's; compare its bits 16 .. min(len, 32) here. A
      // difference, or an entry longer than the key, ends the walk at the entry. A leaf that
      // passes is matched in full, and being a leaf it carries a route.
      const unsigned checked = std::min(unsigned{slot.entryLen}, 32u) - kStrideBits;
      const auto mask = static_cast<std::uint16_t>(~(0xffffu >> checked));
      const auto diff = static_cast<std::uint16_t>((key.hi >> 32) ^ slot.entryBits);
      if (slot.entryLen <= key.len && (diff & mask) == 0) {
        if ((slot.entry & kLeaf) != 0) {
          bestLen = slot.entryLen;
        } else {
          cur = slot.entry;
        }
      }
    }
  }
  while (cur != kNil) {
    const Node& node = nodes_[cur];
    if (node.len > key.len || ((key.hi ^ node.hi) & kMasks.hi[node.len]) != 0 ||
        ((key.lo ^ node.lo) & kMasks.lo[node.len]) != 0) {
      break;
    }
    if (node.hasRoute) bestLen = node.len;
    if (node.len == key.len) break;
    cur = node.child[bitAt(key.hi, key.lo, node.len)];
  }
  return bestLen == kNoRoute ? Ipkit::IpGenPrefix() : Ipkit::IpGenPrefix(prefix.address(), bestLen);
}

std::uint32_t TrieGen::route(const Ipkit::IpGenPrefix& prefix) const {
  if (prefix.af() != af_) return 0;
  const std::uint32_t index = find(keyOf(prefix));
  return index == kNil ? 0 : values_[index];
}

bool TrieGen::hasRoute(const Ipkit::IpGenPrefix& prefix) const {
  if (prefix.af() != af_) return false;
  return find(keyOf(prefix)) != kNil;
}

}  // namespace Routing
