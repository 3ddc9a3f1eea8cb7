// pimrp over shared tables, run as separate processes: a run that keeps its tables, the next run
// that takes them up as a restarted agent does, readers attached while the writer runs and after
// it has gone, and the refusals around them.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/tools/PimrpProcess.h"
#include "tests/tools/ToolTestSupport.h"
#include "tools/SharedTables.h"

namespace {

using ToolTest::PimrpProcess;
using ToolTest::PimrpResult;
using ToolTest::runPimrp;

// Each test owns its tables (see SharedTablesGuard); its scripts go to a directory of its own.
class PimrpShm : public ::testing::Test {
 protected:
  void SetUp() override {
    char directory[] = "/tmp/pimrp-shm-test-XXXXXX";
    ASSERT_NE(mkdtemp(directory), nullptr);
    directory_ = directory;
  }
  void TearDown() override {
    for (const std::string& path : scripts_) std::remove(path.c_str());
    if (!directory_.empty()) rmdir(directory_.c_str());
  }

  // A script file holding `text`; its path.
  std::string script(const std::string& file, const std::string& text) {
    const std::string path = directory_ + "/" + file;
    std::ofstream(path) << text;
    scripts_.push_back(path);
    return path;
  }

  // The segments of this test's tables under /dev/shm, sorted.
  std::vector<std::string> segments() const {
    std::vector<std::string> found;
    DIR* directory = opendir("/dev/shm");
    if (directory == nullptr) return found;
    while (const dirent* entry = readdir(directory)) {
      const std::string segment = entry->d_name;
      if (segment.compare(0, name_.size() + 1, name_ + ".") == 0) found.push_back(segment);
    }
    closedir(directory);
    std::sort(found.begin(), found.end());
    return found;
  }

  // Flips the bits of byte `offset` of a segment, as a stray write would.
  static bool flipByte(const std::string& segment, std::size_t offset) {
    const int fd = open(("/dev/shm/" + segment).c_str(), O_RDWR);
    unsigned char byte = 0;
    bool flipped = fd >= 0 && pread(fd, &byte, 1, static_cast<off_t>(offset)) == 1;
    byte ^= 0xff;
    flipped = flipped && pwrite(fd, &byte, 1, static_cast<off_t>(offset)) == 1;
    if (fd >= 0) close(fd);
    return flipped;
  }

  const ToolTest::SharedTablesGuard tables_;
  const std::string name_ = tables_.name();
  std::string directory_;
  std::vector<std::string> scripts_;
};

// Run 1 knows four groups and three RPs: two static ranges and a bootstrap range.
const char kRunOne[] =
    "rp-address 10.0.0.1 group 239.0.0.0/8\n"
    "rp-address 10.0.0.2 group 239.1.0.0/16\n"
    "bsr-rp 239.2.0.0/16 10.0.0.9 priority 0 hashmask 30 mode sparse\n"
    "group 239.1.1.1\n"
    "group 239.2.2.2\n"
    "group 239.3.3.3\n"
    "group 239.4.4.4\n"
    "show rp-hash final groups mode sparse\n"
    "show alloc-requests\n";

// Run 2 restarts knowing three of the groups (239.4.4.4 has gone), and 10.0.0.2 is no longer
// configured.
const char kRunTwo[] =
    "group 239.1.1.1\n"
    "group 239.2.2.2\n"
    "group 239.3.3.3\n"
    "rp-address 10.0.0.1 group 239.0.0.0/8\n"
    "bsr-rp 239.2.0.0/16 10.0.0.9 priority 0 hashmask 30 mode sparse\n"
    "show rp-hash final groups mode sparse\n"
    "show rp-hash final groups mode bidir\n"
    "show alloc-requests\n";

TEST_F(PimrpShm, RunOne_TablesKeptAfterTheRun) {
  const PimrpResult run = runPimrp({"--shm", name_, script("one.pimrp", kRunOne)});
  // 239.1.1.1 is in 10.0.0.2's longer range; the bootstrap RP beats the static one for
  // 239.2.2.2. The merges take up the final tables only once the reviews have settled, so the
  // static review's first answer for 239.2.2.2 (10.0.0.1) never reaches the final table: one
  // allocation per group entry, and the final prefix table adds one for each range.
  EXPECT_EQ(run.out,
            "rp-hash final groups mode sparse\n"
            "  prefix        rp        priority  hashmask  override  mode\n"
            "  239.1.1.1/32  10.0.0.2  0         30        no        sparse\n"
            "  239.2.2.2/32  10.0.0.9  0         30        no        sparse\n"
            "  239.3.3.3/32  10.0.0.1  0         30        no        sparse\n"
            "  239.4.4.4/32  10.0.0.1  0         30        no        sparse\n"
            "\n"
            "alloc requests 7, dealloc requests 0\n"
            "  rp        alloc  dealloc\n"
            "  10.0.0.1  3      0\n"
            "  10.0.0.2  2      0\n"
            "  10.0.0.9  2      0\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
  std::vector<std::string> expected;
  for (const std::string& table : PimrpTool::sharedTableNames(name_)) {
    expected.push_back(table);
    expected.push_back(table + ".g1");
    expected.push_back(table + ".lock");
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(segments(), expected);
}

TEST_F(PimrpShm, Restart_FinalTablesHoldRunTwoConfiguration) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", kRunOne)}).status, 0);
  const PimrpResult run = runPimrp({"--shm", name_, script("two.pimrp", kRunTwo)});
  // 239.4.4.4 left: its final entry goes with a release of 10.0.0.1. 10.0.0.2 left: 239.1.1.1
  // moves to 10.0.0.1 (release 10.0.0.2, allocate 10.0.0.1). Everything else is as run 1 left it
  // and asks for nothing.
  EXPECT_EQ(run.out,
            "rp-hash final groups mode sparse\n"
            "  prefix        rp        priority  hashmask  override  mode\n"
            "  239.1.1.1/32  10.0.0.1  0         30        no        sparse\n"
            "  239.2.2.2/32  10.0.0.9  0         30        no        sparse\n"
            "  239.3.3.3/32  10.0.0.1  0         30        no        sparse\n"
            "\n"
            "rp-hash final groups mode bidir: none\n"
            "\n"
            "alloc requests 1, dealloc requests 2\n"
            "  rp        alloc  dealloc\n"
            "  10.0.0.1  1      1\n"
            "  10.0.0.2  0      1\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
}

TEST_F(PimrpShm, Restart_StartUpPassesTraced) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", kRunOne)}).status, 0);
  const PimrpResult run =
      runPimrp({"--shm", name_, "--trace", "PimRpHashSm=5", script("two.pimrp", kRunTwo)});
  ASSERT_EQ(run.status, 0);
  std::vector<std::string> removals;
  std::vector<std::string> attaches;
  std::istringstream lines(run.err);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("doRemoveExtraRpHashGroups") != std::string::npos) removals.push_back(line);
    if (line.rfind("[Debug 0] MirraMap::attach() " + name_ + ".", 0) == 0) attaches.push_back(line);
  }
  // The four reviews of IPv4 (static, bsr; sparse, bidir) drop the group's own entries, the
  // sparse merge its final entry; the bidir merge never held one.
  const std::string removal =
      "[PimRpHashSm 5] doRemoveExtraRpHashGroups: Deleting group 239.4.4.4/32";
  EXPECT_EQ(removals, std::vector<std::string>(5, removal));
  ASSERT_EQ(attaches.size(), 24u);
  EXPECT_EQ(attaches[0].rfind("[Debug 0] MirraMap::attach() " + name_ +
                                  ".ipv4.sparse.static.groups as writer members:4 slots:",
                              0),
            0u)
      << attaches[0];
}

