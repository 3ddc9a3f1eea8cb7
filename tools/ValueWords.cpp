#include "tools/ValueWords.h"

#include <algorithm>

#include "framework/Kel/Exception.h"
#include "tools/StatementError.h"

namespace PimrpTool {
namespace {

// Numbers saturate here: far above every range the Validator knows, far below overflow.
constexpr std::uint64_t kNumberCeiling = 1ull << 40;

// Ipkit's refusal reads "invalid prefix 'TEXT': WHY"; the operator needs the WHY.
std::string prefixRefusalReason(const std::string& message, const std::string& word) {
  const std::string lead = "invalid prefix '" + word + "': ";
  if (message.compare(0, lead.size(), lead) == 0) return message.substr(lead.size());
  return "not ADDRESS/LENGTH";
}

}  // namespace

std::string takeChoice(WordCursor& cursor, Choices choices) {
  // The messages are built only on refusal: most words are right.
  if (cursor.atEnd()) cursor.take(oneOf(choices));
  const std::string& word = cursor.peek();
  if (std::find(choices.begin(), choices.end(), word) == choices.end()) {
    throw StatementError("expected " + oneOf(choices) + " after " + quoted(cursor.consumed()) +
                         ", got " + quoted(word));
  }
  return cursor.take(word);
}

Address takeAddress(WordCursor& cursor, const std::string& what) {
  Address address;
  address.word = cursor.take(what);
  try {
    address.value = Ipkit::IpGenAddr(address.word);
  } catch (const Kel::Exception&) {
    throw StatementError("invalid " + what + " " + quoted(address.word) +
                         ": not an IPv4 or IPv6 address");
  }
  return address;
}

Prefix takePrefix(WordCursor& cursor, const std::string& what) {
  Prefix prefix;
  prefix.word = cursor.take(what);
  const std::size_t slash = prefix.word.find('/');
  if (slash == std::string::npos) {
    throw StatementError("invalid " + what + " " + quoted(prefix.word) +
                         ": expected ADDRESS/LENGTH");
  }
  try {
    prefix.value = Ipkit::IpGenPrefix(prefix.word);
  } catch (const Kel::Exception& refusal) {
    throw StatementError("invalid " + what + " " + quoted(prefix.word) + ": " +
                         prefixRefusalReason(refusal.what(), prefix.word));
  }
  // The prefix type clears host bits silently; a range written with them is most likely a typo
  // for a longer prefix, so it is refused rather than widened.
  if (prefix.value.address() != Ipkit::IpGenAddr(prefix.word.substr(0, slash))) {
    throw StatementError(what + " " + quoted(prefix.word) + " has host bits set (the range is " +
                         prefix.value.valueToStrep() + ")");
  }
  return prefix;
}

Prefix takeAddressOrPrefix(WordCursor& cursor, const std::string& what) {
  if (!cursor.atEnd() && cursor.peek().find('/') != std::string::npos) {
    return takePrefix(cursor, what);
  }
  const Address address = takeAddress(cursor, what);
  return Prefix{Ipkit::IpGenPrefix::hostPrefix(address.value), address.word};
}

Seconds takeSeconds(WordCursor& cursor, const std::string& what) {
  constexpr std::size_t kFractionDigits = 6;
  Seconds seconds;
  seconds.word = cursor.take(what);
  const std::size_t point = seconds.word.find('.');
  const std::string whole = seconds.word.substr(0, point);
  const std::string fraction = point == std::string::npos ? "" : seconds.word.substr(point + 1);
  const bool digitsOnly = (whole + fraction).find_first_not_of("0123456789") == std::string::npos;
  if (!digitsOnly || whole.empty() || (point != std::string::npos && fraction.empty()) ||
      fraction.size() > kFractionDigits) {
    throw StatementError("invalid " + what + " " + quoted(seconds.word) +
                         ": not a decimal number of seconds with at most 6 decimals");
  }
  const std::string micros = whole + fraction + std::string(kFractionDigits - fraction.size(), '0');
  for (const char c : micros) {
    seconds.value =
        std::min(seconds.value * 10 + static_cast<std::uint64_t>(c - '0'), kNumberCeiling);
  }
  return seconds;
}

Number takeNumber(WordCursor& cursor, const std::string& what) {
  Number number;
  number.word = cursor.take(what);
  for (const char c : number.word) {
    if (c < '0' || c > '9') {
      throw StatementError("invalid " + what + " " + quoted(number.word) +
                           ": not a decimal number");
    }
    number.value =
        std::min(number.value * 10 + static_cast<std::uint64_t>(c - '0'), kNumberCeiling);
  }
  return number;
}

std::string takeName(WordCursor& cursor, const std::string& what, std::size_t maxLength) {
  const std::string name = cursor.take(what);
  for (const char c : name) {
    const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
    if (!allowed) {
      throw StatementError("invalid " + what + " " + quoted(name) +
                           ": use letters, digits, '_', '-' and '.'");
    }
  }
  if (name.size() > maxLength) {
    throw StatementError(what + " " + quoted(name) + " is longer than " +
                         std::to_string(maxLength) + " characters");
  }
  return name;
}

Routing::Pim::Mode takeMode(WordCursor& cursor) {
  return takeChoice(cursor, {"sparse", "bidir"}) == "bidir" ? Routing::Pim::modePimBidir
                                                            : Routing::Pim::modePimSm;
}

void requireFirst(bool seen, const std::string& option) {
  if (seen) throw StatementError(quoted(option) + " given twice");
}

}  // namespace PimrpTool
