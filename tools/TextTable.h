#pragma once
// PimrpTool::TextTable: a few left-aligned columns under a header, for human output.
//
// Columns are as wide as their widest cell and two blanks apart; a row may have fewer cells
// than the header (its last columns stay blank); no line ends in blanks.

#include <ostream>
#include <string>
#include <vector>

namespace PimrpTool {

class TextTable {
 public:
  explicit TextTable(std::vector<std::string> header) { rows_.push_back(std::move(header)); }

  void rowIs(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  // Writes the header and the rows, each line starting with `indent`.
  void print(std::ostream& out, const std::string& indent) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace PimrpTool
