// The static RP reactor under load: explicit group bindings applied one by one through the
// reactor against the same bindings put in a plain map, and one rule change in a 10,000-rule
// access list used by 100 RPs against refolding that list alone. The rule change also counts the
// notifications that reach readers of the status and checks them against the prefixes that really
// changed, computed apart from the reactor.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "framework/Acl/AclToPrefix.h"
#include "framework/Acl/AclTypeConfig.h"
#include "framework/Acl/IpFilter.h"
#include "framework/Acl/IpRuleConfig.h"
#include "framework/Acl/UniqueId.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"
#include "model/Pim/RpCandidateSet.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/Static/RpConfig.h"
#include "rp/PimStaticRpCandidateSm.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;

constexpr int kRps = 100;
constexpr int kBindings = 10000;
constexpr int kPrefixesPerRp = 4;  // each bound prefix is served by this many RPs
constexpr int kRules = 10000;
const char kAclName[] = "BIG";

IpGenAddr rpAddress(int index) { return IpGenAddr::ip4(0x0A000001u + static_cast<U32>(index)); }

// ---- Explicit group bindings -------------------------------------------------------------------

struct Binding {
  int rp;
  IpGenPrefix prefix;
};

// 2,500 /24 prefixes in 232.0.0.0/8, each bound to four RPs; every RP gets 100 bindings.
const std::vector<Binding>& bindings() {
  static const std::vector<Binding> all = [] {
    std::vector<Binding> result;
    result.reserve(kBindings);
    for (int k = 0; k < kBindings / kPrefixesPerRp; ++k) {
      const IpGenPrefix prefix(IpGenAddr::ip4(0xE8000000u + (static_cast<U32>(k) << 8)), 24);
      for (int j = 0; j < kPrefixesPerRp; ++j) {
        result.push_back({(k + j * (kRps / kPrefixesPerRp)) % kRps, prefix});
      }
    }
    return result;
  }();
  return all;
}

void BM_StaticRp_GroupBindings10000(benchmark::State& state) {
  const auto& all = bindings();
  std::size_t sets = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Kel::Ptr<Routing::Pim::Static::RpConfig> config(
        new Routing::Pim::Static::RpConfig(L3::VrfName("bench")));
    std::vector<Kel::Ptr<Routing::Pim::Static::RpEntry>> entries;
    for (int i = 0; i < kRps; ++i) entries.push_back(config->rpTableIs(rpAddress(i)));
    Kel::Ptr<Acl::AclTypeConfig> aclConfig(new Acl::AclTypeConfig);
    Kel::Ptr<Routing::Pim::RpCandidateStatus> status(new Routing::Pim::RpCandidateStatus);
    auto sm = Routing::Pim::Static::rpCandidateSmFactory(config, aclConfig, status);
    state.ResumeTiming();

    for (const auto& binding : all) entries[binding.rp]->groupIs(binding.prefix, true);

    state.PauseTiming();
    sets = status->crpSet().size();
    sm = nullptr;
    state.ResumeTiming();
  }
  state.counters["sets"] = static_cast<double>(sets);
  state.counters["per_binding"] = benchmark::Counter(
      kBindings, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(state.iterations() * kBindings);
}
BENCHMARK(BM_StaticRp_GroupBindings10000)->Unit(benchmark::kMillisecond);

