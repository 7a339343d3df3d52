// Runs every operation of the benchmarks' table over the null data plane, with every event off, and counts what none
// may do: allocate or lock. Between markers, writes to no file, its main thread must make no system call either, which
// only a tracer of the process can see.
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "operations.h"
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
void *__libc_calloc(size_t nmemb, size_t size);
void *__libc_realloc(void *ptr, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *ptr);

void *malloc(size_t size) noexcept
{
    ++allocations;
    return __libc_malloc(size);
}

void *calloc(size_t nmemb, size_t size) noexcept
{
    ++allocations;
    return __libc_calloc(nmemb, size);
}

void *realloc(void *ptr, size_t size) noexcept
{
    ++allocations;
    return __libc_realloc(ptr, size);
}

void *aligned_alloc(size_t alignment, size_t size) noexcept
{
    ++allocations;
    return __libc_memalign(alignment, size);
}

int posix_memalign(void **memptr, size_t alignment, size_t size) noexcept
{
    ++allocations;
    *memptr = __libc_memalign(alignment, size);
    return *memptr != nullptr ? 0 : ENOMEM;
}

void free(void *ptr) noexcept
{
    ++allocations;
    __libc_free(ptr);
}

#define COUNT_LOCK(name, parameters, ...)                                                                              \
    int name parameters                                                                                                \
    {                                                                                                                  \
        static auto *const real = original<decltype(name)>(#name);                                                     \
        ++locks;                                                                                                       \
        return real(__VA_ARGS__);                                                                                      \
    }

COUNT_LOCK(pthread_mutex_lock, (pthread_mutex_t * mutex) noexcept, mutex)
COUNT_LOCK(pthread_mutex_trylock, (pthread_mutex_t * mutex) noexcept, mutex)
COUNT_LOCK(pthread_rwlock_rdlock, (pthread_rwlock_t * lock) noexcept, lock)
COUNT_LOCK(pthread_rwlock_wrlock, (pthread_rwlock_t * lock) noexcept, lock)
COUNT_LOCK(pthread_spin_lock, (pthread_spinlock_t * lock) noexcept, lock)
COUNT_LOCK(pthread_cond_wait, (pthread_cond_t * cond, pthread_mutex_t *mutex), cond, mutex)
COUNT_LOCK(pthread_cond_timedwait, (pthread_cond_t * cond, pthread_mutex_t *mutex, const timespec *abstime), cond,
           mutex, abstime)
COUNT_LOCK(sem_wait, (sem_t * sem), sem)
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
    ::operator delete(::operator new(1));
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    call_from_a_library<decltype(pthread_mutex_lock)>("pthread_mutex_lock", &mutex);
    return allocations - allocations_before >= 4 && locks - locks_before >= 1;
}

/// What is refused before any data-plane call.
void refusals()
{
    constexpr uint32_t no_id = UINT32_MAX;
    zel_core_term_udp_session_cfg_t udp{};
    zel_core_term_l2tp_control_connection_cfg_t l2tp{};
    zel_core_term_udp_session_capabilities_get(nullptr);
    zel_core_term_udp_session_cfg_get(no_id, &udp);
    zel_core_term_udp_session_add(no_id, &udp, 1, 1, 1, 0, false);
    zel_core_term_udp_session_disconnect(no_id);
    zel_core_term_udp_session_release(no_id);
    zel_core_term_l2tp_control_connection_add(no_id, &l2tp, 1, 1, 1, 0, 0);
    zel_core_term_l2tp_control_connection_rem(no_id, 1, 1);
    zel_core_term_l2tp_session_add(0, 0, 1, 1, 1, 1, no_id, 0);
    zel_core_term_l2tp_session_rem(1, no_id);
}

unsigned noisy;

template <typename Operation> void run_quietly(const char *name, Operation run)
{
    const unsigned allocations_before = allocations, locks_before = locks;
    [[maybe_unused]] ssize_t marker = write(-1, "begin", 5);
    run();
    marker = write(-1, "end", 3);
    if (allocations != allocations_before || locks != locks_before) {
        ++noisy;
        std::printf("%s: %u allocations and releases, %u locks\n", name, allocations - allocations_before,
                    locks - locks_before);
    }
}

} // namespace

int main()
{
    if (!counters_count()) {
        std::puts("the counters do not count");
        return 1;
    }
    require_null_data_plane();
    unsigned runs = 1;
    for_each_operation([&](const operation &tried) {
        occupy(*tried.table, quarters_full / 2);
        with_batch(tried, [&] { run_quietly(tried.name, [&] { run(tried, tried.library); }); });
        ++runs;
    });
    run_quietly("refusals", refusals);
    std::printf("operations without allocation and locks, succeeding, failing or refused: %u of %u\n", runs - noisy,
                runs);
    return noisy != 0;
}
