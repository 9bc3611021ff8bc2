#pragma once

#include "networksetup/Plan.hpp"

namespace NetworkSetup {

/// Does what the plan says. Every file is made ready beside its place before anything is changed, so that a full disk
/// changes nothing.
/// @throws Refusal with the sentence for the first step that fails.
void carryOut(const Plan& plan);

} // namespace NetworkSetup
