// pimrp-demo: fills a candidate status by hand, as a bootstrap router would, and shows which RP
// RP selection picks for a few groups and why.

#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "rp/PimRpCompute.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;

struct DemoCandidate {
  const char* prefix;
  const char* rp;
  RpPriority priority;
  RpHashMaskLen hashMaskLen;
  Mode mode;
};

const std::vector<DemoCandidate> kCandidates = {
    {"224.0.0.0/4", "10.0.0.1", 192, 30, modePimSm},
    {"239.0.0.0/8", "10.0.0.2", 10, 30, modePimSm},
    {"239.0.0.0/8", "10.0.0.3", 10, 30, modePimSm},
    {"239.0.0.0/8", "10.0.0.4", 20, 30, modePimSm},
    {"232.1.0.0/16", "10.0.0.5", 50, 30, modePimSm},
    {"232.1.0.0/16", "10.0.0.6", 60, 30, modePimBidir},
    {"ff0e::/16", "2001:db8::1", 0, 126, modePimSm},
    {"ff0e::/16", "2001:db8::2", 0, 126, modePimSm},
};

const std::vector<const char*> kGroups = {"239.1.1.1", "239.1.1.2", "239.7.7.7", "232.1.2.3",
                                          "225.0.0.1", "ff0e::1:1", "ff0e::1:2", "ff05::1"};

std::string modeName(Mode mode) {
  switch (mode) {
    case modePimSm:
      return "sparse";
    case modePimBidir:
      return "bidir";
    default:
      return "none";
  }
}

// Why the selection picked `chosen` among the candidates of its prefix.
std::string reasonFor(RpCompute& compute, const IpGenAddr& group, const RpCandidateInfo& chosen) {
  if (!chosen) return "no candidate covers the group";
  const auto set = compute.doLongestPrefixGroupMatch(IpGenPrefix::hostPrefix(group));
  std::vector<Kel::PtrConst<RpCandidate>> rivals;
  for (const auto& [address, candidate] : set->rp()) {
    if (candidate->pimMode() == chosen.mode()) rivals.push_back(candidate);
  }
  std::ostringstream why;
  why << set->prefix() << ": ";
  if (chosen.mode() == modePimBidir) why << "bidirectional wins; ";
  if (rivals.size() == 1) return why.str() + "only candidate of its mode";
  if (compute.rpConfig()->rpHashAlgorithm() == rpHashAlgorithmModulo) {
    const U32 value =
        group.af() == Ipkit::ipv4() ? group.ip4Addr().value() : group.ip6Addr().u32(3);
    why << "modulo: " << value << " % " << rivals.size() << " = " << value % rivals.size();
    return why.str();
  }
  unsigned samePriority = 0;
  for (const auto& rival : rivals) samePriority += rival->priority() == chosen.priority();
  why << "lowest priority " << chosen.priority();
  if (samePriority == 1) return why.str();
  const U32 hash =
      compute.doComputeHashMask(chosen.mode(), group, chosen.hashMaskLen(), chosen.address());
  unsigned sameHash = 0;
  for (const auto& rival : rivals) {
    if (rival->priority() != chosen.priority()) continue;
    sameHash += compute.doComputeHashMask(rival->pimMode(), group, rival->hashMaskLen(),
                                          rival->address()) == hash;
  }
  why << " (" << samePriority << " candidates), hash " << hash;
  why << (sameHash == 1 ? " highest" : ", highest address among equal hashes");
  return why.str();
}

void showCandidates() {
  std::cout << "Candidate RPs\n";
  std::cout << "  " << std::left << std::setw(16) << "prefix" << std::setw(14) << "rp"
            << std::setw(10) << "priority" << std::setw(10) << "hashmask"
            << "mode\n";
  for (const auto& c : kCandidates) {
    std::cout << "  " << std::setw(16) << c.prefix << std::setw(14) << c.rp << std::setw(10)
              << c.priority << std::setw(10) << c.hashMaskLen << modeName(c.mode) << "\n";
  }
}

void showSelections(const char* title, RpCompute& compute4, RpCompute& compute6) {
  std::cout << "\n" << title << "\n";
  std::cout << "  " << std::left << std::setw(12) << "group" << std::setw(14) << "rp"
            << "why\n";
  for (const char* text : kGroups) {
    const IpGenAddr group(text);
    RpCompute& compute = group.af() == Ipkit::ipv4() ? compute4 : compute6;
    const RpCandidateInfo chosen = compute.doComputeRp(group);
    const std::string rp = !chosen ? "-" : chosen.address().valueToStrep();
    std::cout << "  " << std::setw(12) << text << std::setw(14) << rp
              << reasonFor(compute, group, chosen) << "\n";
  }
}

}  // namespace

int main() {
  // One status and one compute per family, as an agent keeps them; the demo fills the tries
  // itself where the agent would run a trie builder.
  Kel::Ptr<RpConfig> config(new RpConfig);
  Kel::Ptr<RpCandidateStatus> status4(new RpCandidateStatus), status6(new RpCandidateStatus);
  auto compute4 = rpComputeFactory(status4, config);
  auto compute6 = rpComputeFactory(status6, config);
  for (const auto& c : kCandidates) {
    const IpGenPrefix prefix(c.prefix);
    const bool v4 = prefix.af() == Ipkit::ipv4();
    auto candidate = (v4 ? status4 : status6)->crpSetIs(prefix)->rpIs(IpGenAddr(c.rp));
    candidate->priorityIs(c.priority);
    candidate->hashMaskLenIs(c.hashMaskLen);
    candidate->pimModeIs(c.mode);
    (v4 ? compute4 : compute6)->grpTrieIs("crpTrie", prefix.af())->routeIs(prefix, 1);
  }
  std::cout << "pimrp demo: which RP serves each group\n\n";
  showCandidates();
  showSelections("Selection with the RFC 7761 hash", *compute4, *compute6);
  config->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  showSelections("Selection with the modulo rule", *compute4, *compute6);
  return 0;
}
