/// Graphviz's library, which lays out and renders graphs that are written in its own language, and the colours and
/// letters that the pictures share. They carry their own light ground, for dark surroundings too.
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

namespace style {

inline const std::string ink = "#1f2933", faint_ink = "#5f6c7b", warning = "#a85b00",
                         alarm = "#c62828", ///< failures, undos, and what nobody owns
    alarm_fill = "#fdeceb";

/// What every picture begins with. An SVG names sans-serif for where there is no Helvetica.
inline const std::string head = R"(digraph picture {
graph [bgcolor="#fcfcfa", fontname="Helvetica", fontcolor="#1f2933", fontsize=11, pad=0.3];
node [fontname="Helvetica", fontsize=10, fontcolor="#1f2933"];
edge [fontname="Helvetica", fontsize=9, fontcolor="#1f2933", arrowsize=0.7];
)";

/// Between texts of different styles: viewers of SVG drop blanks.
inline const std::string gap = "&#160;&#160;";

inline std::string in_bold(const std::string &text)
{
    return "<b>" + graphviz::escaped(text) + "</b>";
}

inline std::string in_colour(const std::string &colour, const std::string &html)
{
    return R"(<font color=")" + colour + R"(">)" + html + "</font>";
}

inline std::string title(const std::string &text)
{
    return R"(<font point-size="16">)" + in_bold(text) + "</font>";
}

} // namespace style
