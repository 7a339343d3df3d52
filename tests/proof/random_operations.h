/// Operations with valid, edge and invalid arguments, as a source of decisions has them.
#pragma once

#include <functional>

#include "proof/world.h"

namespace proof {

/// Makes a world, and operations in it as long as there is to be a next step: one of them, with what it needs before
/// it.
/// @param counts where they count their results; may be null
void random_operations(choices &decisions, tally *counts, const std::function<bool()> &is_next_step);

} // namespace proof
