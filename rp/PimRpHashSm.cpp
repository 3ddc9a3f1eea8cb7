#include "rp/PimRpHashSm.h"

#include "framework/Kel/Assert.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/TolerantRead.h"
#include "rp/PimRpSourceRule.h"

namespace Routing {
namespace Pim {
namespace {

const char kClassName[] = "Routing::Pim::RpHashSm";

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kHandleStaticHashAll[] = "void Routing::Pim::RpHashSm::handleStaticHash()";
const char kHandleStaticHash[] =
    "void Routing::Pim::RpHashSm::handleStaticHash(const Ipkit::IpGenPrefix&)";
const char kHandleBsrHashAll[] = "void Routing::Pim::RpHashSm::handleBsrHash()";
const char kHandleBsrHash[] =
    "void Routing::Pim::RpHashSm::handleBsrHash(const Ipkit::IpGenPrefix&)";
const char kHandleStaticHashDel[] =
    "void Routing::Pim::RpHashSm::handleStaticHashDel(const Ipkit::IpGenPrefix&)";
const char kHandleBsrHashDel[] =
    "void Routing::Pim::RpHashSm::handleBsrHashDel(const Ipkit::IpGenPrefix&)";
const char kRpHashIs[] = "void Routing::Pim::RpHashSm::rpHashIs(const Routing::Pim::RpHash&)";
const char kRpHashDel[] = "void Routing::Pim::RpHashSm::rpHashDel(const Ipkit::IpGenPrefix&)";
const char kHandleInitialized[] = "void Routing::Pim::RpHashSm::handleInitialized()";
const char kDoRemoveExtraRpHashGroups[] =
    "void Routing::Pim::RpHashSm::doRemoveExtraRpHashGroups()";

}  // namespace

KEL_TRACE_FILE(RpHashSm::trace, "PimRpHashSm")

// ---- KelStaticHash / KelBsrHash -----------------------------------------------------------------

RpHashSm::KelStaticHash::KelStaticHash(RpHashSm* owner,
                                       const Kel::PtrConst<RpHashStatus>& staticHash)
    : NestedReactor(owner) {
  notifierIs(staticHash);
}

void RpHashSm::KelStaticHash::onRpHash(const Ipkit::IpGenPrefix& prefix) {
  if (ownerTearingDown()) return;
  owner()->handleStaticHash(prefix);
}

RpHashSm::KelBsrHash::KelBsrHash(RpHashSm* owner, const Kel::PtrConst<RpHashStatus>& bsrHash)
    : NestedReactor(owner) {
  notifierIs(bsrHash);
}

void RpHashSm::KelBsrHash::onRpHash(const Ipkit::IpGenPrefix& prefix) {
  if (ownerTearingDown()) return;
  owner()->handleBsrHash(prefix);
}

// ---- RpHashSm -----------------------------------------------------------------------------------

RpHashSm::RpHashSm(Mode pimMode, const Kel::PtrConst<RpHashStatus>& staticHash,
                   const Kel::PtrConst<RpHashStatus>& bsrHash,
                   const Kel::Ptr<RpHashStatus>& rpHashStatus,
                   const Kel::Ptr<BitMapper::Config>& rpBitMapConfig,
                   const Kel::PtrConst<EmbeddedRpStatus>& embeddedRp)
    : pimMode_(pimMode),
      staticHash_(staticHash),
      bsrHash_(bsrHash),
      rpHashStatus_(rpHashStatus),
      rpBitMapConfig_(rpBitMapConfig) {
  Kel::requireEntity(staticHash, kClassName, "staticHash");
  Kel::requireEntity(bsrHash, kClassName, "bsrHash");
  Kel::requireEntity(rpHashStatus, kClassName, "rpHashStatus");
  kelStaticHash_.is(Kel::Ptr<KelStaticHash>(new KelStaticHash(this, staticHash_)));
  kelBsrHash_.is(Kel::Ptr<KelBsrHash>(new KelBsrHash(this, bsrHash_)));
  KEL_ASSERT(trace(), !embeddedRp || pimMode != modePimBidir);
  if (embeddedRp) kelEmbeddedRp_.is(Kel::Ptr<KelEmbeddedRp>(new KelEmbeddedRp(this, embeddedRp)));
  handleStaticHash();
  handleBsrHash();
  handleEmbeddedRp();
  handleInitialized();
}

template <class Handle>
void RpHashSm::doWalk(const RpHashStatus& table, Handle&& handle) {
  const RpHashStatus::Table& entries = table.rpHash();
  RpHashStatus::Table::Iterator at = entries.end();
  // Only the steps are read tolerantly: damage ends the walk, the handler's own reads are its own.
  if (!Mirra::tolerantRead(table, [&] { at = entries.begin(); })) return;
  // The iterator steps past the key it holds, so the handler may delete that key's entry.
  while (!at.atEnd()) {
    handle(at->key());
    if (!Mirra::tolerantRead(table, [&] { ++at; })) return;
  }
}

void RpHashSm::handleStaticHash() {
  KEL_TRACE(trace(), 9, kHandleStaticHashAll);
  doWalk(*staticHash_, [this](const Ipkit::IpGenPrefix& prefix) { handleStaticHash(prefix); });
}

void RpHashSm::handleStaticHash(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 8, kHandleStaticHash << "( " << prefix << " )");
  if (doEmbeddedRpServes(prefix, "handleStaticHash")) return;
  const RpHash staticEntry = staticHash_->rpHash(prefix);
  const RpHash bsrEntry = bsrHash_->rpHash(prefix);
  bool override = false;
  if (rpHashPresent(staticEntry)) {
    override = staticEntry.override();
    KEL_TRACE(trace(), 5,
              "Static RP " << staticEntry.address() << " has override " << boolToStrep(override));
  }
  if (!rpHashUsable(staticEntry)) {
    handleStaticHashDel(prefix);
    return;
  }
  if (rpStaticWins(override, rpHashUsable(bsrEntry))) {
    KEL_TRACE(trace(), 5, "handleStaticHash: Adding " << staticEntry);
    rpHashIs(staticEntry);
    return;
  }
  // The BSR entry is usable here, so it exists.
  KEL_TRACE(trace(), 5,
            "Updating RP Hash to BSR entry since BSR entry exists and override is "
                << boolToStrep(override));
  rpHashIs(bsrEntry);
}

void RpHashSm::handleBsrHash() {
  KEL_TRACE(trace(), 9, kHandleBsrHashAll);
  doWalk(*bsrHash_, [this](const Ipkit::IpGenPrefix& prefix) { handleBsrHash(prefix); });
}

void RpHashSm::handleBsrHash(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9, kHandleBsrHash << " ( " << prefix << " )");
  if (doEmbeddedRpServes(prefix, "handleBsrHash")) return;
  const RpHash staticEntry = staticHash_->rpHash(prefix);
  const RpHash bsrEntry = bsrHash_->rpHash(prefix);
  // The flag alone decides here, whether or not the static entry names an RP (invariant 5).
  const bool override = rpHashPresent(staticEntry) && staticEntry.override();
  if (!rpHashUsable(bsrEntry)) {
    handleBsrHashDel(prefix);
    return;
  }
  // The BSR entry is usable here, so the rule comes down to the flag.
  if (rpStaticWins(override, true)) {
    KEL_TRACE(
        trace(), 5,
        "No programming BSR hash for prefix " << prefix << " since static override is set for it");
    return;
  }
  KEL_TRACE(trace(), 5, "handleBsrHash: Adding " << bsrEntry);
  rpHashIs(bsrEntry);
}

