#pragma once
// PimrpTool::BindingWarnings: the warnings about an RP bound to one range twice, by a group
// binding and by an access list that permits the range, read from the library's own state around
// each change.
//
// The static candidate reactor merges nothing: such a candidate holds the values of the binding
// written last, and removing one of the two bindings can leave it with its priority or hash mask
// not set while the other still names it. The library does exactly what its rules say; the
// operator is told so:
//  - when a change leaves RPs bound twice: a group or access-list binding of an RP (every range
//    it then binds twice), or a change of a list's rules that makes the list permit a range that
//    an RP bound to the list also binds by group (only the ranges newly bound twice);
//  - when removing a group or access-list binding leaves a candidate that another binding still
//    names with its priority or hash mask not set.
// Each (RP, range) is warned about at most once per change. Access lists exist for IPv4 only, so
// only the IPv4 family is watched.
//
// Use: before(change) just before the change reaches the library, after(change) just after; a
// list's rules collected in a run are one change of that list (listBefore / listAfter).

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/RpCandidate.h"
#include "pipeline/FamilyWiring.h"
#include "tools/Statement.h"

namespace PimrpTool {

// The access lists of IPv4 RP `rp` that give it `range`, in name order.
std::vector<std::string> listsGiving(const PimrpPipeline::FamilyWiring& ipv4,
                                     const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& range);
// A candidate's values as a warning names them: "priority 5, hash mask 30, no override".
std::string candidateValues(const Routing::Pim::RpCandidate& candidate);

class BindingWarnings {
 public:
  explicit BindingWarnings(const PimrpPipeline::FamilyWiring& ipv4) : ipv4_(ipv4) {}

  // REQUIRES: the statement reaches the library at once (not collected in a run of rules).
  void before(const Statement& statement);
  std::vector<std::string> after(const Statement& statement);

  void listBefore(const std::string& acl);
  std::vector<std::string> listAfter(const std::string& acl);

 private:
  using Binding = std::pair<Ipkit::IpGenAddr, Ipkit::IpGenPrefix>;  // (RP, range)

  // The (RP, range) pairs that RPs bound to the list also bind by group while it permits them.
  std::set<Binding> boundTwiceThrough(const std::string& acl) const;
  bool bindsByGroup(const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& range) const;
  // The warning that (rp, range) is bound twice, with the values its candidate holds.
  std::string boundTwiceWarning(const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& range,
                                const std::vector<std::string>& lists) const;
  // The warning that removing `removed` left the candidate of (rp, range) with values not set;
  // none when its values are set, or no binding names it any more.
  void addLeftUnset(const std::string& removed, const Ipkit::IpGenAddr& rp,
                    const Ipkit::IpGenPrefix& range, std::vector<std::string>& warnings) const;

  const PimrpPipeline::FamilyWiring& ipv4_;
  // What before() saw that after() compares with.
  std::set<Binding> boundTwice_;
  std::vector<Ipkit::IpGenPrefix> listRanges_;
};

}  // namespace PimrpTool
