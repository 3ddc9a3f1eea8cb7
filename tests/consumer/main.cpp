// Uses the installed pimrp library from outside its source tree: one candidate RP for
// 239.0.0.0/8, then the RP of a group inside that range and of one outside it.
// Exits 0 when both answers are right; otherwise prints what was wrong and exits 1.

#include <iostream>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpCandidateInfo.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "rp/PimGrpPrefixTrieBuilderSm.h"
#include "rp/PimRpCompute.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;

bool expect(const char* group, const RpCandidateInfo& actual, const RpCandidateInfo& expected) {
  if (actual == expected) return true;
  std::cerr << "RP of " << group << ": got " << actual << ", expected " << expected << "\n";
  return false;
}

}  // namespace

int main() {
  Kel::Ptr<RpCandidateStatus> status(new RpCandidateStatus);
  Kel::Ptr<RpCompute> compute = rpComputeFactory(status, Kel::Ptr<RpConfig>(new RpConfig));
  // Keeps the compute's group-prefix trie in step with the status.
  Kel::Ptr<GrpPrefixTrieBuilderSm> builder = grpPrefixTrieBuilderSmFactory(status, compute);

  Kel::Ptr<RpCandidate> candidate =
      status->crpSetIs(IpGenPrefix("239.0.0.0/8"))->rpIs(IpGenAddr("10.0.0.1"));
  candidate->priorityIs(7);
  candidate->hashMaskLenIs(30);
  candidate->pimModeIs(modePimSm);

  const bool inRange = expect("239.1.2.3", compute->doComputeRp(IpGenAddr("239.1.2.3")),
                              RpCandidateInfo(IpGenAddr("10.0.0.1"), 7, 30, false, modePimSm));
  const bool outOfRange =
      expect("232.1.2.3", compute->doComputeRp(IpGenAddr("232.1.2.3")), RpCandidateInfo());
  if (!inRange || !outOfRange) return 1;
  std::cout << "pimrp consumer: RP of 239.1.2.3 is 10.0.0.1, 232.1.2.3 has none\n";
  return 0;
}
