#pragma once
// PimrpPipeline::TableHome: where a VRF's RP hash tables live, and the names under which they live
// in shared memory, so that other processes (and the agent's next run) find them.
//
// In process memory the tables go with the pipeline. In shared memory the tables of one agent
// share a name N that the agent chooses; each table is the shared table "N.<role>" for the VRF
// named "default" and "N.vrf.<VRF>.<role>" for any other, <role> as tableRole() spells it:
// "lab.ipv4.sparse.static.groups", "lab.vrf.red.ipv6.bidir.final.prefixes". Each table is three or
// more segments of shared memory (see framework/Mirra/SharedTable.h). The table names are made
// here only.
//
// Invariants:
//  1. The tables of the VRF "default" keep the names they had before VRFs named tables: "N.<role>".
//  2. sharedTableNames() lists a VRF's tables in the order of forEachTableRole().
//  3. A table name is at most kMaxTableNameLength characters when the shared-table facility is to
//     accept it; longestTableName() says how long a VRF's longest one is.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "framework/Mirra/SharedTable.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpHashStatus.h"
#include "pipeline/TableRole.h"

namespace PimrpPipeline {

// Where a pipeline's RP hash tables live.
struct TableHome {
  enum class Kind {
    process,       // in process memory, gone with the pipeline
    sharedWriter,  // in shared memory under `name`, written by this pipeline, kept after it
    sharedReader,  // another process's shared tables under `name`, read only
  };
  TableHome() = default;
  TableHome(Kind where, std::string tables, Mirra::AttachOptions attach = Mirra::AttachOptions())
      : kind(where), name(std::move(tables)), options(attach) {}

  Kind kind = Kind::process;
  std::string name;  // the tables' common name; empty in process memory
  // The mode of the segments a writer creates, the owner a reader trusts besides root and itself.
  Mirra::AttachOptions options;
};

// The longest name the shared-table facility accepts for a table.
constexpr std::size_t kMaxTableNameLength = 200;
// The length of the longest role with its dot: ".ipv6.sparse.static.prefixes".
constexpr std::size_t kLongestRoleLength = 28;

// The shared table of one role of `vrf` under the common name `name`.
std::string sharedTableName(const std::string& name, const L3::VrfName& vrf,
                            Ipkit::AddressFamily af, HashSource source, HashKind kind,
                            Routing::Pim::Mode mode);
// Every table name of `vrf` under `name`, in the order of invariant 2.
std::vector<std::string> sharedTableNames(const std::string& name,
                                          const L3::VrfName& vrf = L3::VrfName());
// The length of the longest table name of `vrf` under `name`.
std::size_t longestTableName(const std::string& name, const L3::VrfName& vrf);

// The table of one role of `vrf` in `home`: a new in-process table, or an attachment to the
// shared table (as its writer or as a reader). Throws Kel::RangeException with the facility's
// reason when the shared table cannot be attached, Mirra::CorruptionDetectedException when it is
// found damaged beyond what a writer repairs.
Kel::Ptr<Routing::Pim::RpHashStatus> rpHashTableIn(const TableHome& home, const L3::VrfName& vrf,
                                                   Ipkit::AddressFamily af, HashSource source,
                                                   HashKind kind, Routing::Pim::Mode mode);

// What removing one table did.
struct TableRemoval {
  std::string table;
  Mirra::UnlinkReport report;
};

// Removes every table of `vrf` under `name`, each with every segment it has; returns what was
// done to each table that had any, in the order of invariant 2. Readers that are attached keep
// what they have mapped.
std::vector<TableRemoval> sharedTablesUnlink(const std::string& name,
                                             const L3::VrfName& vrf = L3::VrfName());

// The VRFs other than "default" that have a segment of some table under `name` in shared memory
// (as the system lists its shared-memory objects, in /dev/shm), in name order. A name N.vrf.V.R
// is also what the default VRF's table R of the common name "N.vrf.V" is called: such tables are
// found here too.
std::vector<L3::VrfName> sharedTableVrfs(const std::string& name);

// Removes every table of every VRF under `name`: the default VRF's, then those of each VRF that
// sharedTableVrfs() finds; what was done, in that order.
std::vector<TableRemoval> sharedTablesUnlinkAll(const std::string& name);

}  // namespace PimrpPipeline
