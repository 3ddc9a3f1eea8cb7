#include "tools/StatementError.h"

#include <cstdio>

namespace PimrpTool {

std::string quoted(const std::string& word) {
  std::string out = "'";
  std::size_t run = 0;  // characters of the current word so far
  bool cut = false;     // the rest of the current word is left out
  for (const char c : word) {
    if (c == ' ') {
      run = 0;
      cut = false;
    } else if (cut) {
      continue;
    } else if (run++ == kMaxQuotedWord) {
      out += "...";
      cut = true;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      out += escaped;
    } else {
      out += c;
    }
  }
  return out + "'";
}

}  // namespace PimrpTool
