/// The data-plane calls of each operation, in their order.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace proof {

/// The operations that make data-plane calls, by their exported names.
std::vector<std::string> operations_with_calls();

/// Prints the calls of an operation that succeeds, and what it calls when one of them, or the session-type hook, fails.
/// @param name the exported one; a std::runtime_error is thrown for any other
void show_calls(std::ostream &out, const std::string &name);

} // namespace proof
