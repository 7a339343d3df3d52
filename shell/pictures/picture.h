/// Pictures through Graphviz's library.
#pragma once

#include <string>

#include "data_plane.h"
#include "operation_record.h"
#include "ownership.h"

/// Draws the data plane: objects and ovlin flows as nodes, bindings as arrows, grouped by who owns them, and what
/// nobody owns in red. The file's extension names the format: .svg, .png, .pdf or .dot.
/// @throws std::runtime_error with what is wrong
void draw_data_plane(const data_plane &plane, const ownership &owners, const std::string &file);

/// Draws an operation as a sequence of steps and data-plane calls, failures and undos in red. Formats as above.
/// @throws std::runtime_error with what is wrong
void draw_ladder(const operation_record &operation, const std::string &file);
