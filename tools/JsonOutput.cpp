#include <nlohmann/json.hpp>
#include <variant>

#include "tools/Output.h"

namespace PimrpTool {
namespace {

using Json = nlohmann::ordered_json;
using Routing::Pim::RpCandidateInfo;

Json addressJson(const Ipkit::IpGenAddr& address) {
  if (address.af() == Ipkit::AddressFamily::ipunknown) return nullptr;
  return address.valueToStrep();
}

// The empty selection keeps its values (priority 256, hash mask 128): readers see exactly what
// the library answered.
Json infoJson(const RpCandidateInfo& info) {
  return Json{{"address", addressJson(info.address())},
              {"priority", info.priority()},
              {"hashMaskLen", info.hashMaskLen()},
              {"override", info.override()},
              {"mode", modeWord(info.mode())}};
}

class JsonOutput : public Output {
 public:
  explicit JsonOutput(std::ostream& out) : out_(out) {}

  void show(const ShowResult& result) override {
    out_ << std::visit([](const auto& answer) { return toJson(answer); }, result).dump() << '\n';
  }

 private:
  static Json toJson(const RpAnswer& answer) {
    return Json{{"group", answer.group.valueToStrep()},
                {"mode", queryModeWord(answer.queryMode)},
                {"rp", addressJson(answer.rp)},
                {"static", infoJson(answer.staticSelection)},
                {"bsr", infoJson(answer.bsrSelection)}};
  }

  static Json toJson(const CandidateListing& listing) {
    Json sets = Json::array();
    for (const auto& set : listing.sets) {
      Json rps = Json::array();
      for (const auto& rp : set.rps) rps.push_back(infoJson(rp));
      sets.push_back(Json{{"prefix", set.prefix.valueToStrep()}, {"rps", std::move(rps)}});
    }
    return Json{{"source", listing.source == CandidateSource::bootstrap ? "bsr" : "static"},
                {"sets", std::move(sets)}};
  }

  static Json toJson(const AclListing& listing) {
    Json prefixes = Json::array();
    for (const auto& prefix : listing.prefixes) prefixes.push_back(prefix.valueToStrep());
    Json ignored = Json::array();
    for (const auto& rule : listing.ignored) {
      ignored.push_back(Json{{"seq", rule.sequence},
                             {"action", rule.action == Acl::AclAction::permit ? "permit" : "deny"},
                             {"prefix", rule.prefix.valueToStrep()}});
    }
    return Json{{"acl", listing.acl},
                {"configured", listing.configured},
                {"prefixes", std::move(prefixes)},
                {"ignored", std::move(ignored)}};
  }

  std::ostream& out_;
};

}  // namespace

std::unique_ptr<Output> jsonOutputFactory(std::ostream& out) {
  return std::make_unique<JsonOutput>(out);
}

}  // namespace PimrpTool
