#include "rp/PimRpSelectionRecord.h"

#include "framework/Ipkit/AddressFamily.h"

namespace Routing {
namespace Pim {
namespace {

// What the not-set length (128) does to the hash: IPv4 reads a length above 32 as 32, and IPv6
// reads only the group's last 32-bit word, which 128 leaves whole. For IPv6, 128 is also a length
// one may configure; the two cannot be told apart.
std::string hashMaskNotSetWords(Ipkit::AddressFamily af) {
  if (af == Ipkit::AddressFamily::ipv6) {
    return "hash mask 128 or not set: the group's whole last 32-bit word is hashed";
  }
  return "hash mask not set: the whole group is hashed";
}

std::string qualified(const std::string& step, const std::string& qualifier) {
  return qualifier.empty() ? step : step + " (" + qualifier + ")";
}

}  // namespace

std::string RpSelectionRecord::rule() const {
  const std::string notSet = hashMaskNotSet ? hashMaskNotSetWords(range.af()) : "";
  switch (step) {
    case RpSelectionStep::none:
      return "";
    case RpSelectionStep::singleCandidate:
      return "single candidate";
    case RpSelectionStep::bidirPreferred:
      return "bidir preferred";
    case RpSelectionStep::priority:
      return "priority";
    case RpSelectionStep::hash:
      return qualified("hash", notSet);
    case RpSelectionStep::highestAddress:
      if (decidingMode == modePimBidir) {
        return qualified("highest address", "bidir candidates are not hashed");
      }
      return qualified("highest address",
                       notSet.empty() ? "equal hashes" : "equal hashes; " + notSet);
    case RpSelectionStep::moduloIndex:
      return qualified("modulo index", std::to_string(moduloValue) + " mod " +
                                           std::to_string(candidates.size()) + " = " +
                                           std::to_string(moduloIndex));
  }
  return "";
}

const char* rpSetAsideReasonWord(RpSetAsideReason reason) {
  return reason == RpSetAsideReason::otherMode ? "other mode" : "no usable mode";
}

}  // namespace Pim
}  // namespace Routing
