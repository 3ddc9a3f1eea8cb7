#include "tools/TextTable.h"

#include <algorithm>
#include <cstddef>

namespace PimrpTool {

void TextTable::print(std::ostream& out, const std::string& indent) const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    if (widths.size() < row.size()) widths.resize(row.size(), 0);
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], row[column].size());
    }
  }
  for (const auto& row : rows_) {
    std::string line = indent;
    for (std::size_t column = 0; column < row.size(); ++column) {
      line += row[column];
      if (column + 1 < row.size()) line.append(widths[column] - row[column].size() + 2, ' ');
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    out << line << '\n';
  }
}

}  // namespace PimrpTool
