#pragma once

#include "networksetup/Plan.hpp"

namespace NetworkSetup {

/// Does what the plan says, in its order.
/// @throws Refusal with the sentence for the first step that fails.
void carryOut(const Plan& plan);

} // namespace NetworkSetup
