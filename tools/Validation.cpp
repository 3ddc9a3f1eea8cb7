#include "tools/Validation.h"

#include <algorithm>
#include <string>
#include <type_traits>

#include "framework/Kel/Exception.h"
#include "framework/L3/VrfName.h"
#include "pipeline/TableHome.h"
#include "tools/EmbeddedRpStatements.h"
#include "tools/GroupSpace.h"
#include "tools/StatementError.h"

namespace PimrpTool {
namespace {

using Ipkit::AddressFamily;

constexpr std::uint64_t kMaxPriority = 255;
constexpr std::uint64_t kMaxSequence = 4294967295ull;

std::uint64_t maxHashMask(AddressFamily af) { return af == AddressFamily::ipv4 ? 32 : 128; }

const char* familyName(AddressFamily af) { return af == AddressFamily::ipv4 ? "IPv4" : "IPv6"; }

void checkRange(const Number& number, const std::string& what, std::uint64_t low,
                std::uint64_t high, const std::string& context = "") {
  if (number.value >= low && number.value <= high) return;
  throw StatementError(what + " " + quoted(number.word) + " out of range " + std::to_string(low) +
                       ".." + std::to_string(high) + context);
}

void checkPriority(const Number& priority) { checkRange(priority, "priority", 0, kMaxPriority); }

void checkHashMask(const Number& hashMask, AddressFamily groupFamily) {
  checkRange(hashMask, "hashmask", 0, maxHashMask(groupFamily),
             std::string(" for an ") + familyName(groupFamily) + " group range");
}

void checkSequence(const Number& sequence) {
  checkRange(sequence, "sequence number", 1, kMaxSequence);
}

// Why an address cannot be a router's unicast address, or "" when it can be one. An IPv4-mapped
// IPv6 address (::ffff:a.b.c.d) is judged by the IPv4 address it carries.
std::string notUnicastReason(const Ipkit::IpGenAddr& address) {
  if (address.isMulticast()) return "it is a multicast address";
  if (address == Ipkit::IpGenAddr(Ipkit::Ip4Addr(0)) ||
      address == Ipkit::IpGenAddr(Ipkit::Ip6Addr())) {
    return "it is the unspecified address";
  }
  if (address == Ipkit::IpGenAddr(Ipkit::Ip4Addr(0xffffffffu))) {
    return "it is the broadcast address";
  }
  const auto& bytes = address.bytes();
  const bool mapped =
      address.af() == AddressFamily::ipv6 &&
      std::all_of(bytes.begin(), bytes.begin() + 10, [](auto b) { return b == 0; }) &&
      bytes[10] == 0xff && bytes[11] == 0xff;
  if (!mapped) return "";
  const Ipkit::IpGenAddr carried(std::to_string(bytes[12]) + "." + std::to_string(bytes[13]) + "." +
                                 std::to_string(bytes[14]) + "." + std::to_string(bytes[15]));
  const std::string why = notUnicastReason(carried);
  if (why.empty()) return "";
  return "it maps IPv4 address " + carried.valueToStrep() + ", which " + why.substr(3);
}

// An RP is a router's unicast address; a group, unspecified or broadcast address there is a typo.
void checkRpAddress(const Address& rp) {
  const std::string why = notUnicastReason(rp.value);
  if (why.empty()) return;
  throw StatementError("RP address " + quoted(rp.word) + " is not a unicast address: " + why);
}

void checkGroupRange(const Prefix& group) {
  const Ipkit::IpGenPrefix space = groupSpace(group.value.af());
  if (space.contains(group.value)) return;
  throw StatementError("group range " + quoted(group.word) + " is not within " +
                       space.valueToStrep());
}

void checkSameFamily(const Address& rp, const Prefix& group) {
  if (rp.value.af() == group.value.af()) return;
  throw StatementError("RP " + quoted(rp.word) + " and group range " + quoted(group.word) +
                       " are of different families");
}

void checkRpForGroup(const Address& rp, const Prefix& group) {
  checkRpAddress(rp);
  checkSameFamily(rp, group);
  checkGroupRange(group);
}

// Access lists exist for IPv4 only, so only an IPv4 RP can serve the groups one permits.
void checkRpForAcl(const Address& rp, const std::string& acl) {
  checkRpAddress(rp);
  if (rp.value.af() == AddressFamily::ipv4) return;
  throw StatementError("RP " + quoted(rp.word) + " cannot use access list " + quoted(acl) +
                       ": access lists are IPv4 only");
}

void checkOptions(const BindingOptions& options, AddressFamily groupFamily) {
  if (options.priority.form == OptionValue::Form::number) checkPriority(options.priority.number);
  if (options.hashMask.form == OptionValue::Form::number) {
    checkHashMask(options.hashMask.number, groupFamily);
  }
}

constexpr std::uint64_t kMaxGroups = 1ull << kMaxGroupBits;
constexpr std::uint64_t kMaxRouteType = 4294967295ull;
constexpr std::uint64_t kMaxRunSeconds = 86400;
constexpr std::uint64_t kMicrosPerSecond = 1000000;

void checkGroupCount(const Prefix& group) {
  const unsigned bits = group.value.af() == AddressFamily::ipv4 ? 32 : 128;
  if (bits - group.value.len() <= kMaxGroupBits) return;
  throw StatementError("group range " + quoted(group.word) + " holds more than " +
                       std::to_string(kMaxGroups) + " groups");
}

void checkKnownGroups(const Prefix& group) {
  checkGroupRange(group);
  checkGroupCount(group);
}

// A route covers unicast destinations: a multicast prefix, or a host route to an address that is
// no router's (the broadcast address above all), is a typo.
void checkRoutePrefix(const Prefix& prefix) {
  if (prefix.value.address().isMulticast()) {
    throw StatementError("route prefix " + quoted(prefix.word) + " is not a unicast prefix");
  }
  const unsigned hostLength = prefix.value.af() == AddressFamily::ipv4 ? 32 : 128;
  if (prefix.value.len() != hostLength) return;
  const std::string why = notUnicastReason(prefix.value.address());
  if (why.empty()) return;
  throw StatementError("route prefix " + quoted(prefix.word) + " is not a unicast prefix: " + why);
}

void checkRoute(const RouteStatement& s) {
  checkRoutePrefix(s.prefix);
  checkRange(s.type, "route type", 0, kMaxRouteType);
  if (!s.via || s.local) return;
  const std::string why = notUnicastReason(s.via->value);
  if (!why.empty()) {
    throw StatementError("next hop " + quoted(s.via->word) + " is not a unicast address: " + why);
  }
  if (s.via->value.af() != s.prefix.value.af()) {
    throw StatementError("next hop " + quoted(s.via->word) + " and route prefix " +
                         quoted(s.prefix.word) + " are of different families");
  }
}

void checkRunSeconds(const Seconds& seconds) {
  if (seconds.value <= kMaxRunSeconds * kMicrosPerSecond) return;
  throw StatementError("number of seconds " + quoted(seconds.word) + " out of range 0.." +
                       std::to_string(kMaxRunSeconds));
}

void checkMulticastGroup(const Address& group) {
  if (group.value.isMulticast()) return;
  throw StatementError("group " + quoted(group.word) + " is not a multicast address");
}

// One overload per statement; a statement without one does not compile.
struct StatementChecks {
  // What a VRF name may hold is the Validator's own check (checkVrf).
  void operator()(const VrfStatement&) const {}
  void operator()(const RpGroupStatement& s) const {
    checkRpForGroup(s.rp, s.group);
    checkOptions(s.options, s.group.value.af());
  }
  void operator()(const RpAclStatement& s) const {
    checkRpForAcl(s.rp, s.acl);
    checkOptions(s.options, AddressFamily::ipv4);
  }
  void operator()(const RpModeStatement& s) const { checkRpAddress(s.rp); }
  // A removal that could never match anything is a typo, not a harmless no-op: the same checks.
  void operator()(const NoRpGroupStatement& s) const { checkRpForGroup(s.rp, s.group); }
  void operator()(const NoRpAclStatement& s) const { checkRpForAcl(s.rp, s.acl); }
  void operator()(const NoRpStatement& s) const { checkRpAddress(s.rp); }
  void operator()(const AclRuleStatement& s) const {
    checkSequence(s.sequence);
    if (s.prefix && s.prefix->value.af() != AddressFamily::ipv4) {
      throw StatementError("access-list rule prefix " + quoted(s.prefix->word) +
                           " is not IPv4: access lists are IPv4 only");
    }
  }
  void operator()(const NoAclRuleStatement& s) const { checkSequence(s.sequence); }
  void operator()(const NoAclStatement&) const {}
  void operator()(const BsrRpStatement& s) const {
    checkRpForGroup(s.rp, s.group);
    checkPriority(s.priority);
    checkHashMask(s.hashMask, s.group.value.af());
  }
  void operator()(const NoBsrRpStatement& s) const { checkRpForGroup(s.rp, s.group); }
  void operator()(const RpHashAlgorithmStatement&) const {}
  void operator()(const GroupStatement& s) const { checkKnownGroups(s.group); }
  void operator()(const NoGroupStatement& s) const { checkKnownGroups(s.group); }
  void operator()(const RouteStatement& s) const { checkRoute(s); }
  void operator()(const NoRouteStatement& s) const { checkRoutePrefix(s.prefix); }
  void operator()(const ShadowStatement&) const {}
  void operator()(const AttrLogStatement&) const {}
  void operator()(const RunStatement& s) const {
    if (s.seconds) checkRunSeconds(*s.seconds);
  }
  void operator()(const ClockStatement&) const {}
  void operator()(const ShowRpHashStatement&) const {}
  void operator()(const ShowLocalRpStatement&) const {}
  void operator()(const ShowGroupFilterStatement& s) const { checkMulticastGroup(s.group); }
  void operator()(const ShowAllocRequestsStatement&) const {}
  void operator()(const ShowReviewStatement&) const {}
  void operator()(const ShowConfigStatement&) const {}
  void operator()(const ShowRpHashSummaryStatement&) const {}
  void operator()(const ShowRpStatement& s) const {
    checkMulticastGroup(s.group);
    if (!s.join) return;
    checkRpAddress(*s.join);
    if (s.join->value.af() != s.group.value.af()) {
      throw StatementError("join RP " + quoted(s.join->word) + " and group " +
                           quoted(s.group.word) + " are of different families");
    }
  }
  void operator()(const ShowCandidatesStatement&) const {}
  void operator()(const ShowAclStatement&) const {}
  void operator()(const ShowRpMappingStatement&) const {}
  void operator()(const EmbeddedRpEnableStatement& s) const { checkEmbeddedRp(s); }
  void operator()(const EmbeddedRpLimitStatement& s) const { checkEmbeddedRp(s); }
  void operator()(const EmbeddedRpGroupRangeStatement& s) const { checkEmbeddedRp(s); }
  void operator()(const NoEmbeddedRpGroupRangeStatement& s) const { checkEmbeddedRp(s); }
  void operator()(const ShowEmbeddedRpStatement& s) const { checkEmbeddedRp(s); }
};

// The keywords that open each statement, as the statement table spells them.
struct StatementWords {
  const char* operator()(const VrfStatement&) const { return "vrf"; }
  const char* operator()(const RpGroupStatement&) const { return "rp-address"; }
  const char* operator()(const RpAclStatement&) const { return "rp-address"; }
  const char* operator()(const RpModeStatement&) const { return "rp-address"; }
  const char* operator()(const NoRpGroupStatement&) const { return "no rp-address"; }
  const char* operator()(const NoRpAclStatement&) const { return "no rp-address"; }
  const char* operator()(const NoRpStatement&) const { return "no rp-address"; }
  const char* operator()(const AclRuleStatement&) const { return "acl"; }
  const char* operator()(const NoAclRuleStatement&) const { return "no acl"; }
  const char* operator()(const NoAclStatement&) const { return "no acl"; }
  const char* operator()(const BsrRpStatement&) const { return "bsr-rp"; }
  const char* operator()(const NoBsrRpStatement&) const { return "no bsr-rp"; }
  const char* operator()(const RpHashAlgorithmStatement&) const { return "rp-hash-algorithm"; }
  const char* operator()(const GroupStatement&) const { return "group"; }
  const char* operator()(const NoGroupStatement&) const { return "no group"; }
  const char* operator()(const RouteStatement&) const { return "route"; }
  const char* operator()(const NoRouteStatement&) const { return "no route"; }
  const char* operator()(const ShadowStatement&) const { return "shadow"; }
  const char* operator()(const AttrLogStatement&) const { return "attr-log"; }
  const char* operator()(const RunStatement&) const { return "run"; }
  const char* operator()(const ClockStatement&) const { return "clock"; }
  const char* operator()(const ShowRpStatement&) const { return "show rp"; }
  const char* operator()(const ShowCandidatesStatement&) const { return "show candidates"; }
  const char* operator()(const ShowAclStatement&) const { return "show acl"; }
  const char* operator()(const ShowRpHashStatement&) const { return "show rp-hash"; }
  const char* operator()(const ShowLocalRpStatement&) const { return "show local-rp"; }
  const char* operator()(const ShowGroupFilterStatement&) const { return "show group-filter"; }
  const char* operator()(const ShowAllocRequestsStatement&) const { return "show alloc-requests"; }
  const char* operator()(const ShowReviewStatement&) const { return "show review"; }
  const char* operator()(const ShowRpMappingStatement&) const { return "show rp mapping"; }
  const char* operator()(const ShowConfigStatement&) const { return "show config"; }
  const char* operator()(const EmbeddedRpEnableStatement&) const { return "embedded-rp"; }
  const char* operator()(const EmbeddedRpLimitStatement&) const { return "embedded-rp"; }
  const char* operator()(const EmbeddedRpGroupRangeStatement&) const { return "embedded-rp"; }
  const char* operator()(const NoEmbeddedRpGroupRangeStatement&) const { return "no embedded-rp"; }
  const char* operator()(const ShowEmbeddedRpStatement&) const { return "show embedded-rp"; }
  const char* operator()(const ShowRpHashSummaryStatement&) const { return "show rp-hash summary"; }
};

}  // namespace

void Validator::checkReadOnly(const Statement& statement) const {
  // The name passed the shared-table name check: quoted whole, however long.
  if (std::holds_alternative<ShowRpHashStatement>(statement)) return;
  const std::string words = std::visit(StatementWords{}, statement);
  const std::string attachment =
      "a read-only attachment to the shared tables '" + readOnlyTables_ + "'";
  if (!isShowStatement(statement)) {
    throw StatementError(quoted(words) + " would change state, and this is " + attachment);
  }
  throw StatementError(quoted(words) + " is not available in " + attachment +
                       ": it needs the writer's own state; only 'show rp-hash' reads the tables");
}

void Validator::checkVrfName(const std::string& name) const {
  if (name.size() > L3::VrfName::maxLength) {
    throw StatementError("VRF name " + quoted(name) + " is longer than " +
                         std::to_string(L3::VrfName::maxLength) + " characters");
  }
  // The VRF's shared tables carry its name (pipeline/TableHome.h).
  const std::string& tables = readOnlyTables_.empty() ? writtenTables_ : readOnlyTables_;
  if (tables.empty()) return;
  const std::size_t length = PimrpPipeline::longestTableName(tables, L3::VrfName(name));
  if (length <= PimrpPipeline::kMaxTableNameLength) return;
  throw StatementError("VRF name " + quoted(name) + " is too long for the shared tables '" +
                       tables + "': their names would have up to " + std::to_string(length) +
                       " characters, above the limit of " +
                       std::to_string(PimrpPipeline::kMaxTableNameLength));
}

void Validator::checkVrf(const Statement& statement) const {
  if (const auto* s = std::get_if<VrfStatement>(&statement)) {
    checkVrfName(s->name);
    if (s->name == "default" || openVrfs_.count(s->name) != 0) return;
    // The default VRF is open from the start, whether or not a vrf statement names it.
    const std::size_t open = openVrfs_.size() + (openVrfs_.count("default") != 0 ? 0 : 1);
    if (open < kMaxVrfs) return;
    throw StatementError("vrf " + quoted(s->name) + " would open more than " +
                         std::to_string(kMaxVrfs) + " VRFs");
  }
  std::visit(
      [this](const auto& s) {
        if constexpr (kIsShowStatement<std::decay_t<decltype(s)>>) {
          if (!s.vrf) return;
          checkVrfName(*s.vrf);
          // An attachment reads whichever VRF's tables a show names.
          if (!readOnlyTables_.empty() || *s.vrf == "default" || openVrfs_.count(*s.vrf) != 0) {
            return;
          }
          throw StatementError("VRF " + quoted(*s.vrf) + " is not open: 'vrf " + *s.vrf +
                               "' opens it");
        }
      },
      statement);
}

std::uint64_t Validator::knownGroups(AddressFamily af) const {
  const std::size_t family = af == AddressFamily::ipv4 ? 0 : 1;
  std::uint64_t known = 0;
  for (const auto& [vrf, spans] : groups_) known += spans[family].count();
  return known;
}

void Validator::countGroups(const Statement& statement) {
  if (const auto* s = std::get_if<NoGroupStatement>(&statement)) {
    const std::size_t family = s->group.value.af() == AddressFamily::ipv4 ? 0 : 1;
    groups_[vrf_][family].remove(s->group.value);
    return;
  }
  const auto* s = std::get_if<GroupStatement>(&statement);
  if (s == nullptr) return;
  const AddressFamily af = s->group.value.af();
  KnownGroupSpans& groups = groups_[vrf_][af == AddressFamily::ipv4 ? 0 : 1];
  const std::uint64_t known = knownGroups(af) + groups.missingIn(s->group.value);
  if (known > maxGroups_) {
    throw StatementError(quoted(s->group.word) + " would bring the known " + familyName(af) +
                         " groups to " + std::to_string(known) + ", above the limit of " +
                         std::to_string(maxGroups_) + " (--max-groups)");
  }
  groups.add(s->group.value);
}

Validator Validator::forTables(const PimrpPipeline::TableHome& home, std::uint64_t maxGroups) {
  using Kind = PimrpPipeline::TableHome::Kind;
  return Validator(home.kind == Kind::sharedReader ? home.name : "", maxGroups,
                   home.kind == Kind::sharedWriter ? home.name : "");
}

void Validator::check(const Statement& statement) {
  if (!readOnlyTables_.empty()) checkReadOnly(statement);
  std::visit(StatementChecks{}, statement);
  checkVrf(statement);
  // Last: a statement refused by any other check changes no count.
  countGroups(statement);
  if (const auto* s = std::get_if<VrfStatement>(&statement)) {
    vrf_ = s->name;
    openVrfs_.insert(s->name);
  }
}

}  // namespace PimrpTool
