# What a Debian package has beyond the files that are installed by hand into a prefix. CPack runs this before it makes
# the packages, with the files of each component in a folder of its own.
cmake_minimum_required(VERSION 3.25)

set(run COMMAND_ERROR_IS_FATAL ANY WORKING_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY})
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC) # of SOURCE_DATE_EPOCH
file(GLOB library_folders ${CPACK_TEMPORARY_DIRECTORY}/*/usr/lib)
list(JOIN library_folders ":" library_path)
list(TRANSFORM library_folders PREPEND -l OUTPUT_VARIABLE library_options)

file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/shell/usr/share/man/man1)
execute_process(${run} COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${library_path}
    help2man --no-info --version-string ${CPACK_PACKAGE_VERSION} --output shell/usr/share/man/man1/zel-term-shell.1
        --name "drives libzel-core-term over a stand-in data plane"
        --include ${CMAKE_CURRENT_LIST_DIR}/zel-term-shell.h2m shell/usr/bin/zel-term-shell)
execute_process(${run} COMMAND gzip -9n shell/usr/share/man/man1/zel-term-shell.1)

set(as_packaged FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ) # whatever the sources' are

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} COMPONENT)
    set(package ${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME})
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${component})

    configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${root}/usr/share/doc/${package}/copyright
        ${as_packaged} COPYONLY)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${root}/usr/share/doc/${package}/changelog
        ${as_packaged} @ONLY)
    execute_process(${run} COMMAND gzip -9n ${root}/usr/share/doc/${package}/changelog)
    if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${package}.lintian-overrides)
        configure_file(${CMAKE_CURRENT_LIST_DIR}/${package}.lintian-overrides
            ${root}/usr/share/lintian/overrides/${package} ${as_packaged} COPYONLY)
    endif()

    set(binaries)
    file(GLOB candidates ${root}/usr/bin/* ${root}/usr/lib/*.so*)
    foreach(candidate IN LISTS candidates)
        if(NOT IS_SYMLINK ${candidate})
            list(APPEND binaries ${candidate})
            file(RPATH_REMOVE FILE ${candidate})
            execute_process(${run}
                COMMAND strip --strip-unneeded --remove-section=.comment --remove-section=.note ${candidate})
        endif()
    endforeach()
    if(binaries)
        # CPack can ask dpkg-shlibdeps by itself, but then it adds scripts that call ldconfig, which is what the
        # triggers are for. The information that may be missing is that on the packages that are being made.
        file(WRITE ${CPACK_TEMPORARY_DIRECTORY}/debian/control "")
        execute_process(${run} COMMAND dpkg-shlibdeps ${library_options} --ignore-missing-info -O ${binaries}
            OUTPUT_VARIABLE depends OUTPUT_STRIP_TRAILING_WHITESPACE)
        file(REMOVE_RECURSE ${CPACK_TEMPORARY_DIRECTORY}/debian)
        string(REPLACE "shlibs:Depends=" "" depends "${depends}")
        list(APPEND CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS ${depends})
        list(JOIN CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS ", " CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS)
    endif()
endforeach()
