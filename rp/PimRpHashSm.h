#pragma once
// Routing::Pim::RpHashSm: folds the static and the BSR RP hash tables of one PIM mode into the
// final table, and announces every change of a final entry's RP address to the bitmap allocator.
//
// The rule, per prefix: the BSR entry wins over the static one, unless the static entry carries
// the override flag or the BSR entry has no RP (rpStaticWins, shared with rpHashCompute). An entry
// is usable when it is present and names an RP address; a placeholder (present, no address) is
// never written to the final table.
//
// Invariants:
//  1. rpHashIs and rpHashDel are the only writers of rpHashStatus.
//  2. An entry whose mode differs from a non-zero pimMode never reaches the final table.
//  3. With rpBitMapConfig set, every change of the address held under a key makes, in this order,
//     one deallocation request for the old address (when there was an entry) and one allocation
//     request for the new one (when there is an entry); the key of a request is written before
//     its counter is raised. A rewrite that keeps the address makes none. So, per address, the
//     allocations minus the deallocations requested by the reactors that wrote a final table in
//     turn equal the number of its entries that hold the address.
//  4. After construction every final key is held by one of the inputs (entries left over from a
//     previous run are dropped, each with its deallocation request). The final table equals the
//     rule applied to the two inputs as long as no static entry carries the override flag without
//     an address and every entry has this table's mode (or pimMode is 0); an ignored entry of
//     another mode leaves the final entry as it was.
//  5. A static entry with override and no address makes the outcome depend on which input changed
//     last: a BSR change leaves the final entry alone (handleBsrHash looks at the flag only), a
//     static change falls back to the BSR entry (handleStaticHash looks at the address first).
//     This asymmetry is deliberate.
//  6. Falling back to the static entry when the BSR entry goes ignores the override flag: it is the
//     only candidate left.
//  7. With an embedded-RP status (a sparse-mode merge of per-group tables only), a group that uses
//     its embedded RP has the status's entry in the final table, whatever the two inputs hold:
//     their changes for that key write nothing, and when the group stops using it the rule above
//     decides the key again. Without one, or with a status that holds no group, the merge is the
//     two-input merge above, traces included.
//
// The walks over a whole table (handleStaticHash(), handleBsrHash(), doRemoveExtraRpHashGroups())
// use the table's own iteration. A corruption that the walk's own steps meet is handed back to
// the walked table (Mirra::tolerantRead) and ends the walk; a corruption raised by a lookup in a
// handler propagates to the caller.
//
// Traces go to the trace file "PimRpHashSm": 9 entry of the passes and of the writers, request
// bookkeeping and ignored entries; 8 entry of the per-prefix static handler; 5 decisions and
// changes written to the final table.

#include "framework/BitMapper/Config.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/NestedReactor.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/Trace.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpHash.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimEmbeddedRpStatus.h"

namespace Routing {
namespace Pim {

class RpHashSm : public Kel::ReactorOwner {
 public:
  // Forwards every change of the static table, deletions included, to handleStaticHash(prefix).
  class KelStaticHash : public Kel::NestedReactor<RpHashSm, RpHashStatus::NotifieeConst> {
   public:
    KelStaticHash(RpHashSm* owner, const Kel::PtrConst<RpHashStatus>& staticHash);
    void onRpHash(const Ipkit::IpGenPrefix& prefix) override;
  };

  // Forwards every change of the BSR table, deletions included, to handleBsrHash(prefix).
  class KelBsrHash : public Kel::NestedReactor<RpHashSm, RpHashStatus::NotifieeConst> {
   public:
    KelBsrHash(RpHashSm* owner, const Kel::PtrConst<RpHashStatus>& bsrHash);
    void onRpHash(const Ipkit::IpGenPrefix& prefix) override;
  };

  // Forwards every change of a group's use of its embedded RP to handleEmbeddedRp(host prefix).
  class KelEmbeddedRp : public Kel::NestedReactor<RpHashSm, EmbeddedRpStatus::NotifieeConst> {
   public:
    KelEmbeddedRp(RpHashSm* owner, const Kel::PtrConst<EmbeddedRpStatus>& embeddedRp);
    void onGroup(const Ipkit::IpGenAddr& group) override;
  };

  // Watches the inputs, then reconciles the final table with them: every static prefix, every
  // BSR prefix, every group using its embedded RP, then removal of the final entries that no
  // input holds.
  // REQUIRES: staticHash, bsrHash and rpHashStatus present (else the null-mutator refusal);
  // rpBitMapConfig may be null, and then no requests are made; embeddedRp may be null, and is
  // given only to a merge of per-group tables whose pimMode is not modePimBidir (else the
  // assertion "!embeddedRp || pimMode != modePimBidir").
  RpHashSm(Mode pimMode, const Kel::PtrConst<RpHashStatus>& staticHash,
           const Kel::PtrConst<RpHashStatus>& bsrHash, const Kel::Ptr<RpHashStatus>& rpHashStatus,
           const Kel::Ptr<BitMapper::Config>& rpBitMapConfig,
           const Kel::PtrConst<EmbeddedRpStatus>& embeddedRp = nullptr);
  // Detaching from both inputs is the nested reactors' own; the final table stays as it is.

