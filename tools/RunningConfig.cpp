#include "tools/RunningConfig.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/AddressNumber.h"
#include "tools/BindingWarnings.h"
#include "tools/Output.h"
#include "tools/StatementParser.h"
#include "tools/StaticBindings.h"
#include "tools/StaticReplay.h"
#include "tools/Validation.h"

namespace PimrpTool {
namespace {

using namespace Routing::Pim;
using Ipkit::AddressFamily;

constexpr AddressFamily kFamilies[] = {AddressFamily::ipv4, AddressFamily::ipv6};

}  // namespace

std::vector<Ipkit::IpGenPrefix> groupRanges(const GroupStatus& groups, AddressFamily af,
                                            unsigned maxBits) {
  std::vector<Ipkit::IpGenPrefix> ranges;
  const auto cover = [&](AddressNumber first, AddressNumber last) {
    for (;;) {
      // The widest range starting at `first` that its alignment, the run and one statement allow.
      unsigned sizeBits = 0;
      while (sizeBits < maxBits && ((first >> sizeBits) & 1) == 0 &&
             last - first >= (AddressNumber{2} << sizeBits) - 1) {
        ++sizeBits;
      }
      ranges.emplace_back(addressOf(af, first), addressBits(af) - sizeBits);
      const AddressNumber rangeLast = first + ((AddressNumber{1} << sizeBits) - 1);
      if (rangeLast == last) return;
      first = rangeLast + 1;
    }
  };
  bool inRun = false;
  AddressNumber first = 0, last = 0;
  for (const auto& [group, known] : groups.group()) {
    const AddressNumber number = numberOf(group);
    if (inRun && last + 1 == number) {
      last = number;
      continue;
    }
    if (inRun) cover(first, last);
    first = last = number;
    inRun = true;
  }
  if (inRun) cover(first, last);
  return ranges;
}

namespace {

// " priority 5 hashmask none override": the options of a binding that differ from leaving them
// out, as the entry holds them (a value absent was configured 'none').
std::string optionWords(bool hasPriority, RpPriority priority, bool hasMask, RpHashMaskLen mask,
                        bool override, AddressFamily af) {
  std::string words;
  if (!hasPriority) words += " priority none";
  if (hasPriority && priority != kDefaultPriority) words += " priority " + std::to_string(priority);
  if (!hasMask) words += " hashmask none";
  if (hasMask && mask != defaultHashMask(af)) words += " hashmask " + std::to_string(mask);
  if (override) words += " override";
  return words;
}

std::string ruleText(const std::string& acl, U32 sequence, const Acl::IpRuleConfig& rule) {
  const auto& filter = rule.filter();
  return "acl " + acl + " seq " + std::to_string(sequence) +
         (rule.action() == Acl::AclAction::permit ? " permit " : " deny ") +
         (filter.any() ? std::string("any") : filter.prefix().valueToStrep());
}

using CandidateKey = std::pair<Ipkit::IpGenPrefix, Ipkit::IpGenAddr>;

std::map<CandidateKey, Kel::PtrConst<RpCandidate>> candidatesOf(const RpCandidateStatus& status) {
  std::map<CandidateKey, Kel::PtrConst<RpCandidate>> candidates;
  for (const auto& [prefix, set] : status.crpSet()) {
    for (const auto& [address, candidate] : set->rp()) candidates[{prefix, address}] = candidate;
  }
  return candidates;
}

std::string valuesWithMode(const RpCandidate& candidate) {
  return candidateValues(candidate) + ", mode " + modeWord(candidate.pimMode());
}

bool sameValues(const RpCandidate& a, const RpCandidate& b) {
  return a.priority() == b.priority() && a.hashMaskLen() == b.hashMaskLen() &&
         a.override() == b.override() && a.pimMode() == b.pimMode();
}

class ConfigWriter {
 public:
  explicit ConfigWriter(const Session& session) : session_(session) {}

  ConfigListing written(const std::vector<const VrfPipeline*>& vrfs, bool everyVrf) {
    for (const VrfPipeline* vrf : vrfs) {
      vrf_ = vrf;
      staticLines_.clear();
      vrfSection(vrfs.size() > 1);
    }
    if (everyVrf) currentSection();
    hostState();
    return std::move(listing_);
  }

 private:
  // Starts a part of the listing; its heading is written with its first statement.
  void section(std::string heading) { heading_ = std::move(heading); }
  void statement(std::string text) {
    if (!heading_.empty()) listing_.lines.push_back({ConfigLine::Kind::heading, heading_});
    heading_.clear();
    listing_.lines.push_back({ConfigLine::Kind::statement, std::move(text)});
  }
  // A statement of the static configuration, which the replay is given too.
  void staticStatement(std::string text) {
    staticLines_.push_back(text);
    statement(std::move(text));
  }
  void note(std::string text) {
    listing_.lines.push_back({ConfigLine::Kind::note, std::move(text)});
  }

