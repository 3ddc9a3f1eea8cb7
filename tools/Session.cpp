#include "tools/Session.h"

#include <type_traits>
#include <utility>

#include "framework/Kel/System.h"
#include "tools/BindingWarnings.h"
#include "tools/RunningConfig.h"
#include "tools/ShowAnswers.h"

namespace PimrpTool {

using namespace Routing::Pim;

// The statements the session keeps for itself, then the shows that read more than one part of it;
// every other statement goes to the pipeline (InputWriter) or is a show of it (ShowAnswers). A
// statement that none of them takes does not compile.
struct SessionApply {
  Session& session;
  Commit commit;

  using Result = std::optional<ShowResult>;

  Result operator()(const VrfStatement& s) const {
    session.vrf_ = L3::VrfName(s.name);
    session.family(Ipkit::AddressFamily::ipv4).vrfIs(session.vrf_);
    session.family(Ipkit::AddressFamily::ipv6).vrfIs(session.vrf_);
    return std::nullopt;
  }

  Result operator()(const AttrLogStatement& s) const {
    session.host().attrLog->attrLogOutCloggedIs(s.clogged);
    return std::nullopt;
  }

  Result operator()(const RunStatement& s) const {
    if (!s.seconds) {
      session.settle();
      return std::nullopt;
    }
    const double seconds = static_cast<double>(s.seconds->value) / 1e6;
    session.host().clock->runUntil(Kel::System::currentTime() + seconds);
    return std::nullopt;
  }

  Result operator()(const ClockStatement& s) const {
    session.clockSettles_ = s.settle;
    return std::nullopt;
  }

  Result operator()(const ShowRpMappingStatement& s) const {
    VrfMapping mapping = vrfMapping(session.pipeline_, s.af);
    mapping.vrf = session.vrf_.string();
    return RpMapping{s.af, {std::move(mapping)}};
  }

  Result operator()(const ShowConfigStatement&) const { return runningConfig(session); }

  template <class S>
  Result operator()(const S& s) const {
    if constexpr (kIsShowStatement<S>) {
      return ShowAnswers{session.pipeline_}(s);
    } else {
      InputWriter{session.pipeline_, session.run_, commit}(s);
      return std::nullopt;
    }
  }
};

namespace {

// The tool runs the library in virtual time from 0: time moves only when the session says so.
VrfPipeline::Host hostFromTimeZero() {
  Kel::System::virtualTimeIs(0);
  return VrfPipeline::Host{Kel::Ptr<Kel::Clock>(new Kel::Clock),
                           Kel::Ptr<PimAttrLogSm>(new PimAttrLogSm)};
}

// Over shared tables left by an earlier run, the known groups come back before the reviews take up
// the per-source tables; the configuration reaches running reviews, as an agent's replayed
// configuration does (a review that starts over candidates already configured computes each
// range's own entry before the range is in its trie). The merges take up the final tables when an
// answer is asked for or time is to move, or at the end of the input.
bool startsReviews(const Statement& statement) {
  return !std::holds_alternative<GroupStatement>(statement);
}
bool startsMerges(const Statement& statement) {
  return isShowStatement(statement) || std::holds_alternative<RunStatement>(statement);
}

}  // namespace

Session::Session(const TableHome& home) : home_(home), pipeline_(vrf_, hostFromTimeZero(), home) {
  if (home_.kind == TableHome::Kind::process) reactorsStart();
}

void Session::reactorsStart() {
  if (pipeline_.started()) return;
  // Over shared tables the reviews finish redoing the per-source tables first; the merges then
  // fold them into the final tables at once, so that readers of a final table see each entry
  // change at most once, to its new value, and no answer of a configuration half replayed.
  pipeline_.reviewsStart();
  if (home_.kind == TableHome::Kind::sharedWriter && clockSettles_) settle();
  pipeline_.start();
}

void Session::finish() {
  if (home_.kind != TableHome::Kind::sharedWriter) return;
  commit();
  reactorsStart();
  if (clockSettles_) settle();
}

std::optional<ShowResult> Session::apply(const Statement& statement, Commit commit) {
  // A run ends at anything but one more rule statement of its list.
  if (commit == Commit::eachStatement || run_.endsRun(statement)) this->commit();
  const bool reachesLibrary = commit == Commit::eachStatement || !isRuleStatement(statement);
  if (home_.kind == TableHome::Kind::sharedWriter && startsReviews(statement)) {
    pipeline_.reviewsStart();
  }
  // Statements typed one at a time have no end to wait for: the final tables follow them from the
  // first statement that reaches the reviews.
  const bool typedChange = commit == Commit::eachStatement && startsReviews(statement);
  if (home_.kind == TableHome::Kind::sharedWriter && (startsMerges(statement) || typedChange)) {
    reactorsStart();
  }
  if (clockSettles_ && isShowStatement(statement)) settle();
  BindingWarnings watch(family(Ipkit::AddressFamily::ipv4));
  if (reachesLibrary) watch.before(statement);
  auto answer = std::visit(SessionApply{*this, commit}, statement);
  if (reachesLibrary) warningsAdd(watch.after(statement));
  // Readers of shared tables see them as the statements typed so far leave them, not as they
  // were at the last show.
  if (home_.kind == TableHome::Kind::sharedWriter && commit == Commit::eachStatement &&
      clockSettles_) {
    settle();
  }
  return answer;
}

std::vector<std::string> Session::warningsTaken() {
  std::vector<std::string> taken;
  taken.swap(warnings_);
  return taken;
}

void Session::warningsAdd(std::vector<std::string> warnings) {
  for (auto& warning : warnings) warnings_.push_back(std::move(warning));
}

void Session::settle() {
  while (host().clock->runNext()) {
  }
}

void Session::commit() {
  if (!run_.collecting()) return;
  // Taken first, so that a refusal below does not leave a run to commit again.
  const std::string acl = run_.acl();
  const auto rules = run_.rulesTaken();
  FamilyWiring& ipv4 = family(Ipkit::AddressFamily::ipv4);
  BindingWarnings watch(ipv4);
  watch.listBefore(acl);
  ipv4.aclConfig()->aclIs(acl)->currCfgIs(rules);
  warningsAdd(watch.listAfter(acl));
}

}  // namespace PimrpTool
