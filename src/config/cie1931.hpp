// The CIE 1931 2-degree standard observer, 380 to 780 nm in 5 nm steps.
#pragma once

#include <array>

#include "orx/clr.h"

namespace orx::config {
extern const std::array<CLR_CMF_ROW, 81> kCie1931;
}
