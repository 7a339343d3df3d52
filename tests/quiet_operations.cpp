// Runs every operation of the library over the null data plane, with every event off, and counts what none may do:
// allocate or lock. Between two markers, writes to no file, its main thread must make no system call either, which only
// a tracer of the process can see.
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "vok_cp_null.h"
#include "zel_core_term/zel_core_term.h"

// ---- Counters of this thread, since the tracing runtime has threads of its own. The definitions stand in front of the
// C library's for every library of the process. operator new takes its memory from malloc().

namespace {

thread_local unsigned allocations, locks;

template <typename Function> Function *original(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);

void *malloc(size_t size) noexcept
{
    ++allocations;
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size) noexcept
{
    ++allocations;
    return __libc_calloc(count, size);
}

void *realloc(void *block, size_t size) noexcept
{
    ++allocations;
    return __libc_realloc(block, size);
}

void *aligned_alloc(size_t alignment, size_t size) noexcept
{
    ++allocations;
    return __libc_memalign(alignment, size);
}

int posix_memalign(void **block, size_t alignment, size_t size) noexcept
{
    ++allocations;
    *block = __libc_memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

void free(void *block) noexcept
{
    ++allocations;
    __libc_free(block);
}

#define COUNT_LOCK(name, parameters, ...)                                                                              \
    int name parameters                                                                                                \
    {                                                                                                                  \
        static auto *const real = original<decltype(name)>(#name);                                                     \
        ++locks;                                                                                                       \
        return real(__VA_ARGS__);                                                                                      \
    }

COUNT_LOCK(pthread_mutex_lock, (pthread_mutex_t * lock) noexcept, lock)
COUNT_LOCK(pthread_mutex_trylock, (pthread_mutex_t * lock) noexcept, lock)
COUNT_LOCK(pthread_rwlock_rdlock, (pthread_rwlock_t * lock) noexcept, lock)
COUNT_LOCK(pthread_rwlock_wrlock, (pthread_rwlock_t * lock) noexcept, lock)
COUNT_LOCK(pthread_spin_lock, (pthread_spinlock_t * lock) noexcept, lock)
COUNT_LOCK(pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t *lock), condition, lock)
COUNT_LOCK(pthread_cond_timedwait, (pthread_cond_t * condition, pthread_mutex_t *lock, const timespec *end), condition,
           lock, end)
COUNT_LOCK(sem_wait, (sem_t * semaphore), semaphore)
}
#pragma GCC visibility pop

namespace {

/// Calls a function as every library of the process finds it.
template <typename Function, typename... Arguments> auto call_from_a_library(const char *name, Arguments... arguments)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_DEFAULT, name))(arguments...);
}

/// What counts nothing would find nothing.
bool counters_count()
{
    const unsigned allocations_before = allocations, locks_before = locks;
    call_from_a_library<decltype(free)>("free", call_from_a_library<decltype(malloc)>("malloc", size_t{1}));
    call_from_a_library<void(void *)>("_ZdlPv", call_from_a_library<void *(size_t)>("_Znwm", size_t{1}));
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    call_from_a_library<decltype(pthread_mutex_lock)>("pthread_mutex_lock", &mutex);
    return allocations - allocations_before >= 4 && locks - locks_before >= 1;
}

// ---- What the operations work with

constexpr uint32_t pcep = 3, rat_session = 11, connection = 1, session = 100;
constexpr uint32_t sessions[] = {session, session + 1};
constexpr uint32_t out_of_range = 0xFFFFFFFF;

uint32_t add_udp(uint32_t id, uint8_t ip_version, uint8_t session_type_flag = 0)
{
    zel_core_term_udp_session_cfg_t cfg{};
    cfg.ip_version = ip_version;
    return zel_core_term_udp_session_add(id, &cfg, pcep, pcep, rat_session, 46, session_type_flag);
}

zel_core_term_l2tp_control_connection_cfg_t peer(uint8_t last_byte)
{
    zel_core_term_l2tp_control_connection_cfg_t cfg{};
    cfg.remote_addr[3] = last_byte;
    return cfg;
}

uint32_t add_connection(uint32_t id, uint8_t peers_last_byte, uint8_t session_type_flag = 0)
{
    const auto cfg = peer(peers_last_byte);
    return zel_core_term_l2tp_control_connection_add(id, &cfg, 1000 + id, pcep, rat_session, 48, session_type_flag);
}

uint32_t modify_connection(uint32_t id, uint8_t session_type_flag = 0)
{
    auto cfg = peer(9);
    const auto old = peer(7);
    return zel_core_term_l2tp_control_connection_modify(id, sessions, 2, &cfg, pcep, rat_session, 40, 48,
                                                        old.remote_addr, session_type_flag);
}

