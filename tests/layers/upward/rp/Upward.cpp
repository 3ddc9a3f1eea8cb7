// Reaches up into tools/: the layer check must report this line.
  #  include "tools/Session.h"
#include "model/Pim/RpHash.h"
