// pimrp: runs RP configuration scripts against the library, wired as a routing agent wires it,
// and answers which RP serves a group.

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Kel/System.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "tools/DemoScript.h"
#include "tools/Interpreter.h"
#include "tools/LineEditor.h"
#include "tools/OptionRefusal.h"
#include "tools/Output.h"
#include "tools/Session.h"
#include "tools/SharedTables.h"
#include "tools/StatementError.h"
#include "tools/TraceOption.h"
#include "tools/WhatIf.h"

#ifndef PIMRP_VERSION
#error "PIMRP_VERSION comes from the build"
#endif

namespace {

using namespace PimrpTool;

struct Options {
  std::optional<std::string> script;  // none: the demo
  bool json = false;
  bool printDemoScript = false;
  std::vector<std::string> traces;
  std::optional<std::string> shm;         // tables in shared memory under this name
  std::optional<std::string> attach;      // another run's shared tables, read only
  bool unlink = false;                    // remove the shared tables of shm
  std::optional<std::string> shmMode;     // the permissions of the segments --shm creates
  std::optional<std::string> trustOwner;  // a user whose tables --attach trusts
  std::optional<std::string> check;       // a script to check, applying nothing
  std::optional<std::string> maxGroups;
  std::optional<std::string> whatIf;  // a change to report on, applied after the script
};

// The most a --max-groups may say: each known group costs the library about a kilobyte, so more
// than this would ask for terabytes.
constexpr std::uint64_t kMaxMaxGroups = 4294967295ull;

void defineOptions(CLI::App& app, Options& options) {
  // A flag given a value (--json=0) would quietly mean something else than the flag: refused.
  app.option_defaults()->disable_flag_override();
  app.add_option("script", options.script,
                 "script file to run; '-' reads statements from standard input one at a time; "
                 "none runs the built-in demo")
      ->type_name("FILE");
  app.add_flag("--json", options.json,
               "print each show answer as one JSON object on one line, and nothing else");
  app.add_flag("--demo-script", options.printDemoScript, "print the built-in demo script");
  app.add_option("--trace", options.traces,
                 "trace levels 0..LEVEL of trace file NAME (or 'all') to standard "
                 "error; repeatable")
      ->type_name("NAME=LEVEL")
      ->allow_extra_args(false);
  app.add_option("--shm", options.shm,
                 "keep the RP hash tables in shared memory as NAME.*, kept after the run")
      ->type_name("NAME");
  app.add_option("--attach", options.attach,
                 "read the shared tables NAME.* of another run, without writing")
      ->type_name("NAME");
  app.add_flag("--unlink", options.unlink,
               "with --shm NAME: remove the tables NAME.*, run nothing");
  app.add_option("--check", options.check,
                 "check the script FILE ('-': standard input) as a run would, with its errors "
                 "and warnings, applying nothing and printing no answer: exit 0 when good, 2 "
                 "when bad")
      ->type_name("FILE");
  app.add_option("--max-groups", options.maxGroups,
                 "the most known groups of one address family (default 4194304); a statement "
                 "that would pass it is refused")
      ->type_name("N");
  app.add_option("--what-if", options.whatIf,
                 "run FILE, then apply the script CHANGE ('-': standard input; it starts in vrf "
                 "default) and report, per VRF, which groups and ranges it moves from which RP to "
                 "which, and the allocation requests it causes; the scripts' shows print nothing, "
                 "and nothing is kept")
      ->type_name("CHANGE");
  app.add_option("--shm-mode", options.shmMode,
                 "with --shm: the permissions of the tables' shared-memory segments: 0600, "
                 "0640, 0604 or 0644 (the default)")
      ->type_name("MODE");
  app.add_option("--trust-owner", options.trustOwner,
                 "with --attach: read tables that USER (a name or a number) owns; tables of root "
                 "and of your own user are read without it")
      ->type_name("USER");
  app.set_version_flag("--version", std::string("pimrp ") + PIMRP_VERSION);
  app.footer(
      "Statements, one per line ('#' starts a comment):\n"
      "  vrf NAME   (what follows configures VRF NAME; before it, VRF default)\n"
      "  rp-address ADDR group PREFIX [priority N|none] [hashmask N|none] [override]\n"
      "  rp-address ADDR acl NAME [priority N|none] [hashmask N|none] [override]\n"
      "  rp-address ADDR mode sparse|bidir\n"
      "  no rp-address ADDR [group PREFIX | acl NAME]\n"
      "  acl NAME seq N permit|deny PREFIX|any\n"
      "  no acl NAME [seq N]\n"
      "  bsr-rp PREFIX ADDR priority N hashmask N mode sparse|bidir\n"
      "  no bsr-rp PREFIX ADDR\n"
      "  rp-hash-algorithm rfc7761|modulo\n"
      "  show rp GROUP [mode sparse|bidir] [join ADDR] [detail]\n"
      "  show rp mapping [ipv4|ipv6]\n"
      "  show candidates static|bsr\n"
      "  show acl NAME\n"
      "  group ADDR|PREFIX / no group ADDR|PREFIX   (at most 1048576 groups)\n"
      "  route PREFIX type N [via ADDR interface NAME] / route PREFIX local NAME\n"
      "  no route PREFIX\n"
      "  shadow ipv4|ipv6 attach|detach\n"
      "  attr-log clogged|clear\n"
      "  run [SECONDS]\n"
      "  clock manual|settle\n"
      "  show rp-hash final|static|bsr groups|prefixes mode sparse|bidir [ipv4|ipv6]\n"
      "  show rp-hash summary [ipv4|ipv6]   (known groups per RP, and their spread)\n"
      "  show local-rp\n"
      "  show group-filter GROUP\n"
      "  show alloc-requests\n"
      "  show review\n"
      "  show config   (the running configuration, as statements that rebuild it)\n"
      "Every show takes a last 'vrf NAME' to answer for that VRF instead of its section's;\n"
      "without it, show rp mapping and show config list every VRF. A VRF NAME holds letters,\n"
      "digits, '_' and '-', at most 100.\n"
      "\n"
      "Time is virtual; with 'clock settle' (the default) each show first runs the clock until\n"
      "nothing is pending, with 'clock manual' only 'run' moves it.\n"
      "\n"
      "A priority left out is 0, a hash mask 30 (IPv4) or 126 (IPv6); 'none' leaves the value\n"
      "unset, shown as '-'. A bootstrap (bsr-rp) RP beats a static one whatever their\n"
      "priorities, unless the static one has 'override'. The modulo rule ignores priority.\n"
      "'mode sparse|bidir' keeps each source's winner only if it is of that mode; it does not\n"
      "choose again among that mode's candidates. 'join ADDR' is the RP a received join named,\n"
      "the answer only when no source has one. The IPv6 hash uses the group's last 32 bits, so\n"
      "an IPv6 hash mask of 96 or less sends a whole range to one RP (other PIM implementations\n"
      "may differ). A line holds at most 4096 bytes; a script at most 64 MiB, and it is not\n"
      "read past its 100th error. Warnings (FILE:LINE: warning: ...) change nothing.\n"
      "\n"
      "Shared tables: --shm NAME keeps the 24 tables as NAME.FAMILY.MODE.SOURCE.KIND (ipv4|ipv6,\n"
      "sparse|bidir, static|bsr|final, groups|prefixes: NAME.ipv4.sparse.final.groups, ...),\n"
      "those of a VRF V other than default as NAME.vrf.V.FAMILY.MODE.SOURCE.KIND,\n"
      "each three files in /dev/shm: TABLE, TABLE.lock, TABLE.gN. NAME: letters, digits, '.',\n"
      "'_', '-', not first '.', at most 172 characters. A run over tables an earlier run left is\n"
      "a restart: the script's leading group statements are the groups still known; at its first\n"
      "other statement the reviews take up the per-source tables, and the configuration that\n"
      "follows reaches them; at the first show or run the merges take up the final tables, once\n"
      "the reviews have settled, dropping the final entries no longer backed, with their\n"
      "deallocation requests (--trace PimRpHashSm=5 shows it). The end of the input settles the\n"
      "clock (unless clock manual). One writer at a time, writing only tables of its own user,\n"
      "with the mode --shm-mode MODE gives (default 0644). --attach NAME reads the tables of a\n"
      "running or finished run (only show rp-hash), if root, you or --trust-owner USER owns\n"
      "them. --shm NAME --unlink removes them, those of every VRF included.\n"
      "\n"
      "Exit status: 0 all went well; 1 a statement on standard input was refused, or --unlink\n"
      "found no tables or could not remove all; 2 a bad script, option or input (nothing\n"
      "applied), shared tables that cannot be attached or are damaged; 3 internal error; 4\n"
      "standard output could not be written.");
}

// Set up before the library is wired, so that its construction is traced too.
bool applyTraceOptions(const std::vector<std::string>& traces) {
  try {
    std::vector<TraceRequest> requests;
    for (const auto& text : traces) requests.push_back(traceRequestFromText(text));
    for (const auto& request : requests) traceRequestApply(request);
  } catch (const TraceRequestError& error) {
    std::cerr << "pimrp: --trace: " << error.what() << '\n';
    return false;
  }
  if (!traces.empty()) traceSinkIs(std::cerr);
  return true;
}

// What --what-if cannot go with, as the message that refuses it; "" when nothing.
std::string whatIfOptionsRefusal(const Options& options) {
  if (!options.whatIf) return "";
  if (options.whatIf->empty()) {
    return "the script name after --what-if is empty: give the CHANGE script, or '-' for standard "
           "input";
  }
  if (options.shm || options.attach || options.unlink) {
    return "--what-if reports what CHANGE would move and keeps nothing: give it no --shm, "
           "--attach or --unlink";
  }
  if (options.check || options.printDemoScript) {
    return "--what-if runs FILE and then CHANGE: give it no --check or --demo-script";
  }
  if (!options.script) return "--what-if CHANGE needs the script FILE it changes";
  if (*options.whatIf == "-" && *options.script == "-") {
    return "--what-if reads CHANGE or FILE from standard input, not both";
  }
  return "";
}

// The options' own contradictions, as the message that refuses them; "" when there are none.
std::string optionsRefusal(const Options& options) {
  const std::string whatIfRefusal = whatIfOptionsRefusal(options);
  if (!whatIfRefusal.empty()) return whatIfRefusal;
  if (options.printDemoScript && options.script) {
    return "--demo-script prints the demo script and runs nothing: give it no FILE";
  }
  if (options.script && options.script->empty()) {
    return "the script name is empty: give a FILE, '-' for standard input, or nothing for the "
           "demo";
  }
  if (options.shm && options.attach) {
    return "--shm writes shared tables and --attach only reads them: give one of them";
  }
  if (options.unlink && !options.shm) return "--unlink needs --shm NAME: the tables to remove";
  if (options.unlink && (options.script || options.printDemoScript || options.json)) {
    return "--unlink removes the shared tables and runs nothing: give it no FILE, "
           "--demo-script or --json";
  }
  if (options.attach && !options.script) {
    return "--attach reads only, and the demo changes state: give a FILE or '-'";
  }
  if (options.check && options.script) {
    return "--check FILE checks that FILE: give no other FILE";
  }
  if (options.check && (options.shm || options.attach || options.unlink ||
                        options.printDemoScript || options.json)) {
    return "--check applies nothing and prints no answer: give it no --shm, --attach, --unlink, "
           "--demo-script or --json";
  }
  if (options.check && options.check->empty()) {
    return "the script name after --check is empty: give a FILE, or '-' for standard input";
  }
  if (options.shmMode && (!options.shm || options.unlink)) {
    return "--shm-mode sets the permissions of the tables a run with --shm creates: give it "
           "with --shm NAME, and not with --unlink";
  }
  if (options.trustOwner && !options.attach) {
    return "--trust-owner names whose tables --attach may read: a writer writes only tables of "
           "its own user";
  }
  mode_t mode = 0;
  const std::string badMode = options.shmMode ? tableModeRefusal(*options.shmMode, &mode) : "";
  if (!badMode.empty()) return "--shm-mode: " + badMode;
  uid_t user = 0;
  const std::string badUser = options.trustOwner ? userRefusal(*options.trustOwner, &user) : "";
  if (!badUser.empty()) return "--trust-owner: " + badUser;
  for (const auto* name : {&options.shm, &options.attach}) {
    if (!*name) continue;
    const std::string why = sharedNameRefusal(**name);
    if (!why.empty()) return (name == &options.shm ? "--shm: " : "--attach: ") + why;
  }
  return "";
}

// The bound on known groups that --max-groups gives, or the reason it is refused in `why`.
std::optional<std::uint64_t> maxGroupsOf(const Options& options, std::string& why) {
  if (!options.maxGroups) return kDefaultMaxGroups;
  const std::string& text = *options.maxGroups;
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
    why = "--max-groups: " + quoted(text) + " is not a number of groups";
    return std::nullopt;
  }
  std::uint64_t value = 0;
  for (const char digit : text) {
    value = value * 10 + static_cast<std::uint64_t>(digit - '0');
    if (value > kMaxMaxGroups) {
      why = "--max-groups: " + quoted(text) + " out of range 0.." + std::to_string(kMaxMaxGroups);
      return std::nullopt;
    }
  }
  return value;
}

