#pragma once
// The JSON forms of values that several kinds of answers share.

#include <nlohmann/json.hpp>

#include "framework/Ipkit/IpGenAddr.h"

namespace PimrpTool {

// Keys in the order written.
using Json = nlohmann::ordered_json;

// An address as text; null for no address (unknown family).
Json addressJson(const Ipkit::IpGenAddr& address);

}  // namespace PimrpTool
