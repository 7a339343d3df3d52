#include "picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>

#include "graphviz.h"
#include "ladder_rows.h"
#include "picture_style.h"

namespace {

using graphviz::escaped;
using graphviz::number;
using style::in_bold;
using style::in_colour;

// All in points; y grows downwards.
constexpr double font_size = 10;
constexpr double line_height = 13;
constexpr double row_gap = 9;
constexpr double program_x = 0, library_x = 340, data_plane_x = 830;
constexpr double bar_width = 9; ///< of the library's lifeline while the operation runs
constexpr double text_gap = 13; ///< between a text and the lifeline beside it
constexpr double step_width = library_x - program_x - 2 * text_gap - bar_width;
constexpr double call_width = data_plane_x - library_x - 2 * text_gap - bar_width;
constexpr double answer_width = 230;
constexpr char injected_fault[] = "injected fault";
constexpr std::size_t rows_at_most = 300; ///< a bitmap holds at most 32,767 pixels one above the other

std::size_t characters(double width)
{
    return static_cast<std::size_t>(width / (0.6 * font_size));
}

/// The text in lines of at most `width` characters, broken after blanks and commas where there are any, cut after
/// `lines_at_most`.
std::vector<std::string> wrapped(std::string text, std::size_t width, std::size_t lines_at_most)
{
    std::vector<std::string> lines;
    while (text.size() > width && lines.size() + 1 < lines_at_most) {
        const std::size_t gap = text.find_last_of(" ,", width - 1);
        const std::size_t end = gap == std::string::npos ? width : gap + 1;
        lines.push_back(text.substr(0, text[end - 1] == ' ' ? end - 1 : end));
        text.erase(0, end);
    }
    lines.push_back(text.size() <= width ? text : text.substr(0, width - 1) + "…");
    return lines;
}

/// Lines of HTML-like text, all of one colour.
struct paragraph {
    std::vector<std::string> lines;
    const char *colour = style::ink;

    double height() const { return static_cast<double>(lines.size()) * line_height; }
};

std::vector<std::string> escaped_lines(const std::vector<std::string> &lines)
{
    std::vector<std::string> html(lines.size());
    std::ranges::transform(lines, html.begin(), escaped);
    return html;
}

paragraph step_text(const ladder_step &step)
{
    const bool wide = step.what != ladder_step::kind::step;
    const char *const colour = step.what == ladder_step::kind::exception ? style::alarm
                               : step.what == ladder_step::kind::slow    ? style::warning
                                                                         : style::ink;
    return {escaped_lines(wrapped(step.text, characters(step_width), wide ? 5 : 2)), colour};
}

paragraph call_text(const recorded_call &call)
{
    const char *const colour = call.status != 0 || call.is_undo ? style::alarm : style::ink;
    const std::string operation = (call.is_undo ? "undo: " : "") + call.operation;
    const std::size_t width = characters(call_width * 1.1); // addresses, numbers and blanks are narrow
    // Bold letters are a tenth wider.
    if (operation.size() * 11 / 10 + 2 + call.subject.size() <= width)
        return {{style::as_heading(operation) + escaped(call.subject)}, colour};
    paragraph text{{in_bold(operation)}, colour};
    for (const std::string &line : escaped_lines(wrapped(call.subject, width, 3)))
        text.lines.push_back(line);
    return text;
}

paragraph answer_text(const recorded_call &call)
{
    const bool failed = call.status != 0;
    const std::size_t width = characters(answer_width);
    paragraph text{{}, failed ? style::alarm : style::faint_ink};
    std::string outcome = failed ? call.status_text : "success";
    if (!failed && call.created != 0)
        outcome = handle_text(call.created);
    for (const std::string &line : wrapped(outcome, width - 10, 2))
        text.lines.push_back(failed ? in_bold(line) : escaped(line));
    text.lines.back() += style::gap + in_colour(call.is_slow ? style::warning : style::faint_ink,
                                                duration_text(call.duration_ns) + (call.is_slow ? ", slow" : ""));
    std::string remarks = call.injected && call.status_text != injected_fault ? injected_fault : "";
    if (failed && call.took_effect)
        remarks += std::string(remarks.empty() ? "" : ", ") + "took effect all the same";
    if (!remarks.empty())
        text.lines.push_back(escaped(remarks));
    return text;
}

class ladder_picture {
public:
    explicit ladder_picture(const operation_record &operation)
        : operation_(operation), rows_(rows_of(operation, rows_at_most))
    {
    }