uint32_t add_session(uint32_t id, uint32_t carrier = connection, uint8_t session_type_flag = 0)
{
    return zel_core_term_l2tp_session_add(46, 0, pcep, rat_session, 50000, carrier, id, session_type_flag);
}

template <auto operation, typename Output> uint32_t read(uint32_t id)
{
    Output output;
    return operation(id, &output);
}

uint32_t format_stats(uint32_t id, uint8_t option = 0)
{
    char text[256];
    return zel_core_term_udp_session_fmt_stats_get(id, text, sizeof text, option);
}

constexpr auto read_cfg = read<zel_core_term_udp_session_cfg_get, zel_core_term_udp_session_cfg_t>;
constexpr auto read_ipv4_stats = read<zel_udp_session_get_stats, zel_udp_session_ipv4_stats_t>;
constexpr auto read_ipv6_stats = read<zel_ipv6_udp_session_get_stats, zel_udp_session_ipv6_stats_t>;

/// Every operation starts from here: UDP sessions 1 over IPv4 and 2 over IPv6, and a control connection that carries
/// two sessions.
void prepare()
{
    zel_core_term_start();
    add_udp(1, 4);
    add_udp(2, 6);
    add_connection(connection, 7);
    for (const uint32_t id : sessions)
        add_session(id);
}

uint32_t failing_call; ///< of the operation's data-plane calls, from 1; 0: none

struct operation {
    const char *name;
    uint32_t result;
    uint32_t result_of_failure; ///< when its first data-plane call fails; as `result` where that is not told or made
    uint32_t (*run)();
};

