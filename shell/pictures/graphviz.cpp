#include "graphviz.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include <gvc.h>

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

/// Graphviz's library takes the plugins that it has loaded for granted for as long as the process runs.
GVC_t *context()
{
    static GVC_t *const the_one = gvContext();
    return the_one;
}

/// Graphviz's functions take a char * for what they only read.
char *read_only(const std::string &text)
{
    return const_cast<char *>(text.c_str());
}

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

/// The length of the well-formed UTF-8 character that starts at `at`, or 0.
std::size_t utf8_length(const std::string &text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    const unsigned first = byte(at);
    const std::size_t length = first < 0x80u                      ? 1
                               : first >= 0xC2u && first <= 0xDFu ? 2
                               : first >= 0xE0u && first <= 0xEFu ? 3
                               : first >= 0xF0u && first <= 0xF4u ? 4
                                                                  : 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0u) != 0x80u)
            return 0;
    return length;
}

void write_whole(const std::string &file, const char *bytes, std::size_t size)
{
    // Beside the file first: what fails half-way leaves no part of a picture, and an older picture as it was.
    const std::string unfinished = file + ".part";
    {
        std::ofstream out(unfinished, std::ios::binary);
        out.write(bytes, static_cast<std::streamsize>(size));
        out.close();
        if (out)
            if (std::rename(unfinished.c_str(), file.c_str()) == 0)
                return;
    }
    const std::error_code reason(errno, std::generic_category());
    std::error_code ignored;
    std::filesystem::remove(unfinished, ignored);
    throw std::runtime_error(file + ": cannot be written: " + reason.message());
}

} // namespace

std::string graphviz::escaped(const std::string &text)
{
    std::string safe;
    for (std::size_t at = 0, length; at < text.size(); at += length == 0 ? 1 : length) {
        length = utf8_length(text, at);
        switch (const char c = text[at]) {
        case '&': safe += "&amp;"; break;
        case '<': safe += "&lt;"; break;
        case '>': safe += "&gt;"; break;
        case '"': safe += "&quot;"; break;
        case '\\': safe += "\\&#8203;"; break; // else \N would be the node's name; the space has no width
        default:
            if (length == 0)
                safe += '?';
            else if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') // no XML may hold them
                safe += ' ';
            else
                safe.append(text, at, length);
        }
    }
    return safe;
}

graphviz::attributes graphviz::placed(double x, double y, double width, double height)
{
    constexpr double points_per_inch = 72;
    return {{"pos", number(x) + "," + number(-y)},
            {"width", number(width / points_per_inch)},
            {"height", number(height / points_per_inch)}};
}

std::string graphviz::number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

void graphviz::graph::closer::operator()(Agraph_s *opened) const
{
    agclose(opened);
}

graphviz::graph::graph(const attributes &own, const attributes &node, const attributes &edge)
    : graph_(agopen(read_only("picture"), Agdirected, nullptr))
{
    const auto set_default = [this](int kind, const attributes &values) {
        for (const auto &[name, value] : values)
            agattr(graph_.get(), kind, read_only(name), read_only(value));
    };
    set_default(AGNODE, node);
    set_default(AGEDGE, edge);
    set(graph_.get(), own);
}

void graphviz::graph::set(void *object, const attributes &values)
{
    for (const auto &[name, value] : values) {
        if (name == "label" && !value.empty()) {
            char *html = agstrdup_html(graph_.get(), read_only(value));
            agsafeset(object, read_only(name), html, read_only(""));
            agstrfree(graph_.get(), html);
        } else {
            agsafeset(object, read_only(name), read_only(value), read_only(""));
        }
    }
}

void graphviz::graph::put_node(Agraph_s *into, const std::string &name, const attributes &of_node)
{
    set(agnode(into, read_only(name), 1), of_node);
}

void graphviz::graph::node(const std::string &name, const attributes &of_node)
{
    put_node(graph_.get(), name, of_node);
}

void graphviz::graph::cluster::node(const std::string &name, const attributes &of_node)
{
    whole_.put_node(part_, name, of_node);
}

void graphviz::graph::edge(const std::string &tail, const std::string &head, const attributes &of_edge)
{
    const auto end = [this](const std::string &name) { return agnode(graph_.get(), read_only(name), 1); };
    set(agedge(graph_.get(), end(tail), end(head), read_only(std::to_string(++edges_)), 1), of_edge);
}

graphviz::graph::cluster graphviz::graph::add_cluster(const attributes &of_cluster)
{
    Agraph_s *part = agsubg(graph_.get(), read_only("cluster" + std::to_string(++clusters_)), 1);
    set(part, of_cluster);
    return {*this, part};
}

void graphviz::graph::render(const char *layout, const std::string &file)
{
    const char *format = format_of(file);
    agseterrf(complain);
    complaints.clear();
    if (gvLayout(context(), graph_.get(), layout) != 0)
        throw std::runtime_error(file + ": cannot be drawn: " + complaints);

    char *picture = nullptr;
    unsigned size = 0;
    const int failed = gvRenderData(context(), graph_.get(), format, &picture, &size);
    gvFreeLayout(context(), graph_.get());
    const std::unique_ptr<char, decltype(&gvFreeRenderData)> owned(picture, gvFreeRenderData);
    if (failed != 0 || picture == nullptr)
        throw std::runtime_error(file + ": cannot be drawn: " + complaints);
    write_whole(file, picture, size);
}