    void draw(const std::string &file)
    {
        draw_title();
        const double top = y_;
        y_ += 2 * line_height;
        draw_start();
        const double bar_top = y_;
        y_ += row_gap;
        for (const ladder_row &row : rows_)
            draw(row);
        y_ += row_gap;
        const double bar_bottom = y_;
        draw_result();
        y_ += row_gap;

        draw_lifelines(top, bar_top, bar_bottom);
        // Behind all else comes first.
        graphviz::graph graph{{{"bgcolor", style::ground},
                               {"fontname", style::font},
                               {"pad", "0.3"},
                               {"splines", "line"},
                               {"outputorder", "nodesfirst"}},
                              {{"fontname", style::font},
                               {"fontsize", number(font_size)},
                               {"fontcolor", style::ink},
                               {"shape", "box"},
                               {"style", "filled"},
                               {"color", "transparent"},
                               {"fillcolor", "transparent"},
                               {"fixedsize", "true"},
                               {"margin", "0"},
                               {"label", ""}},
                              {{"arrowsize", "0.7"}}};
        for (const auto *layer : {&bands_, &lifelines_, &texts_})
            for (const auto &[name, attributes] : *layer)
                graph.node(name, attributes);
        for (const arrow &a : arrows_)
            graph.edge(a.tail, a.head, a.attributes);
        graph.render("nop", file);
    }

private:
    using nodes = std::vector<std::pair<std::string, graphviz::attributes>>;

    struct arrow {
        std::string tail, head;
        graphviz::attributes attributes;
    };

    enum class align { left, right, centre };

    /// A node of that size around a point.
    static void put(nodes &layer, const std::string &name, double x, double y, double width, double height,
                    graphviz::attributes attributes)
    {
        attributes.merge(graphviz::placed(x, y, width, height));
        layer.emplace_back(name, std::move(attributes));
    }

