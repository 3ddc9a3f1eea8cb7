#include "tools/Words.h"

#include "tools/StatementError.h"

namespace PimrpTool {

std::vector<std::string> splitWords(std::string_view line) {
  const std::size_t comment = line.find('#');
  if (comment != std::string_view::npos) line = line.substr(0, comment);
  std::vector<std::string> words;
  std::string word;
  for (const char c : line) {
    if (c == ' ' || c == '\t' || c == '\r') {
      if (!word.empty()) words.push_back(std::move(word));
      word.clear();
    } else {
      word += c;
    }
  }
  if (!word.empty()) words.push_back(std::move(word));
  return words;
}

std::string WordCursor::take(const std::string& what) {
  if (atEnd()) throw StatementError("missing " + what + " after " + quoted(consumed()));
  return words_[next_++];
}

bool WordCursor::takeIf(std::string_view keyword) {
  if (atEnd() || words_[next_] != keyword) return false;
  ++next_;
  return true;
}

void WordCursor::expectEnd() const {
  if (atEnd()) return;
  throw StatementError("unexpected " + quoted(words_[next_]) + " after " + quoted(consumed()));
}

std::string WordCursor::consumed() const {
  std::string text;
  for (std::size_t i = 0; i < next_; ++i) {
    if (i != 0) text += ' ';
    text += words_[i];
  }
  return text;
}

}  // namespace PimrpTool