// Removes the shared tables of `name`, listing each one removed and each segment that could not be.
int unlinkTables(const std::string& name) {
  const std::vector<TableRemoval> removals = sharedTablesUnlinkAll(name);
  if (removals.empty()) {
    std::cerr << "pimrp: no shared tables named '" << name << "' to remove\n";
    return kExitStatementFailed;
  }
  int status = kExitOk;
  for (const TableRemoval& removal : removals) {
    if (removal.report.complete()) std::cout << "removed " << removal.table << '\n';
    for (const std::string& failure : removal.report.failures) {
      std::cerr << "pimrp: cannot remove " << removal.table << ": segment " << failure << '\n';
      status = kExitStatementFailed;
    }
  }
  return status;
}

// REQUIRES: optionsRefusal(options) is "".
TableHome tableHomeOf(const Options& options) {
  TableHome home;
  if (options.shm) home = TableHome(TableHome::Kind::sharedWriter, *options.shm);
  if (options.attach) home = TableHome(TableHome::Kind::sharedReader, *options.attach);
  if (options.shmMode) tableModeRefusal(*options.shmMode, &home.options.mode);
  uid_t user = 0;
  if (options.trustOwner && userRefusal(*options.trustOwner, &user).empty()) {
    home.options.trustedOwner = user;
  }
  return home;
}

