#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/Pim/GroupStatus.h"

namespace {

using Ipkit::IpGenAddr;
using Routing::Pim::GroupStatus;

struct GroupWatcher : GroupStatus::NotifieeConst {
  std::vector<std::string> groups;
  void onGroup(const IpGenAddr& address) override { groups.push_back(address.valueToStrep()); }
};

std::vector<std::string> known(const GroupStatus& status) {
  std::vector<std::string> texts;
  for (const auto& [address, present] : status.group()) texts.push_back(address.valueToStrep());
  return texts;
}

TEST(GroupStatus, GroupIs_NewGroup_KnownAndNotified) {
  Kel::Ptr<GroupStatus> status(new GroupStatus);
  Kel::Ptr<GroupWatcher> watcher(new GroupWatcher);
  watcher->notifierIs(status);
  status->groupIs(IpGenAddr("239.1.1.1"), true);
  EXPECT_TRUE(status->group().contains(IpGenAddr("239.1.1.1")));
  EXPECT_FALSE(status->group().contains(IpGenAddr("239.1.1.2")));
  EXPECT_EQ(status->group().size(), 1u);
  EXPECT_EQ(watcher->groups, std::vector<std::string>({"239.1.1.1"}));
}

TEST(GroupStatus, GroupIs_KnownGroup_NotifiesNothing) {
  Kel::Ptr<GroupStatus> status(new GroupStatus);
  status->groupIs(IpGenAddr("239.1.1.1"), true);
  Kel::Ptr<GroupWatcher> watcher(new GroupWatcher);
  watcher->notifierIs(status);
  status->groupIs(IpGenAddr("239.1.1.1"), true);
  EXPECT_TRUE(watcher->groups.empty());
}

TEST(GroupStatus, GroupDel_KnownGroup_GoneAndNotified_UnknownGroup_NotifiesNothing) {
  Kel::Ptr<GroupStatus> status(new GroupStatus);
  status->groupIs(IpGenAddr("239.1.1.1"), true);
  Kel::Ptr<GroupWatcher> watcher(new GroupWatcher);
  watcher->notifierIs(status);
  status->groupDel(IpGenAddr("239.1.1.1"));
  status->groupDel(IpGenAddr("239.1.1.1"));
  EXPECT_FALSE(status->group().contains(IpGenAddr("239.1.1.1")));
  EXPECT_EQ(watcher->groups, std::vector<std::string>({"239.1.1.1"}));
}

TEST(GroupStatus, Group_IteratesInAscendingAddressOrder) {
  Kel::Ptr<GroupStatus> status(new GroupStatus);
  for (const char* group : {"239.2.0.1", "225.0.0.9", "239.1.1.1", "224.0.1.1"}) {
    status->groupIs(IpGenAddr(group), true);
  }
  EXPECT_EQ(known(*status),
            std::vector<std::string>({"224.0.1.1", "225.0.0.9", "239.1.1.1", "239.2.0.1"}));
}

TEST(GroupStatus, GroupDelAll_NotifiesEveryGroupLowestFirst) {
  Kel::Ptr<GroupStatus> status(new GroupStatus);
  status->groupIs(IpGenAddr("239.2.0.1"), true);
  status->groupIs(IpGenAddr("224.0.1.1"), true);
  Kel::Ptr<GroupWatcher> watcher(new GroupWatcher);
  watcher->notifierIs(status);
  status->groupDelAll();
  EXPECT_EQ(status->group().size(), 0u);
  EXPECT_EQ(watcher->groups, std::vector<std::string>({"224.0.1.1", "239.2.0.1"}));
}

}  // namespace
