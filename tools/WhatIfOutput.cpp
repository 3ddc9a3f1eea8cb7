#include "tools/WhatIfOutput.h"

#include <string>

#include "tools/Output.h"
#include "tools/TextTable.h"

namespace PimrpTool {
namespace {

std::string counted(std::uint64_t count, const char* thing) {
  return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

// The example groups, and "..." when the move has more groups than examples.
std::string examplesCell(const RpMove& move) {
  std::string cell;
  for (const auto& group : move.examples) {
    cell += (cell.empty() ? "" : ", ") + group.valueToStrep();
  }
  if (move.groups > move.examples.size()) cell += ", ...";
  return cell;
}

}  // namespace

void whatIfPrint(std::ostream& out, const WhatIfReport& report) {
  out << "what-if: ";
  if (report.moves.empty()) {
    out << "no group or range changes RP";
  } else {
    out << counted(report.groupsChanged, "group") << " and "
        << counted(report.rangesChanged, "range") << " change RP";
  }
  out << "; " << counted(report.allocRequests, "allocation request") << ", "
      << counted(report.deallocRequests, "deallocation request") << '\n';
  if (report.moves.empty()) return;
  TextTable table({"vrf", "family", "mode", "from", "to", "groups", "ranges", "examples"});
  for (const RpMove& move : report.moves) {
    table.rowIs({move.vrf, familyWord(move.af), modeWord(move.mode), addressWord(move.from),
                 addressWord(move.to), std::to_string(move.groups), std::to_string(move.ranges),
                 examplesCell(move)});
  }
  table.print(out, "  ");
}

Json whatIfJson(const WhatIfReport& report) {
  Json moves = Json::array();
  for (const RpMove& move : report.moves) {
    Json examples = Json::array();
    for (const auto& group : move.examples) examples.push_back(group.valueToStrep());
    moves.push_back(Json{{"vrf", move.vrf},
                         {"family", familyWord(move.af)},
                         {"mode", modeWord(move.mode)},
                         {"from", addressJson(move.from)},
                         {"to", addressJson(move.to)},
                         {"groups", move.groups},
                         {"ranges", move.ranges},
                         {"examples", std::move(examples)}});
  }
  return Json{{"whatIf",
               {{"groupsChanged", report.groupsChanged},
                {"rangesChanged", report.rangesChanged},
                {"moves", std::move(moves)},
                {"allocRequests", report.allocRequests},
                {"deallocRequests", report.deallocRequests}}}};
}

}  // namespace PimrpTool