  Mode pimMode() const { return pimMode_; }
  const Kel::PtrConst<RpHashStatus>& staticHash() const { return staticHash_; }
  const Kel::PtrConst<RpHashStatus>& bsrHash() const { return bsrHash_; }
  const Kel::Ptr<RpHashStatus>& rpHashStatus() const { return rpHashStatus_; }
  const Kel::Ptr<BitMapper::Config>& rpBitMapConfig() const { return rpBitMapConfig_; }
  Kel::PtrConst<EmbeddedRpStatus> embeddedRp() const;
  bool initialized() const { return initialized_; }

  // Runs handleStaticHash(prefix) for every entry of the static table.
  void handleStaticHash();
  // Writes the final entry of prefix after a change of its static entry.
  void handleStaticHash(const Ipkit::IpGenPrefix& prefix);
  // Runs handleBsrHash(prefix) for every entry of the BSR table.
  void handleBsrHash();
  // Writes the final entry of prefix after a change of its BSR entry.
  void handleBsrHash(const Ipkit::IpGenPrefix& prefix);
  // The static entry of prefix is gone or has no RP: fall back to a usable BSR entry, or delete.
  void handleStaticHashDel(const Ipkit::IpGenPrefix& prefix);
  // The BSR entry of prefix is gone or has no RP: fall back to a usable static entry, or delete.
  void handleBsrHashDel(const Ipkit::IpGenPrefix& prefix);
  // Runs handleEmbeddedRp(prefix) for every group using its embedded RP.
  void handleEmbeddedRp();
  // Writes the final entry of prefix after its group started or stopped using its embedded RP.
  void handleEmbeddedRp(const Ipkit::IpGenPrefix& prefix);

  // Writes entry to the final table with its allocation requests (invariant 3); an entry of the
  // wrong mode is ignored.
  void rpHashIs(const RpHash& entry);
  // Deletes the final entry of prefix with its deallocation request.
  void rpHashDel(const Ipkit::IpGenPrefix& prefix);

  // Sets the initialized flag and drops the final entries that neither input holds.
  void handleInitialized();
  void doRemoveExtraRpHashGroups();

 private:
  static const Kel::TraceFile& trace();
  // Walks every key of table in its order, calling handle(key); a corruption met by the walk's
  // own steps is handed back to table and ends the walk.
  template <class Handle>
  static void doWalk(const RpHashStatus& table, Handle&& handle);
  // One input no longer gives prefix an RP: the usable entry of `other` takes its place in the
  // final table, or the final entry goes. `handler` names the caller in the traces.
  void doFallBack(const Ipkit::IpGenPrefix& prefix, const RpHashStatus& other, const char* handler);
  // Whether the group of prefix uses its embedded RP, which then keeps its final entry (invariant
  // 7); `handler` names the caller in the trace.
  bool doEmbeddedRpServes(const Ipkit::IpGenPrefix& prefix, const char* handler) const;
  // Writes the key then raises the counter of one request for address.
  void doAllocRequest(const Ipkit::IpGenAddr& address);
  void doDeallocRequest(const Ipkit::IpGenAddr& address);

  const Mode pimMode_;
  const Kel::PtrConst<RpHashStatus> staticHash_;
  const Kel::PtrConst<RpHashStatus> bsrHash_;
  const Kel::Ptr<RpHashStatus> rpHashStatus_;
  const Kel::Ptr<BitMapper::Config> rpBitMapConfig_;
  bool initialized_ = false;

  Kel::NestedReactorPtr<KelStaticHash> kelStaticHash_;
  Kel::NestedReactorPtr<KelBsrHash> kelBsrHash_;
  Kel::NestedReactorPtr<KelEmbeddedRp> kelEmbeddedRp_;
};

Kel::Ptr<RpHashSm> rpHashSmFactory(Mode pimMode, const Kel::PtrConst<RpHashStatus>& staticHash,
                                   const Kel::PtrConst<RpHashStatus>& bsrHash,
                                   const Kel::Ptr<RpHashStatus>& rpHashStatus,
                                   const Kel::Ptr<BitMapper::Config>& rpBitMapConfig,
                                   const Kel::PtrConst<EmbeddedRpStatus>& embeddedRp = nullptr);

}  // namespace Pim
}  // namespace Routing
