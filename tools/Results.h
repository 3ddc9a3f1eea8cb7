#pragma once
// What the show statements answer, as plain values: the Session fills them from the library,
// an Output prints them. Nothing here is computed by the tool; every field is read from the
// library's entities or its answers.

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
#include "tools/Statement.h"

namespace PimrpTool {

// One candidate of the range a source matched, with its hash value for the group (none when
// its hash mask length is not set).
struct CandidateDetail {
  Routing::Pim::RpCandidateInfo info;
  std::optional<std::uint32_t> hash;
};

// How one source chose: the longest range covering the group, its candidates in address order,
// and the step of the selection that left one candidate ("" when none was chosen).
struct SourceDetail {
  std::optional<Ipkit::IpGenPrefix> range;
  std::vector<CandidateDetail> candidates;
  std::string rule;
};

// show rp: rpHashCompute's answer and each source's own selection.
struct RpAnswer {
  Ipkit::IpGenAddr group;
  Routing::Pim::Mode queryMode = Routing::Pim::modePimNone;  // none: any mode
  std::optional<Ipkit::IpGenAddr> join;
  Ipkit::IpGenAddr rp;  // unknown family: no RP
  Routing::Pim::RpCandidateInfo staticSelection;
  Routing::Pim::RpCandidateInfo bsrSelection;
  // With detail: how each source chose.
  std::optional<SourceDetail> staticDetail;
  std::optional<SourceDetail> bsrDetail;
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
                 GroupFilterAnswer, AllocRequestTally, ReviewListing, ConfigListing>;

}  // namespace PimrpTool
