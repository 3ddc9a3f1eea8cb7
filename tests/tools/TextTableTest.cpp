#include <gtest/gtest.h>

#include <sstream>

#include "tools/TextTable.h"

namespace {

using PimrpTool::TextTable;

TEST(TextTable, Columns_AsWideAsTheirWidestCellTwoBlanksApart) {
  TextTable table({"prefix", "rp"});
  table.rowIs({"239.0.0.0/8", "10.0.0.1"});
  table.rowIs({"", "10.0.0.22"});
  std::ostringstream out;
  table.print(out, "  ");
  EXPECT_EQ(out.str(),
            "  prefix       rp\n"
            "  239.0.0.0/8  10.0.0.1\n"
            "               10.0.0.22\n");
}

TEST(TextTable, ShortRows_LeaveNoTrailingBlanks) {
  TextTable table({"source", "rp", "mode"});
  table.rowIs({"bsr", "-"});
  table.rowIs({"static", "", ""});
  std::ostringstream out;
  table.print(out, "");
  EXPECT_EQ(out.str(),
            "source  rp  mode\n"
            "bsr     -\n"
            "static\n");
}

}  // namespace