  const FamilyWiring& family(AddressFamily af) const { return vrf_->family(af); }

  // Everything one VRF configures. Its vrf statement comes first, so that its known groups land
  // in it too; the default VRF needs none, being first, unless nothing else would open it.
  void vrfSection(bool amongOthers) {
    const std::size_t before = listing_.lines.size();
    if (vrf_->vrf() != L3::VrfName()) openVrf();
    knownGroups();
    rpConfiguration();
    bootstrapCandidates();
    embeddedRp();
    routes();
    heading_.clear();
    if (amongOthers && listing_.lines.size() == before) openVrf();
  }

  void openVrf() {
    section("VRF " + vrf_->vrf().string());
    statement("vrf " + vrf_->vrf().string());
  }

  void knownGroups() {
    section("known groups");
    for (const AddressFamily af : kFamilies) {
      for (const auto& range : groupRanges(*family(af).groups(), af, kMaxGroupBits)) {
        statement("group " + (range.len() == addressBits(af) ? range.address().valueToStrep()
                                                             : range.valueToStrep()));
      }
    }
  }

  // What the VRF's RP configuration holds: the selection rule and its static RPs.
  void rpConfiguration() {
    section("RP configuration");
    if (vrf_->rpConfig()->rpHashAlgorithm() == rpHashAlgorithmModulo) {
      statement("rp-hash-algorithm modulo");
    }
    accessLists();
    section("static RPs");
    for (const AddressFamily af : kFamilies) {
      for (const auto& [address, entry] : family(af).staticConfig()->rpTable()) {
        staticRp(af, *entry);
      }
    }
    staticNotes();
  }

  void accessLists() {
    section("access lists");
    for (const auto& [name, list] : family(AddressFamily::ipv4).aclConfig()->acl()) {
      const auto rules = list->currCfg();
      if (!rules || rules->ruleBySequence().empty()) {
        // A list configured without rules: a rule set and taken away again leaves one.
        staticStatement("acl " + name + " seq 1 deny any");
        staticStatement("no acl " + name + " seq 1");
        continue;
      }
      for (const auto& [sequence, id] : rules->ruleBySequence()) {
        staticStatement(ruleText(name, sequence, rules->ipRuleById(id)));
      }
    }
  }

  // Whether the candidate of (rp, range) holds the values its group binding writes.
  bool holdsGroupValues(AddressFamily af, const Static::RpEntry& entry,
                        const Ipkit::IpGenPrefix& range) const {
    const auto set = family(af).staticStatus()->crpSet(range);
    const auto candidate = set ? set->rp(entry.address()) : nullptr;
    if (!candidate) return false;
    const RpPriority priority =
        entry.priorityGrp().contains(range) ? entry.priorityGrp(range) : kRpPriorityNone;
    const RpHashMaskLen mask =
        entry.hashMaskGrp().contains(range) ? entry.hashMaskGrp(range) : kRpHashMaskLenNone;
    const bool override = entry.overrideDynGrp().contains(range) && entry.overrideDynGrp(range);
    return candidate->priority() == priority && candidate->hashMaskLen() == mask &&
           candidate->override() == override;
  }

  void staticRp(AddressFamily af, const Static::RpEntry& entry) {
    const std::string rp = "rp-address " + entry.address().valueToStrep();
    if (entry.mode() == modePimBidir || (entry.group().empty() && entry.acl().empty())) {
      staticStatement(rp + " mode " + modeWord(entry.mode()));
    }
    // A range that a list gives the RP too holds the values of the binding written last: the
    // group binding goes after the lists when the candidate holds its values.
    std::vector<std::string> groupsFirst, groupsLast;
    for (const auto& [range, bound] : entry.group()) {
      const std::string binding =
          rp + " group " + range.valueToStrep() +
          optionWords(entry.priorityGrp().contains(range), entry.priorityGrp(range),
                      entry.hashMaskGrp().contains(range), entry.hashMaskGrp(range),
                      entry.overrideDynGrp().contains(range) && entry.overrideDynGrp(range), af);
      const bool givenTwice =
          af == AddressFamily::ipv4 && !listsGiving(family(af), entry.address(), range).empty();
      (givenTwice && holdsGroupValues(af, entry, range) ? groupsLast : groupsFirst)
          .push_back(binding);
    }
    for (auto& binding : groupsFirst) staticStatement(std::move(binding));
    for (const auto& [acl, bound] : entry.acl()) {
      staticStatement(rp + " acl " + acl +
                      optionWords(entry.priorityAcl().contains(acl), entry.priorityAcl(acl),
                                  entry.hashMaskAcl().contains(acl), entry.hashMaskAcl(acl),
                                  entry.overrideDynAcl().contains(acl) && entry.overrideDynAcl(acl),
                                  af));
    }
    for (auto& binding : groupsLast) staticStatement(std::move(binding));
  }

