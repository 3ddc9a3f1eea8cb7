// rp_agent: a small PIM agent's RP part on a real event loop. It assembles the library for the
// VRF "default" with its RP hash tables in shared memory, feeds it static RPs, bootstrap
// candidates and known groups read from standard input, and prints every change of the final
// tables as a reactor on them sees it. Time is the system clock: the event loop waits in poll()
// for input, a signal or the clock's next wake-up, whichever comes first.
//
//   rp_agent TABLES [--exit-when-settled] < INPUT
//
// Input lines ('#' starts a comment):
//   static RP RANGE priority N hashmask N           a static RP bound to a group range
//   bsr RANGE RP priority N hashmask N sparse|bidir  a candidate the bootstrap mechanism learnt
//   group GROUP                                      a group the router knows
//   ask GROUP                                        prints the RP of GROUP in sparse mode now
//
// Once its input has ended and no wake-up is pending it prints "settled"; it then exits with
// --exit-when-settled, else waits for SIGTERM or SIGINT and prints "stopped". Its tables stay in
// shared memory as TABLES.ipv4.sparse.final.groups and so on, for rp_reader and for its next run.
// docs/embedding.md walks through this program.

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "framework/Kel/Clock.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/System.h"
#include "pipeline/VrfPipeline.h"

namespace {

using PimrpPipeline::HashKind;
using PimrpPipeline::HashSource;
using PimrpPipeline::TableHome;
using PimrpPipeline::VrfPipeline;
using namespace Routing::Pim;

const char* modeName(Mode mode) { return mode == modePimBidir ? "bidir" : "sparse"; }

// [guide:final-table-reactor]
// Prints each change of one final table: the entry now held, or that the key has none.
class FinalTablePrinter : public RpHashStatus::NotifieeConst {
 public:
  FinalTablePrinter(const Kel::Ptr<RpHashStatus>& table, std::string name)
      : name_(std::move(name)) {
    notifierIs(table);
  }

  void onRpHash(const Ipkit::IpGenPrefix& key) override {
    // A key that has gone reads as the default entry.
    const RpHash entry = notifier()->rpHash(key);
    std::cout << name_ << ' ' << key << ": ";
    if (entry == RpHash()) {
      std::cout << "gone\n";
    } else if (entry.address() == Ipkit::IpGenAddr()) {
      std::cout << "no RP\n";
    } else {
      std::cout << entry.address() << " priority " << entry.priority() << ' '
                << modeName(entry.mode()) << '\n';
    }
    std::cout.flush();
  }

 private:
  const std::string name_;
};
// [/guide:final-table-reactor]

// Priorities are 8 bits; a hash mask is at most an address long.
bool valuesInRange(unsigned priority, unsigned hashMask) {
  return priority <= 255 && hashMask <= 128;
}

// One input line, written to the pipeline's inputs; false when it cannot be read.
bool inputApply(VrfPipeline& pipeline, const std::string& line) {
  std::istringstream words(line.substr(0, line.find('#')));
  std::string kind;
  if (!(words >> kind)) return true;
  try {
    if (kind == "static") {
      std::string rp, range, priorityWord, hashMaskWord;
      unsigned priority = 0, hashMask = 0;
      if (!(words >> rp >> range >> priorityWord >> priority >> hashMaskWord >> hashMask) ||
          !valuesInRange(priority, hashMask)) {
        return false;
      }
      // [guide:static-rp]
      const Ipkit::IpGenAddr address(rp);
      const Ipkit::IpGenPrefix group(range);
      const auto entry = pipeline.family(address.af()).staticConfig()->rpTableIs(address);
      // The values first: the static candidate reactor finds them in place when the binding comes.
      entry->priorityGrpIs(group, static_cast<RpPriority>(priority));
      entry->hashMaskGrpIs(group, static_cast<RpHashMaskLen>(hashMask));
      entry->groupIs(group, true);
      // [/guide:static-rp]
      return true;
    }
    if (kind == "bsr") {
      std::string range, rp, priorityWord, hashMaskWord, modeWord;
      unsigned priority = 0, hashMask = 0;
      if (!(words >> range >> rp >> priorityWord >> priority >> hashMaskWord >> hashMask >>
            modeWord) ||
          !valuesInRange(priority, hashMask)) {
        return false;
      }
      const Mode mode = modeWord == "bidir" ? modePimBidir : modePimSm;
      // [guide:bsr-candidate]
      const Ipkit::IpGenAddr address(rp);
      const auto set =
          pipeline.family(address.af()).bsrStatus()->crpSetIs(Ipkit::IpGenPrefix(range));
      const auto candidate = set->rpIs(address);
      candidate->setupTimeIs(Kel::System::currentTime());
      candidate->priorityIs(static_cast<RpPriority>(priority));
      candidate->hashMaskLenIs(static_cast<RpHashMaskLen>(hashMask));
      candidate->overrideIs(false);
      // The mode last: selection passes over a candidate without one.
      candidate->pimModeIs(mode);
      // [/guide:bsr-candidate]
      return true;
    }
    if (kind == "ask") {
      std::string group;
      if (!(words >> group)) return false;
      // [guide:ask]
      // The answer service: the final table's entry for a known group, else computed at once from
      // both sources' candidates. No join address to fall back on here.
      const Ipkit::IpGenAddr address(group);
      const Ipkit::IpGenAddr rp = pipeline.family(address.af())
                                      .compute(modePimSm)
                                      ->rpHashCompute(address, Ipkit::IpGenAddr());
      // [/guide:ask]
      std::cout << "ask " << address << " sparse: ";
      if (rp == Ipkit::IpGenAddr()) {
        std::cout << "none" << std::endl;
      } else {
        std::cout << rp << std::endl;
      }
      return true;
    }
    if (kind == "group") {
      std::string group;
      if (!(words >> group)) return false;
      // [guide:known-group]
      const Ipkit::IpGenAddr address(group);
      pipeline.family(address.af()).groups()->groupIs(address, true);
      // [/guide:known-group]
      return true;
    }
  } catch (const Kel::Exception&) {
    // An address or a range that does not parse.
  }
  return false;
}

// [guide:poll-timeout]
// How long poll() may wait: until the clock's next wake-up, or for ever when none is pending.
int pollTimeout(const Kel::Clock& clock) {
  const double next = clock.nextWakeup();
  if (next == Kel::Clock::kNever) return -1;
  const double wait = next - Kel::System::currentTime();
  return wait <= 0 ? 0 : static_cast<int>(std::ceil(wait * 1000));
}
// [/guide:poll-timeout]

// Standard input, read as it comes: its complete lines, then, at its end, the last one.
class InputLines {
 public:
  // Reads what is there; false at the end of the input.
  bool readInto(std::vector<std::string>& lines) {
    char buffer[4096];
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (count > 0) pending_.append(buffer, static_cast<std::size_t>(count));
    for (std::size_t end; (end = pending_.find('\n')) != std::string::npos;) {
      lines.push_back(pending_.substr(0, end));
      pending_.erase(0, end + 1);
    }
    if (count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN))) return true;
    if (!pending_.empty()) lines.push_back(pending_);
    pending_.clear();
    return false;
  }

 private:
  std::string pending_;
};

