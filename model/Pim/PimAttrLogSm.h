#pragma once
// Routing::Pim::PimAttrLogSm: the attribute log of the PIM tables, as the RP reactors see it. Its
// host sets the clogged state; the reactors read it through Oru::AttrLogSm::isAttrLogOutClogged.

#include "framework/Oru/AttrLogSm.h"

namespace Routing {
namespace Pim {

class PimAttrLogSm : public Oru::AttrLogSm {};

}  // namespace Pim
}  // namespace Routing
