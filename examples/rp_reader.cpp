// rp_reader: another process's view of an agent's RP answers. It attaches read-only to the final
// RP hash tables that rp_agent (or pimrp --shm) keeps in shared memory, while their writer runs or
// after it has gone, and answers for each group given, in each mode: the entry of a group the
// router knows, else the entry of the longest range that covers the group (the RP of the range's
// own first address: with several candidates another group of the range may hash elsewhere).
//
//   rp_reader TABLES GROUP...
//
// It writes nothing and decides nothing: every answer is an entry its writer put in the tables.

#include <array>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "framework/Mirra/CorruptionDetectedException.h"
#include "pipeline/TableHome.h"

namespace {

using PimrpPipeline::HashKind;
using PimrpPipeline::HashSource;
using PimrpPipeline::TableHome;
using namespace Routing::Pim;

// The final tables of one family and mode, as a reader holds them.
struct FinalTables {
  Kel::Ptr<RpHashStatus> groups;
  Kel::Ptr<RpHashStatus> ranges;
};

// [guide:reader-attach]
FinalTables finalTablesOf(const std::string& tables, Ipkit::AddressFamily af, Mode mode) {
  const TableHome home(TableHome::Kind::sharedReader, tables);
  const L3::VrfName vrf("default");
  return FinalTables{
      PimrpPipeline::rpHashTableIn(home, vrf, af, HashSource::final, HashKind::groups, mode),
      PimrpPipeline::rpHashTableIn(home, vrf, af, HashSource::final, HashKind::prefixes, mode)};
}
// [/guide:reader-attach]

// [guide:reader-lookup]
// The group's own entry, else the entry of the longest range holding it; the default entry when
// there is neither. Every read checks what it reads: damage raises CorruptionDetectedException.
RpHash entryFor(const FinalTables& tables, const Ipkit::IpGenAddr& group) {
  const Ipkit::IpGenPrefix host = Ipkit::IpGenPrefix::hostPrefix(group);
  const RpHash own = tables.groups->rpHash(host);
  if (own != RpHash()) return own;
  for (int length = static_cast<int>(host.len()); length >= 0; --length) {
    const RpHash range = tables.ranges->rpHash(Ipkit::IpGenPrefix(group, length));
    if (range != RpHash()) return range;
  }
  return RpHash();
}
// [/guide:reader-lookup]

// The final tables of both modes of each family: [family: ipv4, ipv6][mode: sparse, bidir].
using AllFinalTables = std::array<std::array<FinalTables, 2>, 2>;

AllFinalTables allFinalTablesOf(const std::string& tables) {
  AllFinalTables all;
  for (const auto af : {Ipkit::AddressFamily::ipv4, Ipkit::AddressFamily::ipv6}) {
    for (const Mode mode : {modePimSm, modePimBidir}) {
      all[af == Ipkit::AddressFamily::ipv4 ? 0 : 1][mode == modePimSm ? 0 : 1] =
          finalTablesOf(tables, af, mode);
    }
  }
  return all;
}

void answer(const AllFinalTables& tables, const Ipkit::IpGenAddr& group) {
  const auto& family = tables[group.af() == Ipkit::AddressFamily::ipv4 ? 0 : 1];
  for (const Mode mode : {modePimSm, modePimBidir}) {
    const RpHash entry = entryFor(family[mode == modePimSm ? 0 : 1], group);
    std::cout << group << (mode == modePimSm ? " sparse: " : " bidir: ");
    if (entry == RpHash() || entry.address() == Ipkit::IpGenAddr()) {
      std::cout << "none\n";
      continue;
    }
    const bool own = entry.key() == Ipkit::IpGenPrefix::hostPrefix(group);
    std::cout << entry.address() << " ("
              << (own ? std::string("group entry") : "range " + entry.key().valueToStrep())
              << ")\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() < 2) {
    std::cerr << "usage: rp_reader TABLES GROUP...\n";
    return 2;
  }
  try {
    const AllFinalTables tables = allFinalTablesOf(args[0]);
    for (std::size_t index = 1; index < args.size(); ++index) {
      answer(tables, Ipkit::IpGenAddr(args[index]));
    }
  } catch (const Mirra::CorruptionDetectedException& damage) {
    std::cerr << "rp_reader: the shared table '" << damage.table()
              << "' is damaged: " << damage.what() << '\n';
    return 1;
  } catch (const std::exception& failure) {
    // Tables that do not exist or may not be read, or a group that is no address.
    std::cerr << "rp_reader: " << failure.what() << '\n';
    return 1;
  }
  return 0;
}
