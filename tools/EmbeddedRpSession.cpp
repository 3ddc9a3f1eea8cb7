#include "tools/EmbeddedRpSession.h"

namespace PimrpTool {

using Routing::Pim::EmbeddedRpConfig;
using Routing::Pim::EmbeddedRpStatus;

void embeddedRpApply(EmbeddedRpConfig& config, const EmbeddedRpEnableStatement& s) {
  config.enabledIs(s.enabled);
}

void embeddedRpApply(EmbeddedRpConfig& config, const EmbeddedRpLimitStatement& s) {
  config.limitIs(static_cast<U32>(s.limit.value));
}

void embeddedRpApply(EmbeddedRpConfig& config, const EmbeddedRpGroupRangeStatement& s) {
  config.groupRangeIs(s.range.value, true);
}

void embeddedRpApply(EmbeddedRpConfig& config, const NoEmbeddedRpGroupRangeStatement& s) {
  config.groupRangeDel(s.range.value);
}

EmbeddedRpListing embeddedRpListing(const EmbeddedRpStatus& status) {
  EmbeddedRpListing listing;
  listing.enabled = status.enabled();
  listing.limit = status.limit();
  for (const auto& [range, configured] : status.groupRange()) listing.groupRanges.push_back(range);
  listing.groupsInUse = status.group().size();
  listing.waiting = status.waitingGroup().size();
  listing.overflowCount = status.overflowCount();
  for (const auto& [rp, groups] : status.rp()) listing.rps.push_back({rp, groups});
  return listing;
}

std::optional<EmbeddedRpAnswer> embeddedRpAnswer(const EmbeddedRpStatus& status,
                                                 const Ipkit::IpGenAddr& group) {
  if (!status.enabled()) return std::nullopt;
  return EmbeddedRpAnswer{status.admission(group), status.group().size(), status.limit()};
}

std::vector<std::string> embeddedRpStatements(const EmbeddedRpConfig& config) {
  std::vector<std::string> statements;
  if (config.limit() != EmbeddedRpConfig::kDefaultLimit) {
    statements.push_back("embedded-rp limit " + std::to_string(config.limit()));
  }
  for (const auto& [range, configured] : config.groupRange()) {
    statements.push_back("embedded-rp group-range " + range.valueToStrep());
  }
  if (config.enabled()) statements.push_back("embedded-rp enable");
  return statements;
}

}  // namespace PimrpTool
