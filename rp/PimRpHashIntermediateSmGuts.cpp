// The two writers of one RP hash entry, shared by the candidate path and the algorithm change.

#include <ios>

#include "framework/Kel/Trace.h"
#include "rp/PimRpHashIntermediateSm.h"

namespace Routing {
namespace Pim {
namespace {

KEL_TRACE_FILE(trace, "PimRpHashSm")

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
// The table and compute handles are spelled as their readers know them.
const char kDoUpdateRpHashGuts[] =
    "void Routing::Pim::doUpdateRpHashGuts(const Ipkit::IpGenPrefix&, bool, "
    "Routing::Pim::RpHashStatus::Ptr, Routing::Pim::RpCompute::Ptr, Ipkit::IpGenAddr, "
    "Routing::Pim::Mode, Routing::Pim::RpHashAlgorithm)";

// Steps shared by both writers; `caller` names the writer in its traces.
void doWriteEntry(const char* caller, const Ipkit::IpGenPrefix& prefix, RpHashStatus& table,
                  RpCompute& compute, Mode mode) {
  RpCandidateInfo info = compute.doComputeRpFromPrefix(prefix);
  if (mode != modePimNone && info.mode() != mode) {
    KEL_TRACE(trace(), 5,
              caller << ": mismatching pimMode " << info.mode() << " expected mode " << mode);
    info = RpCandidateInfo(Ipkit::IpGenAddr(), kRpPriorityNone, kRpHashMaskLenNone, false, mode);
  }
  KEL_TRACE(trace(), 5,
            caller << ": RP for group " << prefix << " is " << info.address() << " with priority "
                   << info.priority() << " and hashmask length " << info.hashMaskLen()
                   << " with override flag as " << boolToStrep(info.override()) << " and mode "
                   << info.mode());
  const RpHash entry(prefix, info);
  KEL_TRACE(trace(), 5, caller << ": Adding " << entry);
  table.rpHashIs(entry);
}

}  // namespace

void doAddRpHashGuts(Ipkit::IpGenPrefix prefix, Kel::Ptr<RpHashStatus> table,
                     Kel::Ptr<RpCompute> compute, Mode mode) {
  doWriteEntry("doAddRpHashGuts", prefix, *table, *compute, mode);
}

void doUpdateRpHashGuts(const Ipkit::IpGenPrefix& prefix, bool add, Kel::Ptr<RpHashStatus> table,
                        Kel::Ptr<RpCompute> compute, Ipkit::IpGenAddr rp, Mode mode,
                        RpHashAlgorithm algorithm) {
  KEL_TRACE(trace(), 9,
            kDoUpdateRpHashGuts << " ( " << prefix << ", " << std::boolalpha << add << ", " << rp
                                << ", " << mode << ", " << algorithm << " )");
  if (add) {
    doAddRpHashGuts(prefix, table, compute, mode);
    return;
  }
  const RpHash current = table->rpHash(prefix);
  if (current.address() != rp && algorithm != rpHashAlgorithmModulo) return;
  KEL_TRACE(trace(), 5,
            kDoUpdateRpHashGuts << "Removing RP " << current.address() << " for group " << prefix);
  doWriteEntry("doUpdateRpHashGuts", prefix, *table, *compute, mode);
}

}  // namespace Pim
}  // namespace Routing