TEST_F(PimrpShm, Restart_PrefixEntryOfRangeGoneMeanwhile_Stays) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", kRunOne)}).status, 0);
  const PimrpResult run = runPimrp(
      {"--shm", name_,
       script("two.pimrp", std::string(kRunTwo) + "show rp-hash final prefixes mode sparse\n")});
  // The start-up passes reconcile the per-group tables and the final tables with their inputs;
  // a range's own entry leaves only when its candidates leave while a reactor watches, so
  // 10.0.0.2's range stays in the prefix tables.
  const std::string prefixes =
      "rp-hash final prefixes mode sparse\n"
      "  prefix        rp        priority  hashmask  override  mode\n"
      "  239.0.0.0/8   10.0.0.1  0         30        no        sparse\n"
      "  239.1.0.0/16  10.0.0.2  0         30        no        sparse\n"
      "  239.2.0.0/16  10.0.0.9  0         30        no        sparse\n";
  ASSERT_GE(run.out.size(), prefixes.size());
  EXPECT_EQ(run.out.substr(run.out.size() - prefixes.size()), prefixes);
}

// A writer that keeps running: its script comes through a pipe the test holds open.
const char kWriterScript[] =
    "rp-address 10.0.0.1 group 239.0.0.0/8\n"
    "bsr-rp ff0e::/16 2001:db8::9 priority 0 hashmask 126 mode sparse\n"
    "group 239.1.1.1\n"
    "group ff0e::1\n"
    "show rp-hash final groups mode sparse\n";
const char kWriterAnswer[] =
    "rp-hash final groups mode sparse\n"
    "  prefix        rp           priority  hashmask  override  mode\n"
    "  239.1.1.1/32  10.0.0.1     0         30        no        sparse\n"
    "  ff0e::1/128   2001:db8::9  0         126       no        sparse\n";

const char kReaderScript[] =
    "show rp-hash final groups mode sparse ipv6\n"
    "show rp-hash bsr prefixes mode sparse\n"
    "show rp-hash static groups mode bidir ipv4\n";
const char kReaderAnswer[] =
    "rp-hash final groups mode sparse ipv6\n"
    "  prefix       rp           priority  hashmask  override  mode\n"
    "  ff0e::1/128  2001:db8::9  0         126       no        sparse\n"
    "\n"
    "rp-hash bsr prefixes mode sparse\n"
    "  prefix     rp           priority  hashmask  override  mode\n"
    "  ff0e::/16  2001:db8::9  0         126       no        sparse\n"
    "\n"
    "rp-hash static groups mode bidir ipv4\n"
    "  prefix        rp  priority  hashmask  override  mode\n"
    "  239.1.1.1/32  -   -         -         no        bidir\n";
const char kReaderJson[] =
    "{\"table\":\"final\",\"kind\":\"groups\",\"mode\":\"sparse\",\"family\":\"ipv6\","
    "\"entries\":[{\"prefix\":\"ff0e::1/128\",\"address\":\"2001:db8::9\",\"priority\":0,"
    "\"hashMaskLen\":126,\"override\":false,\"mode\":\"sparse\"}]}\n"
    "{\"table\":\"bsr\",\"kind\":\"prefixes\",\"mode\":\"sparse\",\"family\":\"any\","
    "\"entries\":[{\"prefix\":\"ff0e::/16\",\"address\":\"2001:db8::9\",\"priority\":0,"
    "\"hashMaskLen\":126,\"override\":false,\"mode\":\"sparse\"}]}\n"
    "{\"table\":\"static\",\"kind\":\"groups\",\"mode\":\"bidir\",\"family\":\"ipv4\","
    "\"entries\":[{\"prefix\":\"239.1.1.1/32\",\"address\":null,\"priority\":256,"
    "\"hashMaskLen\":128,\"override\":false,\"mode\":\"bidir\"}]}\n";

TEST_F(PimrpShm, Attach_WhileWriterRunsAndAfterItHasGone) {
  const std::string reader = script("reader.pimrp", kReaderScript);
  PimrpProcess writer({"--shm", name_, "-"});
  ASSERT_TRUE(writer.started());
  writer.write(kWriterScript);
  ASSERT_TRUE(writer.readOutputUntil(kWriterAnswer));
  const PimrpResult whileRunning = runPimrp({"--attach", name_, reader});
  EXPECT_EQ(whileRunning.out, kReaderAnswer);
  EXPECT_EQ(whileRunning.err, "");
  EXPECT_EQ(whileRunning.status, 0);
  const PimrpResult json = runPimrp({"--attach", name_, "--json", reader});
  EXPECT_EQ(json.out, kReaderJson);
  EXPECT_EQ(json.status, 0);
  const PimrpResult writerEnd = writer.wait();
  EXPECT_EQ(writerEnd.out, kWriterAnswer);
  EXPECT_EQ(writerEnd.err, "");
  EXPECT_EQ(writerEnd.status, 0);
  const PimrpResult afterwards = runPimrp({"--attach", name_, reader});
  EXPECT_EQ(afterwards.out, kReaderAnswer);
  EXPECT_EQ(afterwards.err, "");
  EXPECT_EQ(afterwards.status, 0);
}

