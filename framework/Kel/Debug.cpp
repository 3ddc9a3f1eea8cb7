#include "framework/Kel/Debug.h"

#include "framework/Kel/Trace.h"

namespace Kel {
namespace {

KEL_TRACE_FILE(debugTrace, "Debug")

}  // namespace

void debugMessage(const std::string& text) { debugTrace().write(0, text, 0, "debugMessage"); }

}  // namespace Kel
