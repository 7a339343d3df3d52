/// Graphviz's library: it lays out and renders graphs that are written in its own language.
#pragma once

#include <string>

namespace graphviz {

/// Text that reads the same inside an HTML-like label, on one line.
std::string escaped(const std::string &text);

/// Renders a graph in the format that the file's extension names: .svg, .png, .pdf or .dot. A file is written as a
/// whole or not at all.
/// @throws std::runtime_error with what is wrong
void render(const std::string &graph, const std::string &file);

} // namespace graphviz