// A file descriptor that becomes readable when SIGTERM or SIGINT arrives.
int signalDescriptor() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, 0);
}

int run(const std::string& tables, bool exitWhenSettled) {
  const int signals = signalDescriptor();
  if (signals < 0) {
    std::perror("rp_agent: signalfd");
    return 1;
  }
  // [guide:host]
  // The agent's own: the clock its event loop runs (Kel::System reads the system clock unless
  // told to use virtual time) and the attribute log, lent to the pipeline of every VRF.
  const VrfPipeline::Host host{Kel::Ptr<Kel::Clock>(new Kel::Clock),
                               Kel::Ptr<PimAttrLogSm>(new PimAttrLogSm)};
  // [/guide:host]
  // [guide:pipeline]
  VrfPipeline pipeline(L3::VrfName("default"), host,
                       TableHome(TableHome::Kind::sharedWriter, tables));
  // Nothing to put back: this agent starts afresh, and its reactors run from here on.
  pipeline.start();
  // [/guide:pipeline]
  // [guide:watch-final-tables]
  std::vector<Kel::Ptr<FinalTablePrinter>> printers;
  for (const auto af : {Ipkit::AddressFamily::ipv4, Ipkit::AddressFamily::ipv6}) {
    for (const Mode mode : {modePimSm, modePimBidir}) {
      for (const HashKind kind : {HashKind::prefixes, HashKind::groups}) {
        const std::string name = std::string("final ") + modeName(mode) +
                                 (kind == HashKind::groups ? " groups" : " prefixes");
        printers.emplace_back(
            new FinalTablePrinter(pipeline.family(af).table(HashSource::final, kind, mode), name));
      }
    }
  }
  // [/guide:watch-final-tables]
  InputLines input;
  bool inputOpen = true;
  bool settled = false;
  std::size_t lineNumber = 0;
  // [guide:event-loop]
  for (;;) {
    pollfd watched[] = {{signals, POLLIN, 0}, {inputOpen ? STDIN_FILENO : -1, POLLIN, 0}};
    if (poll(watched, 2, pollTimeout(*host.clock)) < 0 && errno != EINTR) return 1;
    if (watched[0].revents != 0) break;
    if (watched[1].revents != 0) {
      std::vector<std::string> lines;
      inputOpen = input.readInto(lines);
      for (const std::string& line : lines) {
        ++lineNumber;
        if (!inputApply(pipeline, line)) std::cerr << "input:" << lineNumber << ": cannot read\n";
      }
    }
    // The reviews' slices and the group filters' start-up review run from here.
    host.clock->runDue();
    if (!inputOpen && host.clock->pendingWakeups() == 0 && !settled) {
      settled = true;
      std::cout << "settled" << std::endl;
      if (exitWhenSettled) return 0;
    }
  }
  // [/guide:event-loop]
  std::cout << "stopped" << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const bool exitWhenSettled = args.size() == 2 && args[1] == "--exit-when-settled";
  if (args.empty() || args.size() > 2 || (args.size() == 2 && !exitWhenSettled)) {
    std::cerr << "usage: rp_agent TABLES [--exit-when-settled] < INPUT\n";
    return 2;
  }
  try {
    return run(args[0], exitWhenSettled);
  } catch (const std::exception& failure) {
    // Tables that cannot be attached: another writer has them, or they belong to another user.
    std::cerr << "rp_agent: " << failure.what() << '\n';
    return 1;
  }
}
