#include "framework/Ipkit/IpGenPrefix.h"

#include <algorithm>
#include <sstream>

#include "framework/Kel/Exception.h"

namespace Ipkit {

namespace {

unsigned maxLen(AddressFamily af) { return af == AddressFamily::ipv4 ? 32u : 128u; }

}  // namespace

void IpGenPrefix::refuseLength(const IpGenAddr& addr, unsigned len) {
  if (addr.af() == AddressFamily::ipunknown) {
    throw Kel::RangeException("prefix needs an IPv4 or IPv6 address, got unknown");
  }
  std::ostringstream os;
  os << "prefix length " << len << " above " << maxLen(addr.af()) << " for " << addr;
  throw Kel::RangeException(os.str());
}

IpGenPrefix::IpGenPrefix(const Kel::String& text) : IpGenPrefix(text.begin(), text.end()) {}

IpGenPrefix::IpGenPrefix(Kel::String::const_iterator first, Kel::String::const_iterator last)
    : len_(0) {
  const auto refuse = [&](const Kel::String& why) {
    throw Kel::ParseException("invalid prefix '" + Kel::String(first, last) + "': " + why);
  };
  if (first == last) refuse("empty text");
  const auto slash = std::find(first, last, '/');
  if (slash == last) refuse("missing '/' and length");

  IpGenAddr addr;
  try {
    addr = IpGenAddr(first, slash);
  } catch (const Kel::ParseException& e) {
    refuse(e.what());
  }

  if (slash + 1 == last) refuse("missing length");
  // Saturate instead of overflowing: any run of digits past the family's maximum is refused the
  // same way, however long it is.
  unsigned len = 0;
  for (auto c = slash + 1; c != last; ++c) {
    if (*c < '0' || *c > '9') refuse("length not a decimal number");
    len = std::min(len * 10u + static_cast<unsigned>(*c - '0'), 1000u);
  }
  const unsigned max = maxLen(addr.af());
  if (len > max) refuse("length above " + std::to_string(max));
  *this = IpGenPrefix(addr, len);
}

Kel::String IpGenPrefix::valueToStrep() const {
  std::ostringstream os;
  os << *this;
  return os.str();
}

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& prefix) {
  if (prefix.isNull()) return os << "unknown";
  // The length goes through to_string so that the caller's stream flags (hex, width) cannot
  // change it.
  return os << prefix.address() << '/' << std::to_string(prefix.len());
}

}  // namespace Ipkit