TEST_F(PimrpShm, Attach_WhileWriterRuns_SeesItsLaterWrites) {
  PimrpProcess writer({"--shm", name_, "-"});
  ASSERT_TRUE(writer.started());
  writer.write(kWriterScript);
  ASSERT_TRUE(writer.readOutputUntil(kWriterAnswer));
  const std::string reader = script("reader.pimrp", "show rp-hash final groups mode sparse ipv4\n");
  writer.write("group 239.2.2.2\nshow rp-hash final groups mode sparse ipv4\n");
  ASSERT_TRUE(
      writer.readOutputUntil("  239.2.2.2/32  10.0.0.1  0         30        no        sparse\n"));
  const PimrpResult read = runPimrp({"--attach", name_, reader});
  EXPECT_EQ(read.out,
            "rp-hash final groups mode sparse ipv4\n"
            "  prefix        rp        priority  hashmask  override  mode\n"
            "  239.1.1.1/32  10.0.0.1  0         30        no        sparse\n"
            "  239.2.2.2/32  10.0.0.1  0         30        no        sparse\n");
  EXPECT_EQ(read.status, 0);
  EXPECT_EQ(writer.wait().status, 0);
}

TEST_F(PimrpShm, Attach_WhileWriterRuns_SeesEachStatementSettledWithoutAShow) {
  PimrpProcess writer({"--shm", name_, "-"});
  ASSERT_TRUE(writer.started());
  writer.write(kWriterScript);
  ASSERT_TRUE(writer.readOutputUntil(kWriterAnswer));
  // No show follows the group: the settle after each statement is what reviews it. The warning
  // of the next statement says that the writer has applied both.
  writer.write(
      "group 239.3.3.3\n"
      "rp-address 10.0.0.7 group 238.0.0.0/8 priority none\n");
  ASSERT_TRUE(writer.readErrorsUntil(
      "-:7: warning: RP 10.0.0.7 for 238.0.0.0/8: 'priority none' leaves the priority not set; "
      "the per-range RP hash tables get no entry from this candidate until it is set\n"));
  const PimrpResult read = runPimrp({"--attach", name_, "-"},
                                    "show rp-hash final groups mode sparse ipv4\n"
                                    "show rp-hash static prefixes mode sparse ipv4\n");
  EXPECT_EQ(read.out,
            "rp-hash final groups mode sparse ipv4\n"
            "  prefix        rp        priority  hashmask  override  mode\n"
            "  239.1.1.1/32  10.0.0.1  0         30        no        sparse\n"
            "  239.3.3.3/32  10.0.0.1  0         30        no        sparse\n"
            "\n"
            "rp-hash static prefixes mode sparse ipv4\n"
            "  prefix       rp        priority  hashmask  override  mode\n"
            "  239.0.0.0/8  10.0.0.1  0         30        no        sparse\n");
  EXPECT_EQ(read.status, 0);
  EXPECT_EQ(writer.wait().status, 0);
}

TEST_F(PimrpShm, Attach_WriterInManualClock_TablesWaitForTheClock) {
  PimrpProcess writer({"--shm", name_, "-"});
  ASSERT_TRUE(writer.started());
  writer.write(kWriterScript);
  ASSERT_TRUE(writer.readOutputUntil(kWriterAnswer));
  writer.write(
      "clock manual\n"
      "group 239.3.3.3\n"
      "rp-address 10.0.0.7 group 238.0.0.0/8 priority none\n");
  ASSERT_TRUE(
      writer.readErrorsUntil("-:8: warning: RP 10.0.0.7 for 238.0.0.0/8: 'priority none' "
                             "leaves the priority not set; the per-range RP hash tables "
                             "get no entry from this candidate until it is set\n"));
  const PimrpResult read =
      runPimrp({"--attach", name_, "-"}, "show rp-hash final groups mode sparse ipv4\n");
  EXPECT_EQ(read.out,
            "rp-hash final groups mode sparse ipv4\n"
            "  prefix        rp        priority  hashmask  override  mode\n"
            "  239.1.1.1/32  10.0.0.1  0         30        no        sparse\n");
  writer.write("run\n");
  writer.closeInput();
  EXPECT_EQ(writer.wait().status, 0);
}

// Every statement but show rp-hash, as a script (nothing applied, status 2) and as a stream
// (each refused and skipped, status 1); the tables stay as the writer left them.
const char kRefusedScript[] =
    "show rp-hash final groups mode sparse ipv4\n"
    "rp-address 10.0.0.2 group 239.0.0.0/8\n"
    "no rp-address 10.0.0.1\n"
    "bsr-rp 239.0.0.0/8 10.0.0.3 priority 0 hashmask 30 mode sparse\n"
    "group 239.5.5.5\n"
    "no group 239.1.1.1\n"
    "run 5\n"
    "clock manual\n"
    "show rp 239.1.1.1\n"
    "show alloc-requests\n"
    "show review\n";

std::string refusalsIn(const std::string& source, const std::string& name) {
  const std::string changes =
      " would change state, and this is a read-only attachment to the shared tables '" + name +
      "'\n";
  const std::string unavailable =
      " is not available in a read-only attachment to the shared tables '" + name +
      "': it needs the writer's own state; only 'show rp-hash' reads the tables\n";
  return source + ":2: error: 'rp-address'" + changes + source + ":3: error: 'no rp-address'" +
         changes + source + ":4: error: 'bsr-rp'" + changes + source + ":5: error: 'group'" +
         changes + source + ":6: error: 'no group'" + changes + source + ":7: error: 'run'" +
         changes + source + ":8: error: 'clock'" + changes + source + ":9: error: 'show rp'" +
         unavailable + source + ":10: error: 'show alloc-requests'" + unavailable + source +
         ":11: error: 'show review'" + unavailable;
}

const char kIpv4Answer[] =
    "rp-hash final groups mode sparse ipv4\n"
    "  prefix        rp        priority  hashmask  override  mode\n"
    "  239.1.1.1/32  10.0.0.1  0         30        no        sparse\n";

