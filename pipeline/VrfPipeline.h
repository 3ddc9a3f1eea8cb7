#pragma once
// PimrpPipeline::VrfPipeline: the RP library assembled for one VRF, as a PIM routing agent
// assembles it. Read this page first when embedding the library; docs/embedding.md shows it
// running on an event loop.
//
// What it is. For each address family (family(af), a FamilyWiring): the static RP configuration
// of the VRF and the access lists (IPv4 only), the static candidate reactor that turns both into
// the static candidate status, the bootstrap candidate status, the known groups and the unicast
// route shadow; per mode (sparse, bidir) and source (static, bootstrap) a review that writes the
// source's per-group and per-range RP hash tables; per mode a merge of both sources into the final
// per-group table and one into the final per-range table (the RP mapping); an RP hash compute
// status per query mode (any, sparse, bidir) that answers rpHashCompute(group, join); two group
// filters over the final bidirectional ranges; a local RP reactor over both candidate statuses and
// the route shadow; an embedded-RP reactor, off by default, that lets the known IPv6 groups whose
// address names their RP use it, above every other RP, in the sparse per-group merge, the compute
// statuses and local RP detection. One RP configuration (the hash algorithm) and one
// allocation-request channel serve both families of the VRF.
//
// What the agent owns and lends (Host): the clock that its event loop runs, and the attribute log
// whose back-pressure the reviews obey. Both are shared by every VRF of the agent. The pipeline
// owns everything else, and the tables live where the TableHome says: in process memory, or in
// shared memory under a name, where other processes read them (TableHome.h names them).
//
// What the agent writes (inputs): family(af).staticConfig() and aclConfig() as the operator
// configures; family(af).bsrStatus() as the bootstrap mechanism learns candidates (the candidate
// set, then each candidate's values, its mode last); family(af).groups() as the router learns and
// forgets groups; family(af).routeIs()/routeDel() as unicast routes change; rpConfig() for the
// hash algorithm; family(ipv6).embeddedRp().config() to turn embedded RP on or off (off by
// default), bound how many groups may use it at once (the limit, 25 by default) and restrict which
// groups may (group ranges within ff70::/12; none: all of it); the attribute log's clogged state.
// What the agent reads (outputs): family(af).compute(mode)->rpHashCompute(group, join) for the RP
// of one group at once; family(af).table(source, kind, mode) for the per-source and final tables
// (a reactor on a final table sees each change as it is written); family(af).groupFilter(mode),
// family(af).localRpStatus(), family(af).staticStatus(); family(ipv6).embeddedRp().status() for
// the groups that use their embedded RP, the derived RPs with their group counts, the groups
// waiting over the limit and the overflow count; allocRequests() for the allocation and release
// requests of RP addresses (drained by whoever serves them).
//
// When to call what, all on the agent's one event thread:
//  1. Construct: creates the inputs, the static candidate reactor, the embedded-RP reactor and
//     the local RP reactor, and creates (or attaches) the tables. Nothing writes a table yet.
//  2. Put back the known groups the agent remembers, and nothing else: on a restart over shared
//     tables left by an earlier run, the reviews then drop the entries of every other group. (A
//     review that starts over a range already configured computes the range's own entry before
//     the range is in its trie, and leaves the per-range tables without an RP for it.)
//  3. reviewsStart(): the reviews take up the per-source tables as they find them and recompute
//     them; configuration written from then on reaches running reviews, as a replayed
//     configuration does.
//  4. start(): the merges take up the final tables, folding the per-source tables again and
//     dropping the final entries that neither backs (with a release request each); the compute
//     statuses and group filters start. Over shared tables, running the clock until the reviews
//     have settled before start() lets readers of the final tables see each entry change at most
//     once. In process memory there is nothing to take up: start() right after construction,
//     then configure.
//  5. Then: write inputs as they change, and deliver the clock's wake-ups from the event loop
//     (wait at most until host.clock->nextWakeup(), then host.clock->runDue()): the reviews work
//     in slices of at most 0.01 s, the group filters' start-up review in slices of 0.1 s.
//  6. Destroy: detaches every reactor, the local RP reactor and the readers of the final tables
//     first, the static candidate reactor last. Nothing is written on the way: the tables stay as
//     they are, shared ones for their readers and for the agent's next run.
//
// Invariants:
//  1. Every table has exactly one writer, a reactor of this pipeline; the agent only reads them.
//  2. Before reviewsStart() nothing writes a table and the reviews of family(af) are null; before
//     start() nothing writes a final table, and the compute statuses and group filters are null.
//  3. The static candidate status has one writer, the static candidate reactor; the agent writes
//     the bootstrap status, never the static one.
//  4. The pipeline never blocks and takes no locks: every change is handled before the write that
//     made it returns, every delay is a wake-up of the host's clock.
//  5. Two pipelines share nothing but the host: VRFs are independent, each with its own
//     configuration (embedded RP's included), access lists, candidates, groups, routes, tables
//     and allocation requests.
//  6. With embedded RP off (its default), every answer, table, allocation request and trace is
//     what it is without the feature: its status stays empty and the reactors given it pass over
//     it.

