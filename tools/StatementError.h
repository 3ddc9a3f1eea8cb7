#pragma once
// PimrpTool::StatementError: a statement that cannot be applied, with the message the operator
// reads after "FILE:LINE: error: ". The message says what is wrong and quotes the offending word
// as it was written.

#include <stdexcept>
#include <string>

namespace PimrpTool {

class StatementError : public std::runtime_error {
 public:
  explicit StatementError(const std::string& message) : std::runtime_error(message) {}
};

// The word between single quotes, with bytes that would garble a terminal or a log (control
// characters, non-ASCII) written as \xNN, so that any input can be quoted back safely.
std::string quoted(const std::string& word);

}  // namespace PimrpTool
