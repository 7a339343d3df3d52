# What cannot be built is refused here, each with one line that says what to do.
foreach(option ZEL_STAND_INS ZEL_SHELL ZEL_BENCH ZEL_MAN_PAGES BUILD_TESTING)
    string(TOUPPER "${${option}}" value)
    if(NOT value MATCHES "^(|ON|OFF|TRUE|FALSE|YES|NO|Y|N|1|0)$")
        message(FATAL_ERROR "${option} is ON or OFF, not '${${option}}'")
    endif()
endforeach()
foreach(option ZEL_SHELL ZEL_BENCH BUILD_TESTING)
    if(${option} AND NOT ZEL_STAND_INS AND PROJECT_IS_TOP_LEVEL)
        message(FATAL_ERROR "${option} needs the stand-ins: set ${option} to OFF, or ZEL_STAND_INS to ON")
    endif()
endforeach()

if(ZEL_STAND_INS AND NOT ZEL_PLATFORM STREQUAL "")
    message(FATAL_ERROR "ZEL_PLATFORM is for a build without the stand-ins: unset it, or set ZEL_STAND_INS to OFF")
endif()

if((CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 11) OR
    (CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 14))
    message(FATAL_ERROR "${CMAKE_CXX_COMPILER} is ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}: take gcc 11 "
        "or clang 14 or newer, by CMAKE_C_COMPILER and CMAKE_CXX_COMPILER")
endif()

if(PROJECT_IS_TOP_LEVEL)
    if("${CMAKE_BUILD_TYPE}${CMAKE_CONFIGURATION_TYPES}" STREQUAL "")
        set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "None, Debug, RelWithDebInfo, Release or MinSizeRel" FORCE)
    endif()
    string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type)
    if(NOT build_type MATCHES "^(NONE)?$" AND "${CMAKE_CXX_FLAGS_${build_type}}" STREQUAL "")
        message(FATAL_ERROR "CMAKE_BUILD_TYPE is None, Debug, RelWithDebInfo, Release or MinSizeRel, not "
            "'${CMAKE_BUILD_TYPE}'")
    endif()
endif()

find_package(LTTngUST 2.13 QUIET)
if(NOT LTTNGUST_FOUND)
    message(FATAL_ERROR "LTTng-UST 2.13 or newer is not there: install liblttng-ust-dev, or name its prefix in "
        "CMAKE_PREFIX_PATH")
endif()
