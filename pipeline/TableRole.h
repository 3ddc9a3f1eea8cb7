#pragma once
// PimrpPipeline table roles: which of a VRF's RP hash tables one is. Per address family and mode
// (sparse, bidir), each source (static, bootstrap) has a per-group and a per-range table, and the
// merge of both sources a final per-group and a final per-range table: 24 tables per VRF.
//
// The words of a role are those of the tool's `show rp-hash` and of the shared tables' names:
// "<family>.<mode>.<source>.<kind>", for instance "ipv4.sparse.static.groups".

#include <string>

#include "framework/Ipkit/AddressFamily.h"
#include "model/Pim/PimTypes.h"

namespace PimrpPipeline {

// Which RP hash table: a source's own, or the merge of both.
enum class HashSource { staticRp, bsr, final };
// One entry per known group, or one per candidate-set prefix.
enum class HashKind { groups, prefixes };

// "<family>.<mode>.<source>.<kind>". REQUIRES: af is ipv4 or ipv6; mode is modePimSm or
// modePimBidir.
std::string tableRole(Ipkit::AddressFamily af, HashSource source, HashKind kind,
                      Routing::Pim::Mode mode);

// Calls visit(af, source, kind, mode) for every role of a VRF: ipv4 before ipv6, sparse before
// bidir, static, bsr, final, groups before prefixes.
template <class Visit>
void forEachTableRole(Visit visit) {
  for (const auto af : {Ipkit::AddressFamily::ipv4, Ipkit::AddressFamily::ipv6}) {
    for (const auto mode : {Routing::Pim::modePimSm, Routing::Pim::modePimBidir}) {
      for (const auto source : {HashSource::staticRp, HashSource::bsr, HashSource::final}) {
        for (const auto kind : {HashKind::groups, HashKind::prefixes}) {
          visit(af, source, kind, mode);
        }
      }
    }
  }
}

}  // namespace PimrpPipeline
