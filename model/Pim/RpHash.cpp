#include "model/Pim/RpHash.h"

namespace Routing {
namespace Pim {

std::ostream& operator<<(std::ostream& out, const RpHash& entry) {
  return out << "RpHash(" << entry.key() << " -> " << entry.address() << ", priority "
             << entry.priority() << ", hashMaskLen " << entry.hashMaskLen() << ", override "
             << boolToStrep(entry.override()) << ", " << entry.mode() << ")";
}

}  // namespace Pim
}  // namespace Routing
