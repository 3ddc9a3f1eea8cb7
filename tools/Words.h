#pragma once
// PimrpTool::Words: the words of one script line and a cursor over them for the parser.
//
// A line is split at blanks (space, tab, carriage return, so that CRLF files read the same);
// everything from the first '#' on is a comment. The cursor remembers the words it has consumed,
// so that an error can say where in the statement it stopped ("missing group range after
// 'rp-address 10.0.0.1 group'").
//
// Invariants:
//  1. No word is empty and none holds a blank or a '#'.
//  2. Every refusal throws StatementError; nothing else is thrown.

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace PimrpTool {

std::vector<std::string> splitWords(std::string_view line);

class WordCursor {
 public:
  explicit WordCursor(std::vector<std::string> words) : words_(std::move(words)) {}

  bool atEnd() const { return next_ == words_.size(); }
  // REQUIRES: !atEnd().
  const std::string& peek() const { return words_[next_]; }
  // The next word; "missing WHAT after '...'" when there is none.
  std::string take(const std::string& what);
  // Consumes the next word when it equals `keyword`.
  bool takeIf(std::string_view keyword);
  // "unexpected 'w' after '...'" unless every word has been consumed.
  void expectEnd() const;
  // The words consumed so far, joined by blanks.
  std::string consumed() const;

 private:
  std::vector<std::string> words_;
  std::size_t next_ = 0;
};

}  // namespace PimrpTool
