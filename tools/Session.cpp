#include "tools/Session.h"

#include <type_traits>
#include <utility>

#include "framework/Kel/Exception.h"
#include "framework/Kel/System.h"
#include "tools/BindingWarnings.h"
#include "tools/RunningConfig.h"
#include "tools/ShowAnswers.h"

namespace PimrpTool {

using namespace Routing::Pim;

// The statements the session keeps for itself, then the shows that may read more than one VRF;
// every other statement goes to the pipeline of its VRF (InputWriter) or is a show of it
// (ShowAnswers). A statement that none of them takes does not compile.
struct SessionApply {
  Session& session;
  // The pipeline the statement reads or writes (Session::pipelineOf).
  VrfPipeline& vrf;
  Commit commit;

  using Result = std::optional<ShowResult>;

  Result operator()(const VrfStatement&) const {
    session.current_ = &vrf;
    return std::nullopt;
  }

  Result operator()(const AttrLogStatement& s) const {
    session.host_.attrLog->attrLogOutCloggedIs(s.clogged);
    return std::nullopt;
  }

  Result operator()(const RunStatement& s) const {
    if (!s.seconds) {
      session.settle();
      return std::nullopt;
    }
    const double seconds = static_cast<double>(s.seconds->value) / 1e6;
    session.host_.clock->runUntil(Kel::System::currentTime() + seconds);
    return std::nullopt;
  }

  Result operator()(const ClockStatement& s) const {
    session.clockSettles_ = s.settle;
    return std::nullopt;
  }

  // Without a VRF named, every VRF in use.
  std::vector<const VrfPipeline*> vrfsAsked(const std::optional<std::string>& named) const {
    if (named) return {&vrf};
    return session.vrfsInUse();
  }

  Result operator()(const ShowRpMappingStatement& s) const {
    RpMapping mapping{s.af, {}};
    for (const VrfPipeline* each : vrfsAsked(s.vrf)) {
      mapping.vrfs.push_back(vrfMapping(*each, s.af));
    }
    return mapping;
  }

  Result operator()(const ShowConfigStatement& s) const {
    return runningConfig(session, vrfsAsked(s.vrf), !s.vrf);
  }

