#include "ladder_rows.h"

#include <utility>

namespace {

/// The function of "l2tp_session_bind_l2tp_to_ovlin(): vok_bind(F2ID, EGRESS, ...": what it calls comes next, with its
/// arguments. What does not show up by itself is kept.
std::string step_text(const std::string &message)
{
    const std::size_t end = message.find("(): ");
    if (end == std::string::npos)
        return message;
    const std::string called = message.substr(end + 4);
    const bool shows_up = called.find('(') != std::string::npos || called.find("vok_") != std::string::npos;
    return shows_up ? message.substr(0, end + 2) : message;
}

std::optional<ladder_step> step_of(const trace_event &event)
{
    if (event.category == "SESSION_API_DELAY")
        return ladder_step{ladder_step::kind::slow, event.message};
    if (event.name.ends_with(":EXCEPTION") || event.name.ends_with(":ERROR"))
        return ladder_step{ladder_step::kind::exception, event.message};
    if (event.name.ends_with(":API_CALL"))
        return ladder_step{ladder_step::kind::step, step_text(event.message)};
    return std::nullopt; // beginnings and ends of functions
}

bool must_be_seen(const ladder_row &row)
{
    return (row.step && row.step->what != ladder_step::kind::step) ||
           (row.call != nullptr && (row.call->status != 0 || row.call->is_undo || row.call->is_slow));
}

std::vector<ladder_row> all_rows(const operation_record &operation)
{
    std::vector<ladder_row> rows;
    for (const auto &entry : operation.course) {
        if (const auto *call = std::get_if<recorded_call>(&entry)) {
            const bool is_announced = !rows.empty() && rows.back().call == nullptr && rows.back().step &&
                                      rows.back().step->what == ladder_step::kind::step;
            if (!is_announced)
                rows.emplace_back();
            rows.back().call = call;
        } else if (auto step = step_of(std::get<trace_event>(entry))) {
            rows.push_back({std::move(step)});
        }
    }
    return rows;
}

} // namespace

std::vector<ladder_row> rows_of(const operation_record &operation, std::size_t rows_at_most)
{
    std::vector<ladder_row> rows = all_rows(operation);
    if (rows.size() <= rows_at_most)
        return rows;

    const std::size_t at_each_end = rows_at_most / 4;
    std::size_t room = rows_at_most - 2 * at_each_end;
    std::vector<ladder_row> kept;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const bool at_end = i < at_each_end || i >= rows.size() - at_each_end;
        if (at_end || (room != 0 && must_be_seen(rows[i]))) {
            room -= at_end ? 0 : 1;
            kept.push_back(std::move(rows[i]));
            continue;
        }
        if (kept.empty() || kept.back().left_out == 0)
            kept.emplace_back();
        kept.back().left_out += (rows[i].step ? 1u : 0u) + (rows[i].call != nullptr ? 1u : 0u);
    }
    return kept;
}