// The baseline: the same bindings into a map of prefix to the set of its RPs, no framework, no
// counts, no per-candidate values.
void BM_StaticRpBaseline_GroupBindingsMap10000(benchmark::State& state) {
  const auto& all = bindings();
  std::size_t sets = 0;
  for (auto _ : state) {
    std::map<IpGenPrefix, std::set<IpGenAddr>> table;
    for (const auto& binding : all) table[binding.prefix].insert(rpAddress(binding.rp));
    sets = table.size();
    benchmark::DoNotOptimize(table);
    state.PauseTiming();
    table.clear();
    state.ResumeTiming();
  }
  state.counters["sets"] = static_cast<double>(sets);
  state.counters["per_binding"] = benchmark::Counter(
      kBindings, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(state.iterations() * kBindings);
}
BENCHMARK(BM_StaticRpBaseline_GroupBindingsMap10000)->Unit(benchmark::kMillisecond);

// ---- One rule change in a large list -----------------------------------------------------------

// Sparse: rule i permits the /24 at 225.0.0.0 + 2i * 256, so the list permits 10,000 separate
// /24s and toggling one rule moves exactly one prefix. Dense: the permitted /24s are adjacent and
// merge into a handful of large prefixes; denying one in the middle splits one of them into many.
enum class Layout { sparse, dense };

IpGenPrefix rulePrefix(Layout layout, int index) {
  const U32 step = layout == Layout::sparse ? 512u : 256u;
  return IpGenPrefix(IpGenAddr::ip4(0xE1000000u + static_cast<U32>(index) * step), 24);
}

Acl::IpRuleConfig ruleOf(Layout layout, int index, Acl::AclAction action) {
  return Acl::IpRuleConfig(action, Acl::IpFilter(rulePrefix(layout, index)));
}

constexpr int kToggled = kRules / 2 + 7;
constexpr std::uint64_t kPermitId = 1;
constexpr std::uint64_t kDenyId = kRules + 1;

U32 sequenceOf(int index) { return 10u * static_cast<U32>(index + 1); }

// The permitted prefixes with the toggled rule permitting or denying, folded by AclToPrefix alone.
Ipkit::IpGenPrefixSet permittedWith(Layout layout, Acl::AclAction toggled) {
  AclPrefix::AclToPrefix folder;
  for (int i = 0; i < kRules; ++i) {
    folder.handleRule(ruleOf(layout, i, i == kToggled ? toggled : Acl::AclAction::permit), false);
  }
  Ipkit::IpGenPrefixSet out;
  folder.PermittedPrefixes(out);
  return out;
}

// Counts what readers of the status are told: sets created or deleted, candidates created or
// deleted, and the distinct prefixes concerned.
class NotificationCounter : public Routing::Pim::RpCandidateStatus::NotifieeConst {
 public:
  class SetCounter : public Routing::Pim::RpCandidateSet::NotifieeConst {
   public:
    SetCounter(NotificationCounter* owner, const Kel::PtrConst<Routing::Pim::RpCandidateSet>& set)
        : owner_(owner) {
      notifierIs(set);
    }
    void onRp(const IpGenAddr& address) override {
      (void)address;
      ++owner_->rpNotifications;
      owner_->prefixes.insert(notifier()->prefix());
    }

   private:
    NotificationCounter* owner_;
  };

  explicit NotificationCounter(const Kel::PtrConst<Routing::Pim::RpCandidateStatus>& status) {
    notifierIs(status);
    for (const auto& [prefix, set] : status->crpSet()) watch(prefix);
  }
  ~NotificationCounter() override {
    for (auto& [prefix, counter] : sets_) counter->notifierIs(nullptr);
  }

  void onCrpSet(const IpGenPrefix& prefix) override {
    ++crpSetNotifications;
    prefixes.insert(prefix);
    watch(prefix);
  }
  void reset() {
    crpSetNotifications = 0;
    rpNotifications = 0;
    prefixes.clear();
  }

  std::uint64_t crpSetNotifications = 0;
  std::uint64_t rpNotifications = 0;
  std::set<IpGenPrefix> prefixes;

 private:
  void watch(const IpGenPrefix& prefix) {
    const auto set = notifier()->crpSet(prefix);
    auto found = sets_.find(prefix);
    if (found != sets_.end()) {
      found->second->notifierIs(nullptr);
      sets_.erase(found);
    }
    if (set) sets_.emplace(prefix, Kel::Ptr<SetCounter>(new SetCounter(this, set)));
  }

  std::map<IpGenPrefix, Kel::Ptr<SetCounter>> sets_;
};

void runRuleChange(benchmark::State& state, Layout layout) {
  // The list is written before any RP uses it, so that setting it up folds nothing.
  Kel::Ptr<Acl::AclTypeConfig> aclConfig(new Acl::AclTypeConfig);
  auto cfg = aclConfig->aclIs(kAclName)->currCfgIs();
  for (int i = 0; i < kRules; ++i) {
    const Acl::UniqueId id(kPermitId + static_cast<std::uint64_t>(i));
    cfg->ipRuleByIdIs(id, ruleOf(layout, i, Acl::AclAction::permit));
    cfg->ruleBySequenceIs(sequenceOf(i), id);
  }
  // The writer enters the replacement rule before pointing a sequence number at it.
  cfg->ipRuleByIdIs(Acl::UniqueId(kDenyId), ruleOf(layout, kToggled, Acl::AclAction::deny));

  Kel::Ptr<Routing::Pim::Static::RpConfig> config(
      new Routing::Pim::Static::RpConfig(L3::VrfName("bench")));
  for (int i = 0; i < kRps; ++i) config->rpTableIs(rpAddress(i))->aclIs(kAclName, true);
  Kel::Ptr<Routing::Pim::RpCandidateStatus> status(new Routing::Pim::RpCandidateStatus);
  auto sm = Routing::Pim::Static::rpCandidateSmFactory(config, aclConfig, status);

  const auto permitting = permittedWith(layout, Acl::AclAction::permit);
  const auto denying = permittedWith(layout, Acl::AclAction::deny);
  std::size_t changed = 0;
  for (const auto& prefix : permitting) changed += denying.prefix(prefix) ? 0 : 1;
  for (const auto& prefix : denying) changed += permitting.prefix(prefix) ? 0 : 1;

  NotificationCounter counter(status);
  bool deny = true;
  std::uint64_t notifications = 0;
  std::size_t notifiedPrefixes = 0;
  for (auto _ : state) {
    const U32 sequence = sequenceOf(kToggled);
    const Acl::UniqueId id(deny ? kDenyId : kPermitId + kToggled);
    cfg->ruleBySequenceIs(sequence, id);
    deny = !deny;

    state.PauseTiming();
    notifications = counter.crpSetNotifications + counter.rpNotifications;
    notifiedPrefixes = counter.prefixes.size();
    // Every changed prefix leaves or enters all 100 RPs and its set goes or comes with it.
    if (notifiedPrefixes != changed || counter.crpSetNotifications != changed ||
        counter.rpNotifications != changed * kRps) {
      state.SkipWithError("notifications differ from the prefixes that changed");
    }
    counter.reset();
    state.ResumeTiming();
  }
  state.counters["changed_prefixes"] = static_cast<double>(changed);
  state.counters["notified_prefixes"] = static_cast<double>(notifiedPrefixes);
  state.counters["notifications"] = static_cast<double>(notifications);
  state.counters["permitted_prefixes"] = static_cast<double>(permitting.size());
  state.counters["candidates"] = static_cast<double>(permitting.size() * kRps);
}

void runRefold(benchmark::State& state, Layout layout) {
  std::vector<Acl::IpRuleConfig> rules;
  rules.reserve(kRules);
  for (int i = 0; i < kRules; ++i) rules.push_back(ruleOf(layout, i, Acl::AclAction::permit));
  bool deny = true;
  std::size_t prefixes = 0;
  for (auto _ : state) {
    rules[kToggled] =
        ruleOf(layout, kToggled, deny ? Acl::AclAction::deny : Acl::AclAction::permit);
    deny = !deny;
    AclPrefix::AclToPrefix folder;
    for (const auto& rule : rules) folder.handleRule(rule, false);
    Ipkit::IpGenPrefixSet out;
    folder.PermittedPrefixes(out);
    prefixes = out.size();
    benchmark::DoNotOptimize(prefixes);
  }
  state.counters["prefixes"] = static_cast<double>(prefixes);
}

void BM_StaticRp_AclRuleChangeSparse10000(benchmark::State& state) {
  runRuleChange(state, Layout::sparse);
}
BENCHMARK(BM_StaticRp_AclRuleChangeSparse10000)->Unit(benchmark::kMillisecond);

void BM_StaticRpBaseline_AclRefoldSparse10000(benchmark::State& state) {
  runRefold(state, Layout::sparse);
}
BENCHMARK(BM_StaticRpBaseline_AclRefoldSparse10000)->Unit(benchmark::kMillisecond);

void BM_StaticRp_AclRuleChangeDense10000(benchmark::State& state) {
  runRuleChange(state, Layout::dense);
}
BENCHMARK(BM_StaticRp_AclRuleChangeDense10000)->Unit(benchmark::kMillisecond);

void BM_StaticRpBaseline_AclRefoldDense10000(benchmark::State& state) {
  runRefold(state, Layout::dense);
}
BENCHMARK(BM_StaticRpBaseline_AclRefoldDense10000)->Unit(benchmark::kMillisecond);

}  // namespace
