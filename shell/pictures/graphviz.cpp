#include "graphviz.h"

#include <algorithm>
#include <bit>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string_view>

#include <gvc.h>

#include "new_file.h"

#if defined(__has_feature)
#define ZEL_HAS_FEATURE(feature) __has_feature(feature)
#else
#define ZEL_HAS_FEATURE(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || ZEL_HAS_FEATURE(address_sanitizer)
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_options();

/// Graphviz loses parts of each HTML-like label and of each cluster's, Pango's layouts of bold text, and what
/// Fontconfig keeps for them. Graphs that are not closed are still found: they are libcgraph's.
const char *__lsan_default_suppressions()
{
    return "leak:libgvc\nleak:libgvplugin\nleak:libpango\nleak:libglib\nleak:libfontconfig\n";
}

const char *__lsan_default_options()
{
    return "print_suppressions=0";
}
#endif

namespace {

std::string complaints; ///< Graphviz's, since the last render began

int complain(char *text)
{
    complaints += text;
    return 0;
}

const char *format_of(const std::string &file)
{
    const std::string extension = std::filesystem::path(file).extension();
    for (const char *format : {"svg", "png", "pdf", "dot"})
        if (extension == std::string(".") + format)
            return format;
    throw std::runtime_error("'" + file + "' is not named as a picture: expected .svg, .png, .pdf or .dot at its end");
}

/// The length of the well-formed UTF-8 character that a text begins with, or 0.
std::size_t utf8_length(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text[0]);
    const auto length = static_cast<std::size_t>(std::max(1, std::countl_one(first)));
    const auto goes_on = [](char c) { return (static_cast<unsigned char>(c) & 0xC0u) == 0x80u; };
    const bool is_well_formed = (first < 0x80u || (first > 0xC1u && first < 0xF5u)) && length <= text.size() &&
                                std::ranges::all_of(text.substr(1, length - 1), goes_on);
    return is_well_formed ? length : 0;
}

} // namespace

std::string graphviz::escaped(const std::string &text)
{
    // A backslash before an N would be the node's name; the space has no width.
    static const std::map<char, const char *> special{{'&', "&amp;"},  {'<', "&lt;"},       {'>', "&gt;"},
                                                      {'"', "&quot;"}, {'\\', "\\&#8203;"}, {'\x7f', " "}};
    std::string safe;
    for (std::size_t at = 0, length; at < text.size(); at += std::max<std::size_t>(length, 1)) {
        length = utf8_length(std::string_view(text).substr(at));
        if (const auto found = special.find(text[at]); found != special.end())
            safe += found->second;
        else if (length == 1 && text[at] < ' ') // no XML may hold them
            safe += ' ';
        else
            safe += length == 0 ? "?" : text.substr(at, length);
    }
    return safe;
}

void graphviz::render(const std::string &graph, const std::string &file)
{
    const char *format = format_of(file);
    // It takes the plugins that it has loaded for granted for as long as the process runs.
    static GVC_t *const context = gvContext();
    agseterrf(complain);
    complaints.clear();
    const std::unique_ptr<Agraph_t, decltype(&agclose)> drawn(agmemread(graph.c_str()), agclose);
    if (drawn == nullptr || gvLayout(context, drawn.get(), "dot") != 0)
        throw std::runtime_error(file + ": cannot be drawn: " + complaints);

    char *picture = nullptr;
    unsigned size = 0;
    const int failed = gvRenderData(context, drawn.get(), format, &picture, &size);
    gvFreeLayout(context, drawn.get());
    const std::unique_ptr<char, decltype(&gvFreeRenderData)> owned(picture, gvFreeRenderData);
    if (failed != 0 || picture == nullptr)
        throw std::runtime_error(file + ": cannot be drawn: " + complaints);
    write_file(file, {picture, size}, true);
}
