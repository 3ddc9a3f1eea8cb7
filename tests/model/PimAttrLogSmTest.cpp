#include <gtest/gtest.h>

#include "model/Pim/PimAttrLogSm.h"

namespace {

TEST(PimAttrLogSm, PimAttrLogSm_CloggedState_ReadThroughTheLogInterface) {
  Kel::Ptr<Routing::Pim::PimAttrLogSm> pimLog(new Routing::Pim::PimAttrLogSm);
  const Oru::AttrLogSm& log = *pimLog;
  EXPECT_FALSE(log.isAttrLogOutClogged());
  pimLog->attrLogOutCloggedIs(true);
  EXPECT_TRUE(log.isAttrLogOutClogged());
}

}  // namespace
