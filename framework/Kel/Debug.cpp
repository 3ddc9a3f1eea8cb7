#include "framework/Kel/Debug.h"

#include "framework/Kel/Trace.h"

namespace Kel {

void debugMessage(const std::string& text) {
  TraceFile::named("Debug").write(0, text, 0, "debugMessage");
}

}  // namespace Kel
