#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "framework/Acl/AclTypeConfig.h"
#include "framework/Acl/IpFilter.h"
#include "framework/Acl/IpFilterBase.h"
#include "framework/Acl/IpRuleConfig.h"
#include "framework/Acl/UniqueId.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/String.h"
#include "tests/support/Refusal.h"

namespace {

const std::string kTniRefusal = "IpFilterBase::tni < 0 or > 16777215 not allowed";
const std::string kVniRefusal = "IpFilterBase::vni < 0 or > 16777215 not allowed";

Ipkit::IpGenPrefix prefix(const char* text) { return Ipkit::IpGenPrefix(Kel::String(text)); }

TEST(UniqueId, Compare_FollowsValue) {
  EXPECT_EQ(Acl::UniqueId().value(), 0u);
  EXPECT_EQ(Acl::UniqueId(7), Acl::UniqueId(7));
  EXPECT_NE(Acl::UniqueId(7), Acl::UniqueId(8));
  EXPECT_LT(Acl::UniqueId(7), Acl::UniqueId(8));
  EXPECT_FALSE(Acl::UniqueId(8) < Acl::UniqueId(7));
  const std::uint64_t big = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(Acl::UniqueId(big).value(), big);
}

TEST(UniqueId, HashAndPrint_FollowValue) {
  std::unordered_set<Acl::UniqueId> ids{Acl::UniqueId(1), Acl::UniqueId(2), Acl::UniqueId(1)};
  EXPECT_EQ(ids.size(), 2u);
  EXPECT_EQ(std::hash<Acl::UniqueId>()(Acl::UniqueId(42)),
            std::hash<Acl::UniqueId>()(Acl::UniqueId(42)));
  std::ostringstream os;
  os << Acl::UniqueId(18446744073709551615u);
  EXPECT_EQ(os.str(), "18446744073709551615");
}

TEST(IpFilterBase, Default_ZeroIdentifiers) {
  const Acl::IpFilterBase base;
  EXPECT_EQ(base.tni(), 0);
  EXPECT_EQ(base.vni(), 0);
}

TEST(IpFilterBase, SetAtBounds_Accepted) {
  Acl::IpFilterBase base;
  base.tniIs(16777215);
  base.vniIs(16777215);
  EXPECT_EQ(base.tni(), 16777215);
  EXPECT_EQ(base.vni(), 16777215);
  base.tniIs(0);
  base.vniIs(0);
  EXPECT_EQ(base.tni(), 0);
  EXPECT_EQ(base.vni(), 0);
}

TEST(IpFilterBase, SetTniOutOfRange_RefusedWithExactTextAndUnchanged) {
  Acl::IpFilterBase base;
  base.tniIs(5);
  for (std::int32_t bad : {-1, 16777216, std::numeric_limits<std::int32_t>::min(),
                           std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { base.tniIs(bad); }), kTniRefusal)
        << bad;
    EXPECT_EQ(base.tni(), 5);
  }
}

TEST(IpFilterBase, SetVniOutOfRange_RefusedWithExactTextAndUnchanged) {
  Acl::IpFilterBase base;
  base.vniIs(6);
  for (std::int32_t bad : {-1, 16777216, std::numeric_limits<std::int32_t>::min(),
                           std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { base.vniIs(bad); }), kVniRefusal)
        << bad;
    EXPECT_EQ(base.vni(), 6);
  }
}

TEST(IpFilterBase, RawConstructor_KeepsValuesUnchecked) {
  const Acl::IpFilterBase raw(-3, 16777216);
  EXPECT_EQ(raw.tni(), -3);
  EXPECT_EQ(raw.vni(), 16777216);
}

TEST(IpFilterBase, CopyOfBadTni_RefusedWithExactText) {
  const Acl::IpFilterBase raw(-1, 0);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { Acl::IpFilterBase copy(raw); }),
            kTniRefusal);
}

TEST(IpFilterBase, CopyOfBadVni_RefusedWithExactText) {
  const Acl::IpFilterBase raw(0, 16777216);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { Acl::IpFilterBase copy(raw); }),
            kVniRefusal);
}

TEST(IpFilterBase, CopyOfGoodValue_Equal) {
  const Acl::IpFilterBase raw(16777215, 3);
  const Acl::IpFilterBase copy(raw);
  EXPECT_EQ(copy, raw);
}

TEST(IpFilterBase, AssignBadTni_RefusedWithExactTextAndTargetUnchanged) {
  Acl::IpFilterBase target;
  target.tniIs(11);
  target.vniIs(12);
  const Acl::IpFilterBase raw(16777216, 1);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { target = raw; }), kTniRefusal);
  EXPECT_EQ(target.tni(), 11);
  EXPECT_EQ(target.vni(), 12);
}

TEST(IpFilterBase, AssignBadVniWithGoodTni_RefusedWithExactTextAndTargetUnchanged) {
  // The tni alone would be acceptable: it must not be written before the vni is refused.
  Acl::IpFilterBase target;
  target.tniIs(11);
  target.vniIs(12);
  const Acl::IpFilterBase raw(99, -1);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { target = raw; }), kVniRefusal);
  EXPECT_EQ(target.tni(), 11);
  EXPECT_EQ(target.vni(), 12);
}

TEST(IpFilterBase, AssignGoodValue_Copied) {
  Acl::IpFilterBase target;
  const Acl::IpFilterBase source(7, 8);
  target = source;
  EXPECT_EQ(target, source);
  EXPECT_NE(target, Acl::IpFilterBase());
}

