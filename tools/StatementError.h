#pragma once
// PimrpTool::StatementError: a statement that cannot be applied, with the message the operator
// reads after "FILE:LINE: error: ". The message says what is wrong and quotes the offending word
// as it was written.

#include <cstddef>
#include <stdexcept>
#include <string>

namespace PimrpTool {

class StatementError : public std::runtime_error {
 public:
  explicit StatementError(const std::string& message) : std::runtime_error(message) {}
};

// The most characters of one word that an error quotes.
constexpr std::size_t kMaxQuotedWord = 60;

// The word (or blank-separated words) between single quotes, with bytes that would garble a
// terminal or a log (control characters, non-ASCII) written as \xNN, so that any input can be
// quoted back safely. A word longer than kMaxQuotedWord characters is cut after that many and
// marked with "...", so that a huge word costs no more than a short one to report.
std::string quoted(const std::string& word);

}  // namespace PimrpTool
