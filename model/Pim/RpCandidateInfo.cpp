#include "model/Pim/RpCandidateInfo.h"

#include <sstream>

#include "framework/Kel/Exception.h"

namespace Routing {
namespace Pim {
namespace {

constexpr const char kPrefix[] = "Value('Routing::Pim::RpCandidateInfo', ** {";
constexpr const char kSuffix[] = "})";

// Reads "'key': value" followed by `end` from text at `at`, returning the value's text.
class FieldReader {
 public:
  explicit FieldReader(const Kel::String& text) : text_(text) {}

  void expect(const Kel::String& literal) {
    if (text_.compare(at_, literal.size(), literal) != 0) {
      refuse("expected \"" + literal + "\" at offset " + std::to_string(at_));
    }
    at_ += literal.size();
  }

  Kel::String field(const char* key, const Kel::String& end) {
    expect(Kel::String("'") + key + "': ");
    const auto stop = text_.find(end, at_);
    if (stop == Kel::String::npos) refuse(Kel::String("unterminated field '") + key + "'");
    Kel::String value = text_.substr(at_, stop - at_);
    at_ = stop + end.size();
    return value;
  }

  void expectEnd() {
    if (at_ != text_.size()) refuse("trailing text at offset " + std::to_string(at_));
  }

  [[noreturn]] void refuse(const Kel::String& why) const {
    throw Kel::ParseException("invalid RpCandidateInfo '" + text_ + "': " + why);
  }

 private:
  const Kel::String& text_;
  std::size_t at_ = 0;
};

Ipkit::IpGenAddr addressFromStrep(const Kel::String& text) {
  if (text == "unknown") return Ipkit::IpGenAddr();
  return Ipkit::IpGenAddr(text);
}

}  // namespace

RpCandidateInfo RpCandidateInfo::fromStrep(const Kel::String& text) {
  FieldReader reader(text);
  reader.expect(kPrefix);
  try {
    const auto address = addressFromStrep(reader.field("address", ", "));
    const auto priority =
        unsignedFromStrep(reader.field("priority", ", "), 0xffffffffu, "priority");
    const auto hashMaskLen =
        unsignedFromStrep(reader.field("hashMaskLen", ", "), 0xffffffffu, "hash mask length");
    const bool override = boolFromStrep(reader.field("override", ", "));
    const Mode mode = modeFromStrep(reader.field("mode", kSuffix));
    reader.expectEnd();
    return RpCandidateInfo(address, priority, hashMaskLen, override, mode);
  } catch (const Kel::ParseException& fieldError) {
    if (Kel::String(fieldError.what()).rfind("invalid RpCandidateInfo", 0) == 0) throw;
    reader.refuse(fieldError.what());
  }
}

Kel::String RpCandidateInfo::valueToStrep() const {
  std::ostringstream out;
  out << kPrefix << "'address': " << address_ << ", 'priority': " << priority_
      << ", 'hashMaskLen': " << hashMaskLen_ << ", 'override': " << boolToStrep(override_)
      << ", 'mode': " << mode_ << kSuffix;
  return out.str();
}

std::ostream& operator<<(std::ostream& out, const RpCandidateInfo& info) {
  return out << info.valueToStrep();
}

}  // namespace Pim
}  // namespace Routing
