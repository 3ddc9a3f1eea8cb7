// The per-source RP hash reactor at scale: a million known IPv4 groups under 10,000 candidate
// prefixes (two sparse candidates each), reviewed from start-up to the finished review on the wall
// clock with the real 10 ms slice deadline; and one candidate change in the full table.
//
// Workload: the 16 /8s of 224.0.0.0/4 each hold 62,500 groups, evenly spaced, and 625 candidate
// prefixes, the first 625 /18s of the /8; so about 61% of the groups have a covering prefix and
// the rest get the placeholder. Candidates 10.a.b.1 and 10.a.b.2 of each prefix have priority 0
// and hash mask length 30, so every covered group is decided by the hash.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <thread>
#include <unordered_map>
#include <vector>

#include "bench/BenchWorkload.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/System.h"
#include "model/Pim/GroupStatus.h"
#include "model/Pim/PimAttrLogSm.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimRpCompute.h"
#include "rp/PimRpHashIntermediateSm.h"

namespace {

using namespace Routing::Pim;

constexpr std::uint32_t kSlash8s = 16;
constexpr std::uint32_t kGroupsPerSlash8 = 62500;
constexpr std::uint32_t kPrefixesPerSlash8 = 625;
constexpr std::uint32_t kChangedSlash8 = 0xef000000u;  // 239.0.0.0/8

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double threadCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double peakRssMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
}

struct MillionGroups {
  std::vector<RpBench::PlainPrefix> prefixes;
  std::vector<std::uint32_t> groups;  // ascending
};

const MillionGroups& millionGroups() {
  static const MillionGroups work = [] {
    MillionGroups w;
    for (std::uint32_t s = 0; s < kSlash8s; ++s) {
      const std::uint32_t base = (224u + s) << 24;
      for (std::uint32_t p = 0; p < kPrefixesPerSlash8; ++p) {
        const std::uint32_t network = base | (p << 14);
        const std::uint32_t rpBase = 0x0a000000u | ((s * kPrefixesPerSlash8 + p) << 8);
        w.prefixes.push_back(
            {network, 18, {{rpBase | 1, 0, 30, modePimSm}, {rpBase | 2, 0, 30, modePimSm}}});
      }
      for (std::uint32_t g = 0; g < kGroupsPerSlash8; ++g) {
        w.groups.push_back(base | ((g * ((1u << 24) / kGroupsPerSlash8)) + 1));
      }
    }
    return w;
  }();
  return work;
}

// The inputs of one reactor, filled with the workload.
struct Inputs {
  Kel::Ptr<GroupStatus> groups{new GroupStatus};
  Kel::Ptr<RpCandidateStatus> status{new RpCandidateStatus};
  Kel::Ptr<RpHashStatus> groupTable{new RpHashStatus};
  Kel::Ptr<RpHashStatus> prefixTable{new RpHashStatus};
  Kel::Ptr<Kel::Clock> clock{new Kel::Clock};
  Kel::Ptr<PimAttrLogSm> attrLog{new PimAttrLogSm};
  Kel::Ptr<RpConfig> config{new RpConfig};

  Inputs() {
    const MillionGroups& work = millionGroups();
    for (std::uint32_t g : work.groups) groups->groupIs(Ipkit::IpGenAddr::ip4(g), true);
    RpBench::Workload candidates;
    candidates.prefixes = work.prefixes;
    RpBench::fillStatus(candidates, *status);
  }

  Kel::Ptr<RpHashIntermediateSm> start() {
    return rpHashIntermediateSmFactory(Ipkit::ipv4(), groups, status, groupTable, prefixTable,
                                       clock, modePimSm, attrLog, config);
  }
};

// Start-up to the finished review, on the wall clock: one clock pass at a time, sleeping while
// the next wake-up is not due, each pass timed on the wall clock and in thread CPU time (the
// difference is time the thread was not running).
void BM_RpHashReview_MillionGroupsToFinishedReview(benchmark::State& state) {
  Kel::System::realTimeIs();
  double cpu = 0;
  double longestSlice = 0;
  double longestSliceCpu = 0;
  std::uint64_t slicesOver11msCpu = 0;
  std::uint64_t slices = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Inputs inputs;
    state.ResumeTiming();
    const double cpuStart = cpuSeconds();
    auto sm = inputs.start();
    while (inputs.clock->pendingWakeups() != 0) {
      const double wait = inputs.clock->nextWakeup() - Kel::System::currentTime();
      if (wait > 0) std::this_thread::sleep_for(std::chrono::duration<double>(wait));
      const auto sliceStart = std::chrono::steady_clock::now();
      const double sliceCpuStart = threadCpuSeconds();
      const std::size_t delivered = inputs.clock->runDue(1);
      const double sliceCpu = threadCpuSeconds() - sliceCpuStart;
      const std::chrono::duration<double> slice = std::chrono::steady_clock::now() - sliceStart;
      if (delivered == 0) continue;
      slices += delivered;
      longestSlice = std::max(longestSlice, slice.count());
      longestSliceCpu = std::max(longestSliceCpu, sliceCpu);
      if (sliceCpu > 0.011) ++slicesOver11msCpu;
    }
    cpu += cpuSeconds() - cpuStart;
    if (sm->groupsProcessed() != millionGroups().groups.size() ||
        inputs.groupTable->rpHashs() != millionGroups().groups.size()) {
      state.SkipWithError("review did not cover every group");
    }
    state.PauseTiming();
    sm = nullptr;
    state.ResumeTiming();
  }
  const double iterations = static_cast<double>(state.iterations());
  state.counters["cpu_s"] = cpu / iterations;
  state.counters["slices"] = static_cast<double>(slices) / iterations;
  state.counters["longest_slice_ms"] = longestSlice * 1e3;
  state.counters["longest_slice_cpu_ms"] = longestSliceCpu * 1e3;
  state.counters["slices_over_11ms_cpu"] = static_cast<double>(slicesOver11msCpu);
  state.counters["peak_rss_mb_per_million_groups"] =
      peakRssMegabytes() / (static_cast<double>(millionGroups().groups.size()) / 1e6);
}
BENCHMARK(BM_RpHashReview_MillionGroupsToFinishedReview)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

