#pragma once
// The statements of the pimrp script language as typed values: what StatementParser makes of a
// line, what Validator checks and what Session applies.
//
// Invariants:
//  1. A statement holds only values that parsed: addresses and prefixes are well formed, a prefix
//     had no host bits set, keywords were among those allowed. Whether a value is in range for
//     its use (a priority above 255, a group range outside the multicast space) is left to the
//     Validator, which needs the word as written to quote it: such values are Spelled.
//  2. Numbers are read into 64 bits and saturate, so that a range check sees a value at least as
//     large as the one written, however long the word.
//  3. Adding a statement means adding a struct here and to Statement, a row to the parser's
//     table, a check to the Validator and an apply to the Session; std::visit makes the compiler
//     point at whichever is missing.

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>

#include "framework/Acl/IpRuleConfig.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/PimTypes.h"

namespace PimrpTool {

// A value together with the word it was read from.
template <class T>
struct Spelled {
  T value{};
  std::string word;
};

using Address = Spelled<Ipkit::IpGenAddr>;
using Prefix = Spelled<Ipkit::IpGenPrefix>;
using Number = Spelled<std::uint64_t>;

// A numeric option of an rp-address binding as written: left out (the binding takes the
// protocol's default), `none` (the value is left unconfigured) or a number.
struct OptionValue {
  enum class Form { leftOut, none, number };
  Form form = Form::leftOut;
  Number number;  // when form is number
};

// The options of one rp-address binding; override left out removes the setting.
struct BindingOptions {
  OptionValue priority;
  OptionValue hashMask;
  bool override = false;
};

struct VrfStatement {
  std::string name;
};

struct RpGroupStatement {
  Address rp;
  Prefix group;
  BindingOptions options;
};

struct RpAclStatement {
  Address rp;
  std::string acl;
  BindingOptions options;
};

struct RpModeStatement {
  Address rp;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
};

struct NoRpGroupStatement {
  Address rp;
  Prefix group;
};

struct NoRpAclStatement {
  Address rp;
  std::string acl;
};

struct NoRpStatement {
  Address rp;
};

struct AclRuleStatement {
  std::string acl;
  Number sequence;
  Acl::AclAction action = Acl::AclAction::deny;
  std::optional<Prefix> prefix;  // absent: the rule matches any address
};

struct NoAclRuleStatement {
  std::string acl;
  Number sequence;
};

struct NoAclStatement {
  std::string acl;
};

struct BsrRpStatement {
  Prefix group;
  Address rp;
  Number priority;
  Number hashMask;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
};

struct NoBsrRpStatement {
  Prefix group;
  Address rp;
};

struct RpHashAlgorithmStatement {
  Routing::Pim::RpHashAlgorithm algorithm = Routing::Pim::rpHashAlgorithmRfc7761;
};

// A known group, or every address of a range of groups; `group` is a host prefix when one
// address was written.
struct GroupStatement {
  Prefix group;
};

struct NoGroupStatement {
  Prefix group;
};

// A unicast route: `route PREFIX type N [via ADDR interface NAME]`, or the `route PREFIX local
// NAME` shorthand, which reads as type 1 via the prefix's own address.
struct RouteStatement {
  Prefix prefix;
  Number type;
  std::optional<Address> via;
  std::string interface;  // with via
  bool local = false;     // written with the shorthand
};

struct NoRouteStatement {
  Prefix prefix;
};

struct ShadowStatement {
  Ipkit::AddressFamily af = Ipkit::AddressFamily::ipv4;
  bool attached = true;
};

struct AttrLogStatement {
  bool clogged = false;
};

// A number of seconds as written: digits with an optional fraction of at most six digits, read in
// microseconds.
using Seconds = Spelled<std::uint64_t>;

struct RunStatement {
  std::optional<Seconds> seconds;  // absent: until no wake-up is pending
};

struct ClockStatement {
  bool settle = true;
};

struct ShowRpStatement {
  Address group;
  Routing::Pim::Mode mode = Routing::Pim::modePimNone;  // none: any mode
  std::optional<Address> join;
  bool detail = false;             // also explain each source's choice
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

enum class CandidateSource { staticConfig, bootstrap };

struct ShowCandidatesStatement {
  CandidateSource source = CandidateSource::staticConfig;
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

struct ShowAclStatement {
  std::string acl;
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

enum class TableSource { final, staticRp, bsr };
enum class TableKind { groups, prefixes };

struct ShowRpHashStatement {
  TableSource source = TableSource::final;
  TableKind kind = TableKind::groups;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  std::optional<Ipkit::AddressFamily> af;  // absent: both families
  std::optional<std::string> vrf;          // `vrf NAME` at the end; absent: the VRF of the section
};

struct ShowLocalRpStatement {
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

struct ShowGroupFilterStatement {
  Address group;
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

struct ShowAllocRequestsStatement {
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

struct ShowReviewStatement {
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

struct ShowRpMappingStatement {
  std::optional<Ipkit::AddressFamily> af;  // absent: both families
  std::optional<std::string> vrf;          // `vrf NAME` at the end; absent: the VRF of the section
};

// The running configuration, as the statements that rebuild it.
struct ShowConfigStatement {
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

// Embedded RP, set for the VRF of the section: `embedded-rp enable|disable`,
// `embedded-rp limit N`, `[no] embedded-rp group-range PREFIX`, and its show.
struct EmbeddedRpEnableStatement {
  bool enabled = true;
};

struct EmbeddedRpLimitStatement {
  Number limit;
};

struct EmbeddedRpGroupRangeStatement {
  Prefix range;
};

struct NoEmbeddedRpGroupRangeStatement {
  Prefix range;
};

struct ShowEmbeddedRpStatement {
  std::optional<std::string> vrf;  // `vrf NAME` at the end; absent: the VRF of the section
};

// How the known groups spread over the RPs of the final per-group tables.
struct ShowRpHashSummaryStatement {
  std::optional<Ipkit::AddressFamily> af;  // absent: both families
  std::optional<std::string> vrf;          // `vrf NAME` at the end; absent: the VRF of the section
};

using Statement = std::variant<
    VrfStatement, RpGroupStatement, RpAclStatement, RpModeStatement, NoRpGroupStatement,
    NoRpAclStatement, NoRpStatement, AclRuleStatement, NoAclRuleStatement, NoAclStatement,
    BsrRpStatement, NoBsrRpStatement, RpHashAlgorithmStatement, GroupStatement, NoGroupStatement,
    RouteStatement, NoRouteStatement, ShadowStatement, AttrLogStatement, RunStatement,
    ClockStatement, ShowRpStatement, ShowCandidatesStatement, ShowAclStatement, ShowRpHashStatement,
    ShowLocalRpStatement, ShowGroupFilterStatement, ShowAllocRequestsStatement, ShowReviewStatement,
    ShowRpMappingStatement, ShowConfigStatement, EmbeddedRpEnableStatement,
    EmbeddedRpLimitStatement, EmbeddedRpGroupRangeStatement, NoEmbeddedRpGroupRangeStatement,
    ShowEmbeddedRpStatement, ShowRpHashSummaryStatement>;

// Whether a statement of type S only asks (a show).
template <class S>
constexpr bool kIsShowStatement =
    std::is_same_v<S, ShowRpStatement> || std::is_same_v<S, ShowCandidatesStatement> ||
    std::is_same_v<S, ShowAclStatement> || std::is_same_v<S, ShowRpHashStatement> ||
    std::is_same_v<S, ShowLocalRpStatement> || std::is_same_v<S, ShowGroupFilterStatement> ||
    std::is_same_v<S, ShowAllocRequestsStatement> || std::is_same_v<S, ShowReviewStatement> ||
    std::is_same_v<S, ShowRpMappingStatement> || std::is_same_v<S, ShowConfigStatement> ||
    std::is_same_v<S, ShowEmbeddedRpStatement> || std::is_same_v<S, ShowRpHashSummaryStatement>;

// Whether the statement only asks (a show).
inline bool isShowStatement(const Statement& statement) {
  return std::visit([](const auto& s) { return kIsShowStatement<std::decay_t<decltype(s)>>; },
                    statement);
}

// Whether the statement edits the rules of an access list (and so may join a run of them).
inline bool isRuleStatement(const Statement& statement) {
  return std::holds_alternative<AclRuleStatement>(statement) ||
         std::holds_alternative<NoAclRuleStatement>(statement);
}

}  // namespace PimrpTool