const operation operations[] = {
    {"start", 0, 0, [] { return zel_core_term_start(); }},
    {"stop", 0, 0, [] { return zel_core_term_stop(); }},
    {"start of UDP", 0, 0, [] { return zel_udp_session_start(); }},
    {"stop of UDP", 0, 0, [] { return zel_udp_session_stop(); }},
    {"start of L2TP", 0, 0, [] { return zel_l2tp_start(); }},
    {"stop of L2TP", 0, 0, [] { return zel_l2tp_stop(); }},
    {"small services", 0, 0,
     [] {
         uint64_t frequency_hz;
         zel_core_term_time_get();
         zel_tracepoint();
         zel_l2tp_reset_ip_associations_handling();
         zel_trace_internal_format_str("%s(): ", __func__, "%u, %p", 1u, static_cast<const void *>(&frequency_hz));
         return zel_core_term_clock_freq_get(&frequency_hz) + (zel_getHandles() == zel_handles ? 0 : 1);
     }},
    {"session handler", 0, 0,
     [] {
         return zel_ovlin_session_handler_set_session_type(1, pcep, 2) +
                zel_ovlin_session_handler_5gc_session_enable(1, 2) + zel_ovlin_session_handler_5gc_qfi_dscp_mapping() +
                zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove() + zel_ovlin_5gc_session_stats_get();
     }},

    {"UDP capabilities", 0, 0,
     [] {
         zel_core_term_udp_session_capabilities_t capabilities;
         return zel_core_term_udp_session_capabilities_get(&capabilities);
     }},
    {"UDP capabilities, nowhere to put", 2, 2, [] { return zel_core_term_udp_session_capabilities_get(nullptr); }},
    {"UDP free id", 0, 0,
     [] {
         uint32_t id;
         return zel_core_term_udp_session_free_id_get(&id);
     }},
    {"UDP free id, none left", 10, 10,
     [] {
         uint32_t id;
         while (zel_core_term_udp_session_free_id_get(&id) == 0)
             add_udp(id, 4);
         return zel_core_term_udp_session_free_id_get(&id);
     }},
    {"UDP configuration", 0, 0, [] { return read_cfg(1); }},
    {"UDP configuration, free", 4, 4, [] { return read_cfg(3); }},
    {"UDP configuration, out of range", 3, 3, [] { return read_cfg(out_of_range); }},
    {"UDP add, IPv4", 0, 13, [] { return add_udp(3, 4); }},
    {"UDP add, IPv4, session type", 0, 13, [] { return add_udp(3, 4, 1); }},
    {"UDP add, IPv6", 0, 13, [] { return add_udp(3, 6); }},
    {"UDP add, IPv6, session type", 0, 13, [] { return add_udp(3, 6, 1); }},
    {"UDP add, out of range", 3, 3, [] { return add_udp(out_of_range, 4); }},
    {"UDP add, in use", 5, 5, [] { return add_udp(1, 4); }},
    {"UDP add, IP version", 7, 7, [] { return add_udp(3, 5); }},
    {"UDP add, RAT session", 3, 3,
     [] { return zel_core_term_udp_session_add(3, nullptr, pcep, pcep, out_of_range, 0, 0); }},
    {"UDP add, uplink PCEP", 3, 3,
     [] { return zel_core_term_udp_session_add(3, nullptr, out_of_range, pcep, rat_session, 0, 0); }},
    {"UDP add, downlink PCEP", 3, 3,
     [] { return zel_core_term_udp_session_add(3, nullptr, pcep, out_of_range, rat_session, 0, 0); }},
    {"UDP add, stopped", 13, 13, [] { return zel_core_term_stop() + add_udp(3, 4); }},
    {"UDP path MTU", 0, 13, [] { return zel_core_term_udp_session_modify_pmtu(2, 1400); }},
    {"UDP path MTU, IPv4", 7, 7, [] { return zel_core_term_udp_session_modify_pmtu(1, 1400); }},
    {"UDP path MTU, free", 4, 4, [] { return zel_core_term_udp_session_modify_pmtu(3, 1400); }},
    {"UDP path MTU, out of range", 3, 3, [] { return zel_core_term_udp_session_modify_pmtu(out_of_range, 1400); }},
    {"UDP hop limit", 0, 13, [] { return zel_core_term_udp_session_modify_ttl(2, 7); }},
    {"UDP hop limit, IPv4", 7, 7, [] { return zel_core_term_udp_session_modify_ttl(1, 7); }},
    {"UDP hop limit, free", 4, 4, [] { return zel_core_term_udp_session_modify_ttl(3, 7); }},
    {"UDP hop limit, out of range", 3, 3, [] { return zel_core_term_udp_session_modify_ttl(out_of_range, 7); }},
    {"UDP disconnect", 0, 0, [] { return zel_core_term_udp_session_disconnect(1); }},
    {"UDP disconnect, free", 4, 4, [] { return zel_core_term_udp_session_disconnect(3); }},
    {"UDP disconnect, out of range", 3, 3, [] { return zel_core_term_udp_session_disconnect(out_of_range); }},
    {"UDP release, IPv4", 0, 0, [] { return zel_core_term_udp_session_release(1); }},
    {"UDP release, IPv6", 0, 0, [] { return zel_core_term_udp_session_release(2); }},
    {"UDP release, free", 4, 4, [] { return zel_core_term_udp_session_release(3); }},
    {"UDP release, out of range", 3, 3, [] { return zel_core_term_udp_session_release(out_of_range); }},
    {"UDP counters, IPv4", 0, 13, [] { return read_ipv4_stats(1); }},
    {"UDP counters, IPv4, free", 4, 4, [] { return read_ipv4_stats(3); }},
    {"UDP counters, IPv4, out of range", 3, 3, [] { return read_ipv4_stats(out_of_range); }},
    {"UDP counters, IPv6", 0, 13, [] { return read_ipv6_stats(2); }},
    {"UDP counters, IPv6, free", 4, 4, [] { return read_ipv6_stats(3); }},
    {"UDP counters, IPv6, out of range", 3, 3, [] { return read_ipv6_stats(out_of_range); }},
    {"UDP counters' text, IPv4", 0, 13, [] { return format_stats(1); }},
    {"UDP counters' text, IPv6", 0, 13, [] { return format_stats(2, 1); }},
    {"UDP counters' text, free", 4, 4, [] { return format_stats(3); }},
    {"UDP counters' text, out of range", 3, 3, [] { return format_stats(out_of_range); }},
    {"UDP counters' text, cut", 21, 13,
     [] {
         char text[8];
         return zel_core_term_udp_session_fmt_stats_get(1, text, sizeof text, 0);
     }},

    {"connection add, the first", 0, 13,
     [] {
         l2tp_control_ingress_interface = 0;
         return add_connection(2, 8);
     }},
    {"connection add, shared", 0, 13, [] { return add_connection(2, 7, 1); }},
    {"connection add, in use", 5, 5, [] { return add_connection(connection, 8); }},
    {"connection add, out of range", 3, 3, [] { return add_connection(out_of_range, 8); }},
    {"connection add, no room for its associations", 13, 13,
     [] {
         vok_cp_null_fail(0);
         for (uint8_t id = 0; id < ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX; ++id)
             add_connection(id, static_cast<uint8_t>(100 + id));
         vok_cp_null_fail(failing_call);
         return add_connection(ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX, 99);
     }},
    {"connection add, RAT session", 3, 3,
     [] { return zel_core_term_l2tp_control_connection_add(2, nullptr, 1, pcep, out_of_range, 0, 0); }},
    {"connection add, PCEP", 3, 3,
     [] { return zel_core_term_l2tp_control_connection_add(2, nullptr, 1, out_of_range, rat_session, 0, 0); }},
    {"connection add, stopped", 13, 13, [] { return zel_core_term_stop() + add_connection(2, 8); }},
    {"connection modify", 0, 13, [] { return modify_connection(connection); }},
    {"connection modify, session type", 0, 13, [] { return modify_connection(connection, 1); }},
    {"connection modify, out of range", 3, 3, [] { return modify_connection(out_of_range); }},
    {"connection modify, stopped", 13, 13, [] { return zel_core_term_stop() + modify_connection(connection); }},
    {"connection removal", 0, 0,
     [] { return zel_core_term_l2tp_control_connection_rem(connection, pcep, rat_session); }},
    {"connection removal, not there", 0, 0,
     [] { return zel_core_term_l2tp_control_connection_rem(2, pcep, rat_session); }},
    {"connection removal, out of range", 0, 0,
     [] { return zel_core_term_l2tp_control_connection_rem(out_of_range, pcep, rat_session); }},

    {"session add", 0, 13, [] { return add_session(102); }},
    {"session add, session type", 0, 13, [] { return add_session(102, connection, 1); }},
    {"session add, out of range", 3, 3, [] { return add_session(47); }},
    {"session add, connection out of range", 3, 3, [] { return add_session(102, 49); }},
    {"session add, RAT session", 3, 3,
     [] { return zel_core_term_l2tp_session_add(0, 1, pcep, out_of_range, 1, connection, 102, 0); }},
    {"session add, PCEP", 3, 3,
     [] { return zel_core_term_l2tp_session_add(0, 1, out_of_range, rat_session, 1, connection, 102, 0); }},
    {"session add, stopped", 13, 13, [] { return zel_core_term_stop() + add_session(102); }},
    {"session removal", 0, 0, [] { return zel_core_term_l2tp_session_rem(connection, session); }},
    {"session removal, out of range", 0, 0, [] { return zel_core_term_l2tp_session_rem(connection, out_of_range); }},
    {"session unbind", 0, 13, [] { return zel_l2tp_session_modify_unbind_part(connection, session); }},
    {"session unbind, out of range", 3, 3, [] { return zel_l2tp_session_modify_unbind_part(connection, 47); }},
    {"session bind", 0, 13, [] { return zel_l2tp_session_modify_bind_part(connection, session, pcep, 1); }},
    {"session bind, out of range", 3, 3, [] { return zel_l2tp_session_modify_bind_part(49, session, pcep, 0); }},
};

