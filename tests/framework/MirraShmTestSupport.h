#pragma once
// Shared-table test support: a record that carries its own check, a table name unique to the test
// process whose segments are removed when the test ends however it ends, child processes that
// report through a pipe (as another user, when the tests run as root; TestProcesses.h), and the
// segments' files.

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <functional>
#include <string>

#include "framework/Mirra/MirraMap.h"
#include "tests/framework/TestProcesses.h"

namespace MirraShmTest {

// A value whose last word checks all the others, so that a reader can tell a value written whole
// from one that mixes two writes.
struct Record {
  std::uint64_t key = 0;
  std::uint64_t round = 0;
  std::uint64_t words[3] = {0, 0, 0};
  std::uint64_t check = 0;
  bool operator==(const Record& other) const {
    return key == other.key && round == other.round && words[0] == other.words[0] &&
           words[1] == other.words[1] && words[2] == other.words[2] && check == other.check;
  }
};
struct RecordKey {
  const std::uint64_t& operator()(const Record& record) const { return record.key; }
};
struct KeyHash {
  std::size_t operator()(std::uint64_t key) const {
    return static_cast<std::size_t>((key + 1) * 0x9e3779b97f4a7c15ull);
  }
};
using Table = Mirra::MirraMap<std::uint64_t, Record, RecordKey, KeyHash>;

inline std::uint64_t mix(std::uint64_t word) {
  word ^= word >> 33;
  word *= 0xff51afd7ed558ccdull;
  word ^= word >> 33;
  return word;
}
inline std::uint64_t checkOf(const Record& record) {
  return mix(record.key ^ mix(record.round ^
                              mix(record.words[0] ^ mix(record.words[1] ^ mix(record.words[2])))));
}
inline Record recordFor(std::uint64_t key, std::uint64_t round) {
  Record record;
  record.key = key;
  record.round = round;
  for (std::uint64_t& word : record.words) word = mix(key * 31 + round + (&word - record.words));
  record.check = checkOf(record);
  return record;
}
// Written whole by recordFor, for `key`.
inline bool wholeRecordOf(const Record& record, std::uint64_t key) {
  return record.key == key && record.check == checkOf(record) &&
         record == recordFor(key, record.round);
}

// The writer of the shared table `name`, holding keys [0, count) written in `round`.
inline Table filledWriter(const std::string& name, std::uint64_t count, std::uint64_t round) {
  Table writer = Table::attachShared(name, Mirra::AttachMode::singleWriter);
  for (std::uint64_t key = 0; key < count; ++key) writer.insert(recordFor(key, round));
  return writer;
}

// A table name unique to this process and test; its segments go when the guard goes.
class SegmentGuard {
 public:
  explicit SegmentGuard(const std::string& test)
      : name_("mirra-test-" + std::to_string(getpid()) + "-" + test) {
    Table::unlinkShared(name_);
  }
  ~SegmentGuard() { Table::unlinkShared(name_); }
  SegmentGuard(const SegmentGuard&) = delete;
  SegmentGuard& operator=(const SegmentGuard&) = delete;
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

using TestProcesses::becomeOtherUser;
using TestProcesses::ChildProcess;
using TestProcesses::kOtherUser;
using TestProcesses::otherUserUnavailable;

// Runs body in a child process and returns what it returned, or "threw: <what>"; the child's
// answer comes back through a pipe, so the parent compares it whole. With asOtherUser the child
// first becomes kOtherUser.
inline std::string answerFromChild(const std::function<std::string()>& body,
                                   bool asOtherUser = false) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  ChildProcess child(fork());
  if (child.pid() == 0) {
    close(ends[0]);
    std::string answer;
    try {
      answer = asOtherUser && !becomeOtherUser() ? "cannot become the other user" : body();
    } catch (const std::exception& error) {
      answer = std::string("threw: ") + error.what();
    }
    const char* at = answer.data();
    std::size_t left = answer.size();
    while (left > 0) {
      const ssize_t wrote = write(ends[1], at, left);
      if (wrote <= 0) break;
      at += wrote;
      left -= static_cast<std::size_t>(wrote);
    }
    _exit(0);
  }
  close(ends[1]);
  std::string answer;
  char buffer[4096];
  for (ssize_t got; (got = read(ends[0], buffer, sizeof(buffer))) > 0;) answer.append(buffer, got);
  close(ends[0]);
  const int code = child.wait();
  if (code != 0) answer += " [child ended with " + std::to_string(code) + "]";
  return answer;
}

// The file of a segment under /dev/shm.
inline std::string segmentFile(const std::string& segment) { return "/dev/shm/" + segment; }

inline bool segmentExists(const std::string& segment) {
  struct stat status;
  return stat(segmentFile(segment).c_str(), &status) == 0;
}

// Flips the bits `mask` of byte `offset` of a segment, as a stray write would; false when it
// cannot.
inline bool flipSegmentByte(const std::string& segment, std::size_t offset, unsigned char mask) {
  const int fd = open(segmentFile(segment).c_str(), O_RDWR);
  if (fd < 0) return false;
  unsigned char byte = 0;
  bool done = pread(fd, &byte, 1, static_cast<off_t>(offset)) == 1;
  byte ^= mask;
  done = done && pwrite(fd, &byte, 1, static_cast<off_t>(offset)) == 1;
  close(fd);
  return done;
}

}  // namespace MirraShmTest