void BM_RpHashReviewBaseline_MillionGroupsPlainSelect(benchmark::State& state) {
  const MillionGroups& work = millionGroups();
  const RpBench::PlainSelector selector(work.prefixes);
  double cpu = 0;
  for (auto _ : state) {
    const double cpuStart = cpuSeconds();
    std::unordered_map<std::uint32_t, std::uint32_t> table;
    for (std::uint32_t g : work.groups) table[g] = selector.select(g);
    benchmark::DoNotOptimize(table.size());
    cpu += cpuSeconds() - cpuStart;
  }
  state.counters["cpu_s"] = cpu / static_cast<double>(state.iterations());
}
BENCHMARK(BM_RpHashReviewBaseline_MillionGroupsPlainSelect)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// A reactor over the million groups, reviewed in virtual time, with one sparse candidate on
// 239.0.0.0/8 so that the set exists; the change adds a second candidate there and removes it.
struct FullTable {
  Inputs inputs;
  Kel::Ptr<RpHashIntermediateSm> sm;
  Kel::Ptr<RpCandidateSet> slash8;

  FullTable() {
    Kel::System::virtualTimeIs(1000.0);
    slash8 = inputs.status->crpSetIs(Ipkit::IpGenPrefix(Ipkit::IpGenAddr::ip4(kChangedSlash8), 8));
    auto first = slash8->rpIs(Ipkit::IpGenAddr("10.255.0.1"));
    first->priorityIs(0);
    first->hashMaskLenIs(30);
    first->pimModeIs(modePimSm);
    sm = inputs.start();
    while (inputs.clock->pendingWakeups() != 0) {
      inputs.clock->runUntil(inputs.clock->nextWakeup());
    }
  }
  ~FullTable() {
    sm = nullptr;
    Kel::System::realTimeIs();
  }
};

void BM_RpHashReview_CandidateChangeInFullTable(benchmark::State& state) {
  FullTable table;
  const Ipkit::IpGenAddr added("10.255.0.2");
  for (auto _ : state) {
    auto candidate = table.slash8->rpIs(added);
    candidate->priorityIs(0);
    candidate->hashMaskLenIs(30);
    candidate->pimModeIs(modePimSm);
    table.slash8->rpDel(added);
  }
  state.counters["changes"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * 2,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["groups_in_table"] = static_cast<double>(table.inputs.groupTable->rpHashs());
}
BENCHMARK(BM_RpHashReview_CandidateChangeInFullTable)->Unit(benchmark::kMillisecond);

// The least a change of the /8 can cost: recompute and write the 62,500 groups it covers, twice
// (once for the add, once for the removal), with the library's own selection and table.
void BM_RpHashReviewBaseline_RecomputeCoveredGroups(benchmark::State& state) {
  FullTable table;
  const Kel::Ptr<RpCompute> compute = table.sm->crpCompute();
  std::vector<Ipkit::IpGenAddr> covered;
  for (std::uint32_t g : millionGroups().groups) {
    if ((g & 0xff000000u) == kChangedSlash8) covered.push_back(Ipkit::IpGenAddr::ip4(g));
  }
  for (auto _ : state) {
    for (int change = 0; change < 2; ++change) {
      for (const auto& group : covered) {
        table.inputs.groupTable->rpHashIs(
            RpHash(Ipkit::IpGenPrefix::hostPrefix(group), compute->doComputeRp(group)));
      }
    }
  }
  state.counters["changes"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * 2,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["covered_groups"] = static_cast<double>(covered.size());
}
BENCHMARK(BM_RpHashReviewBaseline_RecomputeCoveredGroups)->Unit(benchmark::kMillisecond);

// The same 62,500 groups twice with the bare rule into an unordered_map, for scale.
void BM_RpHashReviewBaseline_RecomputeCoveredGroupsPlainSelect(benchmark::State& state) {
  const MillionGroups& work = millionGroups();
  const RpBench::PlainSelector selector(work.prefixes);
  std::vector<std::uint32_t> covered;
  for (std::uint32_t g : work.groups) {
    if ((g & 0xff000000u) == kChangedSlash8) covered.push_back(g);
  }
  std::unordered_map<std::uint32_t, std::uint32_t> table;
  for (auto _ : state) {
    for (int change = 0; change < 2; ++change) {
      for (std::uint32_t g : covered) table[g] = selector.select(g);
    }
    benchmark::DoNotOptimize(table.size());
  }
  state.counters["changes"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * 2,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_RpHashReviewBaseline_RecomputeCoveredGroupsPlainSelect)->Unit(benchmark::kMillisecond);

}  // namespace