// The session, or null after reporting why its shared tables cannot be attached.
Session* sessionFor(const TableHome& home) {
  const std::string cannot = "pimrp: cannot attach the shared tables '" + home.name + "': ";
  try {
    return new Session(home);
  } catch (const Kel::RangeException& refusal) {
    std::cerr << cannot << refusal.what() << '\n';
  } catch (const Mirra::CorruptionDetectedException& damage) {
    std::cerr << cannot << damagedTableMessage(damage) << '\n';
  }
  return nullptr;
}

// Whether the shared tables of every VRF a script opens could be attached before it applies
// anything; reports why not.
bool vrfTablesAttached(Session& session, const std::set<std::string>& vrfs) {
  if (session.tableHome().kind != TableHome::Kind::sharedWriter) return true;
  try {
    session.vrfTablesAttach(vrfs);
  } catch (const TablesUnavailable& refusal) {
    std::cerr << "pimrp: " << refusal.what() << '\n';
    return false;
  }
  return true;
}

// The interpreter's status, after the end of the input has been given to the session (a bad
// script applied nothing and leaves everything as it was).
int finished(Session& session, int status) {
  if (status == kExitOk || status == kExitStatementFailed) session.finish();
  return status;
}

// Standard input as a stream of statements or a script; a directory there reads as nothing at
// all, which would look like an empty session.
bool standardInputReadable() {
  struct stat status;
  if (fstat(STDIN_FILENO, &status) != 0) {
    std::cerr << "pimrp: cannot read standard input: " << std::strerror(errno) << '\n';
    return false;
  }
  if (S_ISDIR(status.st_mode)) {
    std::cerr << "pimrp: cannot read standard input: " << std::strerror(EISDIR) << '\n';
    return false;
  }
  return true;
}

