#include <string>
#include <variant>

#include "tools/EmbeddedRpOutput.h"
#include "tools/Output.h"
#include "tools/RpHashSummaryOutput.h"
#include "tools/TextTable.h"
#include "tools/WhatIfOutput.h"

namespace PimrpTool {
namespace {

using Routing::Pim::RpCandidateInfo;

const std::vector<std::string> kCandidateColumns = {"rp", "priority", "hashmask", "override",
                                                    "mode"};

// A number, or a dash for the value that means "not set".
std::string valueCell(unsigned value, unsigned notSet) {
  return value == notSet ? "-" : std::to_string(value);
}

// The five values of a selection or candidate; an empty selection is one dash.
std::vector<std::string> candidateCells(const RpCandidateInfo& info) {
  if (!info) return {"-"};
  return {info.address().valueToStrep(), valueCell(info.priority(), Routing::Pim::kRpPriorityNone),
          valueCell(info.hashMaskLen(), Routing::Pim::kRpHashMaskLenNone),
          info.override() ? "yes" : "no", modeWord(info.mode())};
}

// The five values of a table entry; a placeholder entry (no RP) shows a dash for its address.
std::vector<std::string> entryCells(const RpCandidateInfo& info) {
  return {
      info.address().af() == Ipkit::AddressFamily::ipunknown ? "-" : info.address().valueToStrep(),
      valueCell(info.priority(), Routing::Pim::kRpPriorityNone),
      valueCell(info.hashMaskLen(), Routing::Pim::kRpHashMaskLenNone),
      info.override() ? "yes" : "no", modeWord(info.mode())};
}

// A per-range entry's RP: "-" when absent, "other mode" when the entry names no RP because the
// source's winner is of the other mode.
std::string rangeEntryCell(const Routing::Pim::RpHash& entry) {
  if (!Routing::Pim::rpHashPresent(entry)) return "-";
  if (entry.address().af() == Ipkit::AddressFamily::ipunknown) return "other mode";
  return entry.address().valueToStrep();
}

// One mode's answer with where it came from: "10.0.0.1 (final table)", "none".
std::string modeAnswerWords(const ModeAnswer& answer) {
  using Routing::Pim::RpAnswerSource;
  switch (answer.source) {
    case RpAnswerSource::table:
      return addressWord(answer.rp) + " (final table)";
    case RpAnswerSource::staticRp:
      return addressWord(answer.rp) + " (computed, static)";
    case RpAnswerSource::bootstrap:
      return addressWord(answer.rp) + " (computed, bsr)";
    case RpAnswerSource::join:
      return addressWord(answer.rp) + " (join address)";
    case RpAnswerSource::embedded:
      return addressWord(answer.rp) + " (computed, embedded)";
    case RpAnswerSource::none:
      break;
  }
  return "none";
}

std::vector<std::string> withLead(std::string lead, std::vector<std::string> cells) {
  cells.insert(cells.begin(), std::move(lead));
  return cells;
}

class HumanOutput : public Output {
 public:
  explicit HumanOutput(std::ostream& out) : out_(out) {}

  void show(const ShowResult& result) override {
    // A blank line between answers keeps each readable at a glance.
    if (shown_++ != 0) out_ << '\n';
    std::visit([this](const auto& answer) { print(answer); }, result);
  }

 private:
  void print(const RpAnswer& answer) {
    out_ << "rp for " << answer.group << " (" << queryModeWord(answer.queryMode) << " mode";
    if (answer.join) out_ << ", join " << *answer.join;
    out_ << "): " << addressWord(answer.rp) << '\n';
    TextTable table(withLead("source", kCandidateColumns));
    table.rowIs(withLead("static", candidateCells(answer.staticSelection)));
    table.rowIs(withLead("bsr", candidateCells(answer.bsrSelection)));
    table.print(out_, "  ");
    if (answer.byMode) print(*answer.byMode);
    if (answer.scope) {
      out_ << "  note: " << answer.scope->range << " holds " << scopeKindWord(answer.scope->kind)
           << " groups: " << scopeKindMeaning(answer.scope->kind) << '\n';
    }
    if (answer.embedded) printEmbeddedRpAnswer(out_, *answer.embedded);
    if (answer.staticDetail) print("static", *answer.staticDetail);
    if (answer.bsrDetail) print("bsr", *answer.bsrDetail);
    if (answer.answerDetail) print(*answer.answerDetail, answer.queryMode);
  }

  void print(const ModeAnswers& answers) {
    out_ << "  by mode: sparse " << modeAnswerWords(answers.sparse) << ", bidir "
         << modeAnswerWords(answers.bidir) << "; group filter: sparse "
         << (answers.sparseServed ? "yes" : "no") << ", bidir "
         << (answers.bidirServed ? "yes" : "no") << '\n';
  }

