// How the outputs print what the library recorded about its answers: show rp's detail, its
// per-mode answers and scope note, and show rp mapping.

#include <gtest/gtest.h>

#include <string>

#include "tests/tools/ToolTestSupport.h"
#include "tools/Output.h"

namespace {

using namespace PimrpTool;
using namespace Routing::Pim;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using ToolTest::humanOf;
using ToolTest::jsonOf;

RpCandidateInfo info(const char* rp, RpPriority priority, Mode mode) {
  return RpCandidateInfo(IpGenAddr(rp), priority, 30, false, mode);
}

// Static: one sparse candidate. Bootstrap: two bidir candidates of equal priority, one sparse
// candidate set aside for them and one of no usable mode. The bootstrap RP is the answer.
RpAnswer detailed() {
  RpAnswer answer;
  answer.group = IpGenAddr("239.1.1.1");
  answer.rp = IpGenAddr("10.1.0.5");
  answer.staticSelection = info("10.0.0.1", 0, modePimSm);
  answer.bsrSelection = info("10.1.0.5", 10, modePimBidir);
  RpSelectionRecord staticRecord;
  staticRecord.range = IpGenPrefix("239.0.0.0/8");
  staticRecord.decidingMode = modePimSm;
  staticRecord.candidates = {{info("10.0.0.1", 0, modePimSm), std::nullopt}};
  staticRecord.step = RpSelectionStep::singleCandidate;
  staticRecord.result = answer.staticSelection;
  RpSelectionRecord bsrRecord;
  bsrRecord.range = IpGenPrefix("239.0.0.0/8");
  bsrRecord.decidingMode = modePimBidir;
  bsrRecord.candidates = {{info("10.1.0.4", 10, modePimBidir), std::nullopt},
                          {info("10.1.0.5", 10, modePimBidir), std::nullopt}};
  bsrRecord.setAside = {{info("10.1.0.1", 0, modePimSm), RpSetAsideReason::otherMode},
                        {info("10.1.0.9", 0, modePimNone), RpSetAsideReason::unusableMode}};
  bsrRecord.step = RpSelectionStep::highestAddress;
  bsrRecord.result = answer.bsrSelection;
  RpHashComputeRecord answerRecord;
  answerRecord.computed = true;
  answerRecord.staticResult = answer.staticSelection;
  answerRecord.bsrResult = answer.bsrSelection;
  answerRecord.reason = RpSourceReason::bootstrapBeatsStatic;
  answerRecord.source = RpAnswerSource::bootstrap;
  answerRecord.answer = answer.rp;
  answer.staticDetail = staticRecord;
  answer.bsrDetail = bsrRecord;
  answer.answerDetail = answerRecord;
  return answer;
}

TEST(ExplainOutput, HumanDetail_ComparedCandidatesSetAsideAndTheAnswerStep) {
  EXPECT_EQ(humanOf(detailed()),
            "rp for 239.1.1.1 (any mode): 10.1.0.5\n"
            "  source  rp        priority  hashmask  override  mode\n"
            "  static  10.0.0.1  0         30        no        sparse\n"
            "  bsr     10.1.0.5  10        30        no        bidir\n"
            "  static: range 239.0.0.0/8, decided by single candidate\n"
            "    rp        priority  hashmask  mode    hash\n"
            "    10.0.0.1  0         30        sparse  -\n"
            "  bsr: range 239.0.0.0/8, decided by highest address (bidir candidates are not "
            "hashed)\n"
            "    rp        priority  hashmask  mode   hash\n"
            "    10.1.0.4  10        30        bidir  -\n"
            "    10.1.0.5  10        30        bidir  -\n"
            "    set aside (other mode): 10.1.0.1\n"
            "    set aside (no usable mode): 10.1.0.9\n"
            "  answer: computed, bootstrap beats static\n");
}

TEST(ExplainOutput, JsonDetail_TodaysMembersThenSetAsideAndTheAnswerStep) {
  EXPECT_EQ(
      jsonOf(detailed()),
      "{\"group\":\"239.1.1.1\",\"mode\":\"any\",\"rp\":\"10.1.0.5\","
      "\"static\":{\"address\":\"10.0.0.1\",\"priority\":0,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"sparse\"},"
      "\"bsr\":{\"address\":\"10.1.0.5\",\"priority\":10,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"bidir\"},"
      "\"detail\":{"
      "\"static\":{\"range\":\"239.0.0.0/8\",\"rule\":\"single candidate\",\"candidates\":["
      "{\"address\":\"10.0.0.1\",\"priority\":0,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"sparse\",\"hash\":null}],\"setAside\":[]},"
      "\"bsr\":{\"range\":\"239.0.0.0/8\",\"rule\":\"highest address (bidir candidates are not "
      "hashed)\",\"candidates\":["
      "{\"address\":\"10.1.0.4\",\"priority\":10,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"bidir\",\"hash\":null},"
      "{\"address\":\"10.1.0.5\",\"priority\":10,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"bidir\",\"hash\":null}],\"setAside\":["
      "{\"address\":\"10.1.0.1\",\"priority\":0,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"sparse\",\"reason\":\"other mode\"},"
      "{\"address\":\"10.1.0.9\",\"priority\":0,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"none\",\"reason\":\"no usable mode\"}]},"
      "\"answer\":{\"source\":\"bsr\",\"tableEntry\":null,\"computed\":{\"reason\":\"bootstrap "
      "beats static\",\"setAsideByMode\":[]}}},"
      "\"scope\":null}\n");
}

TEST(ExplainOutput, HumanDetail_HashedCandidatesShowTheirHash) {
  RpAnswer answer = detailed();
  answer.bsrDetail->decidingMode = modePimSm;
  answer.bsrDetail->candidates[0].info.modeIs(modePimSm);
  answer.bsrDetail->candidates[1].info.modeIs(modePimSm);
  answer.bsrDetail->candidates[0].hash = 363606289u;
  answer.bsrDetail->candidates[1].hash = 1526668376u;
  answer.bsrDetail->setAside.clear();
  answer.bsrDetail->step = RpSelectionStep::hash;
  const std::string human = humanOf(answer);
  EXPECT_NE(human.find("  bsr: range 239.0.0.0/8, decided by hash\n"
                       "    rp        priority  hashmask  mode    hash\n"
                       "    10.1.0.4  10        30        sparse  363606289\n"
                       "    10.1.0.5  10        30        sparse  1526668376\n"
                       "  answer: "),
            std::string::npos)
      << human;
  EXPECT_NE(jsonOf(answer).find("\"hash\":363606289},{\"address\":\"10.1.0.5\""),
            std::string::npos);
}

// The last line of show rp ... detail for one answer record.
std::string answerLine(const RpHashComputeRecord& record, Mode queryMode = modePimSm) {
  RpAnswer answer = detailed();
  answer.queryMode = queryMode;
  answer.answerDetail = record;
  const std::string human = humanOf(answer);
  const auto start = human.rfind("  answer: ");
  return human.substr(start);
}

TEST(ExplainOutput, HumanAnswerStep_EachWay) {
  RpHashComputeRecord record;
  record.tableEntry = RpHash(IpGenPrefix("239.1.1.1/32"), info("10.0.0.1", 0, modePimSm));
  record.source = RpAnswerSource::table;
  EXPECT_EQ(answerLine(record), "  answer: from the final table's entry 239.1.1.1/32\n");
  record.tableEntry =
      RpHash(IpGenPrefix("239.1.1.1/32"), RpCandidateInfo(IpGenAddr(), 256, 128, false, modePimSm));
  record.source = RpAnswerSource::join;
  EXPECT_EQ(answerLine(record),
            "  answer: the final table's entry 239.1.1.1/32 names no RP; the join address as last "
            "resort\n");
  record = RpHashComputeRecord();
  record.computed = true;
  record.reason = RpSourceReason::staticOverride;
  record.staticResult = info("10.0.0.1", 0, modePimBidir);
  record.staticSetAsideByMode = true;
  record.source = RpAnswerSource::bootstrap;
  EXPECT_EQ(answerLine(record),
            "  answer: computed, static override; static RP 10.0.0.1 is bidir, not sparse: set "
            "aside\n");
  record = RpHashComputeRecord();
  record.computed = true;
  record.reason = RpSourceReason::bootstrapBeatsStatic;
  record.bsrResult = info("10.1.0.1", 0, modePimSm);
  record.bsrSetAsideByMode = true;
  record.source = RpAnswerSource::none;
  EXPECT_EQ(answerLine(record, modePimBidir),
            "  answer: computed, bootstrap beats static; bsr RP 10.1.0.1 is sparse, not bidir: set "
            "aside; no join address\n");
  record = RpHashComputeRecord();
  record.computed = true;
  record.source = RpAnswerSource::join;
  EXPECT_EQ(answerLine(record), "  answer: computed, no RP; the join address as last resort\n");
}

TEST(ExplainOutput, JsonAnswerStep_TableEntryAndSetAsideSources) {
  RpAnswer answer = detailed();
  RpHashComputeRecord& record = *answer.answerDetail;
  record = RpHashComputeRecord();
  record.tableEntry = RpHash(IpGenPrefix("239.1.1.1/32"), info("10.0.0.1", 0, modePimSm));
  record.source = RpAnswerSource::table;
  EXPECT_NE(jsonOf(answer).find("\"answer\":{\"source\":\"table\",\"tableEntry\":{\"prefix\":"
                                "\"239.1.1.1/32\",\"address\":\"10.0.0.1\"},\"computed\":null}"),
            std::string::npos);
  record = RpHashComputeRecord();
  record.computed = true;
  record.staticSetAsideByMode = true;
  record.bsrSetAsideByMode = true;
  record.reason = RpSourceReason::staticOverride;
  record.source = RpAnswerSource::join;
  EXPECT_NE(jsonOf(answer).find("\"answer\":{\"source\":\"join\",\"tableEntry\":null,\"computed\":"
                                "{\"reason\":\"static override\",\"setAsideByMode\":[\"static\","
                                "\"bsr\"]}}"),
            std::string::npos);
}

// Without a mode: each mode's answer with where it came from, the filters, and the scope note.
RpAnswer byModeAnswer() {
  RpAnswer answer;
  answer.group = IpGenAddr("232.1.1.1");
  answer.rp = IpGenAddr("10.1.0.1");
  answer.bsrSelection = info("10.1.0.1", 0, modePimSm);
  answer.byMode = ModeAnswers{{IpGenAddr("10.1.0.1"), RpAnswerSource::table},
                              {IpGenAddr(), RpAnswerSource::none},
                              false,
                              true};
  answer.scope = ScopeRange{ScopeKind::sourceSpecific, "232.0.0.0/8"};
  return answer;
}

TEST(ExplainOutput, HumanByModeAndScope_OneLineEach) {
  EXPECT_EQ(humanOf(byModeAnswer()),
            "rp for 232.1.1.1 (any mode): 10.1.0.1\n"
            "  source  rp        priority  hashmask  override  mode\n"
            "  static  -\n"
            "  bsr     10.1.0.1  0         30        no        sparse\n"
            "  by mode: sparse 10.1.0.1 (final table), bidir none; group filter: sparse no, bidir "
            "yes\n"
            "  note: 232.0.0.0/8 holds source-specific groups: routers serve them without an RP\n");
  RpAnswer answer = byModeAnswer();
  answer.byMode->sparse.source = RpAnswerSource::staticRp;
  answer.byMode->bidir = {IpGenAddr("10.1.0.2"), RpAnswerSource::bootstrap};
  answer.scope = ScopeRange{ScopeKind::linkLocal, "224.0.0.0/24"};
  const std::string human = humanOf(answer);
  EXPECT_NE(human.find("  by mode: sparse 10.1.0.1 (computed, static), bidir 10.1.0.2 (computed, "
                       "bsr); group filter: sparse no, bidir yes\n"
                       "  note: 224.0.0.0/24 holds link-local groups: they are never routed\n"),
            std::string::npos)
      << human;
  answer.byMode->bidir = {IpGenAddr("10.9.9.9"), RpAnswerSource::join};
  EXPECT_NE(humanOf(answer).find("bidir 10.9.9.9 (join address);"), std::string::npos);
}

TEST(ExplainOutput, JsonByModeAndScope_NewMembersAfterTodays) {
  EXPECT_EQ(jsonOf(byModeAnswer()),
            "{\"group\":\"232.1.1.1\",\"mode\":\"any\",\"rp\":\"10.1.0.1\","
            "\"static\":{\"address\":null,\"priority\":256,\"hashMaskLen\":128,\"override\":false,"
            "\"mode\":\"none\"},"
            "\"bsr\":{\"address\":\"10.1.0.1\",\"priority\":0,\"hashMaskLen\":30,\"override\":"
            "false,\"mode\":\"sparse\"},"
            "\"byMode\":{\"sparse\":{\"rp\":\"10.1.0.1\",\"source\":\"table\"},"
            "\"bidir\":{\"rp\":null,\"source\":\"none\"}},"
            "\"groupFilter\":{\"sparse\":false,\"bidir\":true},"
            "\"scope\":{\"kind\":\"source-specific\",\"range\":\"232.0.0.0/8\"}}\n");
}

// One range of both sources: static bidir, bootstrap sparse; each mode's entries.
RpMapping oneRange() {
  MappingRange range;
  range.range = IpGenPrefix("224.0.0.0/4");
  range.candidates = {{CandidateSource::staticConfig, info("10.0.0.1", 0, modePimBidir)},
                      {CandidateSource::bootstrap, info("10.1.0.1", 10, modePimSm)}};
  const RpHash none;
  const RpHash staticEntry(range.range, info("10.0.0.1", 0, modePimBidir));
  const RpHash bsrEntry(range.range, info("10.1.0.1", 10, modePimSm));
  const RpHash otherModeSparse(range.range,
                               RpCandidateInfo(IpGenAddr(), 256, 128, false, modePimSm));
  const RpHash otherModeBidir(range.range,
                              RpCandidateInfo(IpGenAddr(), 256, 128, false, modePimBidir));
  range.modes = {{modePimSm, otherModeSparse, bsrEntry, bsrEntry, TableSource::bsr,
                  RpSourceReason::onlyBootstrap},
                 {modePimBidir, staticEntry, otherModeBidir, staticEntry, TableSource::staticRp,
                  RpSourceReason::onlyStatic}};
  range.scope = {{{ScopeKind::linkLocal, "224.0.0.0/24"}, false},
                 {{ScopeKind::sourceSpecific, "232.0.0.0/8"}, false}};
  MappingRange left;
  left.range = IpGenPrefix("239.0.0.0/8");
  left.modes = {{modePimSm, none, none, bsrEntry, std::nullopt, RpSourceReason::noRp},
                {modePimBidir, none, none, none, std::nullopt, RpSourceReason::noRp}};
  return RpMapping{Ipkit::AddressFamily::ipv4, {VrfMapping{"default", {range, left}}}};
}

TEST(ExplainOutput, HumanMapping_CandidatesThenEachModeThenNotes) {
  EXPECT_EQ(humanOf(oneRange()),
            "rp mapping ipv4, vrf default\n"
            "  224.0.0.0/4\n"
            "    source  rp        priority  hashmask  override  mode\n"
            "    static  10.0.0.1  0         30        no        bidir\n"
            "    bsr     10.1.0.1  10        30        no        sparse\n"
            "    mode    static      bsr         final     from    why\n"
            "    sparse  other mode  10.1.0.1    10.1.0.1  bsr     only bootstrap\n"
            "    bidir   10.0.0.1    other mode  10.0.0.1  static  only static\n"
            "    note: includes 224.0.0.0/24 (link-local groups: they are never routed)\n"
            "    note: includes 232.0.0.0/8 (source-specific groups: routers serve them without an "
            "RP)\n"
            "  239.0.0.0/8\n"
            "    no candidates\n"
            "    mode    static  bsr  final     from  why\n"
            "    sparse  -       -    10.1.0.1  -     no RP\n"
            "    bidir   -       -    -         -     no RP\n");
  EXPECT_EQ(humanOf(RpMapping{std::nullopt, {VrfMapping{"blue", {}}}}),
            "rp mapping, vrf blue: none\n");
}

TEST(ExplainOutput, JsonMapping_ListOfVrfsWithTheirRanges) {
  RpMapping mapping = oneRange();
  mapping.vrfs[0].ranges.pop_back();
  mapping.vrfs[0].ranges[0].scope.pop_back();
  mapping.vrfs[0].ranges[0].scope[0].within = true;
  EXPECT_EQ(
      jsonOf(mapping),
      "{\"family\":\"ipv4\",\"vrfs\":[{\"vrf\":\"default\",\"ranges\":[{\"range\":\"224.0.0.0/4\","
      "\"candidates\":["
      "{\"source\":\"static\",\"address\":\"10.0.0.1\",\"priority\":0,\"hashMaskLen\":30,"
      "\"override\":false,\"mode\":\"bidir\"},"
      "{\"source\":\"bsr\",\"address\":\"10.1.0.1\",\"priority\":10,\"hashMaskLen\":30,"
      "\"override\":false,\"mode\":\"sparse\"}],"
      "\"modes\":{"
      "\"sparse\":{\"static\":{\"address\":null,\"priority\":256,\"hashMaskLen\":128,\"override\":"
      "false,\"mode\":\"sparse\"},"
      "\"bsr\":{\"address\":\"10.1.0.1\",\"priority\":10,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"sparse\"},"
      "\"final\":{\"address\":\"10.1.0.1\",\"priority\":10,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"sparse\"},\"from\":\"bsr\",\"reason\":\"only bootstrap\"},"
      "\"bidir\":{\"static\":{\"address\":\"10.0.0.1\",\"priority\":0,\"hashMaskLen\":30,"
      "\"override\":false,\"mode\":\"bidir\"},"
      "\"bsr\":{\"address\":null,\"priority\":256,\"hashMaskLen\":128,\"override\":false,"
      "\"mode\":\"bidir\"},"
      "\"final\":{\"address\":\"10.0.0.1\",\"priority\":0,\"hashMaskLen\":30,\"override\":false,"
      "\"mode\":\"bidir\"},\"from\":\"static\",\"reason\":\"only static\"}},"
      "\"scope\":[{\"kind\":\"link-local\",\"range\":\"224.0.0.0/24\",\"relation\":\"within\"}]}"
      "]}]}\n");
  EXPECT_EQ(jsonOf(RpMapping{std::nullopt, {VrfMapping{"default", {}}}}),
            "{\"family\":\"any\",\"vrfs\":[{\"vrf\":\"default\",\"ranges\":[]}]}\n");
}

}  // namespace