void RpHashSm::handleStaticHashDel(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9, kHandleStaticHashDel);
  doFallBack(prefix, *bsrHash_, "handleStaticHashDel");
}

void RpHashSm::handleBsrHashDel(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9, kHandleBsrHashDel);
  // The static entry is the only candidate left: its override flag does not matter (invariant 6).
  doFallBack(prefix, *staticHash_, "handleBsrHashDel");
}

void RpHashSm::doFallBack(const Ipkit::IpGenPrefix& prefix, const RpHashStatus& other,
                          const char* handler) {
  const RpHash otherEntry = other.rpHash(prefix);
  if (rpHashUsable(otherEntry)) {
    KEL_TRACE(trace(), 5, handler << ": Adding " << otherEntry);
    rpHashIs(otherEntry);
    return;
  }
  KEL_TRACE(trace(), 5, handler << ": Deleting group " << prefix);
  rpHashDel(prefix);
}

void RpHashSm::rpHashIs(const RpHash& entry) {
  KEL_TRACE(trace(), 9, kRpHashIs << entry);
  if (pimMode_ != modePimNone && entry.mode() != pimMode_) {
    KEL_TRACE(trace(), 9, kRpHashIs << ", Ignoring " << entry << ", My mode: " << pimMode_);
    return;
  }
  if (rpBitMapConfig_) {
    const RpHash current = rpHashStatus_->rpHash(entry.key());
    if (rpHashPresent(current) && current.address() != entry.address()) {
      KEL_TRACE(trace(), 9, kRpHashIs << ", dealloc request for " << current);
      doDeallocRequest(current.address());
    }
    // An absent entry holds the unspecified address.
    if (entry.address() != current.address()) {
      KEL_TRACE(trace(), 9, kRpHashIs << ", alloc request for " << entry);
      doAllocRequest(entry.address());
    }
  }
  rpHashStatus_->rpHashIs(entry);
}

