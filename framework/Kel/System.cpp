#include "framework/Kel/System.h"

#include <chrono>

namespace Kel {
namespace {

bool virtualMode = false;
double virtualNow = 0.0;

}  // namespace

double System::currentTime() {
  if (virtualMode) return virtualNow;
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(sinceEpoch).count();
}

void System::virtualTimeIs(double seconds) {
  virtualMode = true;
  virtualNow = seconds;
}

void System::virtualTimeAdvanceTo(double seconds) {
  if (seconds > virtualNow) virtualNow = seconds;
}

bool System::virtualTime() { return virtualMode; }

void System::realTimeIs() { virtualMode = false; }

}  // namespace Kel
