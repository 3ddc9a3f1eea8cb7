#include "tools/ValueWords.h"

#include <algorithm>
#include <string_view>

#include "framework/Kel/Exception.h"
#include "tools/GroupSpace.h"
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

// Where the dotted IPv4 part of an address begins: the whole of an IPv4 address, the tail of an
// IPv6 address written with one; npos when the address has none.
std::size_t dottedPartStart(std::string_view address) {
  const std::size_t colon = address.rfind(':');
  const std::size_t start = colon == std::string_view::npos ? 0 : colon + 1;
  return address.find('.', start) == std::string_view::npos ? std::string_view::npos : start;
}

// Some tools read an octet with a leading zero as octal (010 is 8), others as decimal: an address
// written so means different things to different readers, so it is refused, with the address
// written without them. `addressLength` is the length of the address at the start of `word`.
void refuseLeadingZeros(const std::string& what, const std::string& word,
                        std::size_t addressLength) {
  const std::string_view address = std::string_view(word).substr(0, addressLength);
  const std::size_t dotted = dottedPartStart(address);
  if (dotted == std::string_view::npos) return;
  std::string firstOctet;
  std::string rewritten(address.substr(0, dotted));
  for (std::size_t start = dotted;;) {
    const std::size_t dot = address.find('.', start);
    std::string_view octet = address.substr(start, dot - start);
    const bool digits = octet.find_first_not_of("0123456789") == std::string_view::npos;
    if (digits && octet.size() > 1 && octet[0] == '0') {
      if (firstOctet.empty()) firstOctet = octet;
      octet.remove_prefix(std::min(octet.find_first_not_of('0'), octet.size() - 1));
    }
    rewritten.append(octet);
    if (dot == std::string_view::npos) break;
    rewritten += '.';
    start = dot + 1;
  }
  if (firstOctet.empty()) return;
  throw StatementError("invalid " + what + " " + quoted(word) + ": octet " + quoted(firstOctet) +
                       " has a leading zero, which some tools read as octal: write " +
                       quoted(rewritten + word.substr(addressLength)));
}

// ADDRESS/LENGTH with no host bits set; `group` says that the range is a group range, which must
// lie in the group space.
Prefix takeRange(WordCursor& cursor, const std::string& what, bool group) {
  Prefix prefix;
  prefix.word = cursor.take(what);
  const std::size_t slash = prefix.word.find('/');
  if (slash == std::string::npos) {
    throw StatementError("invalid " + what + " " + quoted(prefix.word) +
                         ": expected ADDRESS/LENGTH");
  }
  refuseLeadingZeros(what, prefix.word, slash);
  try {
    prefix.value = Ipkit::IpGenPrefix(prefix.word);
  } catch (const Kel::Exception& refusal) {
    throw StatementError("invalid " + what + " " + quoted(prefix.word) + ": " +
                         prefixRefusalReason(refusal.what(), prefix.word));
  }
  // The prefix type clears host bits silently; a range written with them is most likely a typo
  // for a longer prefix, so it is refused rather than widened.
  if (prefix.value.address() == Ipkit::IpGenAddr(prefix.word.substr(0, slash))) return prefix;
  // A group range whose length reaches outside the group space (ff00::/7) is too wide, and the
  // range its length makes of it (fe00::/7) is no group range to propose.
  const Ipkit::IpGenPrefix space = groupSpace(prefix.value.af());
  if (group && !space.contains(prefix.value)) {
    throw StatementError(what + " " + quoted(prefix.word) + " is not within " +
                         space.valueToStrep());
  }
  throw StatementError(what + " " + quoted(prefix.word) + " has host bits set (the range is " +
                       prefix.value.valueToStrep() + ")");
}

}  // namespace

std::string lowerCase(std::string word) {
  for (char& c : word) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return word;
}

std::string takeChoice(WordCursor& cursor, Choices choices) {
  // The messages are built only on refusal: most words are right.
  if (cursor.atEnd()) cursor.take(oneOf(choices));
  const std::string& word = cursor.peek();
  if (std::find(choices.begin(), choices.end(), word) == choices.end()) {
    throw StatementError("expected " + oneOf(choices) + " after " + quoted(cursor.consumed()) +
                         ", got " + quoted(word) + keywordCaseNote(word, choices));
  }
  return cursor.take(word);
}

Address takeAddress(WordCursor& cursor, const std::string& what) {
  Address address;
  address.word = cursor.take(what);
  refuseLeadingZeros(what, address.word, address.word.size());
  try {
    address.value = Ipkit::IpGenAddr(address.word);
  } catch (const Kel::Exception&) {
    throw StatementError("invalid " + what + " " + quoted(address.word) +
                         ": not an IPv4 or IPv6 address");
  }
  return address;
}

Prefix takePrefix(WordCursor& cursor, const std::string& what) {
  return takeRange(cursor, what, false);
}

Prefix takeGroupRange(WordCursor& cursor, const std::string& what) {
  return takeRange(cursor, what, true);
}

Prefix takeGroupAddressOrRange(WordCursor& cursor, const std::string& what) {
  if (!cursor.atEnd() && cursor.peek().find('/') != std::string::npos) {
    return takeGroupRange(cursor, what);
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

std::string takeName(WordCursor& cursor, const std::string& what, std::size_t maxLength,
                     const std::string& punctuation) {
  const std::string name = cursor.take(what);
  for (const char c : name) {
    const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || punctuation.find(c) != std::string::npos;
    if (allowed) continue;
    // "'_', '-' and '.'"
    std::string listed;
    for (std::size_t i = 0; i < punctuation.size(); ++i) {
      if (i != 0) listed += i + 1 == punctuation.size() ? " and " : ", ";
      listed += std::string("'") + punctuation[i] + "'";
    }
    throw StatementError("invalid " + what + " " + quoted(name) + ": use letters, digits, " +
                         listed);
  }
  if (name.size() > maxLength) {
    throw StatementError(what + " " + quoted(name) + " is longer than " +
                         std::to_string(maxLength) + " characters");
  }
  return name;
}

// A VRF name is one word of its shared tables' names (pipeline/TableHome.h), which a '.' would
// split. How long it may be is the Validator's to say: it belongs to the VRF name type.
std::string takeVrfName(WordCursor& cursor) {
  return takeName(cursor, "VRF name", std::string::npos, "_-");
}

std::optional<std::string> takeVrfAndEnd(WordCursor& cursor) {
  std::optional<std::string> vrf;
  if (cursor.takeIf("vrf")) vrf = takeVrfName(cursor);
  cursor.expectEnd();
  return vrf;
}

Routing::Pim::Mode takeMode(WordCursor& cursor) {
  return takeChoice(cursor, {"sparse", "bidir"}) == "bidir" ? Routing::Pim::modePimBidir
                                                            : Routing::Pim::modePimSm;
}

void requireFirst(bool seen, const std::string& option) {
  if (seen) throw StatementError(quoted(option) + " given twice");
}

}  // namespace PimrpTool
