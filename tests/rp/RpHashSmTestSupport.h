#pragma once
// Shared fixture for the suites of the per-source RP hash reactor: its inputs (known groups,
// candidate status, RP configuration, clock, attribute log), its two output tables, and short
// ways to build expected entries and to run the clock until the review is idle.

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/System.h"
#include "model/Pim/GroupStatus.h"
#include "model/Pim/PimAttrLogSm.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimRpHashIntermediateSm.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/TraceCapture.h"

namespace RpHashSmTest {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::Pim::Mode;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimNone;
using Routing::Pim::modePimSm;
using Routing::Pim::RpHash;
using TestSupport::TraceLine;
using TestSupport::TraceLines;

// The signatures that open the reactor's level-9 traces.
constexpr const char* kSm = "void Routing::Pim::RpHashIntermediateSm::";
constexpr const char* kCrpSet = "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::";
constexpr const char* kCrp = "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::KelCrp::";
constexpr const char* kUpdateGuts =
    "void Routing::Pim::doUpdateRpHashGuts(const Ipkit::IpGenPrefix&, bool, "
    "Routing::Pim::RpHashStatus::Ptr, Routing::Pim::RpCompute::Ptr, Ipkit::IpGenAddr, "
    "Routing::Pim::Mode, Routing::Pim::RpHashAlgorithm)";

inline std::string sig(const char* signaturePrefix, const char* rest) {
  return std::string(signaturePrefix) + rest;
}

inline RpHash entry(const char* prefix, const char* rp, Routing::Pim::RpPriority priority,
                    Routing::Pim::RpHashMaskLen hashMaskLen, Mode mode, bool override = false) {
  return RpHash(IpGenPrefix(prefix), IpGenAddr(rp), priority, hashMaskLen, override, mode);
}
// What the reactor writes for a prefix without a usable candidate of `mode`.
inline RpHash placeholder(const char* prefix, Mode mode) {
  return RpHash(IpGenPrefix(prefix), IpGenAddr(), 256, 128, false, mode);
}
inline std::string text(const RpHash& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// The table's entries in ascending key order.
inline std::vector<RpHash> entries(const Routing::Pim::RpHashStatus& table) {
  std::map<IpGenPrefix, RpHash> sorted;
  for (const RpHash& value : table.rpHash()) sorted.emplace(value.key(), value);
  std::vector<RpHash> values;
  for (const auto& [key, value] : sorted) values.push_back(value);
  return values;
}

class RpHashSmFixture : public ::testing::Test {
 protected:
  static constexpr double kStartTime = 1000.0;

  RpHashSmFixture()
      : groups_(new Routing::Pim::GroupStatus),
        status_(new Routing::Pim::RpCandidateStatus),
        rpHash_(new Routing::Pim::RpHashStatus),
        rpPrefixHash_(new Routing::Pim::RpHashStatus),
        clock_(new Kel::Clock),
        attrLog_(new Routing::Pim::PimAttrLogSm),
        config_(new Routing::Pim::RpConfig) {
    Kel::System::virtualTimeIs(kStartTime);
  }
  ~RpHashSmFixture() override {
    sm_ = nullptr;
    Kel::System::realTimeIs();
  }

  void start(Mode mode = modePimSm, Ipkit::AddressFamily af = Ipkit::ipv4()) {
    sm_ = Routing::Pim::rpHashIntermediateSmFactory(af, groups_, status_, rpHash_, rpPrefixHash_,
                                                    clock_, mode, attrLog_, config_);
  }
  // Delivers wake-ups in virtual time until none is pending; returns how many ran.
  std::size_t runUntilIdle() {
    std::size_t delivered = 0;
    for (int guard = 0; guard < 100000 && clock_->pendingWakeups() != 0; ++guard) {
      delivered += clock_->runUntil(clock_->nextWakeup());
    }
    return delivered;
  }

  void group(const char* address) { groups_->groupIs(IpGenAddr(address), true); }
  void groupGone(const char* address) { groups_->groupDel(IpGenAddr(address)); }
  Kel::Ptr<Routing::Pim::RpCandidate> candidate(const RpTest::CandidateRecipe& recipe) {
    return RpTest::addCandidate(status_, recipe);
  }
  void candidateGone(const char* prefix, const char* rp) {
    status_->crpSetMutable(IpGenPrefix(prefix))->rpDel(IpGenAddr(rp));
  }

  std::vector<RpHash> groupEntries() const { return entries(*rpHash_); }
  std::vector<RpHash> prefixEntries() const { return entries(*rpPrefixHash_); }

  // Turns levels 0..highest of the reactor's trace file on and empties the ring.
  void traceFrom(int highest) { capture_.restart(highest); }

  // Levels off until a test turns them on.
  TestSupport::TraceCapture capture_{"PimRpHashSm", -1};
  Kel::Ptr<Routing::Pim::GroupStatus> groups_;
  Kel::Ptr<Routing::Pim::RpCandidateStatus> status_;
  Kel::Ptr<Routing::Pim::RpHashStatus> rpHash_;
  Kel::Ptr<Routing::Pim::RpHashStatus> rpPrefixHash_;
  Kel::Ptr<Kel::Clock> clock_;
  Kel::Ptr<Routing::Pim::PimAttrLogSm> attrLog_;
  Kel::Ptr<Routing::Pim::RpConfig> config_;
  Kel::Ptr<Routing::Pim::RpHashIntermediateSm> sm_;
};

}  // namespace RpHashSmTest
