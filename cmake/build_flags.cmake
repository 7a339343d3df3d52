# What everything here is compiled and linked with. The caller's flags, and those of the toolchain, come after these and
# win; what must hold whatever they say is set at the targets.

# Each source is a translation unit of its own: its macros name the module that its events name.
set(CMAKE_UNITY_BUILD OFF)

# The caller's standards, unless they are too old, as those of a project around this one may be.
if(NOT CMAKE_C_STANDARD MATCHES "^(11|17|23)$")
    set(CMAKE_C_STANDARD 11)
endif()
if(NOT CMAKE_CXX_STANDARD MATCHES "^2[0-9]$")
    set(CMAKE_CXX_STANDARD 20)
endif()
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
# What is installed runs from the build folder by the same run path, unless it is to have none.
if(NOT CMAKE_SKIP_INSTALL_RPATH)
    set(installed_run_path BUILD_WITH_INSTALL_RPATH ON)
endif()

set(flags "-Wall -Wextra -Wconversion -Wshadow -fstack-protector-strong")
# gcc clears records and table entries by `rep stos`, which is slow for their 50 to 180 bytes. With the C library's
# memset, which clang calls by itself, a UDP session is added and released in 8 % less time.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
    string(APPEND flags " -mmemset-strategy=libcall:-1:noalign")
endif()
set(CMAKE_C_FLAGS "${flags} ${CMAKE_C_FLAGS}")
set(CMAKE_CXX_FLAGS "${flags} ${CMAKE_CXX_FLAGS}")
set(CMAKE_EXE_LINKER_FLAGS "-Wl,--as-needed,-z,relro,-z,now,-z,noexecstack ${CMAKE_EXE_LINKER_FLAGS}")
set(CMAKE_SHARED_LINKER_FLAGS "-Wl,--as-needed,-z,relro,-z,now,-z,noexecstack ${CMAKE_SHARED_LINKER_FLAGS}")

add_compile_options(
    # Builds in different folders are the same to the byte, debug information included.
    -ffile-prefix-map=${PROJECT_BINARY_DIR}=build -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
    "SHELL:-include \"${CMAKE_CURRENT_LIST_DIR}/fortify.h\"")

# The platform stand-ins, the probe libraries and the product: complete libraries without surprises. An exported
# function stays interposable: never inlined into its callers and never bound locally. gcc does so by itself in
# position-independent code, clang when told.
add_library(zel_library_flags INTERFACE)
target_compile_options(zel_library_flags INTERFACE -fsemantic-interposition)
if(NOT "${CMAKE_CXX_COMPILER_ID}${CMAKE_CXX_FLAGS}" MATCHES "^Clang.*-fsanitize=") # those are defined by the executable
    target_link_options(zel_library_flags INTERFACE -Wl,-z,defs)
endif()
