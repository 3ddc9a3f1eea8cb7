#include "tools/EmbeddedRpOutput.h"

#include <string>

#include "tools/TextTable.h"

namespace PimrpTool {
namespace {

using Json = nlohmann::ordered_json;
using Routing::Pim::EmbeddedRp;
using Routing::Pim::EmbeddedRpUse;

// "2 of 25 groups use embedded RP".
std::string inUseWords(const EmbeddedRpAnswer& answer) {
  return std::to_string(answer.groupsInUse) + " of " + std::to_string(answer.limit) +
         " groups use embedded RP";
}

// Why the group's answer is, or is not, its embedded RP.
std::string useWords(const EmbeddedRpAnswer& answer) {
  switch (answer.admission.use) {
    case EmbeddedRpUse::inUse:
      return "in use, " + inUseWords(answer);
    case EmbeddedRpUse::available:
      return "available, " + inUseWords(answer);
    case EmbeddedRpUse::overLimit:
      return "not used, over the limit: " + inUseWords(answer);
    case EmbeddedRpUse::outsideRanges:
      return "not used, outside the embedded-RP group ranges";
    case EmbeddedRpUse::none:
    case EmbeddedRpUse::off:
      break;
  }
  return "";
}

}  // namespace

const char* embeddedRpUseWord(EmbeddedRpUse use) {
  switch (use) {
    case EmbeddedRpUse::off:
      return "off";
    case EmbeddedRpUse::inUse:
      return "in use";
    case EmbeddedRpUse::available:
      return "available";
    case EmbeddedRpUse::overLimit:
      return "over the limit";
    case EmbeddedRpUse::outsideRanges:
      return "outside the group ranges";
    case EmbeddedRpUse::none:
      break;
  }
  return "none";
}

void printEmbeddedRpAnswer(std::ostream& out, const EmbeddedRpAnswer& answer) {
  const EmbeddedRp& embedded = answer.admission.embedded;
  if (!EmbeddedRp::groupSpace().contains(embedded.group())) return;
  out << "  embedded: ";
  if (!embedded.valid()) {
    out << "none, the group address names no RP: "
        << Routing::Pim::embeddedRpValidityWord(embedded.validity()) << '\n';
    return;
  }
  out << "RP " << embedded.rp() << " from the group address (RIID " << embedded.riid() << ", plen "
      << embedded.plen() << ", network prefix " << embedded.networkPrefix() << "); "
      << useWords(answer) << '\n';
}

void printEmbeddedRpListing(std::ostream& out, const EmbeddedRpListing& listing) {
  out << "embedded rp: " << (listing.enabled ? "on" : "off") << ", limit " << listing.limit
      << ", group ranges: ";
  if (listing.groupRanges.empty()) out << "all of " << EmbeddedRp::groupSpace();
  for (std::size_t at = 0; at < listing.groupRanges.size(); ++at) {
    out << (at == 0 ? "" : ", ") << listing.groupRanges[at];
  }
  out << "\n  groups in use " << listing.groupsInUse << ", waiting over the limit "
      << listing.waiting << ", overflow count " << listing.overflowCount << '\n';
  if (listing.rps.empty()) return;
  TextTable table({"rp", "groups"});
  for (const auto& row : listing.rps) {
    table.rowIs({row.rp.valueToStrep(), std::to_string(row.groups)});
  }
  table.print(out, "  ");
}

Json embeddedRpAnswerJson(const EmbeddedRpAnswer& answer) {
  const EmbeddedRp& embedded = answer.admission.embedded;
  const bool inSpace = EmbeddedRp::groupSpace().contains(embedded.group());
  const auto orNull = [](bool given, const auto& value) { return given ? Json(value) : Json(); };
  return Json{{"use", embeddedRpUseWord(answer.admission.use)},
              {"rp", orNull(embedded.valid(), embedded.rp().valueToStrep())},
              {"riid", orNull(inSpace, embedded.riid())},
              {"plen", orNull(inSpace, embedded.plen())},
              {"networkPrefix", orNull(embedded.valid(), embedded.networkPrefix().valueToStrep())},
              {"invalid", orNull(!embedded.valid(),
                                 Routing::Pim::embeddedRpValidityWord(embedded.validity()))},
              {"groupsInUse", answer.groupsInUse},
              {"limit", answer.limit}};
}

Json embeddedRpListingJson(const EmbeddedRpListing& listing) {
  Json ranges = Json::array();
  for (const auto& range : listing.groupRanges) ranges.push_back(range.valueToStrep());
  Json rps = Json::array();
  for (const auto& row : listing.rps) {
    rps.push_back(Json{{"address", row.rp.valueToStrep()}, {"groups", row.groups}});
  }
  return Json{{"embeddedRp",
               {{"enabled", listing.enabled},
                {"limit", listing.limit},
                {"groupRanges", std::move(ranges)},
                {"groupsInUse", listing.groupsInUse},
                {"waitingOverLimit", listing.waiting},
                {"overflowCount", listing.overflowCount},
                {"rps", std::move(rps)}}}};
}

}  // namespace PimrpTool
