#include "tools/RpHashSummaryOutput.h"

#include <iomanip>
#include <sstream>
#include <string>

#include "tools/Output.h"
#include "tools/TextTable.h"

namespace PimrpTool {
namespace {

std::string fixed(double value, int decimals) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(decimals) << value;
  return text.str();
}

void rowPrint(std::ostream& out, const RpLoadRow& row) {
  out << "  vrf " << row.vrf << ", " << familyWord(row.af) << ' ' << modeWord(row.mode) << ": ";
  if (row.groups == 0) {
    out << "no known groups\n";
    return;
  }
  out << row.groups << (row.groups == 1 ? " group, " : " groups, ") << row.noRp << " without an RP";
  if (row.rps.empty()) {
    out << '\n';
    return;
  }
  out << "; largest/smallest " << fixed(row.spread.maxOverMin, 2) << ", cv "
      << fixed(row.spread.cv, 3) << '\n';
  TextTable table({"rp", "groups", "share"});
  for (const RpLoad& rp : row.rps) {
    table.rowIs(
        {rp.address.valueToStrep(), std::to_string(rp.groups), fixed(100 * rp.share, 1) + '%'});
  }
  table.print(out, "    ");
}

}  // namespace

void rpHashSummaryPrint(std::ostream& out, const RpHashSummary& summary) {
  out << "rp-hash summary";
  if (summary.af) out << ' ' << familyWord(*summary.af);
  out << '\n';
  for (const RpLoadRow& row : summary.rows) rowPrint(out, row);
}

Json rpHashSummaryJson(const RpHashSummary& summary) {
  Json rows = Json::array();
  for (const RpLoadRow& row : summary.rows) {
    Json rps = Json::array();
    for (const RpLoad& rp : row.rps) {
      rps.push_back(
          Json{{"address", rp.address.valueToStrep()}, {"groups", rp.groups}, {"share", rp.share}});
    }
    rows.push_back(
        Json{{"vrf", row.vrf},
             {"family", familyWord(row.af)},
             {"mode", modeWord(row.mode)},
             {"groups", row.groups},
             {"noRp", row.noRp},
             {"rps", std::move(rps)},
             {"spread", {{"maxOverMin", row.spread.maxOverMin}, {"cv", row.spread.cv}}}});
  }
  return Json{{"summary", std::move(rows)}};
}

}  // namespace PimrpTool
