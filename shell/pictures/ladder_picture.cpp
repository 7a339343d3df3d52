#include "picture.h"

#include <vector>

#include "data_plane.h"
#include "graphviz.h"

namespace {

using graphviz::escaped;
using style::in_bold;
using style::in_colour;

constexpr std::size_t rows_at_most = 300; ///< a bitmap holds at most 32,767 pixels one above the other

/// A step of the library, a data-plane call, a step with the call that it announces, or a gap.
struct row {
    enum class kind { step, exception, slow }; ///< the colours of cells_of()
    kind what = kind::step;
    std::string step;
    const recorded_call *call = nullptr;
    std::size_t left_out = 0; ///< steps and calls that the gap stands for

    bool must_be_seen() const
    {
        return what != kind::step || (call != nullptr && (call->status != 0 || call->is_undo || call->is_slow));
    }
};

/// The function of "l2tp_session_bind_l2tp_to_ovlin(): vok_bind(F2ID, EGRESS, ...": what it calls comes next, with its
/// arguments. What does not show up by itself is kept.
std::string step_text(const std::string &message)
{
    const std::size_t end = message.find("(): ");
    if (end == std::string::npos)
        return message;
    const bool shows_up =
        message.find('(', end + 4) != std::string::npos || message.find("vok_", end) != std::string::npos;
    return shows_up ? message.substr(0, end + 2) : message;
}

/// All rows; beginnings and ends of functions have none.
std::vector<row> all_rows(const operation_record &operation)
{
    std::vector<row> rows;
    for (const auto &entry : operation.course) {
        if (const auto *call = std::get_if<recorded_call>(&entry)) {
            if (rows.empty() || rows.back().call != nullptr || rows.back().what != row::kind::step)
                rows.emplace_back(); // no step announces it
            rows.back().call = call;
            continue;
        }
        const auto &event = std::get<trace_event>(entry);
        if (event.category == "SESSION_API_DELAY")
            rows.push_back({row::kind::slow, event.message});
        else if (event.is_trouble())
            rows.push_back({row::kind::exception, event.message});
        else if (event.name.ends_with(":API_CALL"))
            rows.push_back({row::kind::step, step_text(event.message)});
    }
    return rows;
}

/// The rows that tell the story: all of them, or with too many the first and the last, and of those between them the
/// failures, undos, exceptions and slow calls as far as there is room.
std::vector<row> rows_of(const operation_record &operation)
{
    std::vector<row> rows = all_rows(operation), kept;
    std::size_t room = rows_at_most / 2;
    const std::size_t at_each_end = rows.size() <= rows_at_most ? rows.size() : rows_at_most / 4;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const bool at_end = i < at_each_end || i + at_each_end >= rows.size();
        if (at_end || (room != 0 && rows[i].must_be_seen())) {
            room -= at_end ? 0 : 1;
            kept.push_back(rows[i]);
            continue;
        }
        if (kept.back().left_out == 0)
            kept.emplace_back();
        kept.back().left_out += (rows[i].step.empty() ? 0u : 1u) + (rows[i].call != nullptr ? 1u : 0u);
    }
    return kept;
}

/// Where to cut a longer text, after at most so many bytes and not within a character.
std::size_t cut_at(const std::string &text, std::size_t width)
{
    std::size_t end = width;
    while (end > width - 4 && (static_cast<unsigned char>(text[end]) & 0xC0u) == 0x80u)
        --end;
    return end;
}

/// In lines, broken after blanks and commas where there are any, and not too many of them.
std::string wrapped(std::string text, std::size_t width)
{
    if (text.size() > 4 * width)
        text = text.substr(0, cut_at(text, 4 * width)) + " ...";
    std::string html;
    while (text.size() > width) {
        const std::size_t gap = text.find_last_of(" ,", width - 1);
        const std::size_t end = gap == std::string::npos ? cut_at(text, width) : gap + 1;
        html += escaped(text.substr(0, end)) + "<br/>";
        text.erase(0, end);
    }
    return html + escaped(text);
}

