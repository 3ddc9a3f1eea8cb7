#include "framework/Ipkit/IpGenAddr.h"

#include <sstream>

#include "framework/Kel/Exception.h"

namespace Ipkit {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Exactly four decimal octets of one to three digits each, nothing before or after. Leading
// zeros are read as decimal ("010" is ten): the text never means octal here.
bool parseIp4(const char* p, const char* end, std::uint32_t* out) {
  std::uint32_t value = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet != 0) {
      if (p == end || *p != '.') return false;
      ++p;
    }
    unsigned number = 0;
    int digits = 0;
    while (p != end && isDigit(*p)) {
      if (++digits > 3) return false;
      number = number * 10 + static_cast<unsigned>(*p - '0');
      ++p;
    }
    if (digits == 0 || number > 255) return false;
    value = (value << 8) | number;
  }
  if (p != end) return false;
  *out = value;
  return true;
}

// Colon-separated groups of one to four hex digits, at most one "::" standing for one or more
// zero groups, and optionally a dotted quad as the last 32 bits.
bool parseIp6(const char* p, const char* end, std::array<std::uint8_t, 16>* out) {
  std::uint16_t words[8] = {};
  int count = 0;
  int gap = -1;  // index in words where "::" stands, -1 when there is none
  if (p == end) return false;
  if (*p == ':') {
    if (end - p < 2 || p[1] != ':') return false;
    gap = 0;
    p += 2;
  }
  while (p != end) {
    const char* tokenEnd = p;
    bool dotted = false;
    while (tokenEnd != end && *tokenEnd != ':') {
      if (*tokenEnd == '.') dotted = true;
      ++tokenEnd;
    }
    if (dotted) {
      // The embedded IPv4 part can only be the last thing in the text.
      std::uint32_t v4 = 0;
      if (tokenEnd != end || count > 6 || !parseIp4(p, tokenEnd, &v4)) return false;
      words[count++] = static_cast<std::uint16_t>(v4 >> 16);
      words[count++] = static_cast<std::uint16_t>(v4 & 0xffffu);
      p = tokenEnd;
      break;
    }
    const long digits = tokenEnd - p;
    if (digits < 1 || digits > 4 || count == 8) return false;
    unsigned word = 0;
    for (; p != tokenEnd; ++p) {
      const int h = hexValue(*p);
      if (h < 0) return false;
      word = (word << 4) | static_cast<unsigned>(h);
    }
    words[count++] = static_cast<std::uint16_t>(word);
    if (p == end) break;
    ++p;                         // the ':' after the group
    if (p == end) return false;  // a single trailing ':'
    if (*p == ':') {
      if (gap != -1) return false;
      gap = count;
      ++p;
    }
  }
  if (gap == -1 ? count != 8 : count > 7) return false;

  std::uint16_t full[8] = {};
  if (gap == -1) {
    for (int i = 0; i < 8; ++i) full[i] = words[i];
  } else {
    const int tail = count - gap;
    for (int i = 0; i < gap; ++i) full[i] = words[i];
    for (int i = 0; i < tail; ++i) full[8 - tail + i] = words[gap + i];
  }
  for (int i = 0; i < 8; ++i) {
    (*out)[static_cast<std::size_t>(2 * i)] = static_cast<std::uint8_t>(full[i] >> 8);
    (*out)[static_cast<std::size_t>(2 * i + 1)] = static_cast<std::uint8_t>(full[i] & 0xffu);
  }
  return true;
}

}  // namespace

IpGenAddr::IpGenAddr(const Kel::String& text) : IpGenAddr(text.begin(), text.end()) {}

IpGenAddr::IpGenAddr(Kel::String::const_iterator first, Kel::String::const_iterator last)
    : IpGenAddr() {
  if (first == last) throw Kel::ParseException("invalid address ''");
  // Work on pointers so that the parsers never dereference an iterator past the range.
  const char* p = &*first;
  const char* end = p + (last - first);
  bool colon = false;
  for (const char* c = p; c != end; ++c) colon = colon || *c == ':';
  if (colon) {
    if (!parseIp6(p, end, &bytes_)) {
      throw Kel::ParseException("invalid IPv6 address '" + Kel::String(first, last) + "'");
    }
    af_ = AddressFamily::ipv6;
    return;
  }
  std::uint32_t v4 = 0;
  if (!parseIp4(p, end, &v4)) {
    throw Kel::ParseException("invalid IPv4 address '" + Kel::String(first, last) + "'");
  }
  *this = IpGenAddr(Ip4Addr(v4));
}

Ip4Addr IpGenAddr::ip4Addr() const {
  if (af_ != AddressFamily::ipv4) {
    throw Kel::RangeException("address " + valueToStrep() + " is not IPv4");
  }
  return Ip4Addr((static_cast<std::uint32_t>(bytes_[0]) << 24) |
                 (static_cast<std::uint32_t>(bytes_[1]) << 16) |
                 (static_cast<std::uint32_t>(bytes_[2]) << 8) | bytes_[3]);
}

Ip6Addr IpGenAddr::ip6Addr() const {
  if (af_ != AddressFamily::ipv6) {
    throw Kel::RangeException("address " + valueToStrep() + " is not IPv6");
  }
  return Ip6Addr(bytes_);
}

Kel::String IpGenAddr::valueToStrep() const {
  std::ostringstream os;
  os << *this;
  return os.str();
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr) {
  switch (addr.af()) {
    case AddressFamily::ipv4:
      return os << addr.ip4Addr();
    case AddressFamily::ipv6:
      return os << addr.ip6Addr();
    case AddressFamily::ipunknown:
      break;
  }
  return os << "unknown";
}

}  // namespace Ipkit
