/// A file that is written as a whole or not at all.
#pragma once

#include <string>

/// Writes a temporary file beside the target and renames it: a failure leaves the target as it was, and no other file.
/// A symbolic link stays, and the file that it leads to is replaced.
/// @param may_replace false: an existing target is refused, even a dangling symbolic link
/// @throws std::runtime_error with the target's name and what is wrong
void write_file(const std::string &target, const std::string &content, bool may_replace);
