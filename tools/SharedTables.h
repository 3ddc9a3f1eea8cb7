#pragma once
// PimrpTool shared tables: where a session keeps its RP hash tables, and the names under which
// they live in shared memory so that other processes (and the next run) find them.
//
// The tables of one run share a name N given by the operator; each table is the shared table
// "N.<family>.<mode>.<source>.<kind>", for instance "lab.ipv4.sparse.static.groups" or
// "lab.ipv6.bidir.final.prefixes": family ipv4|ipv6, mode sparse|bidir, source static|bsr|final,
// kind groups|prefixes, the words of `show rp-hash`. 24 tables in all, each of them three segments
// of shared memory (see framework/Mirra/internal/SegmentFiles.h). The table names are made here
// only.
//
// Invariants:
//  1. A name that sharedNameRefusal() accepts gives table names that the shared-table facility
//     accepts: letters, digits, '.', '_', '-', not starting with '.', short enough for every role.
//  2. sharedTableNames() lists the tables in one fixed order: ipv4 before ipv6, sparse before
//     bidir, static, bsr, final, groups before prefixes.

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/SharedTable.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpHashStatus.h"
#include "tools/FamilyWiring.h"

namespace PimrpTool {

// Where a session's RP hash tables live.
struct TableHome {
  enum class Kind {
    process,       // in process memory, gone with the run
    sharedWriter,  // in shared memory under `name`, written by this run, kept after it
    sharedReader,  // another run's shared tables under `name`, read only
  };
  TableHome() = default;
  TableHome(Kind where, std::string tables, Mirra::AttachOptions attach = Mirra::AttachOptions())
      : kind(where), name(std::move(tables)), options(attach) {}

  Kind kind = Kind::process;
  std::string name;  // the tables' common name; empty in process memory
  // The mode of the segments a writer creates, the owner a reader trusts besides root and itself.
  Mirra::AttachOptions options;
};

// The longest common name: the longest role suffix must still fit the facility's limit.
constexpr std::size_t kMaxSharedNameLength = 172;

// Why `name` cannot name shared tables, or "" when it can.
std::string sharedNameRefusal(const std::string& name);

// The permissions that `text` (octal, such as 0640) gives the segments of new tables, into *mode;
// or why it gives none a table may have ("" when it does).
std::string tableModeRefusal(const std::string& text, mode_t* mode);
// The user that `text` names (a user name or a number), into *user; or why it names none.
std::string userRefusal(const std::string& text, uid_t* user);

// What pimrp says of a shared table found damaged: "the shared table 'NAME' is damaged: WHAT".
std::string damagedTableMessage(const Mirra::CorruptionDetectedException& damage);

// "<family>.<mode>.<source>.<kind>". REQUIRES: mode is modePimSm or modePimBidir.
std::string tableRole(Ipkit::AddressFamily af, HashSource source, HashKind kind,
                      Routing::Pim::Mode mode);

// Every table name of `name`, in the order of invariant 2.
std::vector<std::string> sharedTableNames(const std::string& name);

// The table of one role in `home`: a new in-process table, or an attachment to the shared table
// (as its writer or as a reader). Throws Kel::RangeException with the facility's reason when the
// shared table cannot be attached.
Kel::Ptr<Routing::Pim::RpHashStatus> rpHashTableIn(const TableHome& home, Ipkit::AddressFamily af,
                                                   HashSource source, HashKind kind,
                                                   Routing::Pim::Mode mode);

// What removing one table did.
struct TableRemoval {
  std::string table;
  Mirra::UnlinkReport report;
};

// Removes every table of `name`, each with every segment it has; returns what was done to each
// table that had any, in the order of invariant 2.
// REQUIRES: sharedNameRefusal(name) is "".
std::vector<TableRemoval> sharedTablesUnlink(const std::string& name);

}  // namespace PimrpTool