/// More than any operation makes.
constexpr uint32_t most_calls = 32;

/// Runs an operation with none and with each of its data-plane calls failing.
/// @return whether it did as its row says, and was quiet
bool run(const operation &tried)
{
    const unsigned allocations_before = allocations, locks_before = locks;
    for (failing_call = 0; failing_call <= most_calls; ++failing_call) {
        prepare();
        vok_cp_null_fail(failing_call);
        const uint32_t result = tried.run();
        vok_cp_null_fail(0);
        if (failing_call > 1 && failing_call < most_calls)
            continue; // what a later failure does to the result differs from operation to operation
        const uint32_t expected = failing_call == 1 ? tried.result_of_failure : tried.result;
        if (result != expected) {
            std::fprintf(stderr, "%s: %u instead of %u with call %u failing\n", tried.name, result, expected,
                         failing_call);
            return false;
        }
    }
    if (allocations != allocations_before || locks != locks_before) {
        std::fprintf(stderr, "%s: %u allocations, %u locks\n", tried.name, allocations - allocations_before,
                     locks - locks_before);
        return false;
    }
    return true;
}

template <size_t size> void mark(const char (&text)[size])
{
    [[maybe_unused]] const ssize_t refused = write(-1, text, size - 1);
}

} // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IONBF, 0); // what is written is written at once, by a system call
    if (!counters_count()) {
        std::fputs("the counters do not count\n", stderr);
        return 1;
    }
    zel_core_term_start();

    bool all_quiet = true;
    mark("begin");
    for (const operation &tried : operations)
        all_quiet = run(tried) && all_quiet;
    mark("end");

    if (all_quiet)
        std::printf("operations without allocation and locks: %zu, each with each of its data-plane calls failing\n",
                    std::size(operations));
    return all_quiet ? 0 : 1;
}
