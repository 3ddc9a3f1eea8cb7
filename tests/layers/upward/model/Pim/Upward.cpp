// Reaches up into rp/: the layer check must report this line.
#include "framework/Kel/Ptr.h"
#include "rp/PimRpHashComputeStatus.h"
