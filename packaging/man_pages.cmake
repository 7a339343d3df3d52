# The manual pages of section 3, made of the interface's comments: one of each file and record, to which the names of
# what is exported lead.
find_package(Doxygen REQUIRED)

set(pages ${CMAKE_CURRENT_BINARY_DIR}/man/man3)
file(CONFIGURE OUTPUT Doxyfile CONTENT [[
@INCLUDE = @CMAKE_CURRENT_SOURCE_DIR@/Doxyfile
INPUT += src/ovlin_handler
PROJECT_NAME = zel
PROJECT_NUMBER = @PROJECT_VERSION@
OUTPUT_DIRECTORY = @CMAKE_CURRENT_BINARY_DIR@
GENERATE_MAN = YES
MAN_LINKS = YES
JAVADOC_AUTOBRIEF = YES
TYPEDEF_HIDES_STRUCT = YES
FULL_PATH_NAMES = NO
SHOW_INCLUDE_FILES = NO
WARN_IF_DOC_ERROR = NO
]] @ONLY)
file(GLOB inputs CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/include/zel_core_term/*.h ${PROJECT_SOURCE_DIR}/src/ovlin_handler/*.cpp)
add_custom_command(OUTPUT ${pages}/zel_core_term.h.3
    COMMAND Doxygen::doxygen ${CMAKE_CURRENT_BINARY_DIR}/Doxyfile
    DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/Doxyfile ${CMAKE_CURRENT_BINARY_DIR}/Doxyfile ${inputs}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_custom_target(zel_man_pages ALL DEPENDS ${pages}/zel_core_term.h.3)
file(CONFIGURE OUTPUT libzel-core-term.3 CONTENT ".so man3/zel_core_term.h.3\n")

# Doxygen has a page for the field of a record, too.
file(STRINGS ${PROJECT_SOURCE_DIR}/src/libzel-core-term.map exported REGEX "^ +[^*]+;$")
list(TRANSFORM exported REPLACE "^ +(.*);$" "${pages}/\\1.3")
install(FILES ${exported} ${CMAKE_CURRENT_BINARY_DIR}/libzel-core-term.3
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
install(DIRECTORY ${pages}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development
    FILES_MATCHING PATTERN zel_*.h.3 PATTERN zel_*.cpp.3 PATTERN zel_*_t.3 PATTERN l2tp_*_entry.3)
