#include <string>
#include <variant>

#include "tools/Output.h"
#include "tools/TextTable.h"

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
    out_ << "): ";
    if (answer.rp.af() == Ipkit::AddressFamily::ipunknown) {
      out_ << "none\n";
    } else {
      out_ << answer.rp << '\n';
    }
    TextTable table(withLead("source", kCandidateColumns));
    table.rowIs(withLead("static", candidateCells(answer.staticSelection)));
    table.rowIs(withLead("bsr", candidateCells(answer.bsrSelection)));
    table.print(out_, "  ");
    if (answer.staticDetail) print("static", *answer.staticDetail);
    if (answer.bsrDetail) print("bsr", *answer.bsrDetail);
  }

  void print(const char* source, const SourceDetail& detail) {
    out_ << "  " << source << ": ";
    if (!detail.range) {
      out_ << "no range covers the group\n";
      return;
    }
    out_ << "range " << *detail.range << ", decided by "
         << (detail.rule.empty() ? "nothing (no candidate with a mode)" : detail.rule) << '\n';
    TextTable table({"rp", "priority", "hashmask", "mode", "hash"});
    for (const auto& candidate : detail.candidates) {
      const auto& info = candidate.info;
      table.rowIs({info.address().valueToStrep(),
                   valueCell(info.priority(), Routing::Pim::kRpPriorityNone),
                   valueCell(info.hashMaskLen(), Routing::Pim::kRpHashMaskLenNone),
                   modeWord(info.mode()), candidate.hash ? std::to_string(*candidate.hash) : "-"});
    }
    table.print(out_, "    ");
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

  // The statements as they run; headings and notes as comments, so that the whole runs as is.
  void print(const ConfigListing& listing) {
    for (const auto& line : listing.lines) {
      if (line.kind == ConfigLine::Kind::heading) out_ << "# ";
      if (line.kind == ConfigLine::Kind::note) out_ << "# note: ";
      out_ << line.text << '\n';
    }
  }

  std::ostream& out_;
  unsigned shown_ = 0;
};

}  // namespace

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
