#pragma once
// Runs the built pimrp as a separate process, as an operator would: with arguments, standard input
// given whole or fed line by line through a pipe the test holds open, and standard output, standard
// error and the exit status collected; as another user (nobody) when the test runs as root.

#include <poll.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "tests/framework/TestProcesses.h"

#ifndef PIMRP_BINARY
#error "PIMRP_BINARY names the built pimrp"
#endif

namespace ToolTest {

// What one run of pimrp wrote, and how it ended.
struct PimrpResult {
  std::string out;
  std::string err;
  int status = -1;  // the exit status; -(signal) when a signal ended it
};

// One pimrp process. Its standard input is a pipe that stays open until closeInput(), so that a
// test can keep a writer running while other processes read its tables.
// Who runs pimrp: the test's own user, or nobody (TestProcesses::kOtherUser; the test must run as
// root).
enum class RunAs { testUser, otherUser };

class PimrpProcess {
 public:
  explicit PimrpProcess(const std::vector<std::string>& args, RunAs user = RunAs::testUser) {
    // A child that ended before reading its input must not end the test with it.
    signal(SIGPIPE, SIG_IGN);
    int in[2], out[2], err[2];
    if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      dup2(err[1], STDERR_FILENO);
      for (const int end : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(end);
      if (user == RunAs::otherUser && !TestProcesses::becomeOtherUser()) _exit(126);
      std::vector<char*> argv;
      std::string binary = PIMRP_BINARY;
      argv.push_back(binary.data());
      std::vector<std::string> copies = args;
      for (std::string& arg : copies) argv.push_back(arg.data());
      argv.push_back(nullptr);
      execv(binary.c_str(), argv.data());
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    input_ = in[1];
    output_ = out[0];
    errors_ = err[0];
  }
  ~PimrpProcess() {
    if (pid_ > 0 && !waited_) {
      kill(pid_, SIGKILL);
      wait();
    }
    for (const int end : {input_, output_, errors_}) {
      if (end >= 0) close(end);
    }
  }
  PimrpProcess(const PimrpProcess&) = delete;
  PimrpProcess& operator=(const PimrpProcess&) = delete;

  bool started() const { return pid_ > 0; }

  void write(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
      const ssize_t wrote = ::write(input_, text.data() + at, text.size() - at);
      if (wrote <= 0) return;
      at += static_cast<std::size_t>(wrote);
    }
  }
  void closeInput() {
    if (input_ >= 0) close(input_);
    input_ = -1;
  }

  // Reads standard output until it ends with `ending`; false when the output ended first, or
  // when nothing came for kPatienceMs (a process that answers otherwise would keep the test
  // waiting on it for ever).
  bool readOutputUntil(const std::string& ending) {
    return readUntil(output_, result_.out, ending);
  }
  // The same for standard error.
  bool readErrorsUntil(const std::string& ending) {
    return readUntil(errors_, result_.err, ending);
  }

  // Closes standard input, collects the rest of both outputs and waits for the end.
  PimrpResult wait() {
    closeInput();
    // Both at once: a child that fills one pipe while the other is read would wait forever.
    bool outputOpen = true;
    bool errorsOpen = true;
    while (outputOpen || errorsOpen) {
      pollfd ends[2] = {{outputOpen ? output_ : -1, POLLIN, 0},
                        {errorsOpen ? errors_ : -1, POLLIN, 0}};
      if (poll(ends, 2, -1) < 0 && errno != EINTR) break;
      if (outputOpen && ends[0].revents != 0) outputOpen = readSome(output_, result_.out);
      if (errorsOpen && ends[1].revents != 0) errorsOpen = readSome(errors_, result_.err);
    }
    int status = 0;
    if (waitpid(pid_, &status, 0) == pid_) {
      result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    waited_ = true;
    return result_;
  }

 private:
  static bool endsWith(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
  }
  static bool readUntil(int from, std::string& into, const std::string& ending) {
    while (!endsWith(into, ending)) {
      pollfd end = {from, POLLIN, 0};
      if (poll(&end, 1, kPatienceMs) <= 0) return false;
      if (!readSome(from, into)) return false;
    }
    return true;
  }
  static bool readSome(int from, std::string& into) {
    if (from < 0) return false;
    char buffer[4096];
    ssize_t got;
    do {
      got = read(from, buffer, sizeof buffer);
    } while (got < 0 && errno == EINTR);
    if (got <= 0) return false;
    into.append(buffer, static_cast<std::size_t>(got));
    return true;
  }

  static constexpr int kPatienceMs = 30000;

  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
  bool waited_ = false;
  PimrpResult result_;
};

// Runs pimrp with `args` and `input` on standard input, to its end.
inline PimrpResult runPimrp(const std::vector<std::string>& args, const std::string& input = "",
                            RunAs user = RunAs::testUser) {
  PimrpProcess process(args, user);
  process.write(input);
  return process.wait();
}

// Why a test cannot run pimrp as the other user ("" when it can): besides what acting as that user
// needs, the user must reach the binary, and a build under a directory closed to others (such as
// /root) is out of its reach.
inline std::string otherUserCannotRunPimrp() {
  const std::string why = TestProcesses::otherUserUnavailable();
  if (!why.empty()) return why;
  constexpr int kCannotBecome = 255;
  TestProcesses::ChildProcess probe = TestProcesses::ChildProcess::run([] {
    if (!TestProcesses::becomeOtherUser()) return kCannotBecome;
    return access(PIMRP_BINARY, X_OK) == 0 ? 0 : errno;
  });
  const int refusal = probe.wait();
  if (refusal == 0) return "";
  if (refusal == kCannotBecome) return "this test cannot become the other user (nobody)";
  return std::string("nobody cannot run " PIMRP_BINARY ": ") +
         (refusal > 0 ? std::strerror(refusal) : "the probe ended abnormally");
}

}  // namespace ToolTest
