#include "rp/PimRpCompute.h"

#include <algorithm>
#include <array>

#include "framework/Kel/Assert.h"
#include "framework/Kel/Trace.h"

namespace Routing {
namespace Pim {
namespace {

KEL_TRACE_FILE(trace, "PimRpCompute")

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kDoComputeRpFromPrefix[] =
    "Routing::Pim::RpCandidateInfo Routing::Pim::RpCompute::doComputeRpFromPrefix(const "
    "Ipkit::IpGenPrefix&)";
const char kDoLongestPrefixGroupMatch[] =
    "Kel::PtrConst<Routing::Pim::RpCandidateSet> "
    "Routing::Pim::RpCompute::doLongestPrefixGroupMatch(const Ipkit::IpGenPrefix&)";
const char kDoSelectCrp[] =
    "Routing::Pim::RpCandidateInfo "
    "Routing::Pim::RpCompute::doSelectCrp(Kel::PtrConst<Routing::Pim::CrpSet>&, const "
    "Ipkit::IpGenPrefix&)";
const char kDoComputeRpModulo[] =
    "Kel::PtrConst<Routing::Pim::RpCandidate> Routing::Pim::RpCompute::doComputeRpModulo(const "
    "Ipkit::IpGenAddr&, Kel::PtrConst<Routing::Pim::CrpSet>&) const";
const char kDoHighestPriorityRpMatch[] =
    "Kel::PtrConst<Routing::Pim::RpPrioritySet> "
    "Routing::Pim::RpCompute::doHighestPriorityRpMatch(Kel::PtrConst<Routing::Pim::CrpSet>&)";
const char kDoHighestHashMaskRpMatch[] =
    "Kel::PtrConst<Routing::Pim::RpHashMaskSet> "
    "Routing::Pim::RpCompute::doHighestHashMaskRpMatch(const Ipkit::IpGenAddr&, "
    "Kel::PtrConst<Routing::Pim::RpPrioritySet>&)";
const char kDoComputeHashMask[] =
    "U32 Routing::Pim::RpCompute::doComputeHashMask(Routing::Pim::Mode, const Ipkit::IpGenAddr&, "
    "Routing::Pim::RpHashMaskLen, const Ipkit::IpGenAddr&)";
const char kDoHighestIpRpMatch[] =
    "Ipkit::IpGenAddr "
    "Routing::Pim::RpCompute::doHighestIpRpMatch(Kel::PtrConst<Routing::Pim::RpHashMaskSet>&)";

constexpr U32 kHashMultiplier = 1103515245u;
constexpr U32 kHashIncrement = 12345u;

RpCandidateInfo infoOf(const RpCandidate& candidate) {
  return RpCandidateInfo(candidate.address(), candidate.priority(), candidate.hashMaskLen(),
                         candidate.override(), candidate.pimMode());
}

RpCandidateInfo infoOfOnly(const CandidateRefSet& set) {
  return infoOf(*(*set.rp().begin()).second);
}

// An IPv4 group has 32 bits to hash: a longer configured length (128 is what static candidates
// carry when no length is configured) takes every bit of the group.
U32 ip4HashMask(RpHashMaskLen hashMaskLen) {
  if (hashMaskLen == 0) return 0;
  const U32 len = std::min<U32>(hashMaskLen, 32);
  return ~(0x80000000u >> (len - 1)) + 1;
}

// The 16 bytes whose leading `len` bits are set.
std::array<std::uint8_t, 16> ip6HashMask(U32 len) {
  KEL_ASSERT(trace(), len <= 128);
  std::array<std::uint8_t, 16> mask{};
  for (U32 byte = 0; byte < 16 && len > 0; ++byte) {
    const U32 bits = std::min<U32>(len, 8);
    mask[byte] = static_cast<std::uint8_t>(0xffu << (8 - bits));
    len -= bits;
  }
  return mask;
}

// The 32-bit number an address contributes as the RP's C: IPv4 as is, IPv6 the XOR of its words.
U32 rpHashWord(const Ipkit::IpGenAddr& rpAddr) {
  if (rpAddr.af() == Ipkit::ipv4()) return rpAddr.ip4Addr().value();
  if (rpAddr.af() != Ipkit::ipv6()) return 0;
  const auto rp6 = rpAddr.ip6Addr();
  return rp6.u32(0) ^ rp6.u32(1) ^ rp6.u32(2) ^ rp6.u32(3);
}

U32 bigEndianWord(const std::array<std::uint8_t, 16>& bytes, std::size_t first) {
  return (U32{bytes[first]} << 24) | (U32{bytes[first + 1]} << 16) | (U32{bytes[first + 2]} << 8) |
         U32{bytes[first + 3]};
}

U64 bigEndianHalf(const std::array<std::uint8_t, 16>& bytes, std::size_t first) {
  return (U64{bigEndianWord(bytes, first)} << 32) | bigEndianWord(bytes, first + 4);
}

// Empties the per-selection scratch sets however the selection ends.
class ScratchReset {
 public:
  explicit ScratchReset(RpCompute& compute, bool modeSets)
      : compute_(compute), modeSets_(modeSets) {}
  ~ScratchReset() {
    if (modeSets_) {
      if (compute_.bidirRpSet()) compute_.bidirRpSet()->rpDelAll();
      if (compute_.pimsmRpSet()) compute_.pimsmRpSet()->rpDelAll();
    } else {
      compute_.rpPrioritySetDelAll();
      compute_.rpHashMaskSetDelAll();
    }
  }

