# A platform that is there already: its CMake package, or the folder that ZEL_PLATFORM names.
if(ZEL_PLATFORM STREQUAL "")
    find_package(zel-platform QUIET)
    if(NOT zel-platform_FOUND)
        message(FATAL_ERROR "There is no platform: set ZEL_PLATFORM to the folder of its headers and libraries, or "
            "CMAKE_PREFIX_PATH to where its CMake package zel-platform is, or ZEL_STAND_INS to ON "
            "${zel-platform_NOT_FOUND_MESSAGE}")
    endif()
else()
    get_filename_component(zel_platform_folder "${ZEL_PLATFORM}" ABSOLUTE BASE_DIR "${CMAKE_BINARY_DIR}")
    include(packaging/platform/zel-platform-config.cmake)
    if(NOT zel-platform_FOUND)
        message(FATAL_ERROR "ZEL_PLATFORM: ${zel-platform_NOT_FOUND_MESSAGE}")
    endif()
endif()
