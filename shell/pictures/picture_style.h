/// Colours and letters that the pictures share. They carry their own light ground, for dark surroundings too.
#pragma once

#include <string>

#include "graphviz.h"

namespace style {

inline constexpr char ground[] = "#fcfcfa";
inline constexpr char ink[] = "#1f2933";
inline constexpr char faint_ink[] = "#5f6c7b";
inline constexpr char line[] = "#8895a4";
inline constexpr char alarm[] = "#c62828"; ///< failures, undos, and what nobody owns
inline constexpr char alarm_fill[] = "#fdeceb";
inline constexpr char warning[] = "#a85b00";
inline constexpr char font[] = "Helvetica"; ///< an SVG then names sans-serif for where there is none

/// Between texts of different styles, at the end of the first: blanks before a text are dropped by viewers of SVG.
inline const std::string gap = "&#160;&#160;";

inline std::string in_bold(const std::string &text)
{
    return "<b>" + graphviz::escaped(text) + "</b>";
}

/// In bold, with text after it.
inline std::string as_heading(const std::string &text)
{
    return "<b>" + graphviz::escaped(text) + gap + "</b>";
}

inline std::string in_colour(const std::string &colour, const std::string &html)
{
    return R"(<font color=")" + colour + R"(">)" + html + "</font>";
}

} // namespace style
