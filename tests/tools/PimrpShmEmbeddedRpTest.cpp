// Embedded RP over shared tables, run as separate processes: a restart with the same
// configuration writes no final table and asks for nothing; a restart that turns embedded RP off,
// or on, moves each group's final entry once, with its requests; a group gone while it used its
// embedded RP loses its entry.

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "model/Pim/RpHashStatus.h"
#include "tests/tools/PimrpProcess.h"
#include "tests/tools/ToolTestSupport.h"
#include "tools/SharedTables.h"

namespace {

using ToolTest::PimrpResult;
using ToolTest::runPimrp;

const char kGroups[] =
    "group ff75:130:2001:db8:ffff::100\n"
    "group ff75:230:2001:db8:ffff::400\n";
const char kStaticOverride[] = "rp-address 2001:db8::9 group ff00::/8 override\n";
const char kEmbeddedOn[] =
    "rp-address 2001:db8::9 group ff00::/8 override\n"
    "embedded-rp enable\n";

class PimrpShmEmbeddedRp : public ::testing::Test {
 protected:
  ~PimrpShmEmbeddedRp() override {
    for (const std::string& path : scripts_) std::remove(path.c_str());
  }

  // A script holding the known groups, then `configuration`, then the shows every run makes.
  std::string script(const std::string& groups, const std::string& configuration) {
    const std::string path = "/tmp/" + name_ + "-" + std::to_string(scripts_.size()) + ".pimrp";
    std::ofstream(path) << groups << configuration
                        << "show rp-hash final groups mode sparse ipv6\nshow alloc-requests\n";
    scripts_.push_back(path);
    return path;
  }
  PimrpResult run(const std::string& groups, const std::string& configuration) {
    return runPimrp({"--shm", name_, script(groups, configuration)});
  }
  // How many writes the final sparse per-group IPv6 table has seen.
  std::uint64_t finalWrites() const {
    for (const std::string& table : PimrpTool::sharedTableNames(name_)) {
      if (table != name_ + ".ipv6.sparse.final.groups") continue;
      return Routing::Pim::RpHashStatus::Table::attachShared(table, Mirra::AttachMode::reader)
          .changeCount();
    }
    ADD_FAILURE() << "no final sparse group table for IPv6";
    return 0;
  }

  // Runs kGroups with `before`, then restarts with `after`: the restart prints `shown`, and
  // writes each of the two final entries exactly once.
  void expectRestartWritesEachEntryOnce(const char* before, const char* after,
                                        const std::string& shown) {
    ASSERT_EQ(run(kGroups, before).status, 0);
    const std::uint64_t writes = finalWrites();
    const PimrpResult restart = run(kGroups, after);
    ASSERT_EQ(restart.status, 0) << restart.err;
    EXPECT_EQ(restart.out, shown);
    EXPECT_EQ(finalWrites(), writes + 2);
  }

  const ToolTest::SharedTablesGuard tables_;
  const std::string name_ = tables_.name();
  std::vector<std::string> scripts_;
};

const char kEmbeddedTable[] =
    "rp-hash final groups mode sparse ipv6\n"
    "  prefix                           rp                priority  hashmask  override  mode\n"
    "  ff75:130:2001:db8:ffff::100/128  2001:db8:ffff::1  0         -         yes       sparse\n"
    "  ff75:230:2001:db8:ffff::400/128  2001:db8:ffff::2  0         -         yes       sparse\n";
const char kStaticTable[] =
    "rp-hash final groups mode sparse ipv6\n"
    "  prefix                           rp           priority  hashmask  override  mode\n"
    "  ff75:130:2001:db8:ffff::100/128  2001:db8::9  0         126       yes       sparse\n"
    "  ff75:230:2001:db8:ffff::400/128  2001:db8::9  0         126       yes       sparse\n";

TEST_F(PimrpShmEmbeddedRp, Restart_SameConfiguration_FinalTableNeverWrittenNothingAsked) {
  const PimrpResult first = run(kGroups, kEmbeddedOn);
  ASSERT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(first.out, std::string(kEmbeddedTable) +
                           "\n"
                           "alloc requests 3, dealloc requests 0\n"
                           "  rp                alloc  dealloc\n"
                           "  2001:db8::9       1      0\n"
                           "  2001:db8:ffff::1  1      0\n"
                           "  2001:db8:ffff::2  1      0\n");
  const std::uint64_t writes = finalWrites();
  const PimrpResult second = run(kGroups, kEmbeddedOn);
  ASSERT_EQ(second.status, 0) << second.err;
  EXPECT_EQ(second.out, std::string(kEmbeddedTable) + "\nalloc requests 0, dealloc requests 0\n");
  EXPECT_EQ(finalWrites(), writes);
}

TEST_F(PimrpShmEmbeddedRp, Restart_EmbeddedRpOff_EachEntryBackToTheStaticRpOnce) {
  expectRestartWritesEachEntryOnce(kEmbeddedOn, kStaticOverride,
                                   std::string(kStaticTable) +
                                       "\n"
                                       "alloc requests 2, dealloc requests 2\n"
                                       "  rp                alloc  dealloc\n"
                                       "  2001:db8::9       2      0\n"
                                       "  2001:db8:ffff::1  0      1\n"
                                       "  2001:db8:ffff::2  0      1\n");
}

TEST_F(PimrpShmEmbeddedRp, Restart_EmbeddedRpOn_EachEntryToItsEmbeddedRpOnce) {
  expectRestartWritesEachEntryOnce(kStaticOverride, kEmbeddedOn,
                                   std::string(kEmbeddedTable) +
                                       "\n"
                                       "alloc requests 2, dealloc requests 2\n"
                                       "  rp                alloc  dealloc\n"
                                       "  2001:db8::9       0      2\n"
                                       "  2001:db8:ffff::1  1      0\n"
                                       "  2001:db8:ffff::2  1      0\n");
}

TEST_F(PimrpShmEmbeddedRp, Restart_GroupGoneMeanwhile_EntryDroppedWithItsRelease) {
  ASSERT_EQ(run(kGroups, kEmbeddedOn).status, 0);
  const PimrpResult restart = run("group ff75:130:2001:db8:ffff::100\n", kEmbeddedOn);
  ASSERT_EQ(restart.status, 0) << restart.err;
  EXPECT_EQ(restart.out,
            "rp-hash final groups mode sparse ipv6\n"
            "  prefix                           rp                priority  hashmask  override  "
            "mode\n"
            "  ff75:130:2001:db8:ffff::100/128  2001:db8:ffff::1  0         -         yes       "
            "sparse\n"
            "\n"
            "alloc requests 0, dealloc requests 1\n"
            "  rp                alloc  dealloc\n"
            "  2001:db8:ffff::2  0      1\n");
}

}  // namespace
