#include "framework/Mirra/internal/ProcessIdentity.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace Mirra {
namespace internal {

namespace {

// What /proc/<pid>/stat says of the process: its state letter and its start time; false when it
// cannot be read.
bool processStat(long pid, char* state, std::uint64_t* started) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  if (!file || !std::getline(file, text)) return false;
  // The command name in parentheses may itself hold spaces and parentheses: the fields that
  // follow start after the last ')'.
  const std::size_t nameEnd = text.rfind(')');
  if (nameEnd == std::string::npos) return false;
  std::istringstream fields(text.substr(nameEnd + 1));
  std::string field;
  // Field 3 (the state) comes first; field 22 is the start time.
  for (int number = 3; number <= 22 && fields >> field; ++number) {
    if (number == 3) *state = field.empty() ? '?' : field[0];
    if (number == 22) {
      *started = std::strtoull(field.c_str(), nullptr, 10);
      return true;
    }
  }
  return false;
}

}  // namespace

ProcessIdentity thisProcess() {
  ProcessIdentity identity;
  identity.pid = static_cast<long>(getpid());
  char state = '?';
  if (!processStat(identity.pid, &state, &identity.started)) identity.started = 0;
  return identity;
}

WriterState writerStateOf(const ProcessIdentity& identity) {
  WriterState writer;
  writer.pid = identity.pid;
  writer.kind = WriterState::Kind::gone;
  if (identity.pid <= 0) return writer;
  char state = '?';
  std::uint64_t started = 0;
  if (!processStat(identity.pid, &state, &started)) {
    // Not shown to this user: it exists as long as a signal could reach it.
    const bool exists = kill(static_cast<pid_t>(identity.pid), 0) == 0 || errno == EPERM;
    if (exists) writer.kind = WriterState::Kind::running;
    return writer;
  }
  if (identity.started != 0 && started != identity.started) return writer;  // a later process
  if (state == 'Z' || state == 'X') return writer;
  writer.kind =
      state == 'T' || state == 't' ? WriterState::Kind::stopped : WriterState::Kind::running;
  return writer;
}

}  // namespace internal
}  // namespace Mirra
