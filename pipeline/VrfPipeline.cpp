#include "pipeline/VrfPipeline.h"

namespace PimrpPipeline {

using namespace Routing::Pim;

namespace {

FamilyWiring::TableMaker tablesIn(const TableHome& home, const L3::VrfName& vrf,
                                  Ipkit::AddressFamily af) {
  return [home, vrf, af](HashSource source, HashKind kind, Mode mode) {
    return rpHashTableIn(home, vrf, af, source, kind, mode);
  };
}

}  // namespace

VrfPipeline::VrfPipeline(const L3::VrfName& vrf, const Host& host, const TableHome& tables)
    : vrf_(vrf),
      host_(host),
      home_(tables),
      inputs_{Kel::Ptr<RpConfig>(new RpConfig), host.clock, host.attrLog,
              Kel::Ptr<BitMapper::Config>(new BitMapper::Config)},
      ipv4_(Ipkit::AddressFamily::ipv4, vrf, inputs_,
            tablesIn(tables, vrf, Ipkit::AddressFamily::ipv4)),
      ipv6_(Ipkit::AddressFamily::ipv6, vrf, inputs_,
            tablesIn(tables, vrf, Ipkit::AddressFamily::ipv6)) {}

void VrfPipeline::reviewsStart() {
  ipv4_.reviewsStart();
  ipv6_.reviewsStart();
}

void VrfPipeline::start() {
  // Both families' reviews before either family's merges, as when the reviews started apart.
  reviewsStart();
  ipv4_.reactorsStart();
  ipv6_.reactorsStart();
}

}  // namespace PimrpPipeline
