# The CMake package of a platform for libzel-core-term. A platform installs this file as it is in
# LIBDIR/cmake/zel-platform; its libraries are then looked for in LIBDIR and its headers in PREFIX/include/zel_platform
# and PREFIX/include. It gives the targets zel::platform-headers, zel::vok_cp, zel::zel_init, zel::zel_core_ic,
# zel::kiv_util and zel::zel_fmt.
set(zel-platform_FOUND TRUE)
if(DEFINED zel_platform_folder) # a build of libzel-core-term itself, with ZEL_PLATFORM
    set(places ${zel_platform_folder})
else()
    set(places ${CMAKE_CURRENT_LIST_DIR}/../.. ${CMAKE_CURRENT_LIST_DIR}/../../.. ${CMAKE_CURRENT_LIST_DIR}/../../../..)
endif()

set(zel_platform_include_folders)
foreach(header vok_cp.h zel_init.h zel_core_ic.h kiv_util.h zel_fmt.h)
    find_path(folder NAMES ${header} PATHS ${places} PATH_SUFFIXES include/zel_platform include
        NO_CACHE NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    if(NOT folder)
        set(zel-platform_FOUND FALSE)
        set(zel-platform_NOT_FOUND_MESSAGE "there is no ${header} in ${places}, nor in include or include/zel_platform")
        return()
    endif()
    list(APPEND zel_platform_include_folders ${folder})
    unset(folder)
endforeach()
list(REMOVE_DUPLICATES zel_platform_include_folders)
if(NOT TARGET zel::platform-headers)
    add_library(zel::platform-headers INTERFACE IMPORTED)
    target_include_directories(zel::platform-headers INTERFACE ${zel_platform_include_folders})
endif()

foreach(name vok_cp zel_init zel_core_ic kiv_util zel_fmt)
    find_library(file NAMES lib${name}.so PATHS ${places} PATH_SUFFIXES lib lib64 lib/${CMAKE_LIBRARY_ARCHITECTURE}
        NO_CACHE NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    if(NOT file)
        set(zel-platform_FOUND FALSE)
        set(zel-platform_NOT_FOUND_MESSAGE "there is no lib${name}.so in ${places}, nor in lib or lib64")
        return()
    endif()
    if(NOT TARGET zel::${name})
        add_library(zel::${name} SHARED IMPORTED)
        set_target_properties(zel::${name} PROPERTIES
            IMPORTED_LOCATION ${file}
            IMPORTED_NO_SONAME ON # linked with by name: a library without a SONAME is not remembered by its path
            INTERFACE_LINK_LIBRARIES zel::platform-headers)
    endif()
    unset(file)
endforeach()
unset(places)
