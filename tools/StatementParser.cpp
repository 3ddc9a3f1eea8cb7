#include "tools/StatementParser.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "framework/Ipkit/IntfIdStored.h"
#include "framework/Kel/Exception.h"
#include "tools/EmbeddedRpStatements.h"
#include "tools/StatementError.h"
#include "tools/ValueWords.h"
#include "tools/Words.h"

namespace PimrpTool {
namespace {

using Routing::Pim::Mode;

// Longest access-list name accepted; names are labels, not free text.
constexpr std::size_t kMaxAclNameLength = 100;

// The address a word holds, if it holds one.
std::optional<Ipkit::IpGenAddr> addressIn(const std::string& word) {
  try {
    return Ipkit::IpGenAddr(word);
  } catch (const Kel::Exception&) {
    return std::nullopt;
  }
}

std::string takeAclName(WordCursor& cursor) {
  return takeName(cursor, "access-list name", kMaxAclNameLength);
}

// A number, or "none" for a value left unconfigured.
OptionValue takeOptionValue(WordCursor& cursor, const std::string& what) {
  OptionValue value;
  if (cursor.takeIf("none")) {
    value.form = OptionValue::Form::none;
    return value;
  }
  if (!cursor.atEnd() && cursor.peek().find_first_not_of("0123456789") != std::string::npos) {
    throw StatementError("invalid " + what + " " + quoted(cursor.peek()) +
                         ": not a decimal number or 'none'");
  }
  value.form = OptionValue::Form::number;
  value.number = takeNumber(cursor, what);
  return value;
}

BindingOptions takeBindingOptions(WordCursor& cursor) {
  BindingOptions options;
  bool overrideSeen = false;
  while (!cursor.atEnd()) {
    const std::string option = takeChoice(cursor, {"priority", "hashmask", "override"});
    if (option == "priority") {
      requireFirst(options.priority.form != OptionValue::Form::leftOut, option);
      options.priority = takeOptionValue(cursor, "priority");
    } else if (option == "hashmask") {
      requireFirst(options.hashMask.form != OptionValue::Form::leftOut, option);
      options.hashMask = takeOptionValue(cursor, "hashmask");
    } else {
      requireFirst(overrideSeen, option);
      overrideSeen = true;
      options.override = true;
    }
  }
  return options;
}

Statement parseVrf(WordCursor& cursor) {
  VrfStatement vrf{takeVrfName(cursor)};
  cursor.expectEnd();
  return vrf;
}

// Whether an optional word may come here: the statement goes on, and not with its VRF.
bool moreBeforeVrf(const WordCursor& cursor) { return !cursor.atEnd() && cursor.peek() != "vrf"; }

Statement parseRpAddress(WordCursor& cursor) {
  const Address rp = takeAddress(cursor, "RP address");
  const std::string kind = takeChoice(cursor, {"group", "acl", "mode"});
  if (kind == "group") {
    Prefix group = takeGroupRange(cursor, "group range");
    return RpGroupStatement{rp, group, takeBindingOptions(cursor)};
  }
  if (kind == "acl") {
    std::string acl = takeAclName(cursor);
    return RpAclStatement{rp, acl, takeBindingOptions(cursor)};
  }
  const Mode mode = takeMode(cursor);
  cursor.expectEnd();
  return RpModeStatement{rp, mode};
}

Statement parseNoRpAddress(WordCursor& cursor) {
  const Address rp = takeAddress(cursor, "RP address");
  if (cursor.atEnd()) return NoRpStatement{rp};
  const std::string kind = takeChoice(cursor, {"group", "acl"});
  Statement statement = NoRpStatement{rp};
  if (kind == "group") {
    statement = NoRpGroupStatement{rp, takeGroupRange(cursor, "group range")};
  } else {
    statement = NoRpAclStatement{rp, takeAclName(cursor)};
  }
  cursor.expectEnd();
  return statement;
}

// What a rule matches, when it is not 'any': a prefix. The words that other access-list dialects
// use here ('ANY', 'host ADDRESS', a bare address) are refused with the way to write them.
Prefix takeRuleMatch(WordCursor& cursor) {
  if (cursor.atEnd()) cursor.take("'any' or rule prefix ADDRESS/LENGTH");
  const std::string word = cursor.peek();
  if (word.find('/') != std::string::npos) return takePrefix(cursor, "rule prefix");
  const std::string lead = "invalid rule match " + quoted(word) + ": ";
  if (lowerCase(word) == "any") {
    throw StatementError(lead + "keywords are lower case: write 'any'");
  }
  const std::string expected = "expected 'any' or a prefix ADDRESS/LENGTH";
  const auto hostLength = [](const Ipkit::IpGenAddr& address) {
    return address.af() == Ipkit::AddressFamily::ipv4 ? "/32" : "/128";
  };
  cursor.take(word);
  if (const auto address = addressIn(word)) {
    throw StatementError(lead + expected + " (" + address->valueToStrep() + hostLength(*address) +
                         " for this one address)");
  }
  if (lowerCase(word) == "host" && !cursor.atEnd()) {
    if (const auto address = addressIn(cursor.peek())) {
      throw StatementError(lead + expected + ": write one host as " + address->valueToStrep() +
                           hostLength(*address));
    }
  }
  throw StatementError(lead + expected);
}

Statement parseAclRule(WordCursor& cursor) {
  AclRuleStatement rule;
  rule.acl = takeAclName(cursor);
  takeChoice(cursor, {"seq"});
  rule.sequence = takeNumber(cursor, "sequence number");
  rule.action = takeChoice(cursor, {"permit", "deny"}) == "permit" ? Acl::AclAction::permit
                                                                   : Acl::AclAction::deny;
  if (!cursor.takeIf("any")) rule.prefix = takeRuleMatch(cursor);
  cursor.expectEnd();
  return rule;
}

Statement parseNoAcl(WordCursor& cursor) {
  const std::string acl = takeAclName(cursor);
  if (cursor.atEnd()) return NoAclStatement{acl};
  takeChoice(cursor, {"seq"});
  NoAclRuleStatement rule{acl, takeNumber(cursor, "sequence number")};
  cursor.expectEnd();
  return rule;
}

Statement parseBsrRp(WordCursor& cursor) {
  BsrRpStatement candidate;
  candidate.group = takeGroupRange(cursor, "group range");
  candidate.rp = takeAddress(cursor, "RP address");
  bool priority = false, hashMask = false, mode = false;
  while (!cursor.atEnd()) {
    const std::string option = takeChoice(cursor, {"priority", "hashmask", "mode"});
    if (option == "priority") {
      requireFirst(priority, option);
      priority = true;
      candidate.priority = takeNumber(cursor, "priority");
    } else if (option == "hashmask") {
      requireFirst(hashMask, option);
      hashMask = true;
      candidate.hashMask = takeNumber(cursor, "hashmask");
    } else {
      requireFirst(mode, option);
      mode = true;
      candidate.mode = takeMode(cursor);
    }
  }
  // A bootstrap candidate always carries all three; a default would hide a missing word.
  for (const auto& [given, option] : {std::pair{priority, "priority"},
                                      std::pair{hashMask, "hashmask"}, std::pair{mode, "mode"}}) {
    if (!given) {
      throw StatementError("missing " + quoted(option) + " in " + quoted(cursor.consumed()));
    }
  }
  return candidate;
}

Statement parseNoBsrRp(WordCursor& cursor) {
  NoBsrRpStatement candidate;
  candidate.group = takeGroupRange(cursor, "group range");
  candidate.rp = takeAddress(cursor, "RP address");
  cursor.expectEnd();
  return candidate;
}

Statement parseRpHashAlgorithm(WordCursor& cursor) {
  const std::string name = takeChoice(cursor, {"rfc7761", "modulo"});
  cursor.expectEnd();
  return RpHashAlgorithmStatement{name == "modulo" ? Routing::Pim::rpHashAlgorithmModulo
                                                   : Routing::Pim::rpHashAlgorithmRfc7761};
}

Ipkit::AddressFamily takeFamily(WordCursor& cursor);

Statement parseShowRpMapping(WordCursor& cursor) {
  ShowRpMappingStatement query;
  if (moreBeforeVrf(cursor)) query.af = takeFamily(cursor);
  query.vrf = takeVrfAndEnd(cursor);
  return query;
}

Statement parseShowRp(WordCursor& cursor) {
  if (cursor.takeIf("mapping")) return parseShowRpMapping(cursor);
  ShowRpStatement query;
  query.group = takeAddress(cursor, "group address");
  bool modeSeen = false;
  while (!cursor.atEnd()) {
    const std::string option = takeChoice(cursor, {"mode", "join", "detail", "vrf"});
    if (option == "vrf") {
      requireFirst(query.vrf.has_value(), option);
      query.vrf = takeVrfName(cursor);
    } else if (option == "detail") {
      requireFirst(query.detail, option);
      query.detail = true;
    } else if (option == "mode") {
      requireFirst(modeSeen, option);
      modeSeen = true;
      query.mode = takeMode(cursor);
    } else {
      requireFirst(query.join.has_value(), option);
      query.join = takeAddress(cursor, "join RP address");
    }
  }
  return query;
}

Statement parseShowCandidates(WordCursor& cursor) {
  const std::string source = takeChoice(cursor, {"static", "bsr"});
  return ShowCandidatesStatement{
      source == "bsr" ? CandidateSource::bootstrap : CandidateSource::staticConfig,
      takeVrfAndEnd(cursor)};
}

Statement parseShowAcl(WordCursor& cursor) {
  // A braced list is read left to right: the name, then the VRF.
  return ShowAclStatement{takeAclName(cursor), takeVrfAndEnd(cursor)};
}

Statement parseGroup(WordCursor& cursor) {
  GroupStatement group{takeGroupAddressOrRange(cursor, "group address or range")};
  cursor.expectEnd();
  return group;
}

Statement parseNoGroup(WordCursor& cursor) {
  NoGroupStatement group{takeGroupAddressOrRange(cursor, "group address or range")};
  cursor.expectEnd();
  return group;
}

std::string takeInterfaceName(WordCursor& cursor) {
  return takeName(cursor, "interface name", Ipkit::IntfIdStored::kMaxName);
}

Statement parseRoute(WordCursor& cursor) {
  RouteStatement route;
  route.prefix = takePrefix(cursor, "route prefix");
  if (takeChoice(cursor, {"type", "local"}) == "local") {
    route.local = true;
    route.type = Number{1, "1"};
    route.via = Address{route.prefix.value.address(), route.prefix.word};
    route.interface = takeInterfaceName(cursor);
    cursor.expectEnd();
    return route;
  }
  route.type = takeNumber(cursor, "route type");
  if (cursor.atEnd()) return route;
  takeChoice(cursor, {"via"});
  route.via = takeAddress(cursor, "next hop address");
  takeChoice(cursor, {"interface"});
  route.interface = takeInterfaceName(cursor);
  cursor.expectEnd();
  return route;
}

Statement parseNoRoute(WordCursor& cursor) {
  NoRouteStatement route{takePrefix(cursor, "route prefix")};
  cursor.expectEnd();
  return route;
}

Ipkit::AddressFamily takeFamily(WordCursor& cursor) {
  return takeChoice(cursor, {"ipv4", "ipv6"}) == "ipv4" ? Ipkit::AddressFamily::ipv4
                                                        : Ipkit::AddressFamily::ipv6;
}

Statement parseShadow(WordCursor& cursor) {
  ShadowStatement shadow;
  shadow.af = takeFamily(cursor);
  shadow.attached = takeChoice(cursor, {"attach", "detach"}) == "attach";
  cursor.expectEnd();
  return shadow;
}

Statement parseAttrLog(WordCursor& cursor) {
  AttrLogStatement log{takeChoice(cursor, {"clogged", "clear"}) == "clogged"};
  cursor.expectEnd();
  return log;
}

Statement parseRun(WordCursor& cursor) {
  RunStatement run;
  if (!cursor.atEnd()) run.seconds = takeSeconds(cursor, "number of seconds");
  cursor.expectEnd();
  return run;
}

Statement parseClock(WordCursor& cursor) {
  ClockStatement clock{takeChoice(cursor, {"manual", "settle"}) == "settle"};
  cursor.expectEnd();
  return clock;
}

Statement parseShowRpHash(WordCursor& cursor) {
  ShowRpHashStatement query;
  const std::string source = takeChoice(cursor, {"final", "static", "bsr", "summary"});
  if (source == "summary") {
    ShowRpHashSummaryStatement summary;
    if (moreBeforeVrf(cursor)) summary.af = takeFamily(cursor);
    summary.vrf = takeVrfAndEnd(cursor);
    return summary;
  }
  query.source = source == "final"    ? TableSource::final
                 : source == "static" ? TableSource::staticRp
                                      : TableSource::bsr;
  query.kind = takeChoice(cursor, {"groups", "prefixes"}) == "groups" ? TableKind::groups
                                                                      : TableKind::prefixes;
  takeChoice(cursor, {"mode"});
  query.mode = takeMode(cursor);
  if (moreBeforeVrf(cursor)) query.af = takeFamily(cursor);
  query.vrf = takeVrfAndEnd(cursor);
  return query;
}

Statement parseShowLocalRp(WordCursor& cursor) {
  return ShowLocalRpStatement{takeVrfAndEnd(cursor)};
}

Statement parseShowGroupFilter(WordCursor& cursor) {
  return ShowGroupFilterStatement{takeAddress(cursor, "group address"), takeVrfAndEnd(cursor)};
}

Statement parseShowAllocRequests(WordCursor& cursor) {
  return ShowAllocRequestsStatement{takeVrfAndEnd(cursor)};
}

Statement parseShowReview(WordCursor& cursor) { return ShowReviewStatement{takeVrfAndEnd(cursor)}; }

Statement parseShowConfig(WordCursor& cursor) { return ShowConfigStatement{takeVrfAndEnd(cursor)}; }

struct StatementForm {
  std::vector<std::string> keywords;
  Statement (*parse)(WordCursor&);
};

const std::vector<StatementForm>& forms() {
  static const std::vector<StatementForm> table = {
      {{"vrf"}, parseVrf},
      {{"rp-address"}, parseRpAddress},
      {{"no", "rp-address"}, parseNoRpAddress},
      {{"acl"}, parseAclRule},
      {{"no", "acl"}, parseNoAcl},
      {{"bsr-rp"}, parseBsrRp},
      {{"no", "bsr-rp"}, parseNoBsrRp},
      {{"rp-hash-algorithm"}, parseRpHashAlgorithm},
      {{"show", "rp"}, parseShowRp},
      {{"show", "candidates"}, parseShowCandidates},
      {{"show", "acl"}, parseShowAcl},
      {{"group"}, parseGroup},
      {{"no", "group"}, parseNoGroup},
      {{"route"}, parseRoute},
      {{"no", "route"}, parseNoRoute},
      {{"shadow"}, parseShadow},
      {{"attr-log"}, parseAttrLog},
      {{"run"}, parseRun},
      {{"clock"}, parseClock},
      {{"show", "rp-hash"}, parseShowRpHash},
      {{"show", "local-rp"}, parseShowLocalRp},
      {{"show", "group-filter"}, parseShowGroupFilter},
      {{"show", "alloc-requests"}, parseShowAllocRequests},
      {{"show", "review"}, parseShowReview},
      {{"show", "config"}, parseShowConfig},
      {{"embedded-rp"}, parseEmbeddedRp},
      {{"no", "embedded-rp"}, parseNoEmbeddedRp},
      {{"show", "embedded-rp"}, parseShowEmbeddedRp},
  };
  return table;
}

// Finds the form named by the leading keywords, consuming them.
const StatementForm& takeForm(WordCursor& cursor) {
  std::vector<const StatementForm*> matching;
  for (const auto& form : forms()) matching.push_back(&form);
  for (std::size_t depth = 0;; ++depth) {
    // What could come here; only a refusal needs it.
    const auto expected = [&] {
      std::vector<std::string> keywords;
      for (const auto* form : matching) {
        const std::string& keyword = form->keywords[depth];
        if (std::find(keywords.begin(), keywords.end(), keyword) == keywords.end()) {
          keywords.push_back(keyword);
        }
      }
      return keywords;
    };
    if (cursor.atEnd()) cursor.take(oneOf(expected()));
    const std::string& word = cursor.peek();
    std::vector<const StatementForm*> next;
    for (const auto* form : matching) {
      if (form->keywords[depth] == word) next.push_back(form);
    }
    if (next.empty()) {
      const std::vector<std::string> keywords = expected();
      if (depth == 0) {
        throw StatementError("unknown statement " + quoted(word) + keywordCaseNote(word, keywords));
      }
      throw StatementError("expected " + oneOf(keywords) + " after " + quoted(cursor.consumed()) +
                           ", got " + quoted(word) + keywordCaseNote(word, keywords));
    }
    cursor.take(word);
    matching = std::move(next);
    for (const auto* form : matching) {
      if (form->keywords.size() == depth + 1) return *form;
    }
  }
}

}  // namespace

std::optional<Statement> parseStatement(std::string_view line) {
  WordCursor cursor(splitWords(line));
  if (cursor.atEnd()) return std::nullopt;
  return takeForm(cursor).parse(cursor);
}

}  // namespace PimrpTool
