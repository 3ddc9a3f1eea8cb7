// The local RP decision and route churn through RpLocalSm, each against a plain baseline over
// unordered_maps with the same prefix trie for the longest match.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Routing/Shadow/ShadowStatus.h"
#include "framework/Routing/TrieGen.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpLocalStatus.h"
#include "rp/PimRpLocalSm.h"

namespace {

using Ipkit::IntfId;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::ShadowFib::ViaEntry;

constexpr std::size_t kRoutes = 100000;
constexpr std::size_t kQueries = 1u << 16;  // a power of two, cycled with a mask
constexpr std::uint32_t kLocalType = 1;
constexpr std::uint32_t kOtherType = 2;

std::uint32_t maskOf(unsigned len) { return len == 0 ? 0u : ~0u << (32 - len); }

struct PlainRoute {
  std::uint32_t network;
  unsigned len;
  std::uint32_t type;
};

// kRoutes distinct routes, half of them host routes (of which half of the local type), the rest
// of length 8..31; fixed seed, so every run measures the same table.
std::vector<PlainRoute> randomRoutes() {
  std::mt19937 rng(4242u);
  std::set<std::pair<std::uint32_t, unsigned>> seen;
  std::vector<PlainRoute> routes;
  while (routes.size() < kRoutes) {
    const bool host = rng() % 2 == 0;
    const unsigned len = host ? 32 : 8 + rng() % 24;
    const std::uint32_t network = static_cast<std::uint32_t>(rng()) & maskOf(len);
    if (!seen.emplace(network, len).second) continue;
    routes.push_back({network, len, host && rng() % 2 == 0 ? kLocalType : kOtherType});
  }
  return routes;
}

// Addresses of host routes, to be asked about: each reaches every table.
std::vector<IpGenAddr> hostQueries(const std::vector<PlainRoute>& routes) {
  std::vector<IpGenAddr> hosts;
  for (const auto& route : routes) {
    if (route.len == 32) hosts.push_back(IpGenAddr::ip4(route.network));
  }
  std::mt19937 rng(777u);
  std::vector<IpGenAddr> queries(kQueries);
  for (auto& query : queries) query = hosts[rng() % hosts.size()];
  return queries;
}

IpGenPrefix prefixOf(const PlainRoute& route) {
  return IpGenPrefix(IpGenAddr::ip4(route.network), route.len);
}

std::string interfaceOf(std::uint32_t network) {
  return "Ethernet" + std::to_string(network % 48 + 1);
}

void BM_RpLocal_IsLocal(benchmark::State& state) {
  const auto routes = randomRoutes();
  Kel::Ptr<Routing::Shadow::Status> shadow(new Routing::Shadow::Status("uribTrie"));
  for (const auto& route : routes) {
    shadow->routeIs(
        prefixOf(route), route.type,
        {ViaEntry{IpGenAddr::ip4(route.network | 1u), IntfId(interfaceOf(route.network))}});
  }
  Kel::Ptr<Routing::Pim::RpLocalStatus> local(new Routing::Pim::RpLocalStatus);
  const auto sm = Routing::Pim::rpLocalSmFactory(nullptr, nullptr, local);
  sm->uribShadowIs(shadow);
  const auto queries = hostQueries(routes);
  std::size_t i = 0;
  std::size_t found = 0;
  for (auto _ : state) {
    const IntfId intf = sm->isLocal(queries[i++ & (kQueries - 1)]);
    found += intf.isNull() ? 0 : 1;
    benchmark::DoNotOptimize(intf);
  }
  state.counters["localShare"] =
      static_cast<double>(found) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_RpLocal_IsLocal);

// The baseline: the same trie for the longest match, then the matching route's type and FEC and
// the FEC's first interface from two unordered_maps.
void BM_Baseline_IsLocalPlain(benchmark::State& state) {
  const auto routes = randomRoutes();
  struct Route {
    std::uint32_t type;
    std::uint64_t fecId;
  };
  Routing::TrieGen trie("plain", Ipkit::ipv4());
  std::unordered_map<IpGenPrefix, Route> routeTable;
  std::unordered_map<std::uint64_t, std::vector<std::pair<IpGenAddr, IntfId>>> fecTable;
  std::uint64_t fecId = 1;
  for (const auto& route : routes) {
    trie.routeIs(prefixOf(route), route.type);
    routeTable.emplace(prefixOf(route), Route{route.type, fecId});
    fecTable[fecId++].emplace_back(IpGenAddr::ip4(route.network | 1u),
                                   IntfId(interfaceOf(route.network)));
  }
  const auto isLocal = [&](const IpGenAddr& addr) {
    const IpGenPrefix match = trie.longestMatch(IpGenPrefix::hostPrefix(addr));
    const auto route = routeTable.find(match);
    if (route == routeTable.end() || route->second.type != kLocalType) return IntfId();
    const auto fec = fecTable.find(route->second.fecId);
    return fec == fecTable.end() || fec->second.empty() ? IntfId() : fec->second.front().second;
  };
  const auto queries = hostQueries(routes);
  std::size_t i = 0;
  std::size_t found = 0;
  for (auto _ : state) {
    const IntfId intf = isLocal(queries[i++ & (kQueries - 1)]);
    found += intf.isNull() ? 0 : 1;
    benchmark::DoNotOptimize(intf);
  }
  state.counters["localShare"] =
      static_cast<double>(found) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_Baseline_IsLocalPlain);

// Route churn: 1,000 candidate RPs in 100 static sets; a cycle of 100,000 host-route changes,
// each installing an absent host route or withdrawing a present one, 1% of them for candidate
// addresses (so their entries come and go) and the rest for 20,000 other addresses.
constexpr std::size_t kCandidates = 1000;
constexpr std::size_t kChanges = 100000;
constexpr std::size_t kOthers = 20000;

struct Churn {
  std::vector<IpGenAddr> candidates;
  std::vector<IpGenAddr> changes;  // the address whose host route toggles, in order
};

Churn makeChurn() {
  Churn churn;
  std::mt19937 rng(99u);
  std::unordered_set<std::uint32_t> used;
  const auto fresh = [&] {
    for (;;) {
      const std::uint32_t a = 0x0a000000u | (static_cast<std::uint32_t>(rng()) & 0x00ffffffu);
      if (used.insert(a).second) return IpGenAddr::ip4(a);
    }
  };
  for (std::size_t i = 0; i < kCandidates; ++i) churn.candidates.push_back(fresh());
  std::vector<IpGenAddr> others;
  for (std::size_t i = 0; i < kOthers; ++i) others.push_back(fresh());
  for (std::size_t i = 0; i < kChanges; ++i) {
    churn.changes.push_back(i % 100 == 0 ? churn.candidates[rng() % kCandidates]
                                         : others[rng() % kOthers]);
  }
  return churn;
}

// Toggles the host route of the next address of the churn in the shadow.
void toggle(Routing::Shadow::Status& shadow, std::unordered_set<IpGenAddr>& installed,
            const IpGenAddr& addr) {
  static const std::vector<ViaEntry> vias{
      ViaEntry{IpGenAddr("10.255.255.254"), IntfId("Ethernet1")}};
  if (installed.erase(addr) != 0) {
    shadow.routeDel(IpGenPrefix::hostPrefix(addr));
  } else {
    installed.insert(addr);
    shadow.routeIs(IpGenPrefix::hostPrefix(addr), kLocalType, vias);
  }
}

void BM_RpLocal_RouteChurn(benchmark::State& state) {
  const Churn churn = makeChurn();
  Kel::Ptr<Routing::Pim::RpCandidateStatus> status(new Routing::Pim::RpCandidateStatus);
  for (std::size_t i = 0; i < kCandidates; ++i) {
    const IpGenPrefix group(IpGenAddr::ip4(0xef000000u | static_cast<std::uint32_t>(i / 10) << 8),
                            24);
    status->crpSetIs(group)->rpIs(churn.candidates[i]);
  }
  Kel::Ptr<Routing::Shadow::Status> shadow(new Routing::Shadow::Status("uribTrie"));
  Kel::Ptr<Routing::Pim::RpLocalStatus> local(new Routing::Pim::RpLocalStatus);
  const auto sm = Routing::Pim::rpLocalSmFactory(status, nullptr, local);
  sm->uribShadowIs(shadow);
  std::unordered_set<IpGenAddr> installed;
  std::size_t i = 0;
  for (auto _ : state) toggle(*shadow, installed, churn.changes[i++ % kChanges]);
  state.counters["localRps"] = static_cast<double>(local->localRpSet().size());
}
BENCHMARK(BM_RpLocal_RouteChurn);

// The same changes with nobody watching the shadow: what the shadow's own writes cost, so that
// the reactor's share is the difference.
void BM_RouteShadow_ChurnUnwatched(benchmark::State& state) {
  const Churn churn = makeChurn();
  Kel::Ptr<Routing::Shadow::Status> shadow(new Routing::Shadow::Status("uribTrie"));
  std::unordered_set<IpGenAddr> installed;
  std::size_t i = 0;
  for (auto _ : state) toggle(*shadow, installed, churn.changes[i++ % kChanges]);
}
BENCHMARK(BM_RouteShadow_ChurnUnwatched);

// The baseline: the same changes applied to an unordered_map route table and the trie, and a
// candidate's local entry kept in an unordered_map, with no framework in between.
void BM_Baseline_RouteChurnPlain(benchmark::State& state) {
  const Churn churn = makeChurn();
  const std::unordered_set<IpGenAddr> candidates(churn.candidates.begin(), churn.candidates.end());
  Routing::TrieGen trie("plain", Ipkit::ipv4());
  std::unordered_map<IpGenPrefix, std::pair<std::uint32_t, IntfId>> routeTable;
  std::unordered_map<IpGenAddr, IntfId> localTable;
  const IntfId intf("Ethernet1");
  std::size_t i = 0;
  for (auto _ : state) {
    const IpGenAddr& addr = churn.changes[i++ % kChanges];
    const IpGenPrefix host = IpGenPrefix::hostPrefix(addr);
    if (routeTable.erase(host) != 0) {
      trie.routeDel(host);
      localTable.erase(addr);
    } else {
      routeTable.emplace(host, std::make_pair(kLocalType, intf));
      trie.routeIs(host, kLocalType);
      if (candidates.count(addr) != 0) localTable.emplace(addr, intf);
    }
  }
  state.counters["localRps"] = static_cast<double>(localTable.size());
}
BENCHMARK(BM_Baseline_RouteChurnPlain);

}  // namespace
