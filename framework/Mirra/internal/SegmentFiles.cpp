#include "framework/Mirra/internal/SegmentFiles.h"

#include <dirent.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Mirra {
namespace internal {

namespace {

// Where Linux keeps POSIX shared-memory objects, one file each.
const char kSharedMemoryDirectory[] = "/dev/shm";

bool plainCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

bool endsWith(const std::string& text, const std::string& ending) {
  return text.size() >= ending.size() &&
         text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// Whether `name` ends in ".g" followed by digits.
bool endsLikeGeneration(const std::string& name) {
  const std::size_t dot = name.rfind(".g");
  if (dot == std::string::npos || dot + 2 == name.size()) return false;
  return std::all_of(name.begin() + static_cast<long>(dot) + 2, name.end(),
                     [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::string tableNameRefusal(const std::string& name) {
  const bool plain = !name.empty() && name.size() <= 200 && name[0] != '.' &&
                     std::all_of(name.begin(), name.end(), plainCharacter);
  if (!plain) return "is not a plain name (letters, digits, '.', '_', '-')";
  if (endsWith(name, ".lock") || endsLikeGeneration(name)) {
    return "ends like a segment of another table ('.lock', '.g' and digits)";
  }
  return "";
}

std::string lockSegment(const std::string& table) { return table + ".lock"; }

std::string generationSegment(const std::string& table, std::uint64_t generation) {
  return table + ".g" + std::to_string(generation);
}

bool generationOf(const std::string& table, const std::string& segment, std::uint64_t* generation) {
  const std::string prefix = table + ".g";
  if (segment.size() <= prefix.size() || segment.compare(0, prefix.size(), prefix) != 0) {
    return false;
  }
  if (segment.size() - prefix.size() > 19) return false;  // more digits than a number holds
  std::uint64_t number = 0;
  for (std::size_t at = prefix.size(); at < segment.size(); ++at) {
    if (segment[at] < '0' || segment[at] > '9') return false;
    number = number * 10 + static_cast<std::uint64_t>(segment[at] - '0');
  }
  if (number == 0 || segment != generationSegment(table, number)) return false;  // no leading 0
  *generation = number;
  return true;
}

bool segmentsOf(const std::string& table, std::vector<std::string>* segments, std::string* why) {
  segments->clear();
  DIR* directory = opendir(kSharedMemoryDirectory);
  if (directory == nullptr) {
    *why = std::string("cannot list ") + kSharedMemoryDirectory + ": " + std::strerror(errno);
    return false;
  }
  std::vector<std::pair<std::uint64_t, std::string>> generations;
  bool control = false;
  bool lock = false;
  while (const dirent* entry = readdir(directory)) {
    const std::string segment = entry->d_name;
    std::uint64_t generation = 0;
    if (generationOf(table, segment, &generation)) generations.emplace_back(generation, segment);
    if (segment == table) control = true;
    if (segment == lockSegment(table)) lock = true;
  }
  closedir(directory);
  std::sort(generations.begin(), generations.end());
  for (const auto& generation : generations) segments->push_back(generation.second);
  if (control) segments->push_back(table);
  if (lock) segments->push_back(lockSegment(table));
  return true;
}

std::string userText(uid_t user) {
  passwd entry;
  passwd* found = nullptr;
  char buffer[4096];
  const std::string uid = "uid " + std::to_string(user);
  if (getpwuid_r(user, &entry, buffer, sizeof(buffer), &found) != 0 || found == nullptr) {
    return uid;
  }
  return std::string(found->pw_name) + " (" + uid + ")";
}

std::string modeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof(text), "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

}  // namespace internal
}  // namespace Mirra