  void print(const char* source, const Routing::Pim::RpSelectionRecord& record) {
    out_ << "  " << source << ": ";
    if (record.range.isNull()) {
      out_ << "no range covers the group\n";
      return;
    }
    const std::string rule = record.rule();
    out_ << "range " << record.range << ", decided by "
         << (rule.empty() ? "nothing (no candidate with a mode)" : rule) << '\n';
    if (!record.candidates.empty()) {
      TextTable table({"rp", "priority", "hashmask", "mode", "hash"});
      for (const auto& candidate : record.candidates) {
        const auto& info = candidate.info;
        table.rowIs({info.address().valueToStrep(),
                     valueCell(info.priority(), Routing::Pim::kRpPriorityNone),
                     valueCell(info.hashMaskLen(), Routing::Pim::kRpHashMaskLenNone),
                     modeWord(info.mode()),
                     candidate.hash ? std::to_string(*candidate.hash) : "-"});
      }
      table.print(out_, "    ");
    }
    for (const auto reason : {Routing::Pim::RpSetAsideReason::otherMode,
                              Routing::Pim::RpSetAsideReason::unusableMode}) {
      std::string addresses;
      for (const auto& candidate : record.setAside) {
        if (candidate.reason != reason) continue;
        addresses += (addresses.empty() ? "" : ", ") + candidate.info.address().valueToStrep();
      }
      if (addresses.empty()) continue;
      out_ << "    set aside (" << Routing::Pim::rpSetAsideReasonWord(reason) << "): " << addresses
           << '\n';
    }
  }

  // How rpHashCompute came to its answer: the final table, or the two sources by the rule and
  // the mode filter, and the join address as the last resort.
  void print(const Routing::Pim::RpHashComputeRecord& record, Routing::Pim::Mode queryMode) {
    using Routing::Pim::RpAnswerSource;
    out_ << "  answer: ";
    if (Routing::Pim::rpHashPresent(record.tableEntry)) {
      out_ << (record.source == RpAnswerSource::table ? "from the final table's entry "
                                                      : "the final table's entry ")
           << record.tableEntry.key();
      if (record.source != RpAnswerSource::table) out_ << " names no RP";
    } else if (record.source == RpAnswerSource::embedded) {
      out_ << "computed, the embedded RP the group address names";
    } else if (record.computed) {
      out_ << "computed, " << Routing::Pim::rpSourceReasonWord(record.reason);
      if (record.embeddedSetAsideByMode) {
        out_ << "; embedded RP is sparse, not " << modeWord(queryMode) << ": set aside";
      }
      if (record.staticSetAsideByMode) printSetAside("static", record.staticResult, queryMode);
      if (record.bsrSetAsideByMode) printSetAside("bsr", record.bsrResult, queryMode);
    } else {
      out_ << "no group to look up";
    }
    if (record.source == RpAnswerSource::join) out_ << "; the join address as last resort";
    if (record.source == RpAnswerSource::none) out_ << "; no join address";
    out_ << '\n';
  }

  void printSetAside(const char* source, const RpCandidateInfo& winner,
                     Routing::Pim::Mode queryMode) {
    out_ << "; " << source << " RP " << winner.address() << " is " << modeWord(winner.mode())
         << ", not " << modeWord(queryMode) << ": set aside";
  }

  void print(const RpMapping& mapping) {
    for (const auto& vrf : mapping.vrfs) {
      out_ << "rp mapping";
      if (mapping.af) out_ << ' ' << familyWord(*mapping.af);
      out_ << ", vrf " << vrf.vrf;
      if (vrf.ranges.empty()) {
        out_ << ": none\n";
        continue;
      }
      out_ << '\n';
      for (const auto& range : vrf.ranges) print(range);
    }
  }

  void print(const MappingRange& range) {
    out_ << "  " << range.range << '\n';
    if (range.candidates.empty()) {
      out_ << "    no candidates\n";
    } else {
      TextTable candidates(withLead("source", kCandidateColumns));
      for (const auto& candidate : range.candidates) {
        candidates.rowIs(withLead(candidate.source == CandidateSource::bootstrap ? "bsr" : "static",
                                  candidateCells(candidate.info)));
      }
      candidates.print(out_, "    ");
    }
    TextTable modes({"mode", "static", "bsr", "final", "from", "why"});
    for (const auto& mode : range.modes) {
      modes.rowIs({modeWord(mode.mode), rangeEntryCell(mode.staticEntry),
                   rangeEntryCell(mode.bsrEntry), rangeEntryCell(mode.finalEntry),
                   mode.from ? tableSourceWord(*mode.from) : "-",
                   Routing::Pim::rpSourceReasonWord(mode.reason)});
    }
    modes.print(out_, "    ");
    for (const auto& note : range.scope) {
      out_ << "    note: " << (note.within ? "within " : "includes ") << note.scope.range << " ("
           << scopeKindWord(note.scope.kind) << " groups: " << scopeKindMeaning(note.scope.kind)
           << ")\n";
    }
  }

  void print(const CandidateListing& listing) {
    const char* source =
        listing.source == CandidateSource::bootstrap ? "bsr candidates" : "static candidates";
    if (listing.sets.empty()) {
      out_ << source << ": none\n";
      return;
    }
    out_ << source << '\n';
    TextTable table(withLead("prefix", kCandidateColumns));
    for (const auto& set : listing.sets) {
      std::string prefix = set.prefix.valueToStrep();
      for (const auto& rp : set.rps) {
        table.rowIs(withLead(prefix, candidateCells(rp)));
        prefix.clear();
      }
    }
    table.print(out_, "  ");
  }

