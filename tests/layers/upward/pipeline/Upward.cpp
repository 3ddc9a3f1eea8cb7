// Reaches up into tools/: the layer check must report this line.
#include "rp/PimRpHashComputeStatus.h"
#include "tools/Session.h"
