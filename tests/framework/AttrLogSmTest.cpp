#include <gtest/gtest.h>

#include "framework/Oru/AttrLogSm.h"

namespace {

TEST(AttrLogSm, AttrLogSm_New_NotClogged) {
  Oru::AttrLogSm log;
  EXPECT_FALSE(log.isAttrLogOutClogged());
}

TEST(AttrLogSm, AttrLogSm_HostSetsAndClears_Reported) {
  Kel::Ptr<Oru::AttrLogSm> log(new Oru::AttrLogSm);
  log->attrLogOutCloggedIs(true);
  EXPECT_TRUE(log->isAttrLogOutClogged());
  log->attrLogOutCloggedIs(false);
  EXPECT_FALSE(log->isAttrLogOutClogged());
}

}  // namespace