  template <class S>
  Result operator()(const S& s) const {
    if constexpr (kIsShowStatement<S>) {
      return ShowAnswers{vrf}(s);
    } else {
      InputWriter{vrf, session.run_, commit}(s);
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

const L3::VrfName kDefaultVrf;

// Over shared tables left by an earlier run, the known groups of a VRF come back before its
// reviews take up the per-source tables; the configuration reaches running reviews, as an agent's
// replayed configuration does (a review that starts over candidates already configured computes
// each range's own entry before the range is in its trie). Opening a section starts nothing: the
// groups of the VRF follow it. The merges take up the final tables when an answer is asked for or
// time is to move, or at the end of the input.
bool startsReviews(const Statement& statement) {
  return !std::holds_alternative<GroupStatement>(statement) &&
         !std::holds_alternative<VrfStatement>(statement);
}
bool startsMerges(const Statement& statement) {
  return isShowStatement(statement) || std::holds_alternative<RunStatement>(statement);
}

// The VRF that a vrf statement opens or a show names; none for any other statement.
std::optional<std::string> vrfNamedBy(const Statement& statement) {
  return std::visit(
      [](const auto& s) -> std::optional<std::string> {
        using S = std::decay_t<decltype(s)>;
        if constexpr (std::is_same_v<S, VrfStatement>) {
          return s.name;
        } else if constexpr (kIsShowStatement<S>) {
          return s.vrf;
        } else {
          return std::nullopt;
        }
      },
      statement);
}

}  // namespace

Session::Session(const TableHome& home) : home_(home), host_(hostFromTimeZero()) {
  auto& pipeline = pipelines_[kDefaultVrf];
  pipeline = pipelineNew(kDefaultVrf);
  current_ = pipeline.get();
  inUse_.insert(kDefaultVrf);
}

std::unique_ptr<VrfPipeline> Session::pipelineNew(const L3::VrfName& vrf) const {
  auto pipeline = std::make_unique<VrfPipeline>(vrf, host_, home_);
  if (home_.kind == TableHome::Kind::process) pipeline->start();
  return pipeline;
}

VrfPipeline& Session::pipelineFor(const std::string& name) {
  const L3::VrfName vrf(name);
  auto& pipeline = pipelines_[vrf];
  if (pipeline) return *pipeline;
  try {
    pipeline = pipelineNew(vrf);
  } catch (const Kel::RangeException& refusal) {
    pipelines_.erase(vrf);
    throw TablesUnavailable("cannot attach the shared tables '" + home_.name + "' of VRF '" + name +
                            "': " + refusal.what());
  } catch (...) {
    pipelines_.erase(vrf);
    throw;
  }
  return *pipeline;
}

void Session::vrfTablesAttach(const std::set<std::string>& vrfs) {
  for (const std::string& vrf : vrfs) pipelineFor(vrf);
}

VrfPipeline& Session::pipelineOf(const Statement& statement) {
  const auto named = vrfNamedBy(statement);
  return named ? pipelineFor(*named) : *current_;
}

void Session::sectionDefaultIs() { current_ = pipelines_.at(kDefaultVrf).get(); }

std::vector<const VrfPipeline*> Session::vrfsInUse() const {
  std::vector<const VrfPipeline*> vrfs;
  if (inUse_.count(kDefaultVrf) != 0) vrfs.push_back(pipelines_.at(kDefaultVrf).get());
  for (const auto& [vrf, pipeline] : pipelines_) {
    if (vrf != kDefaultVrf && inUse_.count(vrf) != 0) vrfs.push_back(pipeline.get());
  }
  return vrfs;
}

std::vector<VrfPipeline*> Session::pipelinesInUse() {
  std::vector<VrfPipeline*> pipelines;
  for (const VrfPipeline* vrf : vrfsInUse()) pipelines.push_back(pipelines_.at(vrf->vrf()).get());
  return pipelines;
}

void Session::reactorsStart(const std::vector<VrfPipeline*>& pipelines) {
  bool starting = false;
  // Over shared tables the reviews finish redoing the per-source tables first; the merges then
  // fold them into the final tables at once, so that readers of a final table see each entry
  // change at most once, to its new value, and no answer of a configuration half replayed.
  for (VrfPipeline* pipeline : pipelines) {
    if (pipeline->started()) continue;
    pipeline->reviewsStart();
    starting = true;
  }
  if (!starting) return;
  if (home_.kind == TableHome::Kind::sharedWriter && clockSettles_) settle();
  for (VrfPipeline* pipeline : pipelines) pipeline->start();
}

void Session::finish() {
  if (home_.kind != TableHome::Kind::sharedWriter) return;
  commit();
  reactorsStart(pipelinesInUse());
  if (clockSettles_) settle();
}

std::optional<ShowResult> Session::apply(const Statement& statement, Commit commit) {
  // A run ends at anything but one more rule statement of its list.
  if (commit == Commit::eachStatement || run_.endsRun(statement)) this->commit();
  VrfPipeline& vrf = pipelineOf(statement);
  // A session that opens another VRF first leaves "default" unused until a statement names it.
  if (!applied_ && vrf.vrf() != kDefaultVrf) inUse_.erase(kDefaultVrf);
  applied_ = true;
  inUse_.insert(vrf.vrf());
  const bool writer = home_.kind == TableHome::Kind::sharedWriter;
  if (writer && startsReviews(statement)) vrf.reviewsStart();
  if (writer && startsMerges(statement)) reactorsStart(pipelinesInUse());
  // Statements typed one at a time have no end to wait for: a VRF's final tables follow them from
  // the first statement that reaches its reviews.
  if (writer && commit == Commit::eachStatement && startsReviews(statement)) {
    reactorsStart({&vrf});
  }
  if (clockSettles_ && isShowStatement(statement)) settle();
  const bool reachesLibrary = commit == Commit::eachStatement || !isRuleStatement(statement);
  BindingWarnings watch(vrf.family(Ipkit::AddressFamily::ipv4));
  if (reachesLibrary) watch.before(statement);
  auto answer = std::visit(SessionApply{*this, vrf, commit}, statement);
  if (reachesLibrary) warningsAdd(watch.after(statement));
  // Readers of shared tables see them as the statements typed so far leave them, not as they
  // were at the last show.
  if (writer && commit == Commit::eachStatement && clockSettles_) settle();
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
  while (host_.clock->runNext()) {
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
