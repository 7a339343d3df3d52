/// Every operation from a handful of states, with every answer that what it calls can give.
#pragma once

#include <ostream>

namespace proof {

/// Prints how many paths each operation has.
/// @param at_length takes more paths of the control connection modify, which has more than there is time for
void sweep(std::ostream &out, bool at_length);

} // namespace proof
