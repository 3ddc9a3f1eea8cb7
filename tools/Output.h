#pragma once
// PimrpTool::Output: how answers of show statements are printed: for people (HumanOutput,
// short aligned tables) or for programs (JsonOutput, one JSON object per line).

#include <memory>
#include <ostream>
#include <string>

#include "model/Pim/PimTypes.h"
#include "tools/Results.h"

namespace PimrpTool {

class Output {
 public:
  virtual ~Output() = default;
  virtual void show(const ShowResult& result) = 0;
};

std::unique_ptr<Output> humanOutputFactory(std::ostream& out);
std::unique_ptr<Output> jsonOutputFactory(std::ostream& out);

// An address, or "none" for no address (unknown family).
std::string addressWord(const Ipkit::IpGenAddr& address);
// "sparse", "bidir", or "none" for no mode (and any value the library does not name).
std::string modeWord(Routing::Pim::Mode mode);
// The mode of a query: "any" for no mode.
std::string queryModeWord(Routing::Pim::Mode mode);
// "final", "static" or "bsr".
std::string tableSourceWord(TableSource source);
// "groups" or "prefixes".
std::string tableKindWord(TableKind kind);
// "ipv4" or "ipv6".
std::string familyWord(Ipkit::AddressFamily af);

}  // namespace PimrpTool
