#pragma once
// What the embedded-RP statements do to a family's embedded-RP configuration, and what the shows
// read from its status and configuration (Session and RunningConfig dispatch here). The
// statements write the configuration only; the library's reactor does the rest.

#include <optional>
#include <string>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "model/Pim/EmbeddedRpConfig.h"
#include "rp/PimEmbeddedRpStatus.h"
#include "tools/EmbeddedRpResults.h"
#include "tools/Statement.h"

namespace PimrpTool {

void embeddedRpApply(Routing::Pim::EmbeddedRpConfig& config, const EmbeddedRpEnableStatement& s);
void embeddedRpApply(Routing::Pim::EmbeddedRpConfig& config, const EmbeddedRpLimitStatement& s);
void embeddedRpApply(Routing::Pim::EmbeddedRpConfig& config,
                     const EmbeddedRpGroupRangeStatement& s);
void embeddedRpApply(Routing::Pim::EmbeddedRpConfig& config,
                     const NoEmbeddedRpGroupRangeStatement& s);

// show embedded-rp.
EmbeddedRpListing embeddedRpListing(const Routing::Pim::EmbeddedRpStatus& status);
// What show rp says of `group`: nothing unless embedded RP is on.
std::optional<EmbeddedRpAnswer> embeddedRpAnswer(const Routing::Pim::EmbeddedRpStatus& status,
                                                 const Ipkit::IpGenAddr& group);
// The statements that configure it again (show config): those that differ from the defaults,
// with `embedded-rp enable` last, so that it applies once with every setting in place.
std::vector<std::string> embeddedRpStatements(const Routing::Pim::EmbeddedRpConfig& config);

}  // namespace PimrpTool
