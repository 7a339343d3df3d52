/// What an operation did: the library's events and its data-plane calls, in order.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "event_listener.h"
#include "watcher.h"

struct recorded_call : watched_call {
    std::uint64_t duration_ns = 0; ///< wall-clock time, with the delay of a slow data plane
    bool is_slow = false;          ///< took so many ticks that the library reports it
    bool is_undo = false;          ///< takes something down after an earlier call failed to build something
};

struct operation_record {
    std::string line; ///< as it was written: "udp add 1 --local ..."
    std::string name; ///< its short form: "udp add 1"
    int line_number;
    std::vector<std::variant<trace_event, recorded_call>> course;
    std::uint32_t result;
    std::string result_text;
    std::uint64_t duration_ns;
};

/// Its data-plane calls without the events between them.
std::vector<const recorded_call *> calls_of(const operation_record &operation);

/// "9.05 µs"
std::string duration_text(std::uint64_t ns);
