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

std::unique_ptr<Output> humanOutputFactory(std::ostream& out) {
  return std::make_unique<HumanOutput>(out);
}

}  // namespace PimrpTool
