#pragma once
// How the embedded-RP answers are printed, for people and for programs (HumanOutput and
// JsonOutput dispatch here).
//
// show rp, with embedded RP on for the group's family, adds one line saying what the group's
// address names and whether it is used, with why:
//   embedded: RP 2001:db8:ffff::1 from the group address (RIID 1, plen 48, network prefix
//   2001:db8:ffff::/48); in use, 2 of 25 groups use embedded RP
// (or "available", "not used, over the limit: ...", "not used, outside the embedded-RP group
// ranges", or "none, the group address names no RP: RIID is 0"); nothing for a group outside
// ff70::/12. JSON: "embedded": {"use", "rp", "riid", "plen", "networkPrefix", "invalid",
// "groupsInUse", "limit"}.

#include <nlohmann/json.hpp>
#include <ostream>

#include "tools/EmbeddedRpResults.h"

namespace PimrpTool {

// "in use", "available", "over the limit", "outside the group ranges", "none" ("off" for a status
// not enabled, which no answer carries).
const char* embeddedRpUseWord(Routing::Pim::EmbeddedRpUse use);

void printEmbeddedRpAnswer(std::ostream& out, const EmbeddedRpAnswer& answer);
void printEmbeddedRpListing(std::ostream& out, const EmbeddedRpListing& listing);

nlohmann::ordered_json embeddedRpAnswerJson(const EmbeddedRpAnswer& answer);
nlohmann::ordered_json embeddedRpListingJson(const EmbeddedRpListing& listing);

}  // namespace PimrpTool