    /// Below `y`, and beside `x` as `how` says.
    void write(const std::string &name, const paragraph &text, double x, double y, double width, align how)
    {
        const std::string side = how == align::left ? "LEFT" : how == align::right ? "RIGHT" : "CENTER";
        std::string html = R"(<table border="0" cellborder="0" cellspacing="0" cellpadding="0">)";
        const std::string cell = R"(<tr><td align=")" + side + R"(" width=")" + std::to_string(std::lround(width)) +
                                 R"(" height=")" + std::to_string(std::lround(line_height)) + R"(">)";
        for (const std::string &line : text.lines)
            html.append(cell).append(line).append("</td></tr>");
        html += "</table>";
        const double middle = how == align::left ? x + width / 2 : how == align::right ? x - width / 2 : x;
        put(texts_, name, middle, y + text.height() / 2, width, text.height(),
            {{"label", html}, {"fontcolor", text.colour}});
    }

    void draw_arrow(const std::string &name, double from, double to, double y, graphviz::attributes attributes)
    {
        put(texts_, name + ", tail", from, y, 0.1, 0.1, {});
        put(texts_, name + ", head", to, y, 0.1, 0.1, {});
        arrows_.push_back({name + ", tail", name + ", head", std::move(attributes)});
    }

    void draw_title()
    {
        const std::string where =
            operation_.line_number != 0 ? "line " + std::to_string(operation_.line_number) + ": " : "";
        const double width = data_plane_x + answer_width;
        paragraph title{{R"(<font point-size="16">)" + in_bold(wrapped(operation_.name, 80, 1)[0]) + "</font>"}};
        write("title", title, program_x - 70, y_, width, align::left);
        y_ += line_height + 8;
        paragraph line{escaped_lines(wrapped(where + operation_.line, characters(width), 3)), style::faint_ink};
        write("line", line, program_x - 70, y_, width, align::left);
        y_ += line.height() + 12;
    }

    void draw_start()
    {
        y_ += row_gap;
        const paragraph call{{in_bold(wrapped(operation_.name, characters(step_width * 0.9), 1)[0])}};
        write("operation", call, library_x - bar_width / 2 - text_gap, y_, step_width, align::right);
        y_ += call.height() + 2;
        draw_arrow("operation", program_x, library_x - bar_width / 2, y_, {{"color", style::ink}});
    }

    void draw_result()
    {
        const bool failed = operation_.result != 0;
        const char *const colour = failed ? style::alarm : style::ink;
        const std::string result = std::to_string(operation_.result) + " (" + operation_.result_text + ")";
        paragraph text{{}, colour};
        for (const std::string &line : wrapped(result, characters(step_width * 0.9), 3))
            text.lines.push_back(in_bold(line));
        draw_arrow("result", library_x - bar_width / 2, program_x, y_, {{"color", colour}, {"style", "dashed"}});
        y_ += 3;
        text.lines.push_back(in_colour(style::faint_ink, duration_text(operation_.duration_ns)));
        write("result", text, program_x + text_gap, y_, step_width, align::left);
        y_ += text.height();
    }

    void draw(const ladder_row &row)
    {
        if (row.left_out != 0) {
            y_ += row_gap;
            const paragraph gap{{std::to_string(row.left_out) + " calls and steps are left out here"}, style::warning};
            write("gap " + std::to_string(++names_), gap, (library_x + data_plane_x) / 2, y_, call_width,
                  align::centre);
            y_ += gap.height() + row_gap;
            return;
        }
        const std::string name = std::to_string(++names_);
        const paragraph step = row.step ? step_text(*row.step) : paragraph{};
        const paragraph call = row.call ? call_text(*row.call) : paragraph{};
        const paragraph answer = row.call ? answer_text(*row.call) : paragraph{};

        // The arrow runs below its call's text, at the height of the first lines of step and answer.
        const double above = std::max(call.height(), line_height);
        const double arrow_y = y_ + above + 1;
        const double beside_y = arrow_y - line_height / 2;
        double bottom = arrow_y;
        if (row.step) {
            write("step " + name, step, library_x - bar_width / 2 - text_gap, row.call ? beside_y : y_, step_width,
                  align::right);
            bottom = std::max(bottom, (row.call ? beside_y : y_) + step.height());
        }
        if (row.call) {
            const bool failed = row.call->status != 0;
            const char *const colour = failed || row.call->is_undo ? style::alarm : style::faint_ink;
            write("call " + name, call, library_x + bar_width / 2 + text_gap, arrow_y - 1 - call.height(), call_width,
                  align::left);
            draw_arrow("call " + name, library_x + bar_width / 2, data_plane_x, arrow_y,
                       {{"color", colour}, {"penwidth", failed ? "1.6" : "1"}});
            write("answer " + name, answer, data_plane_x + text_gap, beside_y, answer_width, align::left);
            bottom = std::max(bottom, beside_y + answer.height());
            if (failed) {
                const double left = library_x, right = data_plane_x + text_gap + answer_width;
                put(bands_, "failure " + name, (left + right) / 2, (y_ + bottom) / 2, right - left, bottom - y_ + 6,
                    {{"fillcolor", style::alarm_fill}});
            }
        }
        const bool goes_on = row.call == nullptr && row.step->what == ladder_step::kind::step;
        y_ = bottom + (goes_on ? 1 : row_gap);
    }

    void draw_lifelines(double top, double bar_top, double bar_bottom)
    {
        struct lifeline {
            const char *name;
            double x;
        };
        for (const auto &[name, x] : {lifeline{"control program", program_x}, lifeline{"libzel-core-term", library_x},
                                      lifeline{"data plane", data_plane_x}}) {
            put(lifelines_, std::string(name) + ", lifeline", x, (top + y_) / 2, 1, y_ - top,
                {{"fillcolor", "#c3ccd6"}});
            put(lifelines_, name, x, top + line_height, 130, 2 * line_height,
                {{"label", in_bold(name)},
                 {"fillcolor", "#e9edf2"},
                 {"color", "#c3ccd6"},
                 {"style", "rounded,filled"}});
        }
        put(lifelines_, "operation runs", library_x, (bar_top + bar_bottom) / 2, bar_width, bar_bottom - bar_top,
            {{"fillcolor", "#d5e3f5"}, {"color", "#6f9bd1"}});
    }

    const operation_record &operation_;
    std::vector<ladder_row> rows_;
    double y_ = 0;
    int names_ = 0;
    nodes bands_, lifelines_, texts_;
    std::vector<arrow> arrows_;
};

} // namespace

void draw_ladder(const operation_record &operation, const std::string &file)
{
    ladder_picture(operation).draw(file);
}
