#pragma once
// Reaches up into model/: the layer check must report this line.
#include "model/Pim/RpHash.h"
#include "framework/Kel/Ptr.h"
