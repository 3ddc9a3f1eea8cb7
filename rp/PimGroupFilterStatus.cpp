#include "rp/PimGroupFilterStatus.h"

#include <ios>

#include "framework/Kel/Assert.h"
#include "framework/Kel/Trace.h"

namespace Routing {
namespace Pim {
namespace {

KEL_TRACE_FILE(trace, "PimGroupFilter")

}  // namespace

GroupFilterStatus::GroupFilterStatus(Ipkit::AddressFamily af, Mode pimMode)
    : af_(af), pimMode_(pimMode) {
  handleInitialized();
}

Kel::Ptr<Routing::TrieGen> GroupFilterStatus::trieIs(const Kel::Name& name,
                                                     Ipkit::AddressFamily af) {
  trieIs(Kel::Ptr<Routing::TrieGen>(new Routing::TrieGen(name, af)));
  return trie();
}

void GroupFilterStatus::handleInitialized() {
  KEL_TRACE(trace(), 8, "handleInitialized(" << af() << ")");
  KEL_ASSERT(trace(), pimMode() == modePimSm() || pimMode() == modePimBidir());
  trieIs("GroupFilter", af());
}

bool GroupFilterStatus::permitGroup(const Ipkit::IpGenPrefix& group) const {
  const bool found = trie() && !trie()->longestMatch(group).isNull();
  KEL_TRACE(trace(), 8,
            "permitGroup(" << group << "), Mode: " << pimMode() << ", Found: " << std::boolalpha
                           << found);
  return (pimMode() == modePimSm()) != found;
}

Kel::Ptr<GroupFilterStatus> groupFilterStatusFactory(Ipkit::AddressFamily af, Mode pimMode) {
  return Kel::Ptr<GroupFilterStatus>(new GroupFilterStatus(af, pimMode));
}

}  // namespace Pim
}  // namespace Routing
