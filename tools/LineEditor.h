#pragma once
// PimrpTool::LineEditor: statements typed at a terminal, read with line editing and history
// (cursor keys, recall of earlier lines), so that the arrow keys move the cursor instead of
// reaching the parser as escape sequences.
//
// It reads the terminal on standard input and writes its prompt and echo to standard error,
// so that standard output holds answers only.
//
// Invariants:
//  1. Only for a terminal on standard input; other input is read plainly (lineFromStream).
//  2. Each line that holds more than blanks enters the history once, in the order typed.

#include <histedit.h>

#include <string>

namespace PimrpTool {

class LineEditor {
 public:
  // REQUIRES: standard input is a terminal.
  explicit LineEditor(const char* program);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  // Prompts and reads the next line, without its line end; false at the end of input (Ctrl-D
  // on an empty line) or on a read error.
  bool lineNext(std::string& line);

 private:
  EditLine* editLine_;
  History* history_;
  HistEvent event_;
};

}  // namespace PimrpTool
