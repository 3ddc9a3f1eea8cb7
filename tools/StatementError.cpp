#include "tools/StatementError.h"

#include <cstdio>

namespace PimrpTool {

std::string quoted(const std::string& word) {
  std::string out = "'";
  for (const char c : word) {
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
