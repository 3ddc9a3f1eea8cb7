#include "tools/LineEditor.h"

#include <cstdio>

namespace PimrpTool {
namespace {

// The prompt that libedit asks for before each line.
char* prompt(EditLine*) {
  static char text[] = "pimrp> ";
  return text;
}

}  // namespace

LineEditor::LineEditor(const char* program)
    : editLine_(el_init(program, stdin, stderr, stderr)), history_(history_init()) {
  history(history_, &event_, H_SETSIZE, 1000);
  el_set(editLine_, EL_PROMPT, &prompt);
  el_set(editLine_, EL_EDITOR, "emacs");
  el_set(editLine_, EL_HIST, history, history_);
  // The user's ~/.editrc, as other programs that use the library read it.
  el_source(editLine_, nullptr);
}

LineEditor::~LineEditor() {
  el_end(editLine_);
  history_end(history_);
}

bool LineEditor::lineNext(std::string& line) {
  int count = 0;
  const char* text = el_gets(editLine_, &count);
  if (text == nullptr || count <= 0) return false;
  line.assign(text, static_cast<std::size_t>(count));
  if (!line.empty() && line.back() == '\n') line.pop_back();
  if (line.find_first_not_of(" \t\r") != std::string::npos) {
    history(history_, &event_, H_ENTER, line.c_str());
  }
  return true;
}

}  // namespace PimrpTool
