// The group filter: the start-up review of a large RP hash table in time slices on the wall clock,
// and permitGroup over many ranges. Each against a plain baseline in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <random>
#include <unordered_set>
#include <utility>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/System.h"
#include "framework/Routing/TrieGen.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimGroupFilterSm.h"
#include "rp/PimGroupFilterStatus.h"

namespace {

using Routing::Pim::GroupFilterSm;
using Routing::Pim::groupFilterSmFactory;
using Routing::Pim::groupFilterStatusFactory;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimSm;
using Routing::Pim::RpHash;
using Routing::Pim::RpHashStatus;

constexpr std::size_t kQueries = 1u << 16;  // a power of two, cycled with a mask

std::uint32_t maskOf(unsigned len) { return len == 0 ? 0u : ~0u << (32 - len); }

// `count` distinct group ranges inside 224.0.0.0/4, lengths 20..32, in random order (as a table
// fills), with a fixed seed so that every run measures the same table.
std::vector<Ipkit::IpGenPrefix> randomRanges(std::size_t count) {
  std::mt19937 rng(4242u);
  std::unordered_set<std::uint64_t> seen;
  std::vector<Ipkit::IpGenPrefix> ranges;
  ranges.reserve(count);
  while (ranges.size() < count) {
    const unsigned len = 20 + rng() % 13;
    const std::uint32_t network =
        (0xe0000000u | (static_cast<std::uint32_t>(rng()) & 0x0fffffffu)) & maskOf(len);
    if (!seen.insert((std::uint64_t{network} << 8) | len).second) continue;
    ranges.emplace_back(Ipkit::IpGenAddr::ip4(network), len);
  }
  return ranges;
}

Kel::Ptr<RpHashStatus> tableOf(const std::vector<Ipkit::IpGenPrefix>& ranges) {
  Kel::Ptr<RpHashStatus> table(new RpHashStatus());
  const Ipkit::IpGenAddr rp = Ipkit::IpGenAddr::ip4(0x0a000001u);
  for (const auto& range : ranges) table->rpHashIs(RpHash(range, rp, 10, 30, false, modePimSm));
  return table;
}

// CPU time of the calling thread, in seconds: unlike the wall clock, not stretched by other
// processes running on a loaded machine.
double threadCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The start-up review of a 1,000,000-entry table with the default quantum of 0.1 s, on the wall
// clock: each clock delivery runs one slice. Counters: slices, the longest slice in wall and in
// thread CPU time, entries.
void BM_GroupFilterSm_StartupReview1M(benchmark::State& state) {
  Kel::System::realTimeIs();
  const auto table = tableOf(randomRanges(1000000));
  const Kel::Ptr<Kel::Clock> clock(new Kel::Clock());
  double slices = 0;
  double longestWall = 0;
  double longestCpu = 0;
  for (auto _ : state) {
    auto status = groupFilterStatusFactory(Ipkit::ipv4(), modePimBidir);
    auto sm = groupFilterSmFactory(table, status, clock);
    slices = 0;
    longestWall = 0;
    longestCpu = 0;
    while (clock->pendingWakeups() > 0) {
      const auto wallBegin = std::chrono::steady_clock::now();
      const double cpuBegin = threadCpuSeconds();
      if (!clock->runNext()) continue;  // due at once: only a clock tick can hold it back
      const double cpu = threadCpuSeconds() - cpuBegin;
      const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - wallBegin;
      longestWall = std::max(longestWall, wall.count());
      longestCpu = std::max(longestCpu, cpu);
      ++slices;
    }
    if (status->trie()->routes() != table->rpHashs() || !sm->reviewBookmark().isNull()) {
      state.SkipWithError("the review left ranges out");
      break;
    }
    state.PauseTiming();
    sm = nullptr;
    status = nullptr;
    state.ResumeTiming();
  }
  state.counters["slices"] = slices;
  state.counters["longest_slice_ms"] = longestWall * 1000.0;
  state.counters["longest_slice_cpu_ms"] = longestCpu * 1000.0;
  state.counters["entries"] = static_cast<double>(table->rpHashs());
}
BENCHMARK(BM_GroupFilterSm_StartupReview1M)->Unit(benchmark::kMillisecond)->Iterations(3);

// The baseline: the same ranges inserted into a fresh trie by a plain loop, in ascending order as
// the review visits them; no table, no slices.
void BM_GroupFilterBaseline_TrieInsert1M(benchmark::State& state) {
  auto ranges = randomRanges(1000000);
  std::sort(ranges.begin(), ranges.end());
  for (auto _ : state) {
    Kel::Ptr<Routing::TrieGen> trie(new Routing::TrieGen("GroupFilter", Ipkit::ipv4()));
    for (const auto& range : ranges) trie->routeIs(range, 1);
    benchmark::DoNotOptimize(trie->routes());
    state.PauseTiming();
    trie = nullptr;
    state.ResumeTiming();
  }
}
BENCHMARK(BM_GroupFilterBaseline_TrieInsert1M)->Unit(benchmark::kMillisecond)->Iterations(3);

// Random groups of 224.0.0.0/4 as host prefixes.
std::vector<Ipkit::IpGenPrefix> randomGroups() {
  std::mt19937 rng(777u);
  std::vector<Ipkit::IpGenPrefix> groups;
  groups.reserve(kQueries);
  for (std::size_t i = 0; i < kQueries; ++i) {
    const std::uint32_t group = 0xe0000000u | (static_cast<std::uint32_t>(rng()) & 0x0fffffffu);
    groups.push_back(Ipkit::IpGenPrefix::hostPrefix(Ipkit::IpGenAddr::ip4(group)));
  }
  return groups;
}

void BM_GroupFilterStatus_PermitGroup100k(benchmark::State& state) {
  auto status = groupFilterStatusFactory(Ipkit::ipv4(), modePimSm);
  for (const auto& range : randomRanges(100000)) status->trie()->routeIs(range, 1);
  const auto groups = randomGroups();
  std::size_t i = 0;
  std::size_t permitted = 0;
  for (auto _ : state) permitted += status->permitGroup(groups[i++ & (kQueries - 1)]) ? 1 : 0;
  state.SetItemsProcessed(state.iterations());
  state.counters["permitted_share"] =
      static_cast<double>(permitted) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_GroupFilterStatus_PermitGroup100k);

// The baseline: the same answer from a plain sorted vector of (network, length), searched once
// per stored length, longest first.
void BM_GroupFilterBaseline_SortedVectorPermit100k(benchmark::State& state) {
  std::vector<std::pair<std::uint32_t, unsigned>> ranges;
  for (const auto& range : randomRanges(100000)) {
    ranges.emplace_back(range.address().ip4Addr().value(), range.len());
  }
  std::sort(ranges.begin(), ranges.end());
  std::vector<unsigned> lengths;
  for (const auto& range : ranges) lengths.push_back(range.second);
  std::sort(lengths.begin(), lengths.end(), std::greater<unsigned>());
  lengths.erase(std::unique(lengths.begin(), lengths.end()), lengths.end());
  const auto covered = [&](std::uint32_t group) {
    for (unsigned len : lengths) {
      const std::pair<std::uint32_t, unsigned> key(group & maskOf(len), len);
      if (std::binary_search(ranges.begin(), ranges.end(), key)) return true;
    }
    return false;
  };
  std::vector<std::uint32_t> groups;
  for (const auto& group : randomGroups()) groups.push_back(group.address().ip4Addr().value());
  std::size_t i = 0;
  std::size_t permitted = 0;
  for (auto _ : state) permitted += covered(groups[i++ & (kQueries - 1)]) ? 0 : 1;
  state.SetItemsProcessed(state.iterations());
  state.counters["permitted_share"] =
      static_cast<double>(permitted) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_GroupFilterBaseline_SortedVectorPermit100k);

}  // namespace