TEST_F(PimrpShm, Attach_StatementsThatChangeOrNeedState_Refused) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("writer.pimrp", kWriterScript)}).status, 0);
  const std::string refused = script("refused.pimrp", kRefusedScript);
  const PimrpResult asScript = runPimrp({"--attach", name_, refused});
  EXPECT_EQ(asScript.out, "");
  EXPECT_EQ(asScript.err, refusalsIn(refused, name_));
  EXPECT_EQ(asScript.status, 2);
  const PimrpResult asStream = runPimrp({"--attach", name_, "-"}, kRefusedScript);
  EXPECT_EQ(asStream.out, kIpv4Answer);
  EXPECT_EQ(asStream.err, refusalsIn("-", name_));
  EXPECT_EQ(asStream.status, 1);
  const PimrpResult after = runPimrp({"--attach", name_, "-"}, kReaderScript);
  EXPECT_EQ(after.out, kReaderAnswer);
}

TEST_F(PimrpShm, Attach_NoTables_ClearError) {
  const PimrpResult run = runPimrp({"--attach", name_, "-"}, kReaderScript);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "pimrp: cannot attach the shared tables '" + name_ +
                         "': MirraMap::attach() table " + name_ +
                         ".ipv4.sparse.static.groups does not exist\n");
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(segments(), std::vector<std::string>());
}

TEST_F(PimrpShm, SecondWriter_RefusedAndNothingChanged) {
  PimrpProcess writer({"--shm", name_, "-"});
  ASSERT_TRUE(writer.started());
  writer.write(kWriterScript);
  ASSERT_TRUE(writer.readOutputUntil(kWriterAnswer));
  const PimrpResult second = runPimrp(
      {"--shm", name_, script("second.pimrp", "no rp-address 10.0.0.1\nno group 239.1.1.1\n")});
  EXPECT_EQ(second.out, "");
  EXPECT_EQ(second.err, "pimrp: cannot attach the shared tables '" + name_ +
                            "': MirraMap::attach() table " + name_ +
                            ".ipv4.sparse.static.groups already has a writer\n");
  EXPECT_EQ(second.status, 2);
  const PimrpResult read = runPimrp({"--attach", name_, "-"}, kReaderScript);
  EXPECT_EQ(read.out, kReaderAnswer);
  EXPECT_EQ(writer.wait().status, 0);
}

TEST_F(PimrpShm, BadName_RefusedBeforeAnything) {
  const PimrpResult slash = runPimrp({"--shm", "lab/one", "-"});
  EXPECT_EQ(slash.err,
            "pimrp: --shm: table name 'lab/one' holds '/': use only letters, digits, '.', '_' "
            "and '-'\n");
  EXPECT_EQ(slash.status, 2);
  const PimrpResult empty = runPimrp({"--attach", "", "-"});
  EXPECT_EQ(empty.err, "pimrp: --attach: the table name is empty\n");
  EXPECT_EQ(empty.status, 2);
  const PimrpResult dot = runPimrp({"--shm", "." + name_, "--unlink"});
  EXPECT_EQ(dot.err, "pimrp: --shm: table name '." + name_ + "' starts with '.'\n");
  EXPECT_EQ(dot.status, 2);
  const std::string longName = name_ + std::string(PimrpTool::kMaxSharedNameLength, 'x');
  const PimrpResult tooLong = runPimrp({"--shm", longName, "-"});
  EXPECT_EQ(tooLong.err, "pimrp: --shm: table name '" + longName.substr(0, 60) +
                             "...' is longer than 172 characters\n");
  EXPECT_EQ(tooLong.status, 2);
  EXPECT_EQ(slash.out + empty.out + dot.out + tooLong.out, "");
  EXPECT_EQ(segments(), std::vector<std::string>());
}

TEST_F(PimrpShm, Options_ContradictionsRefused) {
  const PimrpResult both = runPimrp({"--shm", name_, "--attach", name_, "-"});
  EXPECT_EQ(both.err,
            "pimrp: --shm writes shared tables and --attach only reads them: give one of them\n");
  EXPECT_EQ(both.status, 2);
  const PimrpResult unlinkAlone = runPimrp({"--unlink"});
  EXPECT_EQ(unlinkAlone.err, "pimrp: --unlink needs --shm NAME: the tables to remove\n");
  EXPECT_EQ(unlinkAlone.status, 2);
  const PimrpResult unlinkScript = runPimrp({"--shm", name_, "--unlink", "-"});
  EXPECT_EQ(unlinkScript.err,
            "pimrp: --unlink removes the shared tables and runs nothing: give it no FILE, "
            "--demo-script or --json\n");
  EXPECT_EQ(unlinkScript.status, 2);
  const PimrpResult attachDemo = runPimrp({"--attach", name_});
  EXPECT_EQ(attachDemo.err,
            "pimrp: --attach reads only, and the demo changes state: give a FILE or '-'\n");
  EXPECT_EQ(attachDemo.status, 2);
  EXPECT_EQ(segments(), std::vector<std::string>());
}

TEST_F(PimrpShm, Unlink_RemovesEveryTableThenAttachFails) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("writer.pimrp", kWriterScript)}).status, 0);
  const PimrpResult removed = runPimrp({"--shm", name_, "--unlink"});
  std::string listing;
  for (const std::string& table : PimrpTool::sharedTableNames(name_)) {
    listing += "removed " + table + "\n";
  }
  EXPECT_EQ(removed.out, listing);
  EXPECT_EQ(removed.err, "");
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(segments(), std::vector<std::string>());
  const PimrpResult attach = runPimrp({"--attach", name_, "-"}, kReaderScript);
  EXPECT_EQ(attach.err, "pimrp: cannot attach the shared tables '" + name_ +
                            "': MirraMap::attach() table " + name_ +
                            ".ipv4.sparse.static.groups does not exist\n");
  EXPECT_EQ(attach.status, 2);
  const PimrpResult again = runPimrp({"--shm", name_, "--unlink"});
  EXPECT_EQ(again.out, "");
  EXPECT_EQ(again.err, "pimrp: no shared tables named '" + name_ + "' to remove\n");
  EXPECT_EQ(again.status, 1);
}

TEST_F(PimrpShm, BadScript_AppliesNothingToTheTables) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("writer.pimrp", kWriterScript)}).status, 0);
  const std::string bad =
      script("bad.pimrp", "no group 239.1.1.1\nrp-address 10.0.0.1 group 1.0.0.0/8\n");
  const PimrpResult run = runPimrp({"--shm", name_, bad});
  EXPECT_EQ(run.err, bad + ":2: error: group range '1.0.0.0/8' is not within 224.0.0.0/4\n");
  EXPECT_EQ(run.status, 2);
  const PimrpResult read = runPimrp({"--attach", name_, "-"}, kReaderScript);
  EXPECT_EQ(read.out, kReaderAnswer);
}

