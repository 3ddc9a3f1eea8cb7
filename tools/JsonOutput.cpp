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
    Json json{{"group", answer.group.valueToStrep()},
              {"mode", queryModeWord(answer.queryMode)},
              {"rp", addressJson(answer.rp)},
              {"static", infoJson(answer.staticSelection)},
              {"bsr", infoJson(answer.bsrSelection)}};
    if (answer.staticDetail && answer.bsrDetail) {
      json["detail"] = Json{{"static", detailJson(*answer.staticDetail)},
                            {"bsr", detailJson(*answer.bsrDetail)}};
    }
    return json;
  }

  static Json detailJson(const SourceDetail& detail) {
    Json candidates = Json::array();
    for (const auto& candidate : detail.candidates) {
      Json row = infoJson(candidate.info);
      row["hash"] = candidate.hash ? Json(*candidate.hash) : Json(nullptr);
      candidates.push_back(std::move(row));
    }
    return Json{{"range", detail.range ? Json(detail.range->valueToStrep()) : Json(nullptr)},
                {"rule", detail.rule.empty() ? Json(nullptr) : Json(detail.rule)},
                {"candidates", std::move(candidates)}};
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

  static Json toJson(const RpHashListing& listing) {
    Json entries = Json::array();
    for (const auto& entry : listing.entries) {
      Json row = Json{{"prefix", entry.key().valueToStrep()}};
      row.update(infoJson(entry.info()));
      entries.push_back(std::move(row));
    }
    return Json{{"table", tableSourceWord(listing.source)},
                {"kind", tableKindWord(listing.kind)},
                {"mode", modeWord(listing.mode)},
                {"family", listing.af ? familyWord(*listing.af) : "any"},
                {"entries", std::move(entries)}};
  }

  static Json toJson(const LocalRpListing& listing) {
    Json rps = Json::array();
    for (const auto& rp : listing.rps) {
      rps.push_back(Json{{"address", rp.address.valueToStrep()}, {"interface", rp.interface}});
    }
    return Json{{"localRp", std::move(rps)}};
  }

  static Json toJson(const GroupFilterAnswer& answer) {
    return Json{
        {"group", answer.group.valueToStrep()}, {"sparse", answer.sparse}, {"bidir", answer.bidir}};
  }

  static Json toJson(const AllocRequestTally& tally) {
    Json rps = Json::array();
    for (const auto& rp : tally.rps) {
      rps.push_back(Json{
          {"address", rp.address.valueToStrep()}, {"alloc", rp.alloc}, {"dealloc", rp.dealloc}});
    }
    return Json{{"allocRequests", tally.alloc},
                {"deallocRequests", tally.dealloc},
                {"rps", std::move(rps)}};
  }

  static Json toJson(const ReviewListing& listing) {
    Json reviews = Json::array();
    for (const auto& row : listing.reviews) {
      reviews.push_back(Json{{"family", familyWord(row.af)},
                             {"source", tableSourceWord(row.source)},
                             {"mode", modeWord(row.mode)},
                             {"queued", row.queued},
                             {"groupsProcessed", row.groupsProcessed},
                             {"yieldBeforeFinishing", row.yieldBeforeFinishing},
                             {"bookmark", addressJson(row.bookmark)},
                             {"reviewPending", row.reviewPending}});
    }
    return Json{{"reviews", std::move(reviews)}};
  }

  static Json toJson(const ConfigListing& listing) {
    Json statements = Json::array();
    Json notes = Json::array();
    for (const auto& line : listing.lines) {
      if (line.kind == ConfigLine::Kind::statement) statements.push_back(line.text);
      if (line.kind == ConfigLine::Kind::note) notes.push_back(line.text);
    }
    return Json{{"config", {{"statements", std::move(statements)}, {"notes", std::move(notes)}}}};
  }

  std::ostream& out_;
};

}  // namespace

std::unique_ptr<Output> jsonOutputFactory(std::ostream& out) {
  return std::make_unique<JsonOutput>(out);
}

}  // namespace PimrpTool
