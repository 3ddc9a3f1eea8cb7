#pragma once
// Oru::AttrLogSm: the back-pressure signal of the attribute log that carries a reactor's table
// changes to other processes.
//
// The log itself lives outside this library; its host tells this object when the log's output
// cannot take more changes (attrLogOutCloggedIs(true)) and when it drains again (false). Reactors
// that write in bulk stop their current slice while isAttrLogOutClogged() is true.
//
// Invariants:
//  1. A new log is not clogged.
//  2. isAttrLogOutClogged() reports the state the host last set; a derived log may report more.

#include "framework/Kel/Attribute.h"
#include "framework/Kel/Ptr.h"

namespace Oru {

class AttrLogSm : public Kel::PtrInterface {
 public:
  // attrLogOutClogged(), attrLogOutCloggedIs(clogged): the state the host last set.
  KEL_OWNED_SCALAR(attrLogOutClogged, false, bool)
  virtual bool isAttrLogOutClogged() const { return attrLogOutClogged(); }
};

}  // namespace Oru
