#include "library_test.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "kiv_util.h"
#include "vok_cp.h"

struct interposed interposed;

namespace {

library_test *recording; ///< the test that hears of calls of the session-type hook

/// The definition that the dynamic linker would have bound without ours.
template <typename Function> Function *original(const char *name)
{
    auto *found = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
    if (found == nullptr)
        throw std::runtime_error(std::string("no original of ") + name);
    return found;
}

} // namespace

// ---- The interposed functions

#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED uint32_t zel_ovlin_session_handler_set_session_type(uint64_t type, uint32_t pcep_id, uint32_t session_type)
{
    ++interposed.session_types_set;
    if (recording != nullptr)
        recording->add_line("session type hook: ovlin type " + std::to_string(type == VOK_CP_SIM_OVLIN_FLOW_TYPE) +
                            ", pcep " + std::to_string(pcep_id) + ", session type " + std::to_string(session_type));
    return interposed.session_type_result;
}

INTERPOSED uint32_t vok_bind(uint64_t instance, const vok_bind_record *record)
{
    const uint32_t status = original<decltype(vok_bind)>(__func__)(instance, record);
    ++interposed.binds;
    return interposed.after_bind ? interposed.after_bind(interposed.binds) : status;
}

INTERPOSED uint32_t zel_init_attach(zel_handles_t *block)
{
    return interposed.attach_result ? *interposed.attach_result
                                    : original<decltype(zel_init_attach)>("zel_init_attach")(block);
}

INTERPOSED uint32_t zel_core_ic_ovlin_capabilities_get(ovlin_capabilities_t *capabilities)
{
    uint32_t result = 0;
    if (!interposed.capabilities_result.empty()) {
        result = interposed.capabilities_result.front();
        interposed.capabilities_result.pop_front();
    }
    if (result != 0)
        return result;
    if (!interposed.capabilities)
        return original<decltype(zel_core_ic_ovlin_capabilities_get)>(__func__)(capabilities);
    *capabilities = *interposed.capabilities;
    return 0;
}

INTERPOSED uint32_t zel_udp_session_stop()
{
    return interposed.udp_stop_result ? *interposed.udp_stop_result
                                      : original<decltype(zel_udp_session_stop)>(__func__)();
}

INTERPOSED uint32_t zel_l2tp_stop()
{
    return interposed.l2tp_stop_result ? *interposed.l2tp_stop_result : original<decltype(zel_l2tp_stop)>(__func__)();
}

INTERPOSED const char *kiv_util_init_rc_str_get(uint32_t result_code)
{
    ++interposed.texts_asked;
    return original<decltype(kiv_util_init_rc_str_get)>(__func__)(result_code);
}

// Called by the library's zel_trace_internal_format_str(), which stands beside the original.
INTERPOSED const char *zel_trace_internal_vformat_str(const char *prefix_fmt, const char *func, const char *fmt,
                                                      va_list args)
{
    ++interposed.messages_formatted;
    return original<decltype(zel_trace_internal_vformat_str)>(__func__)(prefix_fmt, func, fmt, args);
}

// ---- The fixture