TEST_F(PimrpShm, BadScript_FreshName_CreatesNoTable) {
  const std::string bad = script("bad.pimrp", "group 239.1.1.1\nbsr-rp 239.0.0.0/8 10.0.0.1\n");
  const PimrpResult run = runPimrp({"--shm", name_, bad});
  EXPECT_EQ(run.err, bad + ":2: error: missing 'priority' in 'bsr-rp 239.0.0.0/8 10.0.0.1'\n");
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(segments(), std::vector<std::string>());
}

}  // namespace

namespace {

// A configuration with something of everything the final tables fold: nested static ranges, two
// static candidates hashed on one range, an override, an access list, a bidirectional range,
// bootstrap ranges over and beside the static ones, both families; and 30 groups in each range,
// which come first, as a restarted router knows them before its configuration is back.
std::string restartScript() {
  std::string script;
  for (int range = 0; range <= 6; ++range) {
    for (int group = 1; group <= 30; ++group) {
      script += "group 239." + std::to_string(range) + "." + std::to_string(group * 7) + "." +
                std::to_string(group) + "\n";
    }
  }
  for (int group = 1; group <= 30; ++group) {
    script += "group ff0e:" + std::to_string(group % 2) + "::" + std::to_string(group) + "\n";
  }
  return script +
         "rp-address 10.0.0.1 group 239.0.0.0/8\n"
         "rp-address 10.0.0.2 group 239.1.0.0/16\n"
         "rp-address 10.0.0.3 group 239.1.0.0/16\n"
         "rp-address 10.0.0.4 group 239.2.0.0/16 override\n"
         "acl lab seq 10 permit 239.3.0.0/16\n"
         "rp-address 10.0.0.5 acl lab\n"
         "rp-address 10.0.0.6 group 239.4.0.0/16\n"
         "rp-address 10.0.0.6 mode bidir\n"
         "rp-address 2001:db8::1 group ff0e::/16\n"
         "bsr-rp 239.2.0.0/16 10.0.0.9 priority 0 hashmask 30 mode sparse\n"
         "bsr-rp 239.5.0.0/16 10.0.0.10 priority 0 hashmask 30 mode sparse\n"
         "bsr-rp 239.5.0.0/16 10.0.0.11 priority 0 hashmask 30 mode sparse\n"
         "bsr-rp 239.1.128.0/17 10.0.0.12 priority 1 hashmask 30 mode sparse\n"
         "bsr-rp ff0e:1::/32 2001:db8::9 priority 0 hashmask 126 mode sparse\n"
         "show rp-hash final groups mode sparse\n";
}

// Every table of `name`: its entries and how many writes it has seen.
struct TableState {
  std::vector<Routing::Pim::RpHash> entries;
  std::uint64_t changes = 0;
};
std::vector<TableState> tableStates(const std::string& name) {
  std::vector<TableState> states;
  for (const std::string& table : PimrpTool::sharedTableNames(name)) {
    const auto reader =
        Routing::Pim::RpHashStatus::Table::attachShared(table, Mirra::AttachMode::reader);
    TableState state;
    state.changes = reader.changeCount();
    for (const Routing::Pim::RpHash& entry : reader) state.entries.push_back(entry);
    states.push_back(state);
  }
  return states;
}

// restartScript() with the configuration changed: a static RP of a range gone, an override taken
// off, a bootstrap candidate gone, and the groups of 239.6.0.0/16 no longer known.
std::string changedRestartScript() {
  std::string script = restartScript();
  const auto drop = [&script](const std::string& text) {
    const std::size_t at = script.find(text);
    if (at != std::string::npos) script.erase(at, text.size());
  };
  drop("rp-address 10.0.0.2 group 239.1.0.0/16\n");
  drop("bsr-rp 239.5.0.0/16 10.0.0.11 priority 0 hashmask 30 mode sparse\n");
  const std::string overridden = "rp-address 10.0.0.4 group 239.2.0.0/16 override\n";
  script.replace(script.find(overridden), overridden.size(),
                 "rp-address 10.0.0.4 group 239.2.0.0/16\n");
  for (int group = 1; group <= 30; ++group) {
    drop("group 239.6." + std::to_string(group * 7) + "." + std::to_string(group) + "\n");
  }
  return script;
}

// How many keys differ between two walks of a table: entries changed, added or removed.
std::size_t entriesChanged(const std::vector<Routing::Pim::RpHash>& before,
                           const std::vector<Routing::Pim::RpHash>& after) {
  std::map<Ipkit::IpGenPrefix, Routing::Pim::RpHash> old;
  for (const Routing::Pim::RpHash& entry : before) old.emplace(entry.key(), entry);
  std::size_t changed = 0;
  for (const Routing::Pim::RpHash& entry : after) {
    const auto found = old.find(entry.key());
    if (found == old.end() || !(found->second == entry)) ++changed;
    if (found != old.end()) old.erase(found);
  }
  return changed + old.size();
}

}  // namespace

// A restart with the configuration of the run before: every table ends as it was, and no final
// table is written at all, so that no reader of one can have seen an interim answer. The per-source
// tables are rewritten while the configuration comes back one statement at a time to the running
// reviews; the writes they take are printed.
TEST_F(PimrpShm, Restart_SameConfiguration_FinalTablesNeverWritten) {
  const std::string run = script("run.pimrp", restartScript());
  ASSERT_EQ(runPimrp({"--shm", name_, run}).status, 0);
  const std::vector<TableState> before = tableStates(name_);
  ASSERT_EQ(runPimrp({"--shm", name_, run}).status, 0);
  const std::vector<TableState> after = tableStates(name_);
  const std::vector<std::string> tables = PimrpTool::sharedTableNames(name_);
  for (std::size_t at = 0; at < tables.size(); ++at) {
    const std::string& table = tables[at];
    EXPECT_EQ(after[at].entries, before[at].entries) << table;
    const std::uint64_t writes = after[at].changes - before[at].changes;
    if (table.find(".final.") != std::string::npos) {
      EXPECT_EQ(writes, 0u) << table;
    }
    if (writes > 0) {
      std::printf("%s: %llu writes\n", table.c_str(), static_cast<unsigned long long>(writes));
    }
  }
}

