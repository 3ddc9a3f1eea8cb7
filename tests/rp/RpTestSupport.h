#pragma once
// Shared test fixtures for the RP units: building candidate statuses by hand, and reading back
// the requests a merge made on its allocator.

#include <sstream>
#include <string>
#include <vector>

#include "framework/BitMapper/Config.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpCandidateStatus.h"

namespace RpTest {

struct CandidateRecipe {
  const char* prefix;
  const char* rp;
  Routing::Pim::RpPriority priority;
  Routing::Pim::RpHashMaskLen hashMaskLen;
  Routing::Pim::Mode mode;
  bool override = false;
};

// Writes one candidate into a status the way a source's writer does.
inline Kel::Ptr<Routing::Pim::RpCandidate> addCandidate(
    const Kel::Ptr<Routing::Pim::RpCandidateStatus>& status, const CandidateRecipe& recipe) {
  auto set = status->crpSetIs(Ipkit::IpGenPrefix(recipe.prefix));
  auto candidate = set->rpIs(Ipkit::IpGenAddr(recipe.rp));
  candidate->priorityIs(recipe.priority);
  candidate->hashMaskLenIs(recipe.hashMaskLen);
  candidate->overrideIs(recipe.override);
  candidate->pimModeIs(recipe.mode);
  return candidate;
}

// Every request made on an allocator, in order: "alloc 10.0.0.1", "dealloc 10.0.0.2".
inline std::vector<std::string> allocRequests(const BitMapper::Config& bitMap) {
  std::vector<std::string> lines;
  for (const auto& request : bitMap.requests()) {
    std::ostringstream line;
    line << request.kind << " " << request.key.addr();
    lines.push_back(line.str());
  }
  return lines;
}

}  // namespace RpTest
