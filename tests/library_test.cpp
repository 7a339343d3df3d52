#include "library_test.h"

#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>

#include "kiv_util.h"
#include "zel_init.h"

// ---- The library's collaborators: the originals, unless they are to fail

/// The definition that the dynamic linker would have bound without this program's.
template <typename Function> static Function *original(const char *name)
{
    auto *found = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
    if (found == nullptr)
        throw std::runtime_error(std::string("no original of ") + name);
    return found;
}

#define INTERPOSED extern "C" __attribute__((visibility("default")))

#define INTERPOSED_TO_FAIL(function, parameters, ...)                                                                  \
    INTERPOSED uint32_t function parameters                                                                            \
    {                                                                                                                  \
        const uint32_t result = others.failing.on_call(#function).status;                                              \
        return result != 0 ? result : original<decltype(function)>(#function)(__VA_ARGS__);                            \
    }

INTERPOSED_TO_FAIL(zel_init_attach, (zel_handles_t * block), block)
INTERPOSED_TO_FAIL(zel_udp_session_stop, ())
INTERPOSED_TO_FAIL(zel_l2tp_stop, ())

INTERPOSED uint32_t zel_core_ic_ovlin_capabilities_get(ovlin_capabilities_t *capabilities)
{
    if (const uint32_t result = others.failing.on_call(__func__).status)
        return result;
    const uint32_t result = original<decltype(zel_core_ic_ovlin_capabilities_get)>(__func__)(capabilities);
    *capabilities = others.capabilities.value_or(*capabilities);
    return result;
}

#define INTERPOSED_TO_ANSWER(function, answer)                                                                         \
    INTERPOSED uint32_t function(uint64_t instance, const vok_bind_record *record)                                     \
    {                                                                                                                  \
        const uint32_t status = original<decltype(function)>(#function)(instance, record);                             \
        return others.answer ? others.answer(status) : status;                                                         \
    }

INTERPOSED_TO_ANSWER(vok_bind, on_bound)
INTERPOSED_TO_ANSWER(vok_unbind, on_unbound)

INTERPOSED const char *kiv_util_init_rc_str_get(uint32_t result_code)
{
    ++others.asked[__func__];
    return original<decltype(kiv_util_init_rc_str_get)>(__func__)(result_code);
}

// ---- What happens

library_test::library_test()
    : watcher_(
          [this](const watched_call &call) {
              if (const auto call_back = std::exchange(before_call, {}))
                  call_back();
              return others.failing.on_call(call.operation);
          },
          [this](const watched_call &call) { on_outcome(call); })
{
    watcher_.on_text = [](std::string_view function) { ++others.asked[std::string(function)]; };
    listener.emplace([this](const trace_event &event) { on_event(event); });
    restart();
}

library_test::~library_test()
{
    others = {};
    vok_cp_sim_reset();
    zel_core_term_stop();
}

void library_test::restart()
{
    others.failing.clear();
    others.on_bound = others.on_unbound = {};
    vok_cp_sim_reset();
    watcher_.attach();
    numbers_.clear();
    l2tp_control_ingress_interface = 0; // it outlives stop and start, but not a data plane that is empty again
    EXPECT_EQ(zel_core_term_start(), 0u);
    look();
    texts_seen_.clear();
}

library_test::happened library_test::look()
{
    others.asked.clear();
    return std::exchange(happened_, {});
}

static std::string hex(uint64_t value, int digits)
{
    char text[sizeof value * 2 + 1];
    std::snprintf(text, sizeof text, "%0*lx", digits, value);
    return text;
}

std::string library_test::number(uint64_t handle) const
{
    const auto found = numbers_.find(handle);
    return handle == 0 ? "none" : found == numbers_.end() ? "unknown" : std::to_string(found->second);
}

std::string library_test::text_of(const watched_call &call) const
{
    if (call.is_hook())
        return "hook(" + std::string(call.handle == VOK_CP_SIM_OVLIN_FLOW_TYPE ? "" : "wrong type, ") +
               subject_text(call) + ")";
    std::string text(call.operation.substr(std::strlen("vok_")));
    if (call.is_bind_or_unbind()) {
        const vok_bind_record &r = call.binding();
        text += " " + (r.bindKind == VOK_BIND_ID2F ? "0x" + hex(r.srcFlowID, 8) : number(r.srcFlowHandle)) + " -> " +
                (r.bindKind == VOK_BIND_F2ID ? "0x" + hex(r.dstFlowID, 8) : number(r.destFlowHandle));
        return call.dscp ? text + " dscp " + std::to_string(*call.dscp) : text;
    }
    if (const std::size_t at = text.find("_association"); at != std::string::npos)
        text.erase(at, std::strlen("_association"));
    const std::string object = text.substr(0, text.rfind('_'));
    if (call.is_delete())
        return "-" + object + " " + number(call.handle);
    if (text.ends_with("_create") || text.ends_with("_add"))
        return "+" + object + (call.created != 0 ? " " + number(call.created) : "");
    return text + " " + number(call.handle);
}

void library_test::on_outcome(const watched_call &call)
{
    if (call.created != 0)
        numbers_.emplace(call.created, numbers_.size() + 1);
    const std::string text = text_of(call) + (call.status != 0 ? " fails" : "");
    happened_.calls += (happened_.calls.empty() ? "" : ", ") + text;
    happened_.lines += text + dump(call.record.data(), call.record.size()) + "\n";
}

std::string library_test::dump(const void *bytes, std::size_t size) const
{
    std::string text;
    for (std::size_t at = 0; at < size; at += sizeof(uint64_t)) {
        uint64_t eight = 0;
        std::memcpy(&eight, static_cast<const char *>(bytes) + at, std::min(sizeof eight, size - at));
        if (eight == 0)
            continue;
        text.append(" ").append(hex(at, 2)).append(":");            // no "x" + text: gcc 12 warns of it at -O3
        const bool is_handle = at != 0 && numbers_.contains(eight); // the first word can be like one, but is none
        text.append(is_handle ? "#" : "").append(is_handle ? number(eight) : hex(__builtin_bswap64(eight), 16));
    }
    return text;
}

using sources = std::filesystem::recursive_directory_iterator;

/// The function that a "module:line" is in: the last one before it whose definition starts in the first column.
static std::string function_at(const std::string &location)
{
    static std::map<std::string, std::string> known;
    const auto [at, is_new] = known.try_emplace(location);
    const std::size_t colon = location.find(':');
    for (auto file = is_new ? sources(ZEL_SOURCE_DIR) : sources(); file != sources(); ++file) {
        if (file->path().filename() != location.substr(0, colon) + ".cpp")
            continue;
        std::ifstream in(file->path());
        std::string line;
        for (int left = std::stoi(location.substr(colon + 1)); left > 0 && std::getline(in, line); --left) {
            const std::size_t end = line.find('('), start = line.find_last_of(" :", end) + 1;
            if (end != std::string::npos && std::isalpha(line.front()) != 0)
                at->second = line.substr(start, end - start);
        }
    }
    return at->second;
}

void library_test::on_event(const trace_event &event)
{
    const std::size_t colon = event.location.find(':');
    std::string message = event.message;
    EXPECT_EQ(message.substr(0, message.find('(')), function_at(event.location)) << event.location;
    static const std::regex handle("0x1[0-9a-f]{8}");
    for (std::smatch found; std::regex_search(message, found, handle);)
        message = found.prefix().str() + "#" + number(std::stoull(found.str(), nullptr, 16)) + found.suffix().str();
    if (event.category == "SESSION_API_DELAY") {
        // A preempted call can truly be slow; such a warning is seen only where it is asked for.
        static const std::regex times(R"(delay=(\d+),start_time=(\d+), end_time=(\d+), detected for (.*), continue)");
        std::smatch found;
        ASSERT_TRUE(std::regex_search(message, found, times)) << message;
        const uint64_t delay = std::stoull(found[1]), start = std::stoull(found[2]), end = std::stoull(found[3]);
        if (start < end && delay == end - start && delay > 25'600'000) {
            if (std::ranges::count(kept_delays, found[4]) == 0)
                return;
            message = std::regex_replace(message, std::regex("\\d{2,}"), "TICKS");
        }
    }
    const std::string line = event.name + " " + event.location.substr(0, colon) + " " + event.category + " " + message;
    if (event.name.ends_with(":EXCEPTION") || event.name.ends_with(":ERROR")) {
        static const std::regex usual("(injected fault|data-plane call failed), ");
        const std::string brief = event.category == "GENERAL" ? std::regex_replace(message, usual, "") : line;
        happened_.calls += (happened_.calls.empty() ? "[" : ", [") + brief + "]";
    } else if (!texts_seen_.insert(event.name + std::regex_replace(message, std::regex("0x[0-9a-f]+|#?\\d+"), ""))
                    .second) {
        return; // it differs from an earlier one in numbers only
    }
    happened_.lines += line + "\n";
}

// ---- What is expected

void library_test::collect(const row &r)
{
    if (r.prepare) {
        restart();
        r.prepare();
    }
    look();
    for (const fault &f : r.faults)
        others.failing.add(f);
    const uint32_t result = r.run();
    others.failing.clear();
    const auto entries = used(l2tp_control_table) + used(l2tp_session_table);
    collected_ += r.what + ": " + std::to_string(result) + ", " + counts_now() + ", " + std::to_string(entries) +
                  " L2TP entries: " + look().calls + "\n";
}

void library_test::collect_failures(row r, uint32_t call_count)
{
    collect(r);
    const std::string what = r.what;
    for (uint32_t n = 1; n <= call_count; ++n) {
        r.what = what + " with failing call " + std::to_string(n);
        r.faults = {fails(n)};
        collect(r);
        EXPECT_EQ(r.run(), 0u) << r.what << ", and once more";
    }
}

void library_test::expect_collected(const char *file)
{
    const std::string path = std::string(ZEL_SOURCE_DIR "/../tests/expected/") + file;
    if (std::getenv("ZEL_WRITE_EXPECTED") != nullptr) {
        std::ofstream(path) << collected_;
        return;
    }
    std::ifstream in(path);
    EXPECT_EQ(collected_, std::string(std::istreambuf_iterator<char>(in), {})) << path;
}
