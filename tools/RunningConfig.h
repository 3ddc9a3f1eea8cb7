#pragma once
// PimrpTool running configuration: everything that statements have configured in a session,
// written as the statements that configure it again (show config).
//
// Run as a script, the statements rebuild the same candidate statuses, and the same running
// configuration. Per VRF, in the order given: its vrf statement (none for the default VRF, which
// comes first), its known groups (first in its section, as a restart over shared tables wants
// them, and compressed into the fewest group statements), the hash algorithm, the access lists
// with their rules, the static RPs with their modes, bindings and options, the bootstrap
// candidates, the embedded-RP settings, the routes and the route shadows left detached; then, once,
// the vrf statement of the session's current section when every VRF is listed and that section is
// not the last one written, the attribute log's back-pressure and the clock mode. Options are
// written where they differ from what leaving them out gives.
//
// A static candidate that an RP's group binding and one of its access lists both give holds the
// values of the binding written last: the group binding is written after the lists when the
// candidate holds its values, before them otherwise. The statements are then replayed to a
// private copy of the static candidate machinery (StaticReplay), and every static candidate they
// would not give back as the library holds it (values left by a binding since removed or
// changed) is named in a note.
//
// The configuration of each VRF is built apart from what the tool shares among VRFs (the clock,
// the attribute log), which closes the listing.

#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/GroupStatus.h"
#include "tools/Results.h"
#include "tools/Session.h"

namespace PimrpTool {

// The running configuration of `vrfs` ("default" first when it is among them); `everyVrf` when
// they are all that the session has in use, which then ends in the session's current section.
ConfigListing runningConfig(const Session& session,
                            const std::vector<const PimrpPipeline::VrfPipeline*>& vrfs,
                            bool everyVrf);

// The fewest ranges naming exactly the known groups of a family, ascending: each run of
// consecutive addresses covered by aligned ranges of at most 2^maxBits addresses each.
std::vector<Ipkit::IpGenPrefix> groupRanges(const Routing::Pim::GroupStatus& groups,
                                            Ipkit::AddressFamily af, unsigned maxBits);

}  // namespace PimrpTool
