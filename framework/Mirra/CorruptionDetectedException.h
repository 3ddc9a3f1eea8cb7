#pragma once
// Raised to a reader of a table whose stored bytes no longer match what the writer wrote, or that
// could not read them whole before its wait for a stalled writer ran out. what() says what was
// found; table() names the shared table ("" for a table in process memory).

#include <string>

#include "framework/Kel/Exception.h"

namespace Mirra {

class CorruptionDetectedException : public Kel::Exception {
 public:
  explicit CorruptionDetectedException(const std::string& message, const std::string& table = "")
      : Kel::Exception(message), table_(table) {}
  const std::string& table() const { return table_; }

 private:
  std::string table_;
};

}  // namespace Mirra
