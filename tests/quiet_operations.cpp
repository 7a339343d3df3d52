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
#include "requests.h"

// ---- Counters of this thread, since the tracing runtime has threads of its own. The definitions stand in front of the
// C library's for every library of the process. operator new takes its memory from malloc().

static thread_local unsigned allocations, locks;

#pragma GCC visibility push(default)
extern "C" {

#define COUNT_ALLOCATION(type, name, parameters, ...)                                                                  \
    type __libc_##name parameters;                                                                                     \
    type name parameters noexcept                                                                                      \
    {                                                                                                                  \
        ++allocations;                                                                                                 \
        return __libc_##name(__VA_ARGS__);                                                                             \
    }

COUNT_ALLOCATION(void *, malloc, (size_t size), size)
COUNT_ALLOCATION(void *, calloc, (size_t nmemb, size_t size), nmemb, size)
COUNT_ALLOCATION(void *, realloc, (void *ptr, size_t size), ptr, size)
COUNT_ALLOCATION(void *, memalign, (size_t alignment, size_t size), alignment, size)
COUNT_ALLOCATION(void, free, (void *ptr), ptr)

void *aligned_alloc(size_t alignment, size_t size) noexcept
{
    return memalign(alignment, size);
}

int posix_memalign(void **memptr, size_t alignment, size_t size) noexcept
{
    *memptr = memalign(alignment, size);
    return *memptr != nullptr ? 0 : ENOMEM;
}

#define COUNT_LOCK(name, parameters, ...)                                                                              \
    int name parameters                                                                                                \
    {                                                                                                                  \
        static auto *const real = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name));                        \
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

/// Counters that do not work would let everything pass.
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
    zel_core_term_udp_session_capabilities_get(nullptr);
    request::udp_add add = request::udp(no_id, 4);
    add();
    zel_core_term_udp_session_cfg_get(no_id, &add.cfg);
    zel_core_term_udp_session_disconnect(no_id);
    zel_core_term_udp_session_release(no_id);
    request::connect(no_id, 1)();
    zel_core_term_l2tp_control_connection_rem(no_id, 1, 1);
    request::session_of(1, no_id)();
    zel_core_term_l2tp_session_rem(1, no_id);
}

unsigned runs, noisy;

template <typename Operation> void run_quietly(const char *name, Operation run)
{
    ++runs;
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
    for_each_operation([&](const operation &tried) {
        occupy(*tried.table, quarters_full / 2);
        with_batch(tried, [&] { run_quietly(tried.name, [&] { run(tried, tried.library); }); });
    });
    run_quietly("refusals", refusals);
    std::printf("operations without allocation and locks, succeeding, failing or refused: %u of %u\n", runs - noisy,
                runs);
    return noisy != 0;
}