#include "framework/BitMapper/Config.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "model/Pim/PimAttrLogSm.h"
#include "model/Pim/RpConfig.h"
#include "pipeline/FamilyWiring.h"
#include "pipeline/TableHome.h"

namespace PimrpPipeline {

class VrfPipeline {
 public:
  // What the hosting agent owns and lends to the pipeline of every VRF.
  struct Host {
    Kel::Ptr<Kel::Clock> clock;
    Kel::Ptr<Routing::Pim::PimAttrLogSm> attrLog;
  };

  // Creates the inputs and the tables of `vrf` in `tables` (step 1 above). Throws
  // Kel::RangeException with the shared-table facility's reason when a shared table cannot be
  // attached (a second writer, a reader of tables that do not exist), and
  // Mirra::CorruptionDetectedException when a reader finds one damaged.
  // REQUIRES: host.clock and host.attrLog are set.
  VrfPipeline(const L3::VrfName& vrf, const Host& host, const TableHome& tables = TableHome());
  VrfPipeline(const VrfPipeline&) = delete;
  VrfPipeline& operator=(const VrfPipeline&) = delete;

  const L3::VrfName& vrf() const { return vrf_; }
  const TableHome& tableHome() const { return home_; }
  const Host& host() const { return host_; }

  // Starts the reviews of both families (step 3); once only, later calls do nothing.
  void reviewsStart();
  bool reviewsStarted() const { return ipv4_.reviewsStarted(); }
  // Starts the merges, compute statuses and group filters of both families, and the reviews
  // first when they do not run yet (step 4); once only, later calls do nothing.
  void start();
  bool started() const { return ipv4_.reactorsStarted(); }

  // The VRF's RP configuration: the hash algorithm of both families.
  const Kel::Ptr<Routing::Pim::RpConfig>& rpConfig() const { return inputs_.rpConfig; }
  // The allocation and release requests that the final tables make for RP addresses.
  const Kel::Ptr<BitMapper::Config>& allocRequests() const { return inputs_.bitMapConfig; }

  // REQUIRES: af is ipv4 or ipv6.
  FamilyWiring& family(Ipkit::AddressFamily af) {
    return af == Ipkit::AddressFamily::ipv4 ? ipv4_ : ipv6_;
  }
  const FamilyWiring& family(Ipkit::AddressFamily af) const {
    return af == Ipkit::AddressFamily::ipv4 ? ipv4_ : ipv6_;
  }

 private:
  const L3::VrfName vrf_;
  const Host host_;
  const TableHome home_;
  // Declared before the families: their reactors hold on to these and go before them.
  const SharedInputs inputs_;
  FamilyWiring ipv4_;
  FamilyWiring ipv6_;
};

}  // namespace PimrpPipeline
