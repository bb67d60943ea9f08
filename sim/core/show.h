// A readable description of the simulated machine (krtsim show).
#pragma once

#include <string>

#include "layout.h"

namespace krtsim {

std::string showState(SimState &state);

}  // namespace krtsim
