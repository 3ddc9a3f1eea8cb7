#pragma once
// The framework's debug stream: state reports of platform facilities (the shared tables' attach,
// ready and corruption reports). Always on; each message becomes a level-0 record of the trace
// file "Debug" in the trace ring, so tests and the tool read it like any trace.

#include <string>

namespace Kel {

void debugMessage(const std::string& text);

}  // namespace Kel
