#pragma once
// Child processes for tests that need more than one process: a child that is killed and reaped
// when its owner goes, so that a test that fails half-way leaves no process behind (a writer
// stopped inside a write, a process holding a lock); and another user for a child to act as.

#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

namespace TestProcesses {

// The exit code of a child that ended normally, or -(signal) for one a signal ended.
inline int waitFor(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child) return -1000;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return -WTERMSIG(status);
  return -1000;
}

// One child process of the test. It is killed (SIGKILL) and reaped when the object goes, unless it
// has been waited for already.
class ChildProcess {
 public:
  ChildProcess() = default;
  explicit ChildProcess(pid_t pid) : pid_(pid) {}
  ChildProcess(ChildProcess&& other) noexcept : pid_(std::exchange(other.pid_, -1)) {}
  ChildProcess& operator=(ChildProcess&& other) noexcept {
    if (this != &other) {
      end();
      pid_ = std::exchange(other.pid_, -1);
    }
    return *this;
  }
  ~ChildProcess() { end(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Runs body in a new child process, which ends with body's result as its exit code (99 when
  // body threw).
  static ChildProcess run(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child != 0) return ChildProcess(child);
    int code = 99;
    try {
      code = body();
    } catch (...) {
    }
    _exit(code);
  }

  pid_t pid() const { return pid_; }
  bool started() const { return pid_ > 0; }
  void signal(int number) const {
    if (pid_ > 0) ::kill(pid_, number);
  }
  // Waits for the child to end; see waitFor().
  int wait() {
    if (pid_ <= 0) return -1000;
    const int code = waitFor(pid_);
    pid_ = -1;
    return code;
  }
  // Waits until the child has stopped (SIGSTOP); false, the child reaped, when it ended instead.
  bool waitStopped() {
    if (pid_ <= 0) return false;
    int status = 0;
    if (waitpid(pid_, &status, WUNTRACED) != pid_) return false;
    if (WIFSTOPPED(status)) return true;
    pid_ = -1;
    return false;
  }

 private:
  void end() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    waitFor(pid_);
    pid_ = -1;
  }

  pid_t pid_ = -1;
};

// The user that tests act as when they need another user than the one they run as: nobody.
constexpr uid_t kOtherUser = 65534;
constexpr gid_t kOtherGroup = 65534;

// Why this process cannot act as another user ("" when it can). A test that needs another user
// skips with this reason. It needs root, to become that user, and /dev/shm as systems set it up:
// open to every user and sticky (mode 1777), since the tests have the other user make segments
// there and count on it being unable to remove root's. A bare chroot that binds only the host's
// /dev sees the directory under the host's /dev/shm mount instead, with whatever mode that has.
inline std::string otherUserUnavailable() {
  if (geteuid() != 0) {
    return "acting as another user needs root, and this test runs as uid " +
           std::to_string(geteuid());
  }
  struct stat shm {};
  if (stat("/dev/shm", &shm) != 0) {
    return std::string("acting as another user needs /dev/shm, and it cannot be read: ") +
           std::strerror(errno);
  }
  constexpr mode_t kEveryoneAndSticky = S_IWOTH | S_ISVTX;
  if ((shm.st_mode & kEveryoneAndSticky) != kEveryoneAndSticky) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(shm.st_mode & 07777));
    return std::string("acting as another user needs /dev/shm open to every user and sticky ") +
           "(mode 1777), and here its mode is " + mode;
  }
  return "";
}

// In a child: gives up root for kOtherUser for good; false when that fails.
inline bool becomeOtherUser() {
  return setgroups(0, nullptr) == 0 && setresgid(kOtherGroup, kOtherGroup, kOtherGroup) == 0 &&
         setresuid(kOtherUser, kOtherUser, kOtherUser) == 0;
}

}  // namespace TestProcesses