namespace {

/// A location must lead to the statement that reports, in the file that its module names: to one of its lines, since
/// compilers differ in which line of a macro's arguments they take.
void expect_location_leads_to_statement(const std::string &location)
{
    const std::size_t colon = location.find(':');
    for (const char *folder : {"term/", "udp/", "l2tp/"}) {
        std::ifstream source(std::string(ZEL_SOURCE_DIR "/") + folder + location.substr(0, colon) + ".cpp");
        std::string line, statement;
        for (int i = std::stoi(location.substr(colon + 1)); i > 0 && std::getline(source, line); --i) {
            if (statement.ends_with(';') || statement.ends_with('{') || statement.ends_with('}'))
                statement.clear();
            statement += line;
        }
        if (source) {
            EXPECT_TRUE(statement.find("ZEL_HERE") != std::string::npos ||
                        statement.find(" TRACE_") != std::string::npos)
                << location << " is: " << statement;
            return;
        }
    }
    ADD_FAILURE() << location << " leads nowhere";
}

std::string hex(uint32_t value)
{
    char text[sizeof "0x00000000"];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

} // namespace

library_test::library_test()
{
    interposed = {};
    reset();
    recording = this;
}

library_test::~library_test()
{
    stop_recording();
    recording = nullptr;
    interposed = {};
    vok_cp_sim_reset();
    zel_core_term_stop();
}

void library_test::reset()
{
    vok_cp_sim_reset();
    l2tp_control_ingress_interface = 0; // it outlives stop and start, but not a data plane that is empty again
    EXPECT_EQ(zel_core_term_start(), 0u);
}

void library_test::record(std::map<int, vok_cp_sim_answer_t> faults)
{
    stop_recording();
    vok_ip_egress_record record{};
    vok_ip_egress_association_create(VOK_CP_SIM_IPV4_ASSOCIATION_TYPE, &record, &handles_before_);
    vok_ip_egress_association_delete(VOK_CP_SIM_IPV4_ASSOCIATION_TYPE, handles_before_);
    trail_.clear();
    count_calls_anew(std::move(faults));
    vok_cp_sim_observe(observe, this);
    if (!listen)
        return;
    listener_.emplace([this](const trace_event &e) {
        expect_location_leads_to_statement(e.location);
        const auto is_in_message = [&](const std::string &text) { return e.message.find(text) != std::string::npos; };
        if (e.category != "SESSION_API_DELAY" || std::ranges::any_of(keep_delays_of, is_in_message))
            add_line(e.name + " " + e.location.substr(0, e.location.find(':')) + " " + e.category + " " +
                     with_handles_by_number(e.message));
    });
}

void library_test::count_calls_anew(std::map<int, vok_cp_sim_answer_t> faults)
{
    faults_ = std::move(faults);
    calls_counted_ = 0;
}

void library_test::stop_recording()
{
    vok_cp_sim_observe(nullptr, nullptr);
    listener_.reset();
}

std::string library_test::trail()
{
    return std::exchange(trail_, {});
}

/// Handles are the only numbers in messages that are wider than 32 bits.
std::string library_test::with_handles_by_number(std::string message) const
{
    for (std::size_t at = 0; (at = message.find("0x", at)) != std::string::npos; ++at) {
        std::size_t length = 0;
        const uint64_t number = std::stoull(message.substr(at), &length, 16);
        if (number > UINT32_MAX)
            message.replace(at, length, name(number));
    }
    return message;
}

std::string library_test::name(uint64_t handle) const
{
    return handle == 0 ? "none" : '#' + std::to_string(static_cast<int64_t>(handle - handles_before_));
}

vok_cp_sim_answer_t library_test::observe(void *self, const vok_cp_sim_call_t *call)
{
    auto &test = *static_cast<library_test *>(self);
    std::string line = call->operation;
    if (line == "vok_syshandle_get" || line == "vok_sys_status_get") {
        test.trail_.insert(test.trail_.size() - 1, " + " + line); // before the line's end
        return {};
    }
    const auto *bytes = static_cast<const uint8_t *>(call->record);
    std::vector<uint8_t> record(bytes, bytes + call->record_size);
    std::vector<std::size_t> handle_offsets;
    std::string dscp;
    if (call->handle != 0)
        line += ' ' + test.name(call->handle);
    if (line.ends_with("bind")) {
        const auto &r = *static_cast<const vok_bind_record *>(call->record);
        line += ' ' + (r.bindKind == VOK_BIND_ID2F ? hex(r.srcFlowID) : test.name(r.srcFlowHandle)) + " -> " +
                (r.bindKind == VOK_BIND_F2ID ? hex(r.dstFlowID) : test.name(r.destFlowHandle));
        if (r.dscpRef != 0)
            dscp = ", dscp " + std::to_string(*reinterpret_cast<const uint8_t *>(r.dscpRef));
        std::fill_n(record.begin() + offsetof(vok_bind_record, dscpRef), sizeof r.dscpRef, uint8_t{0});
        handle_offsets = {0x18, 0x30};
    } else if (line == "vok_l2tpv3_ingress_flow_create") {
        handle_offsets = {8};
    }
    test.add_line(line);
    if (test.dump_records && !record.empty())
        test.trail_ +=
            "    " + std::to_string(record.size()) + " bytes" + dscp + "\n" + test.dump(record, handle_offsets);
    const int number = ++test.calls_counted_;
    if (test.on_call)
        test.on_call(number);
    const auto fault = test.faults_.find(number);
    return fault != test.faults_.end() ? fault->second : vok_cp_sim_answer_t{};
}

void library_test::run(const operation_row &row, before what)
{
    for (const int ip_version : row.ip_versions) {
        reset();
        record();
        if (what == before::session_1) {
            ASSERT_EQ(add(1, cfg(ip_version)), 0u);
        }
        trail();
        count_calls_anew(row.faults);
        interposed.session_type_result = row.session_type_result;
        const uint32_t result = row.operation(ip_version);
        collect(std::string(row.what) + " over IPv" + std::to_string(ip_version));
        stop_recording();
        collected_ += "result " + std::to_string(result) + ", " + data_plane();

        zel_core_term_udp_session_cfg_t stored, expected = cfg(ip_version);
        const bool is_free = zel_core_term_udp_session_cfg_get(1, &stored) == ZEL_CORE_TERM_SESSION_FREE;
        uint32_t free_id = 0;
        EXPECT_EQ(zel_core_term_udp_session_free_id_get(&free_id), 0u);
        EXPECT_EQ(free_id, is_free ? 1u : 2u) << row.what;
        if (is_free) {
            collected_ += ", session free\n";
            EXPECT_EQ(add(1, cfg(ip_version)), 0u) << row.what; // as if it had never been there
        } else {
            collected_ +=
                ", session with pmtu " + std::to_string(stored.pmtu) + " and ttl " + std::to_string(stored.ttl) + "\n";
            expected.pmtu = stored.pmtu;
            expected.ttl = stored.ttl;
            EXPECT_EQ(std::memcmp(&stored, &expected, sizeof stored), 0) << row.what;
        }
    }
}

void library_test::fail_each_call(const failing_add &tried)
{
    for (int call = 1; call <= tried.call_count; ++call) {
        for (const bool undos_fail : {false, true}) {
            reset();
            tried.prepare();
            std::map<int, vok_cp_sim_answer_t> faults = {{call, failing}};
            for (int undo = call + 1; undos_fail && undo <= call + 10; ++undo)
                faults[undo] = failing;
            record(faults);
            EXPECT_EQ(tried.add(), 13u);
            collect(tried.what + " fails at call " + std::to_string(call) + (undos_fail ? " and at every undo" : ""));
            stop_recording();
        }
    }
}

void library_test::collect(const std::string &heading)
{
    collected_ += (collected_.empty() ? "== " : "\n== ") + heading + "\n" + trail();
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

std::string library_test::dump(std::vector<uint8_t> bytes, const std::vector<std::size_t> &handle_offsets) const
{
    for (const std::size_t offset : handle_offsets) {
        uint64_t handle;
        std::memcpy(&handle, &bytes.at(offset), sizeof handle);
        handle -= handle != 0 ? handles_before_ : 0;
        std::memcpy(&bytes.at(offset), &handle, sizeof handle);
    }
    std::string text;
    char hex_digits[24];
    for (std::size_t line = 0; line < bytes.size(); line += 16) {
        const std::size_t end = std::min(line + 16, bytes.size());
        if (std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(line),
                        bytes.begin() + static_cast<std::ptrdiff_t>(end), [](uint8_t b) { return b == 0; }))
            continue;
        std::snprintf(hex_digits, sizeof hex_digits, "    %02zx:", line);
        text += hex_digits;
        for (std::size_t i = line; i < end; ++i) {
            std::snprintf(hex_digits, sizeof hex_digits, " %02x", bytes[i]);
            text += hex_digits;
        }
        text += '\n';
    }
    return text;
}

uint32_t library_test::add(uint32_t id, const zel_core_term_udp_session_cfg_t &cfg, uint8_t session_type)
{
    return zel_core_term_udp_session_add(id, &cfg, 1, 2, 5, 46, session_type);
}

zel_core_term_udp_session_cfg_t library_test::cfg(int ip_version)
{
    zel_core_term_udp_session_cfg_t cfg{};
    cfg.ip_version = static_cast<uint8_t>(ip_version);
    const uint8_t local[] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    const uint8_t remote[] = {0x20, 0x01, 0x0d, 0xb8, 0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0, 1, 2, 3, 4};
    std::memcpy(cfg.local_addr, local, 16);
    std::memcpy(cfg.remote_addr, remote, 16);
    if (ip_version == 4) {
        std::memcpy(cfg.local_addr, "\xc0\x00\x02\x01", 4);
        std::memcpy(cfg.remote_addr, "\xc6\x33\x64\x07", 4);
    }
    cfg.local_port = 2152;
    cfg.remote_port = 40000;
    cfg.vrf_id = 0x01020304;
    cfg.pmtu = 70000;
    cfg.ttl = 64;
    return cfg;
}

std::string library_test::data_plane()
{
    int objects = 0, bindings = 0;
    vok_cp_sim_walk_objects([](void *n, const vok_cp_sim_object_t *) { ++*static_cast<int *>(n); }, &objects);
    vok_cp_sim_walk_bindings([](void *n, const vok_cp_sim_binding_t *) { ++*static_cast<int *>(n); }, &bindings);
    return std::to_string(objects) + " objects, " + std::to_string(bindings) + " bindings";
}