// A restart with a changed configuration: every final entry that changes is written once, straight
// from the earlier run's answer to this run's, and no other final entry is written, so that a
// reader of a final table never sees an interim answer.
TEST_F(PimrpShm, Restart_ChangedConfiguration_EachChangedFinalEntryWrittenOnce) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", restartScript())}).status, 0);
  const std::vector<TableState> before = tableStates(name_);
  ASSERT_EQ(runPimrp({"--shm", name_, script("two.pimrp", changedRestartScript())}).status, 0);
  const std::vector<TableState> after = tableStates(name_);
  const std::vector<std::string> tables = PimrpTool::sharedTableNames(name_);
  std::size_t finalChanges = 0;
  for (std::size_t at = 0; at < tables.size(); ++at) {
    if (tables[at].find(".final.") == std::string::npos) continue;
    const std::size_t changed = entriesChanged(before[at].entries, after[at].entries);
    EXPECT_EQ(after[at].changes - before[at].changes, changed) << tables[at];
    finalChanges += changed;
  }
  EXPECT_GT(finalChanges, 60u);  // the 30 groups gone and more
}

// --- who may write, who may read, and damage ---

const char kOneGroup[] =
    "rp-address 10.0.0.1 group 239.0.0.0/8\n"
    "group 239.1.1.1\n";
const char kOneGroupAnswer[] =
    "rp-hash final groups mode sparse ipv4\n"
    "  prefix        rp        priority  hashmask  override  mode\n"
    "  239.1.1.1/32  10.0.0.1  0         30        no        sparse\n";

// Tests that need another user than root skip, saying why, where they cannot have one (see
// otherUserUnavailable() and otherUserCannotRunPimrp()).
#define SKIP_UNLESS_EMPTY(reason)          \
  do {                                     \
    const std::string why = (reason);      \
    if (!why.empty()) GTEST_SKIP() << why; \
  } while (false)

TEST_F(PimrpShm, Unlink_WithoutPermission_EachSegmentReported_NothingRemoved_ExitOne) {
  SKIP_UNLESS_EMPTY(ToolTest::otherUserCannotRunPimrp());
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", kOneGroup)}).status, 0);
  const std::vector<std::string> before = segments();
  const PimrpResult run = runPimrp({"--shm", name_, "--unlink"}, "", ToolTest::RunAs::otherUser);
  EXPECT_EQ(run.out, "");
  std::string expected;
  for (const std::string& table : PimrpTool::sharedTableNames(name_)) {
    for (const std::string& segment : {table + ".g1", table, table + ".lock"}) {
      expected +=
          "pimrp: cannot remove " + table + ": segment " + segment + ": Permission denied\n";
    }
  }
  EXPECT_EQ(run.err, expected);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(segments(), before);
}

TEST_F(PimrpShm, TablesOfAnotherUser_WriterRefusesNamingSegmentAndOwner) {
  SKIP_UNLESS_EMPTY(ToolTest::otherUserCannotRunPimrp());
  ASSERT_EQ(runPimrp({"--shm", name_, "-"}, kOneGroup, ToolTest::RunAs::otherUser).status, 0);
  const PimrpResult run = runPimrp({"--shm", name_, script("two.pimrp", "group 239.2.2.2\n")});
  const std::string first = name_ + ".ipv4.sparse.static.groups";
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "pimrp: cannot attach the shared tables '" + name_ +
                         "': MirraMap::attach() table " + first + " cannot be written: segment " +
                         first + ".lock belongs to nobody (uid 65534), not to this writer's user " +
                         "root (uid 0)\n");
  EXPECT_EQ(run.status, 2);
  // Read as nobody's: nothing changed.
  const PimrpResult read = runPimrp({"--attach", name_, "--trust-owner", "nobody", "-"},
                                    "show rp-hash final groups mode sparse ipv4\n");
  EXPECT_EQ(read.out, kOneGroupAnswer);
  EXPECT_EQ(read.err, "");
  EXPECT_EQ(read.status, 0);
}

TEST_F(PimrpShm, Attach_TablesOfAnotherUser_ReadOnlyWhenTrusted) {
  SKIP_UNLESS_EMPTY(ToolTest::otherUserCannotRunPimrp());
  ASSERT_EQ(runPimrp({"--shm", name_, "-"}, kOneGroup, ToolTest::RunAs::otherUser).status, 0);
  const std::string show = "show rp-hash final groups mode sparse ipv4\n";
  const PimrpResult refused = runPimrp({"--attach", name_, "-"}, show);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err, "pimrp: cannot attach the shared tables '" + name_ +
                             "': MirraMap::attach() table " + name_ +
                             ".ipv4.sparse.static.groups belongs to nobody (uid 65534), not to "
                             "root, this reader's user or a user it is told to trust\n");
  EXPECT_EQ(refused.status, 2);
  for (const char* user : {"nobody", "65534"}) {
    const PimrpResult trusted = runPimrp({"--attach", name_, "--trust-owner", user, "-"}, show);
    EXPECT_EQ(trusted.out, kOneGroupAnswer) << user;
    EXPECT_EQ(trusted.status, 0) << user;
  }
  // Root's tables are trusted by everyone.
  ASSERT_EQ(runPimrp({"--shm", name_, "--unlink"}).status, 0);
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", kOneGroup)}).status, 0);
  const PimrpResult byNobody = runPimrp({"--attach", name_, "-"}, show, ToolTest::RunAs::otherUser);
  EXPECT_EQ(byNobody.out, kOneGroupAnswer);
  EXPECT_EQ(byNobody.status, 0);
}