 private:
  RpCompute& compute_;
  bool modeSets_;
};

}  // namespace

RpCompute::RpCompute(const Kel::PtrConst<RpCandidateStatus>& crp,
                     const Kel::PtrConst<RpConfig>& rpConfig)
    : crp_(crp), rpConfig_(rpConfig) {}

RpCandidateInfo RpCompute::doComputeRp(const Ipkit::IpGenAddr& groupAddr) {
  return doComputeRpFromPrefix(Ipkit::IpGenPrefix::hostPrefix(groupAddr));
}

RpCandidateInfo RpCompute::doComputeRpFromPrefix(const Ipkit::IpGenPrefix& groupPrefix) {
  RpCandidateInfo result;
  KEL_TRACE(trace(), 9, kDoComputeRpFromPrefix << "( " << groupPrefix << " )");
  if (crp_->crpSet().empty()) return result;
  const Kel::PtrConst<RpCandidateSet> candidates = doLongestPrefixGroupMatch(groupPrefix);
  if (recorder_ && candidates) recorder_->range = candidates->prefix();
  if (!candidates || candidates->rp().empty()) return result;

  bidirRpSetIs();
  pimsmRpSetIs();
  ScratchReset reset(*this, true);
  for (const auto& [address, candidate] : candidates->rp()) {
    if (candidate->pimMode() == modePimBidir) {
      bidirRpSet_->rpIs(address, candidate);
    } else if (candidate->pimMode() == modePimSm) {
      pimsmRpSet_->rpIs(address, candidate);
    } else if (recorder_) {
      recorder_->setAside.push_back({infoOf(*candidate), RpSetAsideReason::unusableMode});
    }
  }
  // Bidirectional candidates win outright, whatever the priorities of the sparse ones.
  if (bidirRpSet_->rps()) {
    result = doSelectCrp(bidirRpSet_, groupPrefix);
    if (recorder_) doRecordOtherMode(*pimsmRpSet_, bidirRpSet_->rps() == 1);
  } else if (pimsmRpSet_->rps()) {
    result = doSelectCrp(pimsmRpSet_, groupPrefix);
  }
  return result;
}

RpCandidateInfo RpCompute::doComputeRpRecorded(const Ipkit::IpGenAddr& groupAddr,
                                               RpSelectionRecord& record) {
  record = RpSelectionRecord();
  // Restores the previous recorder however the selection ends.
  struct RecorderScope {
    RpSelectionRecord*& recorder;
    RpSelectionRecord* previous;
    ~RecorderScope() { recorder = previous; }
  } scope{recorder_, recorder_};
  recorder_ = &record;
  record.result = doComputeRp(groupAddr);
  std::sort(record.setAside.begin(), record.setAside.end(),
            [](const RpSelectionRecord::SetAside& a, const RpSelectionRecord::SetAside& b) {
              return a.info.address() < b.info.address();
            });
  return record.result;
}

void RpCompute::doRecordContest(const CrpSet& crpSet) const {
  for (const auto& [address, candidate] : crpSet.rp()) {
    recorder_->candidates.push_back({infoOf(*candidate), std::nullopt});
    recorder_->decidingMode = candidate->pimMode();
  }
}

void RpCompute::doRecordOtherMode(const CrpSet& setAside, bool bidirPreferred) const {
  for (const auto& [address, candidate] : setAside.rp()) {
    recorder_->setAside.push_back({infoOf(*candidate), RpSetAsideReason::otherMode});
  }
  // A lone bidirectional candidate owes its place to the preference alone.
  if (bidirPreferred && setAside.rps()) recorder_->step = RpSelectionStep::bidirPreferred;
}

void RpCompute::doRecordHash(const Ipkit::IpGenAddr& rpAddr, RpHashMaskLen hashMaskLen,
                             U32 hash) const {
  for (auto& candidate : recorder_->candidates) {
    if (candidate.info.address() == rpAddr) candidate.hash = hash;
  }
  if (hashMaskLen == kRpHashMaskLenNone) recorder_->hashMaskNotSet = true;
}

Kel::PtrConst<RpCandidateSet> RpCompute::doLongestPrefixGroupMatch(
    const Ipkit::IpGenPrefix& groupPrefix) {
  KEL_TRACE(trace(), 9, kDoLongestPrefixGroupMatch);
  // Initialised, not assigned: the trie's answer is built in place, and the set lookup below
  // reads it straight from the stores that built it.
  const Ipkit::IpGenPrefix match =
      grpTrie_ ? grpTrie_->longestMatch(groupPrefix) : Ipkit::IpGenPrefix();
  if (match.isNull()) {
    KEL_TRACE(trace(), 5,
              kDoLongestPrefixGroupMatch << " LPM for " << groupPrefix << " returned NULL prefix");
    return nullptr;
  }
  KEL_TRACE(trace(), 5,
            kDoLongestPrefixGroupMatch << " LPM for " << groupPrefix << " is prefix " << match);
  return crp_->crpSet(match);
}

RpCandidateInfo RpCompute::doSelectCrp(const Kel::PtrConst<CrpSet>& crpSet,
                                       const Ipkit::IpGenPrefix& groupPrefix) {
  KEL_TRACE(trace(), 9, kDoSelectCrp << "( " << groupPrefix << " )");
  RpCandidateInfo result;
  const Ipkit::IpGenAddr& groupAddr = groupPrefix.address();
  {
    ScratchReset reset(*this, false);
    const U32 candidates = crpSet->rps();
    if (recorder_) doRecordContest(*crpSet);
    if (candidates == 0) {
      KEL_TRACE(trace(), 5, "No RP found for group " << groupPrefix);
    } else if (candidates == 1) {
      result = infoOfOnly(*crpSet);
      doRecordStep(RpSelectionStep::singleCandidate);
    } else if (rpConfig_ && rpConfig_->rpHashAlgorithm() == rpHashAlgorithmModulo) {
      result = infoOf(*doComputeRpModulo(groupAddr, crpSet));
      doRecordStep(RpSelectionStep::moduloIndex);
    } else {
      const Kel::PtrConst<RpPrioritySet> prioritySet = doHighestPriorityRpMatch(crpSet);
      if (prioritySet->rps() == 1) {
        result = infoOfOnly(*prioritySet);
        doRecordStep(RpSelectionStep::priority);
      } else {
        KEL_TRACE(trace(), 5, prioritySet->rps() << " RP's in RP priority set");
        const Kel::PtrConst<RpHashMaskSet> hashSet =
            doHighestHashMaskRpMatch(groupAddr, prioritySet);
        if (hashSet->rps() == 1) {
          result = infoOfOnly(*hashSet);
          doRecordStep(RpSelectionStep::hash);
        } else {
          KEL_TRACE(trace(), 5, hashSet->rps() << " in highest hash mask set");
          const Ipkit::IpGenAddr address = doHighestIpRpMatch(hashSet);
          result = infoOf(*hashSet->rp(address));
          doRecordStep(RpSelectionStep::highestAddress);
          KEL_TRACE(trace(), 5, "Mapping group " << groupPrefix << " to rp " << address);
        }
      }
    }
  }
  KEL_TRACE(trace(), 5,
            "RP=" << result.address() << ", Priority=" << result.priority()
                  << ", HashMaskLen=" << result.hashMaskLen()
                  << ", override=" << boolToStrep(result.override()) << ", mode=" << result.mode());
  return result;
}

Kel::PtrConst<RpCandidate> RpCompute::doComputeRpModulo(const Ipkit::IpGenAddr& groupAddr,
                                                        const Kel::PtrConst<CrpSet>& rpSet) const {
  KEL_TRACE(trace(), 9, kDoComputeRpModulo << "( " << groupAddr << " ) ");
  KEL_ASSERT(trace(), rpSet);
  KEL_ASSERT(trace(), rpSet->rps());
  KEL_ASSERT(trace(), groupAddr.af() != Ipkit::ipunknown());
  const U32 value = groupAddr.af() == Ipkit::ipv4() ? groupAddr.ip4Addr().value()
                                                    : bigEndianWord(groupAddr.bytes(), 12);
  const U32 rps = rpSet->rps();
  const U32 index = value % rps;
  auto at = rpSet->rp().begin();
  for (U32 step = 0; step < index && at != rpSet->rp().end(); ++step) ++at;
  const Kel::PtrConst<RpCandidate> crp = at != rpSet->rp().end() ? (*at).second : nullptr;
  KEL_ASSERT(trace(), crp);
  if (recorder_) {
    recorder_->moduloValue = value;
    recorder_->moduloIndex = index;
  }
  KEL_TRACE(trace(), 5,
            "doComputeRpModulo group address: "
                << groupAddr << " (decimal value: " << bigEndianWord(groupAddr.bytes(), 0)
                << "), num Rps: " << rps << ", index(" << groupAddr << "%" << rps << "): " << index
                << " => RP= " << crp->address());
  return crp;
}

Kel::PtrConst<RpPrioritySet> RpCompute::doHighestPriorityRpMatch(
    const Kel::PtrConst<CrpSet>& rpSet) {
  KEL_TRACE(trace(), 9, kDoHighestPriorityRpMatch);
  KEL_ASSERT(trace(), rpSet);
  for (const auto& [address, candidate] : rpSet->rp()) {
    rpPrioritySetIs(candidate->priority())->rpIs(address, candidate);
  }
  KEL_TRACE(trace(), 5,
            kDoHighestPriorityRpMatch << " " << rpPrioritySets() << " RP priority sets created.");
  KEL_ASSERT(trace(), rpPrioritySets());
  // Ascending order puts the numerically lowest, that is the most preferred, priority first.
  const auto [priority, winner] = *rpPrioritySet_.begin();
  KEL_TRACE(trace(), 5, "Highest priority is " << priority);
  return winner;
}

Kel::PtrConst<RpHashMaskSet> RpCompute::doHighestHashMaskRpMatch(
    const Ipkit::IpGenAddr& groupAddr, const Kel::PtrConst<RpPrioritySet>& prioritySet) {
  KEL_TRACE(trace(), 9, kDoHighestHashMaskRpMatch << "( " << groupAddr << " )");
  for (const auto& [address, candidate] : prioritySet->rp()) {
    const U32 hash =
        doComputeHashMask(candidate->pimMode(), groupAddr, candidate->hashMaskLen(), address);
    rpHashMaskSetIs(hash)->rpIs(address, candidate);
  }
  KEL_TRACE(trace(), 5,
            kDoHighestHashMaskRpMatch << " " << rpHashMaskSets() << " hash mask sets created.");
  U32 highest = 0;
  for (const auto& [hash, set] : rpHashMaskSet_) highest = std::max(highest, hash);
  KEL_TRACE(trace(), 5, "Highest HashMask is " << highest);
  KEL_ASSERT(trace(), rpHashMaskSets());
  return rpHashMaskSet(highest);
}

U32 RpCompute::doComputeHashMask(Mode mode, const Ipkit::IpGenAddr& groupAddr,
                                 RpHashMaskLen hashMaskLen, const Ipkit::IpGenAddr& rpAddr) {
  KEL_TRACE(trace(), 9,
            kDoComputeHashMask << "( " << mode << ", " << groupAddr << ", " << hashMaskLen << ", "
                               << rpAddr << " )");
  KEL_ASSERT(trace(), groupAddr.af() != Ipkit::ipunknown());
  const U32 c = rpHashWord(rpAddr);
  U64 gm;
  if (groupAddr.af() == Ipkit::ipv4()) {
    const U32 g = groupAddr.ip4Addr().value();
    const U32 m = ip4HashMask(hashMaskLen);
    gm = static_cast<U32>((g & m) * kHashMultiplier);
    // Written before the hash exists, so its value reads 0.
    KEL_TRACE(trace(), 8, "G=" << g << ", M=" << m << ", C=" << c << " => HashMaskValue= 0");
  } else {
    const auto mask = ip6HashMask(hashMaskLen);
    std::array<std::uint8_t, 16> masked{};
    for (std::size_t byte = 0; byte < masked.size(); ++byte) {
      masked[byte] = static_cast<std::uint8_t>(groupAddr.bytes()[byte] & mask[byte]);
    }
    gm = bigEndianHalf(masked, 8) * U64{kHashMultiplier};
  }
  U32 value = 0;
  // Any other mode is not hashed: its value stays 0, so that the highest address decides.
  if (mode == modePimSm) {
    value = (((static_cast<U32>(gm) + kHashIncrement) ^ c) * kHashMultiplier + kHashIncrement) &
            0x7fffffffu;
    if (recorder_) doRecordHash(rpAddr, hashMaskLen, value);
  }
  KEL_TRACE(trace(), 8,
            "af: " << groupAddr.af() << " GM = " << gm << ", C = " << c
                   << " => HashMaskValue= " << value);
  return value;
}

Ipkit::IpGenAddr RpCompute::doHighestIpRpMatch(const Kel::PtrConst<RpHashMaskSet>& hashMaskSet) {
  KEL_TRACE(trace(), 9, kDoHighestIpRpMatch);
  Ipkit::IpGenAddr rp;
  for (const auto& [address, candidate] : hashMaskSet->rp()) {
    if (rp < address) rp = address;
  }
  KEL_ASSERT(trace(), rp.af() != Ipkit::ipunknown());
  KEL_TRACE(trace(), 5, kDoHighestIpRpMatch << "Highest IP is " << rp);
  return rp;
}

Kel::Ptr<RpCompute> rpComputeFactory(const Kel::PtrConst<RpCandidateStatus>& crp,
                                     const Kel::PtrConst<RpConfig>& rpConfig) {
  return Kel::Ptr<RpCompute>(new RpCompute(crp, rpConfig));
}

}  // namespace Pim
}  // namespace Routing
