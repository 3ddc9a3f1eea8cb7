#pragma once
// The framework's text types: Kel::String for free text, Kel::Name for names that label objects
// (tries, access lists, reactors).

#include <string>

namespace Kel {

using String = std::string;
using Name = std::string;

}  // namespace Kel
