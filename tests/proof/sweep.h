/// Every operation from a handful of states, with every answer that what it calls can give.
#pragma once

#include <ostream>

namespace proof {

/// The control connection modify has more paths than there is time for: how many of them are taken.
enum class effort { brief, usual, long_lasting };

/// Prints how many paths each operation has.
void sweep(std::ostream &out, effort effort_for_modify);

} // namespace proof