TEST_F(PimrpShm, ReadLockOnAControlSegment_WriterStillStarts) {
  SKIP_UNLESS_EMPTY(TestProcesses::otherUserUnavailable());
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", kOneGroup)}).status, 0);
  // nobody reads the control segment of every table and holds a read lock on each.
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  TestProcesses::ChildProcess holder(fork());
  if (holder.pid() == 0) {
    close(ready[0]);
    if (!TestProcesses::becomeOtherUser()) _exit(1);
    char locked = 'y';
    for (const std::string& table : PimrpTool::sharedTableNames(name_)) {
      const int fd = shm_open(("/" + table).c_str(), O_RDONLY, 0);
      struct flock lock {};
      lock.l_type = F_RDLCK;
      lock.l_whence = SEEK_SET;
      if (fd < 0 || fcntl(fd, F_OFD_SETLK, &lock) != 0) locked = 'n';
    }
    if (write(ready[1], &locked, 1) != 1) _exit(2);
    pause();
    _exit(0);
  }
  close(ready[1]);
  char locked = 0;
  EXPECT_EQ(read(ready[0], &locked, 1), 1);
  close(ready[0]);
  EXPECT_EQ(locked, 'y');
  const PimrpResult run =
      runPimrp({"--shm", name_,
                script("two.pimrp",
                       std::string(kOneGroup) + "show rp-hash final groups mode sparse ipv4\n")});
  EXPECT_EQ(run.out, kOneGroupAnswer);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
}

// The mode and the owner of every segment of this test's tables, "SEGMENT UID MODE" each.
std::vector<std::string> segmentOwnersAndModes(const std::vector<std::string>& segments) {
  std::vector<std::string> found;
  for (const std::string& segment : segments) {
    struct stat status;
    if (stat(("/dev/shm/" + segment).c_str(), &status) != 0) continue;
    char mode[8];
    std::snprintf(mode, sizeof(mode), "%04o", static_cast<unsigned>(status.st_mode & 07777));
    found.push_back(segment + " " + std::to_string(status.st_uid) + " " + mode);
  }
  return found;
}

TEST_F(PimrpShm, ShmMode_EverySegmentCreatedWithIt_TheLockForTheOwnerOnly) {
  ASSERT_EQ(runPimrp({"--shm", name_, "--shm-mode", "0640", script("one.pimrp", kOneGroup)}).status,
            0);
  std::vector<std::string> expected;
  const std::string owner = std::to_string(geteuid());
  for (const std::string& table : PimrpTool::sharedTableNames(name_)) {
    expected.push_back(table + " " + owner + " 0640");
    expected.push_back(table + ".g1 " + owner + " 0640");
    expected.push_back(table + ".lock " + owner + " 0600");
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(segmentOwnersAndModes(segments()), expected);
}

TEST_F(PimrpShm, SharedTableOptions_Misused_Refused) {
  const std::string one = script("one.pimrp", kOneGroup);
  const auto refusal = [&](const std::vector<std::string>& args) {
    const PimrpResult run = runPimrp(args);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.status, 2);
    return run.err;
  };
  EXPECT_EQ(refusal({"--shm", name_, "--shm-mode", "0664", one}),
            "pimrp: --shm-mode: '0664' is not a mode a table may have: the owner reads and "
            "writes, group and others may at most read (0600, 0640, 0604 or 0644)\n");
  EXPECT_EQ(refusal({"--shm", name_, "--shm-mode", "rw", one}),
            "pimrp: --shm-mode: 'rw' is not a mode in octal, such as 0644\n");
  EXPECT_EQ(refusal({"--shm-mode", "0640", one}),
            "pimrp: --shm-mode sets the permissions of the tables a run with --shm creates: give "
            "it with --shm NAME and a FILE or '-'\n");
  EXPECT_EQ(refusal({"--shm", name_, "--trust-owner", "nobody", one}),
            "pimrp: --trust-owner names whose tables --attach may read: a writer writes only "
            "tables of its own user\n");
  EXPECT_EQ(refusal({"--attach", name_, "--trust-owner", "no-such-user-here", one}),
            "pimrp: --trust-owner: no user 'no-such-user-here'\n");
  EXPECT_EQ(segments(), std::vector<std::string>());
}

TEST_F(PimrpShm, DamagedTables_ReaderExitTwoNamingTheTable_WriterRepairs_UnlinkLeavesNothing) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", kOneGroup)}).status, 0);
  const std::string finalGroups = name_ + ".ipv4.sparse.final.groups";
  // A byte of the value in the table's first slot (just after the 128-byte header and the slot's
  // 16-byte head).
  ASSERT_TRUE(flipByte(finalGroups + ".g1", 128 + 16));
  const std::string show = script("show.pimrp", "show rp-hash final groups mode sparse ipv4\n");
  const PimrpResult reader = runPimrp({"--attach", name_, show});
  EXPECT_EQ(reader.out, "");
  EXPECT_EQ(reader.err, show + ":1: error: the shared table '" + finalGroups +
                            "' is damaged: slot 0 of 16 fails its checksum\n");
  EXPECT_EQ(reader.status, 2);
  // The next writer finds the damage and its start-up passes write the entry again.
  const PimrpResult writer = runPimrp({"--shm", name_, script("one.pimrp", kOneGroup)});
  EXPECT_EQ(writer.err, "");
  EXPECT_EQ(writer.status, 0);
  const PimrpResult repaired = runPimrp({"--attach", name_, show});
  EXPECT_EQ(repaired.out, kOneGroupAnswer);
  EXPECT_EQ(repaired.status, 0);
  // A damaged control segment refuses the attachment, naming the table; the next writer rebuilds
  // it and finds the table's generation again.
  const std::string first = name_ + ".ipv4.sparse.static.groups";
  ASSERT_TRUE(flipByte(first, 0));
  const PimrpResult refused = runPimrp({"--attach", name_, show});
  EXPECT_EQ(refused.err, "pimrp: cannot attach the shared tables '" + name_ +
                             "': the shared table '" + first +
                             "' is damaged: the control segment fails its check (its fixed "
                             "part)\n");
  EXPECT_EQ(refused.status, 2);
  const PimrpResult rebuilt =
      runPimrp({"--shm", name_, "--trace", "PimRpHashSm=0", script("one.pimrp", kOneGroup)});
  EXPECT_NE(rebuilt.err.find("[Debug 0] MirraMap::corruptionDetected() table " + first +
                             ": the control segment fails its check (its fixed part); "
                             "generation " +
                             first + ".g1 taken up instead\n"),
            std::string::npos)
      << rebuilt.err;
  EXPECT_EQ(rebuilt.status, 0);
  const PimrpResult readAgain = runPimrp({"--attach", name_, show});
  EXPECT_EQ(readAgain.out, kOneGroupAnswer);
  EXPECT_EQ(readAgain.status, 0);
  // --unlink removes a table whose control segment is damaged whole.
  ASSERT_TRUE(flipByte(first, 0));
  const PimrpResult removed = runPimrp({"--shm", name_, "--unlink"});
  EXPECT_EQ(removed.err, "");
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(segments(), std::vector<std::string>());
}