  // Replays the static statements and names every candidate they would not give back.
  void staticNotes() {
    StaticReplay replay(vrf_->vrf());
    for (const auto& line : staticLines_) replay.apply(*parseStatement(line));
    for (const AddressFamily af : kFamilies) {
      const auto held = candidatesOf(*family(af).staticStatus());
      const auto replayed = candidatesOf(replay.status(af));
      for (const auto& [key, candidate] : held) {
        const std::string which =
            "RP " + key.second.valueToStrep() + "'s candidate for " + key.first.valueToStrep();
        const auto twin = replayed.find(key);
        if (twin == replayed.end()) {
          note(which + " is not given by the statements above");
        } else if (!sameValues(*candidate, *twin->second)) {
          note(which + " holds " + valuesWithMode(*candidate) +
               ", left by a binding since removed or changed; the statements above give it " +
               valuesWithMode(*twin->second));
        }
      }
      for (const auto& [key, candidate] : replayed) {
        if (held.count(key) != 0) continue;
        note("the statements above give RP " + key.second.valueToStrep() + " a candidate for " +
             key.first.valueToStrep() + " that the library does not hold");
      }
    }
  }

  void bootstrapCandidates() {
    section("bootstrap candidates");
    for (const AddressFamily af : kFamilies) {
      for (const auto& [key, candidate] : candidatesOf(*family(af).bsrStatus())) {
        statement("bsr-rp " + key.first.valueToStrep() + ' ' + key.second.valueToStrep() +
                  " priority " + std::to_string(candidate->priority()) + " hashmask " +
                  std::to_string(candidate->hashMaskLen()) + " mode " +
                  modeWord(candidate->pimMode()));
      }
    }
  }

  // The settings that differ from the defaults, `embedded-rp enable` last, so that it applies
  // once with every setting in place.
  void embeddedRp() {
    section("embedded RP");
    const auto& config = *family(AddressFamily::ipv6).embeddedRp().config();
    if (config.limit() != EmbeddedRpConfig::kDefaultLimit) {
      statement("embedded-rp limit " + std::to_string(config.limit()));
    }
    for (const auto& [range, configured] : config.groupRange()) {
      statement("embedded-rp group-range " + range.valueToStrep());
    }
    if (config.enabled()) statement("embedded-rp enable");
  }

  void routes() {
    section("routes");
    for (const AddressFamily af : kFamilies) {
      // The language gives a route no via or one.
      for (const auto& route : family(af).routes()) {
        const std::string prefix = "route " + route.prefix.valueToStrep();
        if (route.vias.empty()) {
          statement(prefix + " type " + std::to_string(route.type));
          continue;
        }
        const auto& via = route.vias.front();
        if (route.type == 1 && via.nextHop == route.prefix.address()) {
          statement(prefix + " local " + via.intfId.name());
          continue;
        }
        statement(prefix + " type " + std::to_string(route.type) + " via " +
                  via.nextHop.valueToStrep() + " interface " + via.intfId.name());
      }
      if (!family(af).shadowAttached()) statement("shadow " + familyWord(af) + " detach");
    }
  }

  // The statements after show config stand in the section it stands in: the last section
  // written must be that one too.
  void currentSection() {
    if (vrf_ == nullptr || vrf_->vrf() == session_.vrf()) return;
    section("current VRF");
    statement("vrf " + session_.vrf().string());
  }

  // What the tool keeps for every VRF: the attribute log's back-pressure and the clock.
  void hostState() {
    section("review and clock");
    if (session_.host().attrLog->isAttrLogOutClogged()) statement("attr-log clogged");
    if (!session_.clockSettles()) statement("clock manual");
  }

  const Session& session_;
  const VrfPipeline* vrf_ = nullptr;  // the VRF of the section being written
  ConfigListing listing_;
  std::string heading_;
  std::vector<std::string> staticLines_;
};

}  // namespace

ConfigListing runningConfig(const Session& session, const std::vector<const VrfPipeline*>& vrfs,
                            bool everyVrf) {
  return ConfigWriter(session).written(vrfs, everyVrf);
}

}  // namespace PimrpTool
