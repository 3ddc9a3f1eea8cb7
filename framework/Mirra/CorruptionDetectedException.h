#pragma once
// Raised to a reader of a table whose stored bytes no longer match what the writer wrote, or that
// could not read them whole before its wait for a stalled writer ran out. what() says what was
// found; table() names the shared table ("" for a table in process memory); reportedBy(attachment)
// says whether that attachment reported the detection before raising it, so that a caller who
// catches the exception and hands it back (Mirra::tolerantRead) acknowledges that report instead
// of making a second one.

#include <string>

#include "framework/Kel/Exception.h"

namespace Mirra {

class CorruptionDetectedException : public Kel::Exception {
 public:
  // `reporter` is the attachment that reported the detection, or null when none did.
  explicit CorruptionDetectedException(const std::string& message, const std::string& table = "",
                                       const void* reporter = nullptr)
      : Kel::Exception(message), table_(table), reporter_(reporter) {}
  const std::string& table() const { return table_; }
  // Compares identities only; the attachment is never read through this.
  bool reportedBy(const void* attachment) const {
    return reporter_ != nullptr && reporter_ == attachment;
  }

 private:
  std::string table_;
  const void* reporter_;
};

}  // namespace Mirra
