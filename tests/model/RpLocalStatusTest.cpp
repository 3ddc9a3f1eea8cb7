// The local RP table: entries keyed by RP address with their interface.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Exception.h"
#include "model/Pim/RpLocalStatus.h"
#include "tests/support/Refusal.h"

namespace {

using Ipkit::IntfId;
using Ipkit::IpGenAddr;
using Routing::Pim::RpLocalInfo;
using Routing::Pim::RpLocalStatus;

class TableRecorder : public RpLocalStatus::NotifieeConst {
 public:
  void onLocalRpSet(const IpGenAddr& addr) override { seen.push_back(addr.valueToStrep()); }
  std::vector<std::string> seen;
};

TEST(RpLocalStatus, LocalRpSet_CreatedWithNoInterfaceAndAnnounced) {
  Kel::Ptr<RpLocalStatus> status(new RpLocalStatus);
  Kel::Ptr<TableRecorder> recorder(new TableRecorder);
  recorder->notifierIs(status);
  const auto info = status->localRpSetIs(IpGenAddr("10.0.0.1"));
  EXPECT_EQ(info->address(), IpGenAddr("10.0.0.1"));
  EXPECT_TRUE(info->intfId().isNull());
  EXPECT_EQ(status->localRpSetIs(IpGenAddr("10.0.0.1")), info);  // present: returned, not new
  info->intfIdIs(IntfId("Ethernet1"));
  EXPECT_EQ(status->localRpSet(IpGenAddr("10.0.0.1"))->intfId(), IntfId("Ethernet1"));
  status->localRpSetDel(IpGenAddr("10.0.0.1"));
  status->localRpSetDel(IpGenAddr("10.0.0.1"));
  EXPECT_EQ(recorder->seen, (std::vector<std::string>{"10.0.0.1", "10.0.0.1"}));
  EXPECT_FALSE(status->localRpSet(IpGenAddr("10.0.0.1")));
  recorder->notifierIs(nullptr);
}

TEST(RpLocalStatus, LocalRpSet_AscendingAddressOrderBothFamilies) {
  Kel::Ptr<RpLocalStatus> status(new RpLocalStatus);
  for (const char* addr : {"2001:db8::1", "10.0.0.9", "10.0.0.1"}) {
    status->localRpSetIs(IpGenAddr(addr));
  }
  std::vector<std::string> order;
  for (const auto& [addr, info] : status->localRpSet()) order.push_back(addr.valueToStrep());
  EXPECT_EQ(order, (std::vector<std::string>{"10.0.0.1", "10.0.0.9", "2001:db8::1"}));
}

TEST(RpLocalStatus, LocalRpSet_NullEntryRefused) {
  Kel::Ptr<RpLocalStatus> status(new RpLocalStatus);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { status->localRpSetIs(IpGenAddr("10.0.0.1"), nullptr); }),
            "null _localRpSet parameter to mutator for Routing::Pim::RpLocalStatus::localRpSet "
            "not allowed");
  EXPECT_TRUE(status->localRpSet().empty());
}

}  // namespace
