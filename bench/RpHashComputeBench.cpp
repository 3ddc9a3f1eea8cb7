// The on-demand RP answer: a table hit, and a miss computed from both sources; and the trie
// builder's full rebuild. Each against a plain baseline in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <unordered_map>
#include <vector>

#include "bench/BenchWorkload.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimGrpPrefixTrieBuilderSm.h"
#include "rp/PimRpHashComputeStatus.h"

namespace {

using namespace Routing::Pim;
using namespace RpBench;

struct Sources {
  Kel::Ptr<RpCandidateStatus> staticStatus{new RpCandidateStatus};
  Kel::Ptr<RpCandidateStatus> bsrStatus{new RpCandidateStatus};
  Kel::Ptr<RpHashStatus> table{new RpHashStatus};
  Kel::Ptr<RpConfig> config{new RpConfig};
  Workload staticWork = makeWorkload({4, 0}, 2024u);
  Workload bsrWork = makeWorkload({4, 0}, 4048u);

  Sources() {
    fillStatus(staticWork, *staticStatus);
    fillStatus(bsrWork, *bsrStatus);
  }
};

void BM_RpHashCompute_TableHit(benchmark::State& state) {
  Sources sources;
  for (std::uint32_t g : sources.staticWork.groups) {
    const auto addr = Ipkit::IpGenAddr::ip4(g);
    sources.table->rpHashIs(RpHash(Ipkit::IpGenPrefix::hostPrefix(addr),
                                   Ipkit::IpGenAddr::ip4(g ^ 1), 0, 30, false, modePimSm));
  }
  auto status = rpHashComputeStatusFactory(sources.staticStatus, sources.bsrStatus, sources.table,
                                           modePimNone, sources.config);
  std::vector<Ipkit::IpGenAddr> groups;
  for (std::uint32_t g : sources.staticWork.groups) groups.push_back(Ipkit::IpGenAddr::ip4(g));
  const Ipkit::IpGenAddr join;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(status->rpHashCompute(groups[i++ & (kGroups - 1)], join));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RpHashCompute_TableHit);

// The table's own share of a hit: the verified lookup of a host prefix, without the answer
// service around it.
void BM_RpHashStatus_LookupHit(benchmark::State& state) {
  Sources sources;
  std::vector<Ipkit::IpGenPrefix> keys;
  for (std::uint32_t g : sources.staticWork.groups) {
    keys.push_back(Ipkit::IpGenPrefix::hostPrefix(Ipkit::IpGenAddr::ip4(g)));
    sources.table->rpHashIs(
        RpHash(keys.back(), Ipkit::IpGenAddr::ip4(g ^ 1), 0, 30, false, modePimSm));
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(sources.table->rpHash(keys[i++ & (kGroups - 1)]).address());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RpHashStatus_LookupHit);

// Baseline for the hit: the same lookup in a plain hash map of host prefix to RP.
void BM_Baseline_HashMapHit(benchmark::State& state) {
  Sources sources;
  std::unordered_map<Ipkit::IpGenPrefix, Ipkit::IpGenAddr> table;
  std::vector<Ipkit::IpGenPrefix> keys;
  for (std::uint32_t g : sources.staticWork.groups) {
    keys.push_back(Ipkit::IpGenPrefix::hostPrefix(Ipkit::IpGenAddr::ip4(g)));
    table[keys.back()] = Ipkit::IpGenAddr::ip4(g ^ 1);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.find(keys[i++ & (kGroups - 1)])->second);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_HashMapHit);

// Answers for groups that have no table entry, computed from both sources; with an embedded-RP
// status attached and off, as the pipeline wires it, when `embeddedRpOff`.
void runComputedFromBothSources(benchmark::State& state, bool embeddedRpOff) {
  Sources sources;
  auto status = rpHashComputeStatusFactory(sources.staticStatus, sources.bsrStatus, sources.table,
                                           modePimNone, sources.config);
  if (embeddedRpOff) status->embeddedRpStatusIs(Kel::Ptr<EmbeddedRpStatus>(new EmbeddedRpStatus));
  std::vector<Ipkit::IpGenAddr> groups;
  for (std::uint32_t g : sources.staticWork.groups) groups.push_back(Ipkit::IpGenAddr::ip4(g));
  const Ipkit::IpGenAddr join;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(status->rpHashCompute(groups[i++ & (kGroups - 1)], join));
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_RpHashCompute_ComputedFromBothSources(benchmark::State& state) {
  runComputedFromBothSources(state, false);
}
BENCHMARK(BM_RpHashCompute_ComputedFromBothSources);

void BM_RpHashCompute_ComputedEmbeddedRpOff(benchmark::State& state) {
  runComputedFromBothSources(state, true);
}
BENCHMARK(BM_RpHashCompute_ComputedEmbeddedRpOff);

// Baseline for the miss: the plain selector run over both sources, bootstrap preferred.
void BM_Baseline_PlainSelectBothSources(benchmark::State& state) {
  Sources sources;
  const PlainSelector staticSelector(sources.staticWork.prefixes);
  const PlainSelector bsrSelector(sources.bsrWork.prefixes);
  std::size_t i = 0;
  for (auto _ : state) {
    const std::uint32_t group = sources.staticWork.groups[i++ & (kGroups - 1)];
    const std::uint32_t bsr = bsrSelector.select(group);
    benchmark::DoNotOptimize(bsr != 0 ? bsr : staticSelector.select(group));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_PlainSelectBothSources);

std::vector<Ipkit::IpGenPrefix> randomGroupPrefixes(std::size_t count) {
  std::mt19937 rng(77u);
  std::set<Ipkit::IpGenPrefix> prefixes;
  while (prefixes.size() < count) {
    const unsigned len = 8 + rng() % 25;
    const std::uint32_t address = 0xe0000000u | (static_cast<std::uint32_t>(rng()) & 0x0fffffffu);
    prefixes.emplace(Ipkit::IpGenAddr::ip4(address), len);
  }
  return {prefixes.begin(), prefixes.end()};
}

void BM_GrpPrefixTrieBuilder_Rebuild10000(benchmark::State& state) {
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  for (const auto& prefix : randomGroupPrefixes(10000)) status->crpSetIs(prefix);
  Kel::Ptr<RpConfig> config(new RpConfig);
  for (auto _ : state) {
    auto compute = rpComputeFactory(status, config);
    auto builder = grpPrefixTrieBuilderSmFactory(status, compute);
    benchmark::DoNotOptimize(compute->grpTrie()->nodes());
  }
  state.counters["prefixes"] = static_cast<double>(status->crpSet().size());
}
BENCHMARK(BM_GrpPrefixTrieBuilder_Rebuild10000)->Unit(benchmark::kMicrosecond);

// Baseline for the rebuild: collecting the same prefixes into a sorted vector.
void BM_Baseline_SortedVectorBuild10000(benchmark::State& state) {
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  for (const auto& prefix : randomGroupPrefixes(10000)) status->crpSetIs(prefix);
  for (auto _ : state) {
    std::vector<Ipkit::IpGenPrefix> sorted;
    sorted.reserve(status->crpSet().size());
    for (const auto& [prefix, set] : status->crpSet()) sorted.push_back(prefix);
    std::sort(sorted.begin(), sorted.end());
    benchmark::DoNotOptimize(sorted.data());
  }
}
BENCHMARK(BM_Baseline_SortedVectorBuild10000)->Unit(benchmark::kMicrosecond);

}  // namespace
