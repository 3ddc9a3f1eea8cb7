// RP selection through RpCompute against the same rule written as a plain function over a vector
// of candidates with a sorted-vector prefix lookup, no framework. Both see the same 1,000 random
// group prefixes inside 224.0.0.0/4 and the same groups, each covered by some prefix.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "bench/BenchWorkload.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "rp/PimRpCompute.h"

namespace {

using namespace Routing::Pim;
using namespace RpBench;

Layout layoutOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

void BM_RpCompute_DoComputeRp(benchmark::State& state) {
  const Workload work = makeWorkload(layoutOf(state));
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  Kel::Ptr<RpConfig> config(new RpConfig);
  auto compute = rpComputeFactory(status, config);
  auto trie = compute->grpTrieIs("crpTrie", Ipkit::ipv4());
  fillStatus(work, *status);
  for (const auto& p : work.prefixes) {
    trie->routeIs(Ipkit::IpGenPrefix(Ipkit::IpGenAddr::ip4(p.network), p.len), 1);
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
