#include "tools/StatementWarnings.h"

#include <cstdint>
#include <variant>

namespace PimrpTool {
namespace {

using Ipkit::AddressFamily;

// The widest IPv6 hash mask that still clears every bit of a group's last 32-bit word.
constexpr std::uint64_t kWidestIpv6MaskWithoutHash = 96;

// What a binding's values written so that the library reads them as not set do, one phrase
// each: a list's binding writes no value (a candidate keeps the one it has), any other leaves the
// value not set.
std::vector<std::string> unsetPhrases(const OptionValue& priority, const OptionValue& hashMask,
                                      AddressFamily af, bool throughList) {
  std::vector<std::string> phrases;
  if (priority.form == OptionValue::Form::none) {
    phrases.push_back(throughList ? "'priority none' sets no priority"
                                  : "'priority none' leaves the priority not set");
  }
  if (hashMask.form == OptionValue::Form::none) {
    phrases.push_back(throughList ? "'hashmask none' sets no hash mask"
                                  : "'hashmask none' leaves the hash mask not set");
  } else if (hashMask.form == OptionValue::Form::number && af == AddressFamily::ipv6 &&
             hashMask.number.value == Routing::Pim::kRpHashMaskLenNone) {
    phrases.push_back("'hashmask 128' is, for IPv6, the library's value of a hash mask not set");
  }
  return phrases;
}

std::string unsetWarning(const std::string& subject, const std::vector<std::string>& phrases,
                         bool throughList) {
  std::string text = subject + ": " + phrases[0];
  for (std::size_t i = 1; i < phrases.size(); ++i) text += " and " + phrases[i];
  const std::string until = phrases.size() == 1 ? "it is set" : "both are set";
  if (throughList) {
    return text + "; a candidate the list creates for this RP has " +
           (phrases.size() == 1 ? "it" : "them") +
           " not set, and the per-range RP hash tables get no entry from it until " + until;
  }
  return text + "; the per-range RP hash tables get no entry from this candidate until " + until;
}

std::string wideMaskWarning(const std::string& subject, const Number& hashMask) {
  return subject + ": 'hashmask " + std::to_string(hashMask.value) +
         "' hashes every group of the range alike, so one RP serves them all: the IPv6 hash "
         "reads only a group's last 32 bits, which a mask of " +
         std::to_string(kWidestIpv6MaskWithoutHash) + " or less clears";
}

// The warnings of a candidate's values, given as the statement wrote them; `throughList` for a
// binding through an access list.
std::vector<std::string> valueWarnings(const std::string& subject, const OptionValue& priority,
                                       const OptionValue& hashMask, AddressFamily af,
                                       bool throughList = false) {
  std::vector<std::string> warnings;
  const auto phrases = unsetPhrases(priority, hashMask, af, throughList);
  if (!phrases.empty()) warnings.push_back(unsetWarning(subject, phrases, throughList));
  if (hashMask.form == OptionValue::Form::number && af == AddressFamily::ipv6 &&
      hashMask.number.value <= kWidestIpv6MaskWithoutHash) {
    warnings.push_back(wideMaskWarning(subject, hashMask.number));
  }
  return warnings;
}

OptionValue numberOption(const Number& number) {
  OptionValue option;
  option.form = OptionValue::Form::number;
  option.number = number;
  return option;
}

struct Warnings {
  std::vector<std::string> operator()(const RpGroupStatement& s) const {
    return valueWarnings("RP " + s.rp.value.valueToStrep() + " for " + s.group.value.valueToStrep(),
                         s.options.priority, s.options.hashMask, s.group.value.af());
  }
  std::vector<std::string> operator()(const RpAclStatement& s) const {
    return valueWarnings("RP " + s.rp.value.valueToStrep() + " for access list '" + s.acl + "'",
                         s.options.priority, s.options.hashMask, AddressFamily::ipv4, true);
  }
  std::vector<std::string> operator()(const BsrRpStatement& s) const {
    return valueWarnings(
        "bootstrap candidate " + s.rp.value.valueToStrep() + " for " + s.group.value.valueToStrep(),
        numberOption(s.priority), numberOption(s.hashMask), s.group.value.af());
  }
  template <class Other>
  std::vector<std::string> operator()(const Other&) const {
    return {};
  }
};

}  // namespace

std::vector<std::string> statementWarnings(const Statement& statement) {
  return std::visit(Warnings{}, statement);
}

}  // namespace PimrpTool