// Reads the script at `path` ('-': standard input, to its end) and checks it whole with
// `checking`, reporting whatever is wrong; its text when it is good.
std::optional<std::string> scriptChecked(const std::string& path, Validator& checking) {
  if (path == "-") {
    if (!standardInputReadable()) return std::nullopt;
    return scriptRead(
        path, [](std::string& line) { return lineFromStream(std::cin, line); }, checking,
        std::cerr);
  }
  const auto unreadable = [&path](int error) {
    std::cerr << "pimrp: cannot read " << quoted(path) << ": " << std::strerror(error) << '\n';
    return std::nullopt;
  };
  // A directory opens, and then reads as nothing.
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return unreadable(EISDIR);
  std::ifstream in(path, std::ios::binary);
  if (!in.is_open()) return unreadable(errno);
  auto text = scriptRead(
      path, [&in](std::string& line) { return lineFromStream(in, line); }, checking, std::cerr);
  if (in.bad()) return unreadable(errno);
  return text;
}

// Checks the script as a run would and applies it to a private copy of the library in process
// memory, configuration only, so that the warnings that depend on what came before are those of a
// run; nothing is written anywhere and no answer is printed.
int checkScript(const std::string& path, std::uint64_t maxGroups) {
  Validator checking("", maxGroups);
  const auto text = scriptChecked(path, checking);
  if (!text) return kExitBadScript;
  // Held to the end of the process, as a run's session is (see run()).
  static Session* const session = new Session();
  // Shows are left out of the configuration: nothing is ever printed through this output.
  const auto output = humanOutputFactory(std::cout);
  Interpreter interpreter(*session, *output, std::cerr, maxGroups);
  return interpreter.applyScript(path, *text, std::move(checking), ApplyScope::configuration);
}

