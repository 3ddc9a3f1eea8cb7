#include "pipeline/FamilyWiring.h"

namespace PimrpPipeline {

using namespace Routing::Pim;

namespace {

std::size_t sourceIndex(HashSource source) { return static_cast<std::size_t>(source); }

template <class Shadow>
std::vector<FamilyWiring::Route> routesOf(const Shadow& shadow) {
  using Family = typename Shadow::Family;
  const auto& fecs = shadow.fecTable();
  fecs.attach();
  std::vector<FamilyWiring::Route> routes;
  for (const auto& route : shadow.routeTable()) {
    FamilyWiring::Route row{Family::prefixOf(route.prefix), route.type, {}};
    const std::uint32_t vias = fecs.fec(route.fecId).vias;
    for (std::uint32_t index = 0; index < vias; ++index) {
      const auto via = fecs.via(route.fecId, index);
      row.vias.push_back({Family::addressOf(via.nextHop), via.intfId.intfId()});
    }
    routes.push_back(std::move(row));
  }
  return routes;
}
std::size_t kindIndex(HashKind kind) { return static_cast<std::size_t>(kind); }

}  // namespace

FamilyWiring::FamilyWiring(Ipkit::AddressFamily af, const L3::VrfName& vrf,
                           const SharedInputs& shared, const TableMaker& makeTable)
    : af_(af),
      shared_(shared),
      staticConfig_(new Static::RpConfig(vrf)),
      aclConfig_(new Acl::AclTypeConfig),
      staticStatus_(new RpCandidateStatus),
      bsrStatus_(new RpCandidateStatus),
      groups_(new GroupStatus),
      staticReactor_(Static::rpCandidateSmFactory(staticConfig_, aclConfig_, staticStatus_)),
      embeddedRp_(groups_),
      anyModeTable_(new RpHashStatus),
      localRpStatus_(new RpLocalStatus) {
  // The bootstrap machinery marks the status it writes, as the static reactor marks its own.
  bsrStatus_->rpSetTypeIs(rpTypeBsr);
  for (const HashSource source : {HashSource::staticRp, HashSource::bsr, HashSource::final}) {
    for (const HashKind kind : {HashKind::groups, HashKind::prefixes}) {
      for (const Mode mode : {modePimSm, modePimBidir}) {
        tables_[sourceIndex(source)][kindIndex(kind)][tableModeIndex(mode)] =
            makeTable(source, kind, mode);
      }
    }
  }
  localSm_ = rpLocalSmFactory(staticStatus_, bsrStatus_, localRpStatus_);
  localSm_->embeddedRpStatusIs(embeddedRp_.status());
  if (af == Ipkit::AddressFamily::ipv4) {
    shadow4_ = Kel::Ptr<Routing::Shadow::Status>(new Routing::Shadow::Status("uribTrie"));
  } else {
    shadow6_ = Kel::Ptr<Routing6::Shadow::Status>(new Routing6::Shadow::Status("urib6Trie"));
  }
  shadowIs(true);
}

void FamilyWiring::reviewsStart() {
  if (reviewsStarted_) return;
  reviewsStarted_ = true;
  for (const Mode mode : {modePimSm, modePimBidir}) {
    const std::size_t m = tableModeIndex(mode);
    for (const HashSource source : {HashSource::staticRp, HashSource::bsr}) {
      const auto& status = source == HashSource::staticRp ? staticStatus_ : bsrStatus_;
      reviews_[sourceIndex(source)][m] =
          rpHashIntermediateSmFactory(af_, groups_, status, table(source, HashKind::groups, mode),
                                      table(source, HashKind::prefixes, mode), shared_.clock, mode,
                                      shared_.attrLog, shared_.rpConfig);
    }
  }
}

void FamilyWiring::reactorsStart() {
  if (reactorsStarted_) return;
  reviewsStart();
  reactorsStarted_ = true;
  for (const Mode mode : {modePimSm, modePimBidir}) {
    const std::size_t m = tableModeIndex(mode);
    for (const HashKind kind : {HashKind::groups, HashKind::prefixes}) {
      // An embedded RP serves one known group, in sparse mode.
      const bool embedded = kind == HashKind::groups && mode == modePimSm;
      merges_[kindIndex(kind)][m] =
          rpHashSmFactory(mode, table(HashSource::staticRp, kind, mode),
                          table(HashSource::bsr, kind, mode), table(HashSource::final, kind, mode),
                          shared_.bitMapConfig, embedded ? embeddedRp_.status() : nullptr);
    }
  }
  compute_[modePimNone] = rpHashComputeStatusFactory(staticStatus_, bsrStatus_, anyModeTable_,
                                                     modePimNone, shared_.rpConfig);
  compute_[modePimNone]->embeddedRpStatusIs(embeddedRp_.status());
  for (const Mode mode : {modePimSm, modePimBidir}) {
    compute_[mode] = rpHashComputeStatusFactory(staticStatus_, bsrStatus_,
                                                table(HashSource::final, HashKind::groups, mode),
                                                mode, shared_.rpConfig);
    compute_[mode]->embeddedRpStatusIs(embeddedRp_.status());
    // Both filters read the bidirectional ranges: a group in one is served in bidir mode, any
    // other group in sparse mode.
    const std::size_t m = tableModeIndex(mode);
    groupFilter_[m] = groupFilterStatusFactory(af_, mode);
    groupFilterSm_[m] = groupFilterSmFactory(
        table(HashSource::final, HashKind::prefixes, modePimBidir), groupFilter_[m], shared_.clock);
  }
}

const Kel::Ptr<RpHashStatus>& FamilyWiring::table(HashSource source, HashKind kind,
                                                  Mode mode) const {
  return tables_[sourceIndex(source)][kindIndex(kind)][tableModeIndex(mode)];
}

const Kel::Ptr<RpHashIntermediateSm>& FamilyWiring::review(HashSource source, Mode mode) const {
  return reviews_[sourceIndex(source)][tableModeIndex(mode)];
}

void FamilyWiring::routeIs(const Ipkit::IpGenPrefix& prefix, std::uint32_t type,
                           const std::vector<Routing::ShadowFib::ViaEntry>& vias) {
  if (shadow4_) {
    shadow4_->routeIs(prefix, type, vias);
  } else {
    shadow6_->routeIs(prefix, type, vias);
  }
}

void FamilyWiring::routeDel(const Ipkit::IpGenPrefix& prefix) {
  if (shadow4_) {
    shadow4_->routeDel(prefix);
  } else {
    shadow6_->routeDel(prefix);
  }
}

std::vector<FamilyWiring::Route> FamilyWiring::routes() const {
  return shadow4_ ? routesOf(*shadow4_) : routesOf(*shadow6_);
}

bool FamilyWiring::shadowAttached() const {
  return shadow4_ ? localSm_->uribShadow() != nullptr : localSm_->urib6Shadow() != nullptr;
}

void FamilyWiring::shadowIs(bool attached) {
  if (shadow4_) {
    attached ? localSm_->uribShadowIs(shadow4_) : localSm_->uribShadowDel();
  } else {
    attached ? localSm_->urib6ShadowIs(shadow6_) : localSm_->urib6ShadowDel();
  }
}

}  // namespace PimrpPipeline
