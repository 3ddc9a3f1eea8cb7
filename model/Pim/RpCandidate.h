#pragma once
// Routing::Pim::RpCandidate: one candidate RP for one group prefix, keyed by its address.
// Written by the candidate status's one writer (static configuration or bootstrap); read by
// selection and by the RP hash reactors, which react to its attributes.
//
// A candidate not yet written carries the "not set" values: priority 256, hash mask length 128,
// no override, mode 0 (which selection ignores), setup time 0.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Entity.h"
#include "model/Pim/PimTypes.h"

namespace Routing {
namespace Pim {

class RpCandidate : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<RpCandidate> {
   public:
    virtual void onPriority() {}
    virtual void onHashMaskLen() {}
    virtual void onOverride() {}
    virtual void onPimMode() {}
    virtual void onSetupTime() {}
  };

  explicit RpCandidate(const Ipkit::IpGenAddr& address) : address_(address) {}

  const Ipkit::IpGenAddr& address() const { return address_; }
  RpPriority priority() const { return priority_; }
  RpHashMaskLen hashMaskLen() const { return hashMaskLen_; }
  bool override() const { return override_; }
  Mode pimMode() const { return pimMode_; }
  double setupTime() const { return setupTime_; }

  void priorityIs(RpPriority priority) { assign(priority_, priority, &NotifieeConst::onPriority); }
  void hashMaskLenIs(RpHashMaskLen hashMaskLen) {
    assign(hashMaskLen_, hashMaskLen, &NotifieeConst::onHashMaskLen);
  }
  void overrideIs(bool override) { assign(override_, override, &NotifieeConst::onOverride); }
  void pimModeIs(Mode pimMode) { assign(pimMode_, pimMode, &NotifieeConst::onPimMode); }
  void setupTimeIs(double setupTime) { assign(setupTime_, setupTime, &NotifieeConst::onSetupTime); }

 private:
  template <class T>
  void assign(T& attribute, const T& value, void (NotifieeConst::*handler)()) {
    if (attribute == value) return;
    attribute = value;
    notify(handler);
  }

  const Ipkit::IpGenAddr address_;
  RpPriority priority_ = kRpPriorityNone;
  RpHashMaskLen hashMaskLen_ = kRpHashMaskLenNone;
  bool override_ = false;
  Mode pimMode_ = modePimNone;
  double setupTime_ = 0.0;
};

}  // namespace Pim
}  // namespace Routing