TEST(IpFilter, AnyAddress_MatchesAllWithNullPrefix) {
  const Acl::IpFilter any = Acl::IpFilter::anyAddress();
  EXPECT_TRUE(any.any());
  EXPECT_TRUE(any.prefix().isNull());
  EXPECT_EQ(any, Acl::IpFilter());
  EXPECT_EQ(any.tni(), 0);
  EXPECT_EQ(any.vni(), 0);
}

TEST(IpFilter, FromPrefix_HoldsPrefix) {
  const Acl::IpFilter filter(prefix("239.1.0.0/16"));
  EXPECT_FALSE(filter.any());
  EXPECT_EQ(filter.prefix(), prefix("239.1.0.0/16"));
  EXPECT_NE(filter, Acl::IpFilter::anyAddress());
  EXPECT_NE(filter, Acl::IpFilter(prefix("239.1.0.0/17")));
}

TEST(IpFilter, IdentifiersDiffer_NotEqual) {
  Acl::IpFilter left(prefix("232.0.0.0/8"));
  Acl::IpFilter right(prefix("232.0.0.0/8"));
  EXPECT_EQ(left, right);
  right.vniIs(4);
  EXPECT_NE(left, right);
}

TEST(IpFilter, RawConstructor_KeepsValuesUnchecked) {
  const Acl::IpFilter raw(prefix("233.0.0.0/8"), 16777216, -1);
  EXPECT_FALSE(raw.any());
  EXPECT_EQ(raw.prefix(), prefix("233.0.0.0/8"));
  EXPECT_EQ(raw.tni(), 16777216);
  EXPECT_EQ(raw.vni(), -1);
}

TEST(IpFilter, CopyOfBadIdentifiers_RefusedThroughBaseAndTargetUnchanged) {
  Acl::IpFilter target(prefix("232.0.0.0/8"));
  target.tniIs(1);
  const Acl::IpFilter raw(prefix("233.0.0.0/8"), 0, 16777216);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { Acl::IpFilter copy(raw); }),
            kVniRefusal);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { target = raw; }), kVniRefusal);
  EXPECT_EQ(target, [] {
    Acl::IpFilter expected(prefix("232.0.0.0/8"));
    expected.tniIs(1);
    return expected;
  }());
}

TEST(IpRuleConfig, ConstructFromBadFilter_RefusedWithExactText) {
  const Acl::IpFilter raw(prefix("233.0.0.0/8"), -1, 0);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { Acl::IpRuleConfig rule(Acl::AclAction::permit, raw); }),
            kTniRefusal);
}

TEST(IpRuleConfig, Default_DeniesAny) {
  const Acl::IpRuleConfig rule;
  EXPECT_EQ(rule.action(), Acl::AclAction::deny);
  EXPECT_TRUE(rule.filter().any());
}

TEST(IpRuleConfig, Equality_FollowsActionAndFilter) {
  const Acl::IpFilter filter(prefix("239.0.0.0/8"));
  const Acl::IpRuleConfig permit(Acl::AclAction::permit, filter);
  EXPECT_EQ(permit, Acl::IpRuleConfig(Acl::AclAction::permit, filter));
  EXPECT_NE(permit, Acl::IpRuleConfig(Acl::AclAction::deny, filter));
  EXPECT_NE(permit, Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter::anyAddress()));
  EXPECT_EQ(permit.filter(), filter);
  std::ostringstream os;
  os << Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter::anyAddress());
  EXPECT_EQ(os.str(), "permit any tni 0 vni 0");
}

// Records every notification of one list and of the access-list configuration it belongs to.
struct AclJournal : Acl::AclTypeConfig::NotifieeConst, Acl::AclConfig::NotifieeConst {
  void onAcl(const Kel::Name& name) override { lines.push_back("acl " + name); }
  void onCurrCfg() override { lines.push_back("currCfg"); }
  std::vector<std::string> lines;
};

TEST(AclConfig, Lists_CreatedOnceByName_CurrentRulesCreatedAdoptedDropped) {
  const Kel::Ptr<Acl::AclTypeConfig> config(new Acl::AclTypeConfig);
  AclJournal journal;
  journal.Acl::AclTypeConfig::NotifieeConst::notifierIs(config);
  const Kel::Ptr<Acl::AclConfig> list = config->aclIs("A");
  EXPECT_EQ(config->aclIs("A"), list);
  EXPECT_EQ(config->aclMutable("A"), list);
  EXPECT_EQ(list->name(), Kel::Name("A"));
  journal.Acl::AclConfig::NotifieeConst::notifierIs(list);
  const Kel::Ptr<Acl::AclSubConfig> first = list->currCfgIs();
  EXPECT_EQ(list->currCfgIs(), first);
  const Kel::Ptr<Acl::AclSubConfig> next(new Acl::AclSubConfig);
  list->currCfgIs(next);
  EXPECT_EQ(list->currCfg(), next);
  list->currCfgDel();
  EXPECT_FALSE(list->currCfgMutable());
  config->aclDel("A");
  EXPECT_EQ(journal.lines,
            (std::vector<std::string>{"acl A", "currCfg", "currCfg", "currCfg", "acl A"}));
  journal.Acl::AclConfig::NotifieeConst::notifierIs(nullptr);
  journal.Acl::AclTypeConfig::NotifieeConst::notifierIs(nullptr);
}

TEST(AclConfig, NullCurrentRules_RefusedWithMutatorTextAndUnchanged) {
  const Kel::Ptr<Acl::AclConfig> list(new Acl::AclConfig("A"));
  const Kel::Ptr<Acl::AclSubConfig> rules = list->currCfgIs();
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { list->currCfgIs(nullptr); }),
            "null _currCfg parameter to mutator for Acl::AclConfig::currCfg not allowed");
  EXPECT_EQ(list->currCfg(), rules);
}

}  // namespace
