#pragma once
// The rule that decides which of the two candidate sources gives a group or a range its RP, and
// why. Both places that combine the sources apply it: the merge of the per-source tables into the
// final ones (RpHashSm) and the direct answer (RpHashComputeStatus::rpHashCompute).
//
// The rule: the static RP is taken when it carries the override flag or when the bootstrap source
// has no RP; otherwise the bootstrap RP is taken. Priorities never compare across sources.
//
// What each caller feeds it differs on purpose, and stays with the caller: the merge reads a
// static entry's override flag whether or not the entry names an RP when a bootstrap entry
// changes, but looks at the static entry's address first when the static entry changes; the
// direct answer then filters the winner by the mode it serves.

#include "model/Pim/RpHash.h"

namespace Routing {
namespace Pim {

// Why one source gives the RP.
enum class RpSourceReason {
  noRp,                     // neither source has one
  onlyStatic,               // the bootstrap source has none
  onlyBootstrap,            // the static source has none, and no static entry overrides
  bootstrapBeatsStatic,     // both have one, and the static one does not override
  staticOverride,           // both have one, and the static one overrides
  staticOverrideWithoutRp,  // a static entry overrides without naming an RP: the merge keeps
                            // what the last change left (see RpHashSm, invariant 5)
};

// Whether the static RP is taken over the bootstrap one.
inline bool rpStaticWins(bool staticOverride, bool bootstrapHasRp) {
  return staticOverride || !bootstrapHasRp;
}

RpSourceReason rpSourceReason(bool staticHasRp, bool staticOverride, bool bootstrapHasRp);

// A table entry is present when it differs from the lookup's absence value, usable when it is
// present and names an RP.
inline bool rpHashPresent(const RpHash& entry) { return entry != RpHash(); }
inline bool rpHashUsable(const RpHash& entry) {
  return rpHashPresent(entry) && entry.address() != Ipkit::IpGenAddr();
}

// The reason for one key of the per-source tables, as the merge reads the two entries: a present
// static entry's override flag counts, usable entries have an RP.
RpSourceReason rpSourceReasonOfEntries(const RpHash& staticEntry, const RpHash& bsrEntry);

// "no RP", "only static", "only bootstrap", "bootstrap beats static", "static override",
// "static override without RP".
const char* rpSourceReasonWord(RpSourceReason reason);

}  // namespace Pim
}  // namespace Routing
