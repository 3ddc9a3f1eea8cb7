// The merge of the static and BSR RP hash tables: the start-up reconciliation over large inputs,
// and the cost of one input change, each against a plain loop applying the same rule between
// unordered_maps (with the same allocation requests collected in a vector).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "framework/BitMapper/Config.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimRpHashSm.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;

constexpr std::uint32_t kEntries = 1000000;  // per input
constexpr std::uint32_t kRps = 64;           // per input
constexpr std::size_t kDrainEvery = 4096;    // requests kept before a consumer drains them

// Static prefixes are the host prefixes of groups 0..kEntries-1 above 225.0.0.0, BSR prefixes
// those of groups kEntries/2..3*kEntries/2-1: half of each input overlaps the other. One static
// entry in ten carries the override flag.
struct Inputs {
  std::vector<RpHash> staticEntries;
  std::vector<RpHash> bsrEntries;

  Inputs() {
    staticEntries.reserve(kEntries);
    bsrEntries.reserve(kEntries);
    for (std::uint32_t i = 0; i < kEntries; ++i) {
      staticEntries.push_back(entry(i, 0x0a000000u + i % kRps, i % 10 == 0));
      bsrEntries.push_back(entry(kEntries / 2 + i, 0x0b000000u + i % kRps, false));
    }
  }
  static RpHash entry(std::uint32_t group, std::uint32_t rp, bool override) {
    return RpHash(IpGenPrefix::hostPrefix(IpGenAddr::ip4(0xe1000000u + group)), IpGenAddr::ip4(rp),
                  group % 4, 30, override, modePimSm);
  }
};

const Inputs& inputs() {
  static const Inputs built;
  return built;
}

// ---- The merge ------------------------------------------------------------------------------

struct MergeTables {
  Kel::Ptr<RpHashStatus> staticHash{new RpHashStatus};
  Kel::Ptr<RpHashStatus> bsrHash{new RpHashStatus};

  MergeTables() {
    for (const RpHash& value : inputs().staticEntries) staticHash->rpHashIs(value);
    for (const RpHash& value : inputs().bsrEntries) bsrHash->rpHashIs(value);
  }
};

const MergeTables& mergeTables() {
  static const MergeTables built;
  return built;
}

void BM_RpHashMerge_StartupReconcile(benchmark::State& state) {
  const MergeTables& tables = mergeTables();
  for (auto _ : state) {
    Kel::Ptr<RpHashStatus> finalHash(new RpHashStatus);
    Kel::Ptr<BitMapper::Config> bitMap(new BitMapper::Config);
    auto merge = rpHashSmFactory(modePimSm, tables.staticHash, tables.bsrHash, finalHash, bitMap);
    state.PauseTiming();
    state.counters["finalEntries"] = static_cast<double>(finalHash->rpHashs());
    state.counters["requests"] = static_cast<double>(bitMap->requests().size());
    merge = nullptr;
    finalHash = nullptr;
    bitMap = nullptr;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * 2 * kEntries);
}
BENCHMARK(BM_RpHashMerge_StartupReconcile)->Unit(benchmark::kMillisecond)->Iterations(5);

// The n-th input change: the BSR entry of an overlapping prefix whose static entry does not
// override moves to another RP. Consecutive changes touch different prefixes; each visit of a
// prefix moves it to the RP it did not hold on the previous visit, so every change makes one final
// write, one deallocation and one allocation request. The count runs on across benchmark runs,
// which share the tables.
constexpr std::uint32_t kChangeCycle = kEntries / 2 / 10 * 9;
RpHash nthChange(std::uint64_t n) {
  const std::uint32_t k = static_cast<std::uint32_t>(n % kChangeCycle);
  const std::uint32_t group = kEntries / 2 + k / 9 * 10 + 1 + k % 9;
  return Inputs::entry(group, 0x0c000000u + static_cast<std::uint32_t>(n / kChangeCycle % 2),
                       false);
}

struct MergeRig {
  MergeTables tables;
  Kel::Ptr<RpHashStatus> finalHash{new RpHashStatus};
  Kel::Ptr<BitMapper::Config> bitMap{new BitMapper::Config};
  Kel::Ptr<RpHashSm> merge =
      rpHashSmFactory(modePimSm, tables.staticHash, tables.bsrHash, finalHash, bitMap);
  std::uint64_t changes = 0;
};

