// RP selection through RpCompute against the same rule written as a plain function over a vector
// of candidates with a sorted-vector prefix lookup, no framework. Both see the same 1,000 random
// group prefixes inside 224.0.0.0/4 and the same groups, each covered by some prefix.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "rp/PimRpCompute.h"

namespace {

using namespace Routing::Pim;

constexpr std::size_t kPrefixes = 1000;
constexpr std::size_t kGroups = 1u << 14;  // a power of two, cycled with a mask

std::uint32_t maskOf(unsigned len) { return len == 0 ? 0u : ~0u << (32 - len); }

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

Workload makeWorkload(Layout layout) {
  std::mt19937 rng(2024u);
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

Layout layoutOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

void BM_RpCompute_DoComputeRp(benchmark::State& state) {
  const Workload work = makeWorkload(layoutOf(state));
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  Kel::Ptr<RpConfig> config(new RpConfig);
  auto compute = rpComputeFactory(status, config);
  auto trie = compute->grpTrieIs("crpTrie", Ipkit::ipv4());
  for (const auto& p : work.prefixes) {
    const Ipkit::IpGenPrefix prefix(Ipkit::IpGenAddr::ip4(p.network), p.len);
    auto set = status->crpSetIs(prefix);
    for (const auto& c : p.candidates) {
      auto candidate = set->rpIs(Ipkit::IpGenAddr::ip4(c.address));
      candidate->priorityIs(c.priority);
      candidate->hashMaskLenIs(c.hashMaskLen);
      candidate->pimModeIs(c.mode);
    }
    trie->routeIs(prefix, 1);
  }
  std::vector<Ipkit::IpGenAddr> groups;
  for (std::uint32_t g : work.groups) groups.push_back(Ipkit::IpGenAddr::ip4(g));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(compute->doComputeRp(groups[i++ & (kGroups - 1)]));
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Baseline_PlainSelect(benchmark::State& state) {
  const Workload work = makeWorkload(layoutOf(state));
  const PlainSelector selector(work.prefixes);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(selector.select(work.groups[i++ & (kGroups - 1)]));
  }
  state.SetItemsProcessed(state.iterations());
}

// Arguments: sparse candidates per prefix, bidirectional candidates per prefix.
BENCHMARK(BM_RpCompute_DoComputeRp)->Args({1, 0})->Args({4, 0})->Args({0, 2});
BENCHMARK(BM_Baseline_PlainSelect)->Args({1, 0})->Args({4, 0})->Args({0, 2});

void BM_RpCompute_DoComputeHashMask(benchmark::State& state) {
  Kel::Ptr<RpCompute> compute =
      rpComputeFactory(Kel::Ptr<RpCandidateStatus>(new RpCandidateStatus), nullptr);
  const bool v6 = state.range(0) == 6;
  const Ipkit::IpGenAddr group(v6 ? "ff0e::1:2" : "239.1.1.1");
  const Ipkit::IpGenAddr rp(v6 ? "2001:db8::1" : "10.0.0.1");
  const RpHashMaskLen len = v6 ? 126 : 30;
  for (auto _ : state) {
    benchmark::DoNotOptimize(compute->doComputeHashMask(modePimSm, group, len, rp));
  }
}
BENCHMARK(BM_RpCompute_DoComputeHashMask)->Arg(4)->Arg(6);

}  // namespace
