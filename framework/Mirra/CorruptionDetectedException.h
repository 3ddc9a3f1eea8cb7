#pragma once
// Raised to a reader of a shared table whose stored bytes no longer match what the writer wrote.

#include <string>

#include "framework/Kel/Exception.h"

namespace Mirra {

class CorruptionDetectedException : public Kel::Exception {
 public:
  explicit CorruptionDetectedException(const std::string& message) : Kel::Exception(message) {}
};

}  // namespace Mirra
