#include "framework/Kel/Trace.h"

#include <map>
#include <memory>

namespace Kel {
namespace {

// std::map keeps each handle at a fixed address for the life of the process.
std::map<std::string, std::unique_ptr<TraceFile>>& registry() {
  static std::map<std::string, std::unique_ptr<TraceFile>> files;
  return files;
}

}  // namespace

TraceFile& TraceFile::named(const std::string& name) {
  auto& files = registry();
  auto found = files.find(name);
  if (found == files.end()) {
    found = files.emplace(name, std::make_unique<TraceFile>(name)).first;
  }
  return *found->second;
}

void TraceFile::levelIs(int level, bool on) {
  const auto bit = static_cast<std::uint16_t>(1u << level);
  levels_ =
      on ? static_cast<std::uint16_t>(levels_ | bit) : static_cast<std::uint16_t>(levels_ & ~bit);
}

void TraceFile::levelsUpToIs(int highest) {
  if (highest < 0) {
    levels_ = 0;
    return;
  }
  if (highest > kMaxLevel) highest = kMaxLevel;
  levels_ = static_cast<std::uint16_t>((1u << (highest + 1)) - 1);
}

void TraceFile::write(int level, std::string text, int line, const char* function) const {
  TraceRing::instance().append(TraceRecord{name_, level, std::move(text), line, function});
}

void traceLevelsUpToIs(int highest) {
  for (auto& [name, file] : registry()) file->levelsUpToIs(highest);
}

std::vector<std::string> traceFileNames() {
  std::vector<std::string> names;
  for (const auto& [name, file] : registry()) names.push_back(name);
  return names;
}

TraceRing& TraceRing::instance() {
  static TraceRing ring;
  return ring;
}

void TraceRing::append(TraceRecord record) {
  if (sink_) sink_(record);
  if (capacity_ == 0) return;
  if (records_.size() == capacity_) records_.pop_front();
  records_.push_back(std::move(record));
}

std::vector<std::string> TraceRing::lines(const std::string& traceFile) const {
  std::vector<std::string> texts;
  for (const auto& record : records_) {
    if (record.traceFile == traceFile) texts.push_back(record.text);
  }
  return texts;
}

void TraceRing::capacityIs(std::size_t capacity) {
  capacity_ = capacity;
  while (records_.size() > capacity_) records_.pop_front();
}

}  // namespace Kel
