#include <nlohmann/json.hpp>
#include <variant>

#include "tools/EmbeddedRpOutput.h"
#include "tools/JsonValues.h"
#include "tools/Output.h"
#include "tools/RpHashSummaryOutput.h"
#include "tools/WhatIfOutput.h"

namespace PimrpTool {
namespace {

using Routing::Pim::RpCandidateInfo;

// The empty selection keeps its values (priority 256, hash mask 128): readers see exactly what
// the library answered.
Json infoJson(const RpCandidateInfo& info) {
  return Json{{"address", addressJson(info.address())},
              {"priority", info.priority()},
              {"hashMaskLen", info.hashMaskLen()},
              {"override", info.override()},
              {"mode", modeWord(info.mode())}};
}

// A per-range entry, null when absent; an entry without an RP has "address":null.
Json rangeEntryJson(const Routing::Pim::RpHash& entry) {
  return Routing::Pim::rpHashPresent(entry) ? infoJson(entry.info()) : Json(nullptr);
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
    if (answer.staticDetail && answer.bsrDetail && answer.answerDetail) {
      json["detail"] = Json{{"static", detailJson(*answer.staticDetail)},
                            {"bsr", detailJson(*answer.bsrDetail)},
                            {"answer", answerJson(*answer.answerDetail)}};
    }
    if (answer.byMode) {
      json["byMode"] = Json{{"sparse", modeAnswerJson(answer.byMode->sparse)},
                            {"bidir", modeAnswerJson(answer.byMode->bidir)}};
      json["groupFilter"] =
          Json{{"sparse", answer.byMode->sparseServed}, {"bidir", answer.byMode->bidirServed}};
    }
    json["scope"] = answer.scope ? scopeJson(*answer.scope) : Json(nullptr);
    if (answer.embedded) json["embedded"] = embeddedRpAnswerJson(*answer.embedded);
    return json;
  }

  static Json modeAnswerJson(const ModeAnswer& answer) {
    return Json{{"rp", addressJson(answer.rp)}, {"source", answerSourceWord(answer.source)}};
  }

  static Json scopeJson(const ScopeRange& scope) {
    return Json{{"kind", scopeKindWord(scope.kind)}, {"range", scope.range}};
  }

  static Json detailJson(const Routing::Pim::RpSelectionRecord& record) {
    Json candidates = Json::array();
    for (const auto& candidate : record.candidates) {
      Json row = infoJson(candidate.info);
      row["hash"] = candidate.hash ? Json(*candidate.hash) : Json(nullptr);
      candidates.push_back(std::move(row));
    }
    Json setAside = Json::array();
    for (const auto& candidate : record.setAside) {
      Json row = infoJson(candidate.info);
      row["reason"] = Routing::Pim::rpSetAsideReasonWord(candidate.reason);
      setAside.push_back(std::move(row));
    }
    const std::string rule = record.rule();
    return Json{
        {"range", record.range.isNull() ? Json(nullptr) : Json(record.range.valueToStrep())},
        {"rule", rule.empty() ? Json(nullptr) : Json(rule)},
        {"candidates", std::move(candidates)},
        {"setAside", std::move(setAside)}};
  }

  static const char* answerSourceWord(Routing::Pim::RpAnswerSource source) {
    switch (source) {
      case Routing::Pim::RpAnswerSource::table:
        return "table";
      case Routing::Pim::RpAnswerSource::staticRp:
        return "static";
      case Routing::Pim::RpAnswerSource::bootstrap:
        return "bsr";
      case Routing::Pim::RpAnswerSource::join:
        return "join";
      case Routing::Pim::RpAnswerSource::embedded:
        return "embedded";
      case Routing::Pim::RpAnswerSource::none:
        break;
    }
    return "none";
  }

  static Json answerJson(const Routing::Pim::RpHashComputeRecord& record) {
    Json tableEntry = nullptr;
    if (Routing::Pim::rpHashPresent(record.tableEntry)) {
      tableEntry = Json{{"prefix", record.tableEntry.key().valueToStrep()},
                        {"address", addressJson(record.tableEntry.address())}};
    }
    Json computed = nullptr;
    if (record.computed) {
      Json setAside = Json::array();
      if (record.staticSetAsideByMode) setAside.push_back("static");
      if (record.bsrSetAsideByMode) setAside.push_back("bsr");
      if (record.embeddedSetAsideByMode) setAside.push_back("embedded");
      computed = Json{{"reason", Routing::Pim::rpSourceReasonWord(record.reason)},
                      {"setAsideByMode", std::move(setAside)}};
    }
    return Json{{"source", answerSourceWord(record.source)},
                {"tableEntry", std::move(tableEntry)},
                {"computed", std::move(computed)}};
  }

  static Json toJson(const RpMapping& mapping) {
    Json vrfs = Json::array();
    for (const auto& vrf : mapping.vrfs) {
      Json ranges = Json::array();
      for (const auto& range : vrf.ranges) ranges.push_back(rangeJson(range));
      vrfs.push_back(Json{{"vrf", vrf.vrf}, {"ranges", std::move(ranges)}});
    }
    return Json{{"family", mapping.af ? familyWord(*mapping.af) : "any"},
                {"vrfs", std::move(vrfs)}};
  }

  static Json rangeJson(const MappingRange& range) {
    Json candidates = Json::array();
    for (const auto& candidate : range.candidates) {
      Json row{{"source", candidate.source == CandidateSource::bootstrap ? "bsr" : "static"}};
      row.update(infoJson(candidate.info));
      candidates.push_back(std::move(row));
    }
    Json modes = Json::object();
    for (const auto& mode : range.modes) {
      modes[modeWord(mode.mode)] =
          Json{{"static", rangeEntryJson(mode.staticEntry)},
               {"bsr", rangeEntryJson(mode.bsrEntry)},
               {"final", rangeEntryJson(mode.finalEntry)},
               {"from", mode.from ? Json(tableSourceWord(*mode.from)) : Json(nullptr)},
               {"reason", Routing::Pim::rpSourceReasonWord(mode.reason)}};
    }
    Json scope = Json::array();
    for (const auto& note : range.scope) {
      Json row = scopeJson(note.scope);
      row["relation"] = note.within ? "within" : "includes";
      scope.push_back(std::move(row));
    }
    return Json{{"range", range.range.valueToStrep()},
                {"candidates", std::move(candidates)},
                {"modes", std::move(modes)},
                {"scope", std::move(scope)}};
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

  static Json toJson(const EmbeddedRpListing& listing) { return embeddedRpListingJson(listing); }

  static Json toJson(const ConfigListing& listing) {
    Json statements = Json::array();
    Json notes = Json::array();
    for (const auto& line : listing.lines) {
      if (line.kind == ConfigLine::Kind::statement) statements.push_back(line.text);
      if (line.kind == ConfigLine::Kind::note) notes.push_back(line.text);
    }
    return Json{{"config", {{"statements", std::move(statements)}, {"notes", std::move(notes)}}}};
  }

  static Json toJson(const RpHashSummary& summary) { return rpHashSummaryJson(summary); }
  static Json toJson(const WhatIfReport& report) { return whatIfJson(report); }

  std::ostream& out_;
};

}  // namespace

Json addressJson(const Ipkit::IpGenAddr& address) {
  if (address.af() == Ipkit::AddressFamily::ipunknown) return nullptr;
  return address.valueToStrep();
}

std::unique_ptr<Output> jsonOutputFactory(std::ostream& out) {
  return std::make_unique<JsonOutput>(out);
}

}  // namespace PimrpTool
