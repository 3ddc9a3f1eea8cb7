#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/MirraMap.h"
#include "framework/Mirra/TolerantRead.h"
#include "framework/Mirra/testing/MirraMapBackdoor.h"
#include "tests/framework/MirraTestEntry.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Mirra::testing::MirraMapBackdoor;

using MirraTest::Entry;
using MirraTest::Table;

class TolerantRead : public ::testing::Test {
 protected:
  void SetUp() override {
    for (std::uint32_t i = 0; i < 4; ++i) table.insert(Entry{key(i), i + 1});
    table.corruptionHandlerIs([this](const std::string& message) { handled.push_back(message); });
    debug.clear();
  }
  static IpGenPrefix key(std::uint32_t i) {
    return IpGenPrefix(IpGenAddr::ip4(0xef000000u + 256 * i), 24);
  }

  TestSupport::TraceCapture debug{"Debug"};
  Table table;
  std::vector<std::string> handled;
};

TEST_F(TolerantRead, LookupOfIntactEntry_ReadsItsValue) {
  EXPECT_EQ(Mirra::tolerantLookup(table, key(2)), (Entry{key(2), 3}));
  EXPECT_EQ(table.corruptions(), 0u);
}

TEST_F(TolerantRead, LookupOfDamagedEntry_ReadsAbsentAndReportsOnce) {
  MirraMapBackdoor::damageValue(table, key(1));
  EXPECT_EQ(Mirra::tolerantLookup(table, key(1)), Entry());
  EXPECT_EQ(table.corruptions(), 1u);
  EXPECT_EQ(handled, std::vector<std::string>{table.lastCorruption()});
  EXPECT_EQ(debug.lines(),
            std::vector<std::string>{"MirraMap::corruptionDetected() " + table.lastCorruption()});
}

TEST_F(TolerantRead, WalkMeetsDamage_EndsThereKeepingWhatItRead) {
  MirraMapBackdoor::damageValue(table, key(2));
  std::vector<std::uint32_t> seen;
  const bool whole = Mirra::tolerantRead(table, [&] {
    for (const Entry& entry : table) seen.push_back(entry.payload);
  });
  EXPECT_FALSE(whole);
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{1, 2}));
  EXPECT_EQ(table.corruptions(), 1u);
}

TEST_F(TolerantRead, WalkOverIntactTable_RunsToItsEnd) {
  std::vector<std::uint32_t> seen;
  EXPECT_TRUE(Mirra::tolerantRead(table, [&] {
    for (const Entry& entry : table) seen.push_back(entry.payload);
  }));
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{1, 2, 3, 4}));
}

TEST_F(TolerantRead, DamageOfAnotherAttachment_ReportedAgainByTheTableHandedIt) {
  const Table reader = table.reader();
  MirraMapBackdoor::damageValue(table, key(0));
  EXPECT_FALSE(Mirra::tolerantRead(table, [&] { reader.lookup(key(0)); }));
  EXPECT_EQ(reader.corruptions(), 1u);
  EXPECT_EQ(table.corruptions(), 1u);
}

TEST_F(TolerantRead, OtherException_PassesThroughUntouched) {
  EXPECT_THROW(Mirra::tolerantRead(table, [] { throw std::runtime_error("not damage"); }),
               std::runtime_error);
  EXPECT_EQ(table.corruptions(), 0u);
}

}  // namespace
