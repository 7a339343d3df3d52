// zel-bench-fresh: what only a process that has just begun can show. A line a fact: its name, a tab, its value.
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "operations.h"
#include "zel_core_term/zel_core_term.h"

namespace {

/// The library's zero-initialised data, which is its tables and little else.
struct address_range {
    std::uintptr_t begin, end;
};

int find_tables(dl_phdr_info *object, std::size_t, void *found)
{
    if (std::strstr(object->dlpi_name, "/libzel-core-term.so") == nullptr)
        return 0;
    for (const auto &segment : std::vector(object->dlpi_phdr, object->dlpi_phdr + object->dlpi_phnum))
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) != 0)
            *static_cast<address_range *>(found) = {object->dlpi_addr + segment.p_vaddr + segment.p_filesz,
                                                    object->dlpi_addr + segment.p_vaddr + segment.p_memsz};
    return 1;
}

address_range tables()
{
    address_range found{};
    dl_iterate_phdr(find_tables, &found);
    return found;
}

/// Of the whole pages of the tables.
std::size_t resident_bytes(address_range range)
{
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t begin = (range.begin + page - 1) / page * page, end = range.end / page * page;
    std::vector<unsigned char> pages((end - begin) / page);
    mincore(reinterpret_cast<void *>(begin), end - begin, pages.data());
    std::size_t resident = 0;
    for (const unsigned char flags : pages)
        resident += (flags & 1) * page;
    return resident;
}

double microseconds_of(void (*part)())
{
    const auto start = std::chrono::steady_clock::now();
    part();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

void add_sessions(std::uint32_t count)
{
    zel_core_term_udp_session_cfg_t cfg{};
    cfg.ip_version = 4;
    for (std::uint32_t id = 1; id <= count; ++id)
        zel_core_term_udp_session_add(id, &cfg, 1, 1, 5, 0, false);
}

} // namespace

int main()
{
    require_null_data_plane();
    const address_range range = tables();
    std::printf("table bytes\t%zu\n", range.end - range.begin);
    std::printf("first start us\t%.1f\n", microseconds_of([] { zel_core_term_start(); }));
    std::printf("resident bytes after the first start\t%zu\n", resident_bytes(range));
    add_sessions(1'000);
    std::printf("resident bytes with 1000 sessions\t%zu\n", resident_bytes(range));
    zel_core_term_start();
    for (const char *const fill : {"first", "second"}) {
        std::printf("%s fill us\t%.1f\n", fill, microseconds_of([] { add_sessions(70'000); }));
        zel_core_term_start();
    }
}
