// RP hash tables in shared memory: a reader's lookup and the writer's rpHashIs, against the same
// table in process memory and against a plain std::unordered_map, all in one run.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpHashStatus.h"

namespace {

using Routing::Pim::RpHash;
using Routing::Pim::RpHashKeyHash;
using Routing::Pim::RpHashStatus;

constexpr std::size_t kEntries = 1u << 14;  // a power of two, cycled with a mask

// Host prefixes of scattered groups, each with its RP.
std::vector<RpHash> entries() {
  std::vector<RpHash> all;
  std::uint32_t group = 0xe0000001u;
  for (std::size_t i = 0; i < kEntries; ++i) {
    group = 0xe0000000u | ((group * 2654435761u + 12345u) & 0x0fffffffu);
    all.emplace_back(Ipkit::IpGenPrefix::hostPrefix(Ipkit::IpGenAddr::ip4(group)),
                     Ipkit::IpGenAddr::ip4(group ^ 1), 0, 30, false, Routing::Pim::modePimSm);
  }
  return all;
}

// The same entry with another priority, so that every rpHashIs really writes.
RpHash changed(const RpHash& entry, std::uint32_t round) {
  return RpHash(entry.key(), entry.address(), round & 1, entry.hashMaskLen(), entry.override(),
                entry.mode());
}

// A shared table named after this process, removed when the benchmark ends.
struct SharedName {
  std::string name = "mirra-bench-" + std::to_string(getpid());
  SharedName() { RpHashStatus::Table::unlinkShared(name); }
  ~SharedName() { RpHashStatus::Table::unlinkShared(name); }
};

void BM_MirraShm_ReaderLookup(benchmark::State& state) {
  const SharedName shared;
  const std::vector<RpHash> all = entries();
  RpHashStatus writer(
      RpHashStatus::Table::attachShared(shared.name, Mirra::AttachMode::singleWriter));
  for (const RpHash& entry : all) writer.rpHashIs(entry);
  const RpHashStatus reader(
      RpHashStatus::Table::attachShared(shared.name, Mirra::AttachMode::reader));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(reader.rpHash(all[i++ & (kEntries - 1)].key()).address());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MirraShm_ReaderLookup);

void BM_MirraInProcess_Lookup(benchmark::State& state) {
  const std::vector<RpHash> all = entries();
  RpHashStatus table;
  for (const RpHash& entry : all) table.rpHashIs(entry);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.rpHash(all[i++ & (kEntries - 1)].key()).address());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MirraInProcess_Lookup);

void BM_Baseline_UnorderedMapLookup(benchmark::State& state) {
  const std::vector<RpHash> all = entries();
  std::unordered_map<Ipkit::IpGenPrefix, RpHash, RpHashKeyHash> table;
  for (const RpHash& entry : all) table[entry.key()] = entry;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.find(all[i++ & (kEntries - 1)].key())->second.address());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_UnorderedMapLookup);

// The writer loops, shared by the shared-memory and the in-process table so that the two differ
// only in where the table lives.
void runWriterReplace(benchmark::State& state, RpHashStatus& writer,
                      const std::vector<RpHash>& all) {
  for (const RpHash& entry : all) writer.rpHashIs(entry);
  std::uint32_t i = 0;
  for (auto _ : state) {
    writer.rpHashIs(changed(all[i & (kEntries - 1)], i / kEntries + 1));
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}

void runWriterInsertErase(benchmark::State& state, RpHashStatus& writer,
                          const std::vector<RpHash>& all) {
  for (std::size_t at = 0; at < kEntries / 2; ++at) writer.rpHashIs(all[at]);
  std::size_t i = 0;
  for (auto _ : state) {
    const RpHash& entry = all[kEntries / 2 + (i++ & (kEntries / 2 - 1))];
    writer.rpHashIs(entry);
    writer.rpHashDel(entry.key());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_MirraShm_WriterReplace(benchmark::State& state) {
  const SharedName shared;
  const std::vector<RpHash> all = entries();
  RpHashStatus writer(
      RpHashStatus::Table::attachShared(shared.name, Mirra::AttachMode::singleWriter));
  runWriterReplace(state, writer, all);
}
BENCHMARK(BM_MirraShm_WriterReplace);

void BM_MirraInProcess_WriterReplace(benchmark::State& state) {
  const std::vector<RpHash> all = entries();
  RpHashStatus writer;
  runWriterReplace(state, writer, all);
}
BENCHMARK(BM_MirraInProcess_WriterReplace);

void BM_Baseline_UnorderedMapReplace(benchmark::State& state) {
  const std::vector<RpHash> all = entries();
  std::unordered_map<Ipkit::IpGenPrefix, RpHash, RpHashKeyHash> table;
  for (const RpHash& entry : all) table[entry.key()] = entry;
  std::uint32_t i = 0;
  for (auto _ : state) {
    const RpHash entry = changed(all[i & (kEntries - 1)], i / kEntries + 1);
    table[entry.key()] = entry;
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_UnorderedMapReplace);

// Insert of new keys and their removal, one pair per iteration: the tree relinks each time.
void BM_MirraShm_WriterInsertErase(benchmark::State& state) {
  const SharedName shared;
  const std::vector<RpHash> all = entries();
  RpHashStatus writer(
      RpHashStatus::Table::attachShared(shared.name, Mirra::AttachMode::singleWriter));
  runWriterInsertErase(state, writer, all);
}
BENCHMARK(BM_MirraShm_WriterInsertErase);

void BM_MirraInProcess_WriterInsertErase(benchmark::State& state) {
  const std::vector<RpHash> all = entries();
  RpHashStatus writer;
  runWriterInsertErase(state, writer, all);
}
BENCHMARK(BM_MirraInProcess_WriterInsertErase);

void BM_Baseline_UnorderedMapInsertErase(benchmark::State& state) {
  const std::vector<RpHash> all = entries();
  std::unordered_map<Ipkit::IpGenPrefix, RpHash, RpHashKeyHash> table;
  for (std::size_t at = 0; at < kEntries / 2; ++at) table[all[at].key()] = all[at];
  std::size_t i = 0;
  for (auto _ : state) {
    const RpHash& entry = all[kEntries / 2 + (i++ & (kEntries / 2 - 1))];
    table[entry.key()] = entry;
    table.erase(entry.key());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_UnorderedMapInsertErase);

}  // namespace
