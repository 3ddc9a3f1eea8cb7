#include "tools/SharedTables.h"

#include <pwd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "tools/Output.h"
#include "tools/StatementError.h"

namespace PimrpTool {

using Routing::Pim::Mode;
using Routing::Pim::RpHashStatus;

namespace {

bool plainCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

// The words of `show rp-hash`, in the order of HashSource and HashKind.
const char* sourceWord(HashSource source) {
  static const char* const words[] = {"static", "bsr", "final"};
  return words[static_cast<std::size_t>(source)];
}

const char* kindWord(HashKind kind) { return kind == HashKind::groups ? "groups" : "prefixes"; }

// Calls visit(af, source, kind, mode) for every role, in the order of invariant 2.
template <class Visit>
void forEachRole(Visit visit) {
  for (const auto af : {Ipkit::AddressFamily::ipv4, Ipkit::AddressFamily::ipv6}) {
    for (const Mode mode : {Routing::Pim::modePimSm, Routing::Pim::modePimBidir}) {
      for (const HashSource source : {HashSource::staticRp, HashSource::bsr, HashSource::final}) {
        for (const HashKind kind : {HashKind::groups, HashKind::prefixes}) {
          visit(af, source, kind, mode);
        }
      }
    }
  }
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

std::string tableRole(Ipkit::AddressFamily af, HashSource source, HashKind kind, Mode mode) {
  return familyWord(af) + '.' + modeWord(mode) + '.' + sourceWord(source) + '.' + kindWord(kind);
}

std::vector<std::string> sharedTableNames(const std::string& name) {
  std::vector<std::string> names;
  forEachRole([&](Ipkit::AddressFamily af, HashSource source, HashKind kind, Mode mode) {
    names.push_back(name + '.' + tableRole(af, source, kind, mode));
  });
  return names;
}

Kel::Ptr<RpHashStatus> rpHashTableIn(const TableHome& home, Ipkit::AddressFamily af,
                                     HashSource source, HashKind kind, Mode mode) {
  if (home.kind == TableHome::Kind::process) return Kel::Ptr<RpHashStatus>(new RpHashStatus);
  const auto attachMode = home.kind == TableHome::Kind::sharedWriter
                              ? Mirra::AttachMode::singleWriter
                              : Mirra::AttachMode::reader;
  const std::string table = home.name + '.' + tableRole(af, source, kind, mode);
  return Kel::Ptr<RpHashStatus>(
      new RpHashStatus(RpHashStatus::Table::attachShared(table, attachMode, home.options)));
}

std::vector<TableRemoval> sharedTablesUnlink(const std::string& name) {
  std::vector<TableRemoval> removals;
  for (const std::string& table : sharedTableNames(name)) {
    Mirra::UnlinkReport report = RpHashStatus::Table::unlinkShared(table);
    if (report.found()) removals.push_back(TableRemoval{table, std::move(report)});
  }
  return removals;
}

}  // namespace PimrpTool
