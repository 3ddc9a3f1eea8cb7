#pragma once
// The candidate workload shared by the RP selection benchmarks, and the plain selector that serves
// as their baseline: the same selection rule over a vector of candidates with a sorted-vector
// prefix lookup, no framework.

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpCandidateStatus.h"

namespace RpBench {

using Routing::Pim::Mode;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimSm;

constexpr std::size_t kPrefixes = 1000;
constexpr std::size_t kGroups = 1u << 14;  // a power of two, cycled with a mask

inline std::uint32_t maskOf(unsigned len) { return len == 0 ? 0u : ~0u << (32 - len); }

struct Layout {
  int sparse;
  int bidir;
};

struct PlainCandidate {
  std::uint32_t address;
  std::uint32_t priority;
  std::uint32_t hashMaskLen;
  Mode mode;
};

struct PlainPrefix {
  std::uint32_t network;
  unsigned len;
  std::vector<PlainCandidate> candidates;  // ascending address
};

struct Workload {
  std::vector<PlainPrefix> prefixes;
  std::vector<std::uint32_t> groups;
};

inline Workload makeWorkload(Layout layout, unsigned seed = 2024u) {
  std::mt19937 rng(seed);
  Workload work;
  std::vector<std::pair<std::uint32_t, unsigned>> seen;
  while (work.prefixes.size() < kPrefixes) {
    const unsigned len = 8 + rng() % 21;
    const std::uint32_t network =
        (0xe0000000u | (static_cast<std::uint32_t>(rng()) & 0x0fffffffu)) & maskOf(len);
    if (std::find(seen.begin(), seen.end(), std::make_pair(network, len)) != seen.end()) continue;
    seen.emplace_back(network, len);
    PlainPrefix prefix{network, len, {}};
    const int total = layout.sparse + layout.bidir;
    for (int i = 0; i < total; ++i) {
      prefix.candidates.push_back({0x0a000000u + static_cast<std::uint32_t>(rng() % 65536) * 4 +
                                       static_cast<std::uint32_t>(i),
                                   static_cast<std::uint32_t>(rng() % 2), 30,
                                   i < layout.bidir ? modePimBidir : modePimSm});
    }
    std::sort(prefix.candidates.begin(), prefix.candidates.end(),
              [](const auto& a, const auto& b) { return a.address < b.address; });
    work.prefixes.push_back(prefix);
  }
  for (std::size_t i = 0; i < kGroups; ++i) {
    const auto& prefix = work.prefixes[rng() % kPrefixes];
    work.groups.push_back(prefix.network |
                          (static_cast<std::uint32_t>(rng()) & ~maskOf(prefix.len)));
  }
  return work;
}

// The baseline: prefixes sorted by (length, network), searched per length from longest.
class PlainSelector {
 public:
  explicit PlainSelector(const std::vector<PlainPrefix>& prefixes) : prefixes_(prefixes) {
    std::sort(prefixes_.begin(), prefixes_.end(), [](const auto& a, const auto& b) {
      return a.len != b.len ? a.len > b.len : a.network < b.network;
    });
    for (std::size_t i = 0; i < prefixes_.size(); ++i) {
      if (ranges_.empty() || prefixes_[ranges_.back().first].len != prefixes_[i].len) {
        ranges_.emplace_back(i, i);
      }
      ranges_.back().second = i + 1;
    }
  }

  std::uint32_t select(std::uint32_t group) const {
    const PlainPrefix* match = longestMatch(group);
    if (match == nullptr) return 0;
    const PlainCandidate* best = nullptr;
    std::uint32_t bestHash = 0;
    const bool anyBidir = std::any_of(match->candidates.begin(), match->candidates.end(),
                                      [](const auto& c) { return c.mode == modePimBidir; });
    for (const auto& c : match->candidates) {
      if ((c.mode == modePimBidir) != anyBidir) continue;
      const std::uint32_t hash = c.mode == modePimSm ? hashOf(group, c.hashMaskLen, c.address) : 0;
      if (best == nullptr || c.priority < best->priority ||
          (c.priority == best->priority &&
           (hash > bestHash || (hash == bestHash && c.address > best->address)))) {
        best = &c;
        bestHash = hash;
      }
    }
    return best ? best->address : 0;
  }

 private:
  static std::uint32_t hashOf(std::uint32_t group, std::uint32_t len, std::uint32_t rp) {
    const std::uint32_t gm = (group & maskOf(std::min(len, 32u))) * 1103515245u;
    return (((gm + 12345u) ^ rp) * 1103515245u + 12345u) & 0x7fffffffu;
  }

  const PlainPrefix* longestMatch(std::uint32_t group) const {
    for (const auto& [first, last] : ranges_) {
      const auto from = prefixes_.begin() + static_cast<std::ptrdiff_t>(first);
      const auto to = prefixes_.begin() + static_cast<std::ptrdiff_t>(last);
      const std::uint32_t network = group & maskOf(from->len);
      auto at = std::lower_bound(from, to, network,
                                 [](const auto& p, std::uint32_t n) { return p.network < n; });
      if (at != to && at->network == network) return &*at;
    }
    return nullptr;
  }

  std::vector<PlainPrefix> prefixes_;
  std::vector<std::pair<std::size_t, std::size_t>> ranges_;  // one [first, last) per length
};

// Writes the workload's candidates into a status as a source's writer would.
inline void fillStatus(const Workload& work, Routing::Pim::RpCandidateStatus& status) {
  for (const auto& p : work.prefixes) {
    auto set = status.crpSetIs(Ipkit::IpGenPrefix(Ipkit::IpGenAddr::ip4(p.network), p.len));
    for (const auto& c : p.candidates) {
      auto candidate = set->rpIs(Ipkit::IpGenAddr::ip4(c.address));
      candidate->priorityIs(c.priority);
      candidate->hashMaskLenIs(c.hashMaskLen);
      candidate->pimModeIs(c.mode);
    }
  }
}

}  // namespace RpBench
