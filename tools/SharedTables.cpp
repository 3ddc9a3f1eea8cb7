#include "tools/SharedTables.h"

#include <pwd.h>

#include <cerrno>
#include <cstdlib>

#include "tools/StatementError.h"

namespace PimrpTool {

namespace {

bool plainCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

}  // namespace

std::string sharedNameRefusal(const std::string& name) {
  if (name.empty()) return "the table name is empty";
  for (const char c : name) {
    if (plainCharacter(c)) continue;
    return "table name " + quoted(name) + " holds " + quoted(std::string(1, c)) +
           ": use only letters, digits, '.', '_' and '-'";
  }
  if (name[0] == '.') return "table name " + quoted(name) + " starts with '.'";
  if (name.size() > kMaxSharedNameLength) {
    return "table name " + quoted(name) + " is longer than " +
           std::to_string(kMaxSharedNameLength) + " characters";
  }
  return "";
}

std::string tableModeRefusal(const std::string& text, mode_t* mode) {
  const bool octal =
      !text.empty() && text.size() <= 4 && text.find_first_not_of("01234567") == std::string::npos;
  if (!octal) return quoted(text) + " is not a mode in octal, such as 0644";
  *mode = static_cast<mode_t>(std::strtoul(text.c_str(), nullptr, 8));
  if (Mirra::tableModeAllowed(*mode)) return "";
  return quoted(text) +
         " is not a mode a table may have: the owner reads and writes, group and others may at "
         "most read (0600, 0640, 0604 or 0644)";
}

std::string userRefusal(const std::string& text, uid_t* user) {
  if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
    errno = 0;
    const unsigned long number = std::strtoul(text.c_str(), nullptr, 10);
    if (errno == 0 && number < static_cast<unsigned long>(static_cast<uid_t>(-1))) {
      *user = static_cast<uid_t>(number);
      return "";
    }
  }
  passwd entry;
  passwd* found = nullptr;
  char buffer[4096];
  if (getpwnam_r(text.c_str(), &entry, buffer, sizeof(buffer), &found) == 0 && found != nullptr) {
    *user = found->pw_uid;
    return "";
  }
  return "no user " + quoted(text);
}

std::string damagedTableMessage(const Mirra::CorruptionDetectedException& damage) {
  // Table names are plain and not cut: the operator needs the whole of it.
  return "the shared table '" + damage.table() + "' is damaged: " + damage.what();
}

}  // namespace PimrpTool
