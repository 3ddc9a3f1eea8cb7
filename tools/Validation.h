#pragma once
// PimrpTool::Validator: decides whether a parsed statement may be applied, before anything is.
//
// It checks what the words mean: priorities 0..255, hash mask lengths 0..32 for IPv4 and 0..128
// for IPv6 groups, sequence numbers 1..4294967295, an RP and its group range of one family,
// group ranges and queried groups inside the multicast space, unicast RP addresses, access lists
// with IPv4 rules bound to IPv4 RPs only, VRF names (at most 100 characters, short enough for the
// names of the VRF's shared tables; the parser admits letters, digits, '_' and '-'), at most
// kMaxVrfs VRFs, a show naming only a VRF that a vrf statement opened (or "default"), and the known
// groups of each family, counted over every VRF, within a bound (--max-groups): it keeps the known
// groups that the statements so far leave in each VRF, as spans.
//
// Invariants:
//  1. check() throws StatementError, naming the first thing wrong and quoting its word, or
//     returns having recorded what later statements are judged against (the VRFs opened, the VRF
//     of the current section, the known groups); a refused statement leaves that record
//     unchanged, so a whole script can be checked line by line and every bad line reported.
//  2. The same Validator judges a script and then every statement typed after it, so the record
//     holds across both.
//  3. A Validator for a read-only attachment to shared tables refuses every statement but
//     show rp-hash: the others would change state, or need state the attachment does not have.
//     Its shows may name any VRF: the attachment reads whichever tables they name.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "pipeline/TableHome.h"
#include "tools/KnownGroupSpans.h"
#include "tools/Statement.h"

namespace PimrpTool {

// The most groups one group statement may name: 2^20, a /12 of IPv4, a /108 of IPv6.
constexpr unsigned kMaxGroupBits = 20;

// The known groups a family may hold unless told otherwise: 4,194,304 (2^22), four times a large
// router's million groups.
constexpr std::uint64_t kDefaultMaxGroups = std::uint64_t{1} << 22;

// The most VRFs one session opens: each costs its own pipeline (and, over shared memory, its own
// 24 tables).
constexpr std::size_t kMaxVrfs = 256;

class Validator {
 public:
  // readOnlyTables: the name of the shared tables a read-only session is attached to; empty for
  // a session that writes. maxGroups: the most known groups of one family over all VRFs.
  // writtenTables: the name of the shared tables the session writes; empty in process memory.
  explicit Validator(std::string readOnlyTables = "", std::uint64_t maxGroups = kDefaultMaxGroups,
                     std::string writtenTables = "")
      : readOnlyTables_(std::move(readOnlyTables)),
        writtenTables_(std::move(writtenTables)),
        maxGroups_(maxGroups) {}

  // The judge of a session whose tables live in `home`.
  static Validator forTables(const PimrpPipeline::TableHome& home,
                             std::uint64_t maxGroups = kDefaultMaxGroups);

  void check(const Statement& statement);

  // The VRF of the section the next statement stands in.
  const std::string& vrf() const { return vrf_; }
  // The next statement stands in the section of the VRF "default", as the first statement of a
  // script does: a script judged after another starts there too.
  void sectionDefaultIs() { vrf_ = "default"; }
  // The VRFs that the vrf statements accepted so far opened.
  const std::set<std::string>& vrfsOpened() const { return openVrfs_; }
  // The known groups of a family over every VRF that the statements accepted so far leave.
  // REQUIRES: af is ipv4 or ipv6.
  std::uint64_t knownGroups(Ipkit::AddressFamily af) const;

 private:
  using FamilySpans = std::array<KnownGroupSpans, 2>;  // ipv4, ipv6

  void checkReadOnly(const Statement& statement) const;
  // Refuses a VRF name of a vrf statement or a show that the session cannot take.
  void checkVrf(const Statement& statement) const;
  void checkVrfName(const std::string& name) const;
  // Refuses a group statement that would take its family past maxGroups_, else records it.
  void countGroups(const Statement& statement);

  std::string readOnlyTables_;
  std::string writtenTables_;
  std::uint64_t maxGroups_;
  std::string vrf_ = "default";
  // The VRFs that vrf statements opened.
  std::set<std::string> openVrfs_;
  std::map<std::string, FamilySpans> groups_;  // by VRF
};

}  // namespace PimrpTool
