// Longest-match lookups in Routing::TrieGen against a plain sorted vector searched once per
// stored length, over random IPv4 prefixes of length 8..32.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Routing/TrieGen.h"

namespace {

constexpr std::size_t kQueries = 1u << 16;  // a power of two, cycled with a mask

std::uint32_t maskOf(unsigned len) { return len == 0 ? 0u : ~0u << (32 - len); }

// (network, length) pairs with fixed seeds, so every run measures the same tables.
// `count` distinct (network, length) pairs.
std::vector<std::pair<std::uint32_t, unsigned>> randomRoutes(std::size_t count) {
  std::mt19937 rng(12345u);
  std::set<std::pair<std::uint32_t, unsigned>> routes;
  while (routes.size() < count) {
    const unsigned len = 8 + rng() % 25;
    routes.emplace(static_cast<std::uint32_t>(rng()) & maskOf(len), len);
  }
  // Insertion in random order, as routes arrive, rather than in the set's sorted order.
  std::vector<std::pair<std::uint32_t, unsigned>> shuffled(routes.begin(), routes.end());
  std::shuffle(shuffled.begin(), shuffled.end(), rng);
  return shuffled;
}

std::vector<std::uint32_t> randomAddresses() {
  std::mt19937 rng(67890u);
  std::vector<std::uint32_t> addresses(kQueries);
  for (auto& a : addresses) a = static_cast<std::uint32_t>(rng());
  return addresses;
}

void BM_TrieGen_LongestMatch(benchmark::State& state) {
  Routing::TrieGen trie("bench", Ipkit::ipv4());
  std::uint32_t value = 1;
  for (const auto& [network, len] : randomRoutes(static_cast<std::size_t>(state.range(0)))) {
    trie.routeIs(Ipkit::IpGenPrefix(Ipkit::IpGenAddr::ip4(network), len), value++);
  }
  std::vector<Ipkit::IpGenPrefix> queries;
  queries.reserve(kQueries);
  for (std::uint32_t a : randomAddresses()) {
    queries.push_back(Ipkit::IpGenPrefix::hostPrefix(Ipkit::IpGenAddr::ip4(a)));
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(trie.longestMatch(queries[i++ & (kQueries - 1)]));
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["routes"] = static_cast<double>(trie.routes());
  state.counters["nodes"] = static_cast<double>(trie.nodes());
}
BENCHMARK(BM_TrieGen_LongestMatch)->Arg(10000)->Arg(100000);

// The baseline: all (network, length) pairs in one sorted vector; a lookup tries each length
// present, longest first, with a binary search for the address masked to that length.
void BM_Baseline_SortedVectorLongestMatch(benchmark::State& state) {
  auto routes = randomRoutes(static_cast<std::size_t>(state.range(0)));
  std::sort(routes.begin(), routes.end());
  routes.erase(std::unique(routes.begin(), routes.end()), routes.end());
  std::vector<unsigned> lengths;
  for (const auto& route : routes) lengths.push_back(route.second);
  std::sort(lengths.begin(), lengths.end(), std::greater<unsigned>());
  lengths.erase(std::unique(lengths.begin(), lengths.end()), lengths.end());

  const auto longestMatch = [&](std::uint32_t addr) -> const std::pair<std::uint32_t, unsigned>* {
    for (unsigned len : lengths) {
      const std::pair<std::uint32_t, unsigned> key(addr & maskOf(len), len);
      const auto it = std::lower_bound(routes.begin(), routes.end(), key);
      if (it != routes.end() && *it == key) return &*it;
    }
    return nullptr;
  };

  const std::vector<std::uint32_t> queries = randomAddresses();
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(longestMatch(queries[i++ & (kQueries - 1)]));
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["routes"] = static_cast<double>(routes.size());
}
BENCHMARK(BM_Baseline_SortedVectorLongestMatch)->Arg(10000)->Arg(100000);

}  // namespace
