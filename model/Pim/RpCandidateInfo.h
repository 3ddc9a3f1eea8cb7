#pragma once
// Routing::Pim::RpCandidateInfo: the outcome of one RP selection.
//
// Invariants:
//  1. The default value (unknown address, priority 256, hash mask length 128, override false,
//     mode 0) means "no RP"; !info is true exactly for it.
//  2. Equality compares all five fields.
//  3. The text form is
//       Value('Routing::Pim::RpCandidateInfo', ** {'address': A, 'priority': P, 'hashMaskLen': H,
//       'override': O, 'mode': M})
//     with each field in its own type's text form (the unknown address as "unknown", the flag as
//     True/False, the mode by name), and fromStrep reads exactly that form back.

#include <ostream>

#include "framework/Ipkit/IpGenAddr.h"
#include "model/Pim/PimTypes.h"

namespace Routing {
namespace Pim {

class RpCandidateInfo {
 public:
  RpCandidateInfo() = default;
  RpCandidateInfo(const Ipkit::IpGenAddr& address, RpPriority priority, RpHashMaskLen hashMaskLen,
                  bool override, Mode mode)
      : address_(address),
        priority_(priority),
        hashMaskLen_(hashMaskLen),
        override_(override),
        mode_(mode) {}

  // Throws Kel::ParseException naming the text when it is not the text form above.
  static RpCandidateInfo fromStrep(const Kel::String& text);

  const Ipkit::IpGenAddr& address() const { return address_; }
  RpPriority priority() const { return priority_; }
  RpHashMaskLen hashMaskLen() const { return hashMaskLen_; }
  bool override() const { return override_; }
  Mode mode() const { return mode_; }

  void addressIs(const Ipkit::IpGenAddr& address) { address_ = address; }
  void priorityIs(RpPriority priority) { priority_ = priority; }
  void hashMaskLenIs(RpHashMaskLen hashMaskLen) { hashMaskLen_ = hashMaskLen; }
  void overrideIs(bool override) { override_ = override; }
  void modeIs(Mode mode) { mode_ = mode; }

  bool operator==(const RpCandidateInfo& other) const {
    return address_ == other.address_ && priority_ == other.priority_ &&
           hashMaskLen_ == other.hashMaskLen_ && override_ == other.override_ &&
           mode_ == other.mode_;
  }
  bool operator!=(const RpCandidateInfo& other) const { return !(*this == other); }
  bool operator!() const { return *this == RpCandidateInfo(); }

  Kel::String valueToStrep() const;

 private:
  Ipkit::IpGenAddr address_;
  RpPriority priority_ = kRpPriorityNone;
  RpHashMaskLen hashMaskLen_ = kRpHashMaskLenNone;
  bool override_ = false;
  Mode mode_ = modePimNone;
};

std::ostream& operator<<(std::ostream& out, const RpCandidateInfo& info);

}  // namespace Pim
}  // namespace Routing