std::string cell(const std::string &align, const std::string &html, const std::string &more = "")
{
    return "<td align=\"" + align + "\" balign=\"" + align + "\" " + more + ">" + html + "</td>";
}

std::string answer_text(const recorded_call &call)
{
    std::string text = call.created != 0 ? handle_text(call.created) : "success";
    if (call.status != 0)
        text = "<b>" + wrapped(status_text(call), 36) + "</b>";
    text += style::gap + in_colour(call.is_slow ? style::warning : style::faint_ink,
                                   duration_text(call.duration_ns) + (call.is_slow ? ", slow" : ""));
    if (call.is_answered && status_text(call) != "injected fault")
        text += "<br/>injected fault";
    if (call.status != 0 && call.took_effect)
        text += "<br/>took effect all the same";
    return in_colour(call.status != 0 ? style::alarm : style::faint_ink, text);
}

/// The cells to the right of the library's bar: call, arrow and answer.
std::string cells_of(const recorded_call &call)
{
    const bool failed = call.status != 0;
    const std::string colour = failed || call.is_undo ? style::alarm : style::ink;
    const std::string name = (call.is_undo ? "undo: " : "") + std::string(call.operation);
    const bool is_long = name.size() + subject_text(call).size() > 76;
    const std::string fill = failed ? "bgcolor=\"" + style::alarm_fill + '"' : "";
    return cell("left",
                in_colour(colour, in_bold(name) + (is_long ? "<br/>" : style::gap) + wrapped(subject_text(call), 76)),
                fill) +
           cell("left", in_colour(colour, "⟶"), fill) + cell("left", answer_text(call), fill);
}

std::string cells_of(const row &shown)
{
    const std::string colours[] = {style::ink, style::alarm, style::warning};
    const std::string &colour = colours[static_cast<int>(shown.what)];
    std::string cells = cell("right", shown.step.empty() ? "" : in_colour(colour, wrapped(shown.step, 48)));
    if (shown.left_out != 0)
        cells += cell("left",
                      in_colour(style::warning, std::to_string(shown.left_out) + " calls and steps are left out here"));
    return shown.call == nullptr ? cells : cells + cells_of(*shown.call);
}

} // namespace

void draw_ladder(const operation_record &operation, const std::string &file)
{
    const std::vector<row> rows = rows_of(operation);
    const std::string where = operation.line_number != 0 ? "line " + std::to_string(operation.line_number) + ": " : "";
    const std::string across = R"(colspan="5")";
    const std::string result = std::to_string(operation.result) + " (" + operation.result_text + ")";
    const std::string bar =
        R"(<td bgcolor="#d5e3f5" cellpadding="3" rowspan=")" + std::to_string(rows.size() + 2) + R"("></td>)";

    std::string table = R"(<table border="0" cellspacing="0" cellpadding="4">)";
    const auto add = [&](const std::string &cells) { table += "<tr>" + cells + "</tr>"; };
    add(cell("left", style::title(operation.name), across));
    add(cell("left", in_colour(style::faint_ink, wrapped(where + operation.line, 130)), across));
    add(cell("right", in_bold("steps of libzel-core-term")) + "<td></td>" +
        cell("left", in_bold("calls of the data plane")) + "<td></td>" + cell("left", in_bold("answers")));
    add(cell("right", in_bold(operation.name) + style::gap + "⟶") + bar);
    for (const row &shown : rows)
        add(cells_of(shown));
    add(cell("right", in_colour(operation.result != 0 ? style::alarm : style::ink,
                                "⟵ <b>" + wrapped(result, 48) + "</b>" + style::gap) +
                          in_colour(style::faint_ink, duration_text(operation.duration_ns))));
    graphviz::render(style::head + "ladder [shape=plain, label=<" + table + "</table>>]; }", file);
}