void BM_RpHashMerge_InputChange(benchmark::State& state) {
  static MergeRig rig;
  rig.bitMap->requestsDelAll();
  for (auto _ : state) {
    rig.tables.bsrHash->rpHashIs(nthChange(rig.changes));
    if (++rig.changes % kDrainEvery == 0) rig.bitMap->requestsDelAll();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RpHashMerge_InputChange);

// ---- The baseline: the same rule between unordered_maps -------------------------------------

using PlainTable = std::unordered_map<IpGenPrefix, RpHash>;
enum class PlainRequestKind { alloc, dealloc };
using PlainRequests = std::vector<std::pair<PlainRequestKind, IpGenAddr>>;

bool plainUsable(const PlainTable& table, const IpGenPrefix& key, RpHash& out) {
  const auto found = table.find(key);
  if (found == table.end() || found->second.address() == IpGenAddr()) return false;
  out = found->second;
  return true;
}

// Writes the rule's outcome for key into finalTable, collecting the requests as the merge does.
void plainApply(const PlainTable& staticTable, const PlainTable& bsrTable, PlainTable& finalTable,
                PlainRequests& requests, const IpGenPrefix& key) {
  RpHash staticEntry, bsrEntry;
  const bool staticUsable = plainUsable(staticTable, key, staticEntry);
  const bool bsrUsable = plainUsable(bsrTable, key, bsrEntry);
  const auto current = finalTable.find(key);
  if (!staticUsable && !bsrUsable) {
    if (current == finalTable.end()) return;
    requests.emplace_back(PlainRequestKind::dealloc, current->second.address());
    finalTable.erase(current);
    return;
  }
  const RpHash& chosen =
      staticUsable && (staticEntry.override() || !bsrUsable) ? staticEntry : bsrEntry;
  if (current == finalTable.end()) {
    requests.emplace_back(PlainRequestKind::alloc, chosen.address());
    finalTable.emplace(key, chosen);
    return;
  }
  if (current->second.address() != chosen.address()) {
    requests.emplace_back(PlainRequestKind::dealloc, current->second.address());
    requests.emplace_back(PlainRequestKind::alloc, chosen.address());
  }
  current->second = chosen;
}

struct PlainTables {
  PlainTable staticTable;
  PlainTable bsrTable;

  PlainTables() {
    for (const RpHash& value : inputs().staticEntries) staticTable.emplace(value.key(), value);
    for (const RpHash& value : inputs().bsrEntries) bsrTable.emplace(value.key(), value);
  }
};

const PlainTables& plainTables() {
  static const PlainTables built;
  return built;
}

void BM_Baseline_PlainMergeStartup(benchmark::State& state) {
  const PlainTables& tables = plainTables();
  for (auto _ : state) {
    PlainTable finalTable;
    PlainRequests requests;
    for (const auto& [key, value] : tables.staticTable) {
      plainApply(tables.staticTable, tables.bsrTable, finalTable, requests, key);
    }
    for (const auto& [key, value] : tables.bsrTable) {
      plainApply(tables.staticTable, tables.bsrTable, finalTable, requests, key);
    }
    for (auto at = finalTable.begin(); at != finalTable.end();) {
      if (tables.staticTable.count(at->first) || tables.bsrTable.count(at->first)) {
        ++at;
        continue;
      }
      requests.emplace_back(PlainRequestKind::dealloc, at->second.address());
      at = finalTable.erase(at);
    }
    state.PauseTiming();
    state.counters["finalEntries"] = static_cast<double>(finalTable.size());
    state.counters["requests"] = static_cast<double>(requests.size());
    finalTable = PlainTable();
    requests = PlainRequests();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * 2 * kEntries);
}
BENCHMARK(BM_Baseline_PlainMergeStartup)->Unit(benchmark::kMillisecond)->Iterations(5);

struct PlainRig {
  PlainTables tables;
  PlainTable finalTable;
  PlainRequests requests;
  std::uint64_t changes = 0;

  PlainRig() {
    for (const auto& [key, value] : tables.staticTable) {
      plainApply(tables.staticTable, tables.bsrTable, finalTable, requests, key);
    }
    for (const auto& [key, value] : tables.bsrTable) {
      plainApply(tables.staticTable, tables.bsrTable, finalTable, requests, key);
    }
  }
};

void BM_Baseline_PlainMergeInputChange(benchmark::State& state) {
  static PlainRig rig;
  rig.requests.clear();
  for (auto _ : state) {
    const RpHash changed = nthChange(rig.changes);
    rig.tables.bsrTable[changed.key()] = changed;
    plainApply(rig.tables.staticTable, rig.tables.bsrTable, rig.finalTable, rig.requests,
               changed.key());
    if (++rig.changes % kDrainEvery == 0) rig.requests.clear();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_PlainMergeInputChange);

}  // namespace
