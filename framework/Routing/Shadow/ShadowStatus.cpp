#include "framework/Routing/Shadow/ShadowStatus.h"

namespace Routing {

// The two shadows are compiled here once; every other unit uses them through the extern
// declarations in the header.
template class ShadowStatus<ShadowFamily::Ip4>;
template class ShadowStatus<ShadowFamily::Ip6>;

}  // namespace Routing