// Reports what the change would move after the script; both are read and checked whole before
// anything is applied, the change judged as it would be after the script.
int whatIf(const std::string& changePath, const std::string& scriptPath, bool json,
           std::uint64_t maxGroups) {
  Validator scriptChecking("", maxGroups);
  auto script = scriptChecked(scriptPath, scriptChecking);
  if (!script) return kExitBadScript;
  Validator changeChecking = scriptChecking;
  changeChecking.sectionDefaultIs();
  auto change = scriptChecked(changePath, changeChecking);
  if (!change) return kExitBadScript;
  // Held to the end of the process, as a run's session is (see run()).
  static Session* const session = new Session();
  const auto output = json ? jsonOutputFactory(std::cout) : humanOutputFactory(std::cout);
  return whatIfRun(*session, {scriptPath, std::move(*script), std::move(scriptChecking)},
                   {changePath, std::move(*change), std::move(changeChecking)}, *output, std::cerr,
                   maxGroups);
}

int run(const Options& options) {
  if (options.printDemoScript) {
    std::cout << demoScript();
    return kExitOk;
  }
  if (options.unlink) return unlinkTables(*options.shm);
  // Virtual time from zero: a script replays the same way every time, and later statements can
  // move the clock.
  Kel::System::virtualTimeIs(0.0);
  if (!applyTraceOptions(options.traces)) return kExitBadScript;
  std::string why;
  const auto maxGroups = maxGroupsOf(options, why);
  if (!maxGroups) {
    std::cerr << "pimrp: " << why << '\n';
    return kExitBadScript;
  }
  if (options.check) return checkScript(*options.check, *maxGroups);
  if (options.whatIf) return whatIf(*options.whatIf, *options.script, options.json, *maxGroups);
  // A script that cannot be read, or a bad one, creates no shared table: it is read and checked
  // whole before they are attached.
  const TableHome home = tableHomeOf(options);
  Validator checking = Validator::forTables(home, *maxGroups);
  std::optional<std::string> text;
  if (options.script && *options.script != "-") {
    text = scriptChecked(*options.script, checking);
    if (!text) return kExitBadScript;
  }
  if (options.script && *options.script == "-" && !standardInputReadable()) return kExitBadScript;
  // The wired library stays until the process ends: taking a large configuration apart object by
  // object costs nearly as much as building it, for nothing that the end of the process does not
  // do at once. Held from a static, it is still reachable for leak checkers.
  static Session* const session = sessionFor(home);
  if (session == nullptr) return kExitBadScript;
  if (text && !vrfTablesAttached(*session, checking.vrfsOpened())) return kExitBadScript;
  const auto output = options.json ? jsonOutputFactory(std::cout) : humanOutputFactory(std::cout);
  Interpreter interpreter(*session, *output, std::cerr, *maxGroups);
  if (!options.script) return finished(*session, interpreter.runScript("demo", demoScript()));
  if (text) {
    return finished(*session, interpreter.applyScript(*options.script, *text, std::move(checking)));
  }
  const auto flush = [] { return static_cast<bool>(std::cout.flush()); };
  if (isatty(STDIN_FILENO) == 0) {
    return finished(
        *session,
        interpreter.runStream(
            "-", [](std::string& line) { return lineFromStream(std::cin, line); }, flush));
  }
  // At a terminal: line editing and history, the prompt on standard error.
  LineEditor editor("pimrp");
  const int status = interpreter.runStream(
      "-", [&editor](std::string& line) { return editor.lineNext(line); }, flush);
  // End of input leaves the cursor after the last prompt; the shell's prompt belongs below it.
  std::cerr << '\n';
  return finished(*session, status);
}

