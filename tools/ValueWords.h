#pragma once
// Readers of the words of a statement as typed values, for the statement forms of the parser.
// Each consumes the next word of the cursor and refuses it with a StatementError that names
// what was expected and quotes the word; `what` names the value in those messages ("group
// range", "priority"). An IPv4 octet written with a leading zero (010.0.0.1) is refused: some
// tools read it as octal, others as decimal.

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "model/Pim/PimTypes.h"
#include "tools/Statement.h"
#include "tools/Words.h"

namespace PimrpTool {

using Choices = std::initializer_list<std::string_view>;

// "'a'", "'a' or 'b'", "'a', 'b' or 'c'".
template <class Words>
std::string oneOf(const Words& words) {
  std::string text;
  std::size_t index = 0;
  for (const auto& word : words) {
    if (index != 0) text += index + 1 == words.size() ? " or " : ", ";
    text.append("'").append(word).append("'");
    ++index;
  }
  return text;
}

// The word with its ASCII letters in lower case.
std::string lowerCase(std::string word);

// " (keywords are lower case)" when `word` is one of `keywords` written in another case, else "".
template <class Words>
std::string keywordCaseNote(const std::string& word, const Words& keywords) {
  const std::string lower = lowerCase(word);
  if (lower == word) return "";
  for (const auto& keyword : keywords) {
    if (lower == keyword) return " (keywords are lower case)";
  }
  return "";
}

// The next word, which must be one of `choices`.
std::string takeChoice(WordCursor& cursor, Choices choices);
// An IPv4 or IPv6 address.
Address takeAddress(WordCursor& cursor, const std::string& what);
// ADDRESS/LENGTH with no host bits set.
Prefix takePrefix(WordCursor& cursor, const std::string& what);
// A group range: ADDRESS/LENGTH with no host bits set. A range whose length reaches outside the
// group space (ff00::/7) is refused as not within it, not for the host bits its length clears.
Prefix takeGroupRange(WordCursor& cursor, const std::string& what);
// A group address (read as its host prefix) or a group range.
Prefix takeGroupAddressOrRange(WordCursor& cursor, const std::string& what);
// Decimal digits with an optional fraction of at most six digits, read in microseconds; the value
// saturates as numbers do.
Seconds takeSeconds(WordCursor& cursor, const std::string& what);
// Decimal digits only; the value saturates far above any range of the language.
Number takeNumber(WordCursor& cursor, const std::string& what);
// Letters, digits and the characters of `punctuation` ('_', '-' and '.' unless told otherwise), at
// most maxLength of them.
std::string takeName(WordCursor& cursor, const std::string& what, std::size_t maxLength,
                     const std::string& punctuation = "_-.");
// A VRF name: letters, digits, '_' and '-'.
std::string takeVrfName(WordCursor& cursor);
// The VRF a show names at its end (`vrf NAME`), if any; then the end of the statement.
std::optional<std::string> takeVrfAndEnd(WordCursor& cursor);
// "sparse" or "bidir".
Routing::Pim::Mode takeMode(WordCursor& cursor);

// Refuses a second occurrence of an option that may be given once.
void requireFirst(bool seen, const std::string& option);

}  // namespace PimrpTool