void RpHashSm::rpHashDel(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9, kRpHashDel << prefix);
  if (rpBitMapConfig_) {
    const RpHash current = rpHashStatus_->rpHash(prefix);
    if (rpHashPresent(current)) {
      KEL_TRACE(trace(), 9, kRpHashDel << ", dealloc request for " << current);
      doDeallocRequest(current.address());
    }
  }
  rpHashStatus_->rpHashDel(prefix);
}

void RpHashSm::handleInitialized() {
  KEL_TRACE(trace(), 9, kHandleInitialized);
  initialized_ = true;
  doRemoveExtraRpHashGroups();
}

void RpHashSm::doRemoveExtraRpHashGroups() {
  KEL_TRACE(trace(), 9, kDoRemoveExtraRpHashGroups);
  doWalk(*rpHashStatus_, [this](const Ipkit::IpGenPrefix& key) {
    if (rpHashPresent(staticHash_->rpHash(key)) || rpHashPresent(bsrHash_->rpHash(key))) return;
    if (embeddedRp() && rpHashPresent(embeddedRp()->entry(key))) return;
    KEL_TRACE(trace(), 5, "doRemoveExtraRpHashGroups: Deleting group " << key);
    rpHashDel(key);
  });
}

void RpHashSm::doAllocRequest(const Ipkit::IpGenAddr& address) {
  rpBitMapConfig_->allocRequestKeyIs(BitMapper::BitMapperKey(Ipkit::IntfId(""), address));
  rpBitMapConfig_->allocRequestCountInc(1);
}

void RpHashSm::doDeallocRequest(const Ipkit::IpGenAddr& address) {
  rpBitMapConfig_->deallocRequestKeyIs(BitMapper::BitMapperKey(Ipkit::IntfId(""), address));
  rpBitMapConfig_->deallocRequestCountInc(1);
}

Kel::Ptr<RpHashSm> rpHashSmFactory(Mode pimMode, const Kel::PtrConst<RpHashStatus>& staticHash,
                                   const Kel::PtrConst<RpHashStatus>& bsrHash,
                                   const Kel::Ptr<RpHashStatus>& rpHashStatus,
                                   const Kel::Ptr<BitMapper::Config>& rpBitMapConfig,
                                   const Kel::PtrConst<EmbeddedRpStatus>& embeddedRp) {
  return Kel::Ptr<RpHashSm>(
      new RpHashSm(pimMode, staticHash, bsrHash, rpHashStatus, rpBitMapConfig, embeddedRp));
}

}  // namespace Pim
}  // namespace Routing