// Everything written to standard output must have reached it; a full disk or a closed pipe is
// a failure of the run, not a success without answers.
int withOutputChecked(int status) {
  if (std::cout.flush() && std::fflush(stdout) == 0) return status;
  std::cerr << "pimrp: cannot write standard output: " << std::strerror(errno) << '\n';
  return kExitOutputFailed;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("pimrp: which PIM Rendezvous Point serves each multicast group", "pimrp");
  Options options;
  defineOptions(app, options);
  // The parser's own words are a programmer's; the operator is told which option is wrong. Its
  // account also refuses what the parser lets through: an option's value that names an option.
  const std::string lineRefusal =
      optionRefusal(app, std::vector<std::string>(argv + 1, argv + argc));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return withOutputChecked((app.exit(error), kExitOk));
    std::cerr << "pimrp: "
              << (lineRefusal.empty() ? "the command line cannot be read" : lineRefusal)
              << " (see pimrp --help)\n";
    return kExitBadScript;
  }
  if (!lineRefusal.empty()) {
    std::cerr << "pimrp: " << lineRefusal << " (see pimrp --help)\n";
    return kExitBadScript;
  }
  const std::string refusal = optionsRefusal(options);
  if (!refusal.empty()) {
    std::cerr << "pimrp: " << refusal << '\n';
    return kExitBadScript;
  }
  try {
    return withOutputChecked(run(options));
  } catch (const Mirra::CorruptionDetectedException& damage) {
    std::cerr << "pimrp: " << damagedTableMessage(damage) << '\n';
    return kExitBadScript;
  } catch (const std::exception& failure) {
    std::cerr << "pimrp: internal error: " << failure.what() << '\n';
    return kExitInternal;
  }
}
