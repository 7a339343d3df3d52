include(CMakeFindDependencyMacro)
find_dependency(zel-platform)
include(${CMAKE_CURRENT_LIST_DIR}/zel-core-term-targets.cmake)
