// Reaches up into pipeline/ and tools/: the layer check must report both lines.
  #  include "tools/Session.h"
#include "model/Pim/RpHash.h"
#include "pipeline/VrfPipeline.h"
