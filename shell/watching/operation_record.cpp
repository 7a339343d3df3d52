#include "operation_record.h"

#include <array>
#include <cstdio>

std::vector<const recorded_call *> calls_of(const operation_record &operation)
{
    std::vector<const recorded_call *> calls;
    for (const auto &happened : operation.course)
        if (const auto *call = std::get_if<recorded_call>(&happened))
            calls.push_back(call);
    return calls;
}

std::string duration_text(std::uint64_t ns)
{
    struct unit {
        const char *name;
        double ns;
    };
    constexpr std::array<unit, 3> units{{{"s", 1e9}, {"ms", 1e6}, {"µs", 1e3}}};
    for (const unit &u : units) {
        const double value = static_cast<double>(ns) / u.ns;
        if (value < 1)
            continue;
        char text[32];
        std::snprintf(text, sizeof text, "%.*f %s", value < 10 ? 2 : value < 100 ? 1 : 0, value, u.name);
        return text;
    }
    return std::to_string(ns) + " ns";
}