  void print(const AclListing& listing) {
    out_ << "acl " << listing.acl;
    if (!listing.configured) {
      out_ << " is not configured\n";
      return;
    }
    if (listing.prefixes.empty()) {
      out_ << " permits no group\n";
    } else {
      out_ << " permits\n";
      for (const auto& prefix : listing.prefixes) out_ << "  " << prefix << '\n';
    }
    for (const auto& rule : listing.ignored) {
      out_ << "  note: seq " << rule.sequence << ' ' << rule.action << ' ' << rule.prefix
           << " is outside 224.0.0.0/4 and serves no group\n";
    }
  }

  void print(const RpHashListing& listing) {
    out_ << "rp-hash " << tableSourceWord(listing.source) << ' ' << tableKindWord(listing.kind)
         << " mode " << modeWord(listing.mode);
    if (listing.af) out_ << ' ' << familyWord(*listing.af);
    if (listing.entries.empty()) {
      out_ << ": none\n";
      return;
    }
    out_ << '\n';
    TextTable table(withLead("prefix", kCandidateColumns));
    for (const auto& entry : listing.entries) {
      table.rowIs(withLead(entry.key().valueToStrep(), entryCells(entry.info())));
    }
    table.print(out_, "  ");
  }

  void print(const LocalRpListing& listing) {
    if (listing.rps.empty()) {
      out_ << "local rp: none\n";
      return;
    }
    out_ << "local rp\n";
    TextTable table({"address", "interface"});
    for (const auto& rp : listing.rps) table.rowIs({rp.address.valueToStrep(), rp.interface});
    table.print(out_, "  ");
  }

  void print(const GroupFilterAnswer& answer) {
    out_ << "group " << answer.group << ": sparse " << (answer.sparse ? "yes" : "no") << ", bidir "
         << (answer.bidir ? "yes" : "no") << '\n';
  }

  void print(const AllocRequestTally& tally) {
    out_ << "alloc requests " << tally.alloc << ", dealloc requests " << tally.dealloc << '\n';
    if (tally.rps.empty()) return;
    TextTable table({"rp", "alloc", "dealloc"});
    for (const auto& rp : tally.rps) {
      table.rowIs(
          {rp.address.valueToStrep(), std::to_string(rp.alloc), std::to_string(rp.dealloc)});
    }
    table.print(out_, "  ");
  }

  void print(const ReviewListing& listing) {
    out_ << "review\n";
    TextTable table(
        {"family", "source", "mode", "queued", "processed", "yielded", "bookmark", "pending"});
    for (const auto& row : listing.reviews) {
      table.rowIs(
          {familyWord(row.af), tableSourceWord(row.source), modeWord(row.mode),
           std::to_string(row.queued), std::to_string(row.groupsProcessed),
           std::to_string(row.yieldBeforeFinishing),
           row.bookmark.af() == Ipkit::AddressFamily::ipunknown ? "-" : row.bookmark.valueToStrep(),
           row.reviewPending ? "yes" : "no"});
    }
    table.print(out_, "  ");
  }

  void print(const EmbeddedRpListing& listing) { printEmbeddedRpListing(out_, listing); }

  // The statements as they run; headings and notes as comments, so that the whole runs as is.
  void print(const ConfigListing& listing) {
    for (const auto& line : listing.lines) {
      if (line.kind == ConfigLine::Kind::heading) out_ << "# ";
      if (line.kind == ConfigLine::Kind::note) out_ << "# note: ";
      out_ << line.text << '\n';
    }
  }

  void print(const RpHashSummary& summary) { rpHashSummaryPrint(out_, summary); }
  void print(const WhatIfReport& report) { whatIfPrint(out_, report); }

  std::ostream& out_;
  unsigned shown_ = 0;
};

}  // namespace

std::string addressWord(const Ipkit::IpGenAddr& address) {
  return address.af() == Ipkit::AddressFamily::ipunknown ? "none" : address.valueToStrep();
}

std::string modeWord(Routing::Pim::Mode mode) {
  switch (mode) {
    case Routing::Pim::modePimSm:
      return "sparse";
    case Routing::Pim::modePimBidir:
      return "bidir";
    default:
      return "none";
  }
}

std::string queryModeWord(Routing::Pim::Mode mode) {
  return mode == Routing::Pim::modePimNone ? "any" : modeWord(mode);
}

std::string tableSourceWord(TableSource source) {
  switch (source) {
    case TableSource::staticRp:
      return "static";
    case TableSource::bsr:
      return "bsr";
    case TableSource::final:
      break;
  }
  return "final";
}

std::string tableKindWord(TableKind kind) {
  return kind == TableKind::groups ? "groups" : "prefixes";
}

std::string familyWord(Ipkit::AddressFamily af) {
  return af == Ipkit::AddressFamily::ipv6 ? "ipv6" : "ipv4";
}

std::unique_ptr<Output> humanOutputFactory(std::ostream& out) {
  return std::make_unique<HumanOutput>(out);
}

}  // namespace PimrpTool
