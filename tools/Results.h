#pragma once
// What the show statements answer, and what a what-if reports, as plain values: the Session fills
// them from the library, an Output prints them. The tool decides nothing here: every RP and entry
// is read from the library's entities or its answers, and the tool only counts them (the RP load
// summary, a what-if's moves).

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "framework/Acl/IpRuleConfig.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateInfo.h"
#include "model/Pim/RpHash.h"
#include "rp/PimRpHashComputeRecord.h"
#include "rp/PimRpSelectionRecord.h"
#include "rp/PimRpSourceRule.h"
#include "tools/EmbeddedRpResults.h"
#include "tools/GroupScope.h"
#include "tools/RpHashSummary.h"
#include "tools/Statement.h"
#include "tools/WhatIfReport.h"

namespace PimrpTool {

// What one mode's own compute answers and where the answer came from (its final per-group table,
// a source, the join address).
struct ModeAnswer {
  Ipkit::IpGenAddr rp;  // unknown family: no RP
  Routing::Pim::RpAnswerSource source = Routing::Pim::RpAnswerSource::none;
};

// show rp without a mode: each mode's answer, and whether each group filter admits the group.
struct ModeAnswers {
  ModeAnswer sparse;
  ModeAnswer bidir;
  bool sparseServed = false;
  bool bidirServed = false;
};

// show rp: rpHashCompute's answer and each source's own selection.
struct RpAnswer {
  Ipkit::IpGenAddr group;
  Routing::Pim::Mode queryMode = Routing::Pim::modePimNone;  // none: any mode
  std::optional<Ipkit::IpGenAddr> join;
  Ipkit::IpGenAddr rp;  // unknown family: no RP
  Routing::Pim::RpCandidateInfo staticSelection;
  Routing::Pim::RpCandidateInfo bsrSelection;
  // With detail: how each source chose, as its selection recorded it, and how rpHashCompute came
  // to its answer.
  std::optional<Routing::Pim::RpSelectionRecord> staticDetail;
  std::optional<Routing::Pim::RpSelectionRecord> bsrDetail;
  std::optional<Routing::Pim::RpHashComputeRecord> answerDetail;
  // Without a query mode: the per-mode answers.
  std::optional<ModeAnswers> byMode;
  // The range of groups served without an RP, or never routed, that holds the group.
  std::optional<ScopeRange> scope;
  // With embedded RP on for the group's family: what the group's address names.
  std::optional<EmbeddedRpAnswer> embedded;
};

// One candidate set: its prefix and its candidates in ascending address order, each as the five
// values selection reads.
struct CandidateSetRows {
  Ipkit::IpGenPrefix prefix;
  std::vector<Routing::Pim::RpCandidateInfo> rps;
};

// show candidates: the sets of both families, ascending by prefix (IPv4 first).
struct CandidateListing {
  CandidateSource source = CandidateSource::staticConfig;
  std::vector<CandidateSetRows> sets;
};

// A rule of an access list that names only addresses outside the group space, which the
// folding of the list therefore passes over.
struct IgnoredRule {
  std::uint32_t sequence = 0;
  Acl::AclAction action = Acl::AclAction::deny;
  Ipkit::IpGenPrefix prefix;
};

// show acl: the group prefixes the list permits, ascending, and the rules in sequence order that
// serve no group.
struct AclListing {
  std::string acl;
  bool configured = false;
  std::vector<Ipkit::IpGenPrefix> prefixes;
  std::vector<IgnoredRule> ignored;
};

// show rp-hash: one table's entries in key order, IPv4 first.
struct RpHashListing {
  TableSource source = TableSource::final;
  TableKind kind = TableKind::groups;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  std::optional<Ipkit::AddressFamily> af;  // absent: both families
  std::vector<Routing::Pim::RpHash> entries;
};

struct LocalRpRow {
  Ipkit::IpGenAddr address;
  std::string interface;
};

// show local-rp: the local RP tables of both families, ascending by address.
struct LocalRpListing {
  std::vector<LocalRpRow> rps;
};

// show group-filter: whether each filter admits the group.
struct GroupFilterAnswer {
  Ipkit::IpGenAddr group;
  bool sparse = false;
  bool bidir = false;
};

struct AllocRequestRow {
  Ipkit::IpGenAddr address;
  std::uint64_t alloc = 0;
  std::uint64_t dealloc = 0;
};

// show alloc-requests: the allocator's request counters and its request record tallied per RP
// address, ascending.
struct AllocRequestTally {
  std::uint64_t alloc = 0;
  std::uint64_t dealloc = 0;
  std::vector<AllocRequestRow> rps;
};

struct ReviewRow {
  Ipkit::AddressFamily af = Ipkit::AddressFamily::ipv4;
  TableSource source = TableSource::staticRp;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  std::uint64_t queued = 0;
  std::uint64_t groupsProcessed = 0;
  std::uint64_t yieldBeforeFinishing = 0;
  Ipkit::IpGenAddr bookmark;  // unknown family: none
  bool reviewPending = false;
};

// show review: the eight reviews, IPv4 first, static before bsr, sparse before bidir.
struct ReviewListing {
  std::vector<ReviewRow> reviews;
};

// One candidate of a range in the RP mapping, with the source that holds it.
struct MappingCandidate {
  CandidateSource source = CandidateSource::staticConfig;
  Routing::Pim::RpCandidateInfo info;
};

// The per-range entries of one mode for a range: each source's (an entry without an RP when the
// source's winner is of the other mode) and the final one (the default entry when absent), which
// source's entry the final one is, and the rule's reason read from the two per-source entries.
struct MappingMode {
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  Routing::Pim::RpHash staticEntry;
  Routing::Pim::RpHash bsrEntry;
  Routing::Pim::RpHash finalEntry;
  std::optional<TableSource> from;  // staticRp or bsr; absent: no final entry, or neither's
  Routing::Pim::RpSourceReason reason = Routing::Pim::RpSourceReason::noRp;
};

// One range of either source or of a final per-range table: its candidates (static first, each
// source ascending by address), its two modes (sparse, bidir) and its scope notes.
struct MappingRange {
  Ipkit::IpGenPrefix range;
  std::vector<MappingCandidate> candidates;
  std::vector<MappingMode> modes;
  std::vector<ScopeNote> scope;
};

// The ranges of one VRF, ascending (IPv4 first).
struct VrfMapping {
  std::string vrf;
  std::vector<MappingRange> ranges;
};

// show rp mapping: per VRF (every VRF in use, or the one named), every range.
struct RpMapping {
  std::optional<Ipkit::AddressFamily> af;  // absent: both families
  std::vector<VrfMapping> vrfs;
};

// One line of show config: a statement, or a comment above a part of them (a heading), or a note
// about a static candidate whose values the statements would not give back (left by a binding
// since removed or changed).
struct ConfigLine {
  enum class Kind { statement, heading, note };
  Kind kind = Kind::statement;
  std::string text;
};

// show config: the running configuration as statements that, run as a script, rebuild the same
// candidate statuses, with a note for each static candidate they would not give back as it is.
struct ConfigListing {
  std::vector<ConfigLine> lines;
};

using ShowResult =
    std::variant<RpAnswer, CandidateListing, AclListing, RpHashListing, LocalRpListing,
                 GroupFilterAnswer, AllocRequestTally, ReviewListing, RpMapping, ConfigListing,
                 EmbeddedRpListing, RpHashSummary, WhatIfReport>;

}  // namespace PimrpTool
