#include "tools/BindingWarnings.h"

#include <algorithm>

#include "model/Pim/PimTypes.h"

namespace PimrpTool {
namespace {

using Routing::Pim::RpCandidate;

// "'A'", "'A' and 'B'", "'A', 'B' and 'C'".
std::string listNames(const std::vector<std::string>& lists) {
  std::string text;
  for (std::size_t i = 0; i < lists.size(); ++i) {
    if (i != 0) text += i + 1 == lists.size() ? " and " : ", ";
    text += "'" + lists[i] + "'";
  }
  return text;
}

std::string accessLists(const std::vector<std::string>& lists) {
  return (lists.size() == 1 ? "access list " : "access lists ") + listNames(lists);
}

}  // namespace

std::string candidateValues(const RpCandidate& candidate) {
  const auto priority = candidate.priority();
  const auto hashMask = candidate.hashMaskLen();
  return (priority == Routing::Pim::kRpPriorityNone ? std::string("no priority")
                                                    : "priority " + std::to_string(priority)) +
         ", " +
         (hashMask == Routing::Pim::kRpHashMaskLenNone ? std::string("no hash mask")
                                                       : "hash mask " + std::to_string(hashMask)) +
         ", " + (candidate.override() ? "override" : "no override");
}

std::vector<std::string> listsGiving(const PimrpPipeline::FamilyWiring& ipv4,
                                     const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& range) {
  std::vector<std::string> lists;
  const auto entry = ipv4.staticConfig()->rpTable(rp);
  if (!entry) return lists;
  for (const auto& [acl, on] : entry->acl()) {
    const auto permitted = ipv4.staticReactor()->rpStaticAcl(acl);
    if (permitted && permitted->grpPrefix().contains(range)) lists.push_back(acl);
  }
  return lists;
}

void BindingWarnings::before(const Statement& statement) {
  if (const auto* s = std::get_if<NoRpAclStatement>(&statement)) {
    listRanges_.clear();
    const auto permitted = ipv4_.staticReactor()->rpStaticAcl(s->acl);
    if (!permitted || !permitted->rpAddr().contains(s->rp.value)) return;
    for (const auto& [range, on] : permitted->grpPrefix()) listRanges_.push_back(range);
    std::sort(listRanges_.begin(), listRanges_.end());
  } else if (const auto* s = std::get_if<AclRuleStatement>(&statement)) {
    listBefore(s->acl);
  } else if (const auto* s = std::get_if<NoAclRuleStatement>(&statement)) {
    listBefore(s->acl);
  }
}

std::vector<std::string> BindingWarnings::after(const Statement& statement) {
  std::vector<std::string> warnings;
  if (const auto* s = std::get_if<RpGroupStatement>(&statement)) {
    const auto lists = listsGiving(ipv4_, s->rp.value, s->group.value);
    if (!lists.empty()) warnings.push_back(boundTwiceWarning(s->rp.value, s->group.value, lists));
  } else if (const auto* s = std::get_if<RpAclStatement>(&statement)) {
    const auto entry = ipv4_.staticConfig()->rpTable(s->rp.value);
    const auto permitted = ipv4_.staticReactor()->rpStaticAcl(s->acl);
    if (!entry || !permitted) return warnings;
    for (const auto& [range, on] : entry->group()) {
      if (!permitted->grpPrefix().contains(range)) continue;
      warnings.push_back(
          boundTwiceWarning(s->rp.value, range, listsGiving(ipv4_, s->rp.value, range)));
    }
  } else if (const auto* s = std::get_if<NoRpGroupStatement>(&statement)) {
    addLeftUnset("the group binding", s->rp.value, s->group.value, warnings);
  } else if (const auto* s = std::get_if<NoRpAclStatement>(&statement)) {
    for (const auto& range : listRanges_) {
      addLeftUnset("access list '" + s->acl + "'", s->rp.value, range, warnings);
    }
  } else if (const auto* s = std::get_if<AclRuleStatement>(&statement)) {
    return listAfter(s->acl);
  } else if (const auto* s = std::get_if<NoAclRuleStatement>(&statement)) {
    return listAfter(s->acl);
  }
  return warnings;
}

void BindingWarnings::listBefore(const std::string& acl) { boundTwice_ = boundTwiceThrough(acl); }

std::vector<std::string> BindingWarnings::listAfter(const std::string& acl) {
  std::vector<std::string> warnings;
  for (const auto& [rp, range] : boundTwiceThrough(acl)) {
    if (boundTwice_.count({rp, range}) != 0) continue;
    warnings.push_back(boundTwiceWarning(rp, range, listsGiving(ipv4_, rp, range)));
  }
  return warnings;
}

std::set<BindingWarnings::Binding> BindingWarnings::boundTwiceThrough(
    const std::string& acl) const {
  std::set<Binding> bound;
  const auto permitted = ipv4_.staticReactor()->rpStaticAcl(acl);
  if (!permitted) return bound;
  for (const auto& [rp, on] : permitted->rpAddr()) {
    const auto entry = ipv4_.staticConfig()->rpTable(rp);
    if (!entry) continue;
    for (const auto& [range, on] : entry->group()) {
      if (permitted->grpPrefix().contains(range)) bound.insert({rp, range});
    }
  }
  return bound;
}

bool BindingWarnings::bindsByGroup(const Ipkit::IpGenAddr& rp,
                                   const Ipkit::IpGenPrefix& range) const {
  const auto entry = ipv4_.staticConfig()->rpTable(rp);
  return entry && entry->group().contains(range);
}

std::string BindingWarnings::boundTwiceWarning(const Ipkit::IpGenAddr& rp,
                                               const Ipkit::IpGenPrefix& range,
                                               const std::vector<std::string>& lists) const {
  const auto set = ipv4_.staticStatus()->crpSet(range);
  const auto candidate = set ? set->rp(rp) : nullptr;
  return "RP " + rp.valueToStrep() + " is bound to " + range.valueToStrep() +
         " both by a group binding and by " + accessLists(lists) +
         ": its candidate holds the values written last" +
         (candidate ? " (" + candidateValues(*candidate) + ")" : "") +
         ", and removing one binding can leave them not set while another still names it";
}

void BindingWarnings::addLeftUnset(const std::string& removed, const Ipkit::IpGenAddr& rp,
                                   const Ipkit::IpGenPrefix& range,
                                   std::vector<std::string>& warnings) const {
  const auto set = ipv4_.staticStatus()->crpSet(range);
  const auto candidate = set ? set->rp(rp) : nullptr;
  if (!candidate) return;
  const bool noPriority = candidate->priority() == Routing::Pim::kRpPriorityNone;
  const bool noHashMask = candidate->hashMaskLen() == Routing::Pim::kRpHashMaskLenNone;
  if (!noPriority && !noHashMask) return;
  const bool byGroup = bindsByGroup(rp, range);
  const auto lists = listsGiving(ipv4_, rp, range);
  const std::size_t bindings = (byGroup ? 1 : 0) + lists.size();
  if (bindings == 0) return;
  std::string naming = byGroup ? "its group binding" : "";
  if (!lists.empty()) naming += (byGroup ? " and " : "") + accessLists(lists);
  const std::string unset = noPriority && noHashMask ? "no priority and no hash mask"
                            : noPriority             ? "no priority"
                                                     : "no hash mask";
  warnings.push_back("removing " + removed + " left RP " + rp.valueToStrep() + "'s candidate for " +
                     range.valueToStrep() + " with " + unset + ", while " + naming +
                     (bindings == 1 ? " still names it; to set them, remove that binding"
                                    : " still name it; to set them, remove one of those "
                                      "bindings") +
                     " and add it again");
}

}  // namespace PimrpTool