TEST_F(PimrpShm, GenerationMissing_ReaderSaysSo_WriterStartsThatTableAfresh) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("one.pimrp", kOneGroup)}).status, 0);
  const std::string first = name_ + ".ipv4.sparse.static.groups";
  ASSERT_EQ(shm_unlink(("/" + first + ".g1").c_str()), 0);
  const std::string show = "show rp-hash final groups mode sparse ipv4\n";
  const PimrpResult reader = runPimrp({"--attach", name_, "-"}, show);
  EXPECT_EQ(reader.err, "pimrp: cannot attach the shared tables '" + name_ +
                            "': the shared table '" + first +
                            "' is damaged: its published generation " + first + ".g1 is missing\n");
  EXPECT_EQ(reader.status, 2);
  const PimrpResult writer =
      runPimrp({"--shm", name_, "--trace", "PimRpHashSm=0", script("one.pimrp", kOneGroup)});
  EXPECT_NE(writer.err.find("[Debug 0] MirraMap::corruptionDetected() table " + first +
                            ": its published generation " + first +
                            ".g1 is missing: the table starts afresh and its members are lost\n"),
            std::string::npos)
      << writer.err;
  EXPECT_EQ(writer.status, 0);
  const PimrpResult after = runPimrp({"--attach", name_, "-"}, show);
  EXPECT_EQ(after.out, kOneGroupAnswer);
  EXPECT_EQ(after.status, 0);
}

namespace {

// Two VRFs: the default one and red, each with its own RP for the same group.
const char kTwoVrfs[] =
    "group 239.1.1.1\n"
    "rp-address 10.0.0.1 group 239.0.0.0/8\n"
    "vrf red\n"
    "group 239.1.1.1\n"
    "rp-address 10.2.0.1 group 239.0.0.0/8\n"
    "show rp-hash final groups mode sparse vrf default\n"
    "show rp-hash final groups mode sparse\n";

std::string finalGroupsAnswer(const std::string& rp) {
  return "rp-hash final groups mode sparse\n"
         "  prefix        rp        priority  hashmask  override  mode\n"
         "  239.1.1.1/32  " +
         rp + "  0         30        no        sparse\n";
}

TEST_F(PimrpShm, Vrfs_EachVrfsTablesUnderItsOwnNames_ReadByName_UnlinkedTogether) {
  const PimrpResult run = runPimrp({"--shm", name_, script("vrfs.pimrp", kTwoVrfs)});
  EXPECT_EQ(run.out, finalGroupsAnswer("10.0.0.1") + "\n" + finalGroupsAnswer("10.2.0.1"));
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
  std::vector<std::string> tables = PimrpTool::sharedTableNames(name_);
  for (const std::string& table : PimrpTool::sharedTableNames(name_, L3::VrfName("red"))) {
    tables.push_back(table);
  }
  std::vector<std::string> expected;
  for (const std::string& table : tables) {
    expected.push_back(table);
    expected.push_back(table + ".g1");
    expected.push_back(table + ".lock");
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(segments(), expected);
  const PimrpResult read = runPimrp(
      {"--attach", name_, "-"},
      "show rp-hash final groups mode sparse vrf red\nshow rp-hash final groups mode sparse\n");
  EXPECT_EQ(read.out, finalGroupsAnswer("10.2.0.1") + "\n" + finalGroupsAnswer("10.0.0.1"));
  EXPECT_EQ(read.status, 0);
  const PimrpResult removed = runPimrp({"--shm", name_, "--unlink"});
  std::string listing;
  for (const std::string& table : tables) listing += "removed " + table + "\n";
  EXPECT_EQ(removed.out, listing);
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(segments(), std::vector<std::string>());
}

TEST_F(PimrpShm, Attach_VrfWithoutTables_ErrorAtItsLine_NothingAfterIt) {
  ASSERT_EQ(runPimrp({"--shm", name_, script("vrfs.pimrp", kTwoVrfs)}).status, 0);
  const std::string reader = script(
      "reader.pimrp",
      "show rp-hash final groups mode sparse vrf blue\nshow rp-hash final groups mode sparse\n");
  const PimrpResult read = runPimrp({"--attach", name_, reader});
  EXPECT_EQ(read.out, "");
  EXPECT_EQ(read.err, reader + ":1: error: cannot attach the shared tables '" + name_ +
                          "' of VRF 'blue': MirraMap::attach() table " + name_ +
                          ".vrf.blue.ipv4.sparse.static.groups does not exist\n");
  EXPECT_EQ(read.status, 2);
}

// The tables of VRF red under NAME are those of the default VRF under NAME.vrf.red: a writer of
// either keeps the other from them.
TEST_F(PimrpShm, Vrf_TablesWithAnotherWriter_ScriptAppliesNothing_StreamStopsAtTheVrf) {
  PimrpProcess writer({"--shm", name_ + ".vrf.red", "-"});
  ASSERT_TRUE(writer.started());
  writer.write(kWriterScript);
  ASSERT_TRUE(writer.readOutputUntil(kWriterAnswer));
  // A script attaches the tables of every VRF it opens before it applies anything.
  const PimrpResult run = runPimrp({"--shm", name_, script("second.pimrp", kTwoVrfs)});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "pimrp: cannot attach the shared tables '" + name_ +
                         "' of VRF 'red': MirraMap::attach() table " + name_ +
                         ".vrf.red.ipv4.sparse.static.groups already has a writer\n");
  EXPECT_EQ(run.status, 2);
  const PimrpResult read =
      runPimrp({"--attach", name_, "-"}, "show rp-hash final groups mode sparse\n");
  EXPECT_EQ(read.out, "rp-hash final groups mode sparse: none\n");
  // Typed one at a time, the vrf statement is where the tables are attached.
  const PimrpResult typed = runPimrp({"--shm", name_, "-"}, kTwoVrfs);
  EXPECT_EQ(typed.err, "-:3: error: cannot attach the shared tables '" + name_ +
                           "' of VRF 'red': MirraMap::attach() table " + name_ +
                           ".vrf.red.ipv4.sparse.static.groups already has a writer\n");
  EXPECT_EQ(typed.status, 2);
  EXPECT_EQ(writer.wait().status, 0);
}

}  // namespace
