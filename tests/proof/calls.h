/// The data-plane calls of each operation, in their order.
#pragma once

#include <ostream>
#include <string>

namespace proof {

/// Prints the calls of operations that succeed, and what follows when one of them, or the session-type hook, fails.
/// @param part_of_name of the exported names; a std::runtime_error is thrown where none has it
void show_calls(std::ostream &out, const std::string &part_of_name);

} // namespace proof
