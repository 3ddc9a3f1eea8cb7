#include "framework/Kel/System.h"

#include <chrono>
#include <string>

#include "framework/Kel/Exception.h"

namespace Kel {
namespace {

bool virtualMode = false;
double virtualNow = 0.0;
double virtualStep = 0.0;

}  // namespace

double System::currentTime() {
  if (virtualMode) {
    const double now = virtualNow;
    virtualNow += virtualStep;
    return now;
  }
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(sinceEpoch).count();
}

void System::virtualTimeIs(double seconds) { steppingTimeIs(seconds, 0.0); }

void System::steppingTimeIs(double seconds, double step) {
  // Written so that NaN is refused too.
  if (!(step >= 0.0)) {
    throw RangeException("time step " + std::to_string(step) + " refused: must not be negative");
  }
  virtualMode = true;
  virtualNow = seconds;
  virtualStep = step;
}

void System::virtualTimeAdvanceTo(double seconds) {
  if (seconds > virtualNow) virtualNow = seconds;
}

bool System::virtualTime() { return virtualMode; }

double System::timeStep() { return virtualStep; }

void System::realTimeIs() {
  virtualMode = false;
  virtualStep = 0.0;
}

}  // namespace Kel
