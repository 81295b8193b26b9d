# What "cpack" makes: three Debian packages, and an archive that works wherever it is unpacked (scripts/package.sh).
set(CPACK_PACKAGE_NAME zbase)
set(CPACK_PACKAGE_VENDOR "The ZBase developers")
set(CPACK_PACKAGE_CONTACT "The ZBase developers <zbase@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_PACKAGE_FILE_NAME "zbase-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# What the packages themselves bring is asked of each other by name.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/Base ${PROJECT_BINARY_DIR}/ZLiteXML)
set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libzbase${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "foundation library of a server product\nError records, region allocators, texts, call stacks, crash reports: the shared\nlibraries that programs load, with the module for symbols and the sender of\ncrash reports.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS "libcurl4")  # the sender opens it when there is something to send
set(CPACK_DEBIAN_LIBRARY_DEBUGINFO_PACKAGE ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzbase-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "foundation library of a server product, headers\nThe headers, and what CMake and pkg-config need to build with them.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libzbase${PROJECT_VERSION_MAJOR} ${same_version}")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zbase-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "foundation library of a server product, command\nThe command zbase: shows records, errors, texts and crashes, and tries crash\nreporting.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libzbase${PROJECT_VERSION_MAJOR} ${same_version}")

# The notices of what is linked in go along with it.
file(READ ${PROJECT_SOURCE_DIR}/packaging/copyright copyright)
if(ZBASE_CRASH_REPORTING)
    file(READ ${BREAKPAD_DIR}/deps/breakpad/LICENSE breakpad_licence)
    file(READ ${BREAKPAD_DIR}/LICENSE.md dump_tools_licence)
    file(READ ${BREAKPAD_DIR}/deps/third_party/lss/linux_syscall_support.h system_call_support LIMIT 4096)
    string(REGEX MATCH "/\\*(.*)\\* ---" system_call_licence "${system_call_support}")
    string(REGEX REPLACE "(^|\n) \\*" "\\1" system_call_licence "${CMAKE_MATCH_1}")
    string(APPEND copyright
        "Breakpad, which writes and sends dumps:\n\n${breakpad_licence}\n"
        "Linux system call support, which Breakpad uses:\n\n${system_call_licence}\n\n"
        "The package that Breakpad comes in, with its tools:\n\n${dump_tools_licence}")
else()
    string(APPEND copyright "Nothing: it was built without crash reporting.\n")
endif()
file(WRITE ${PROJECT_BINARY_DIR}/copyright "${copyright}")
# Each package has its documents under its own name.
file(WRITE ${PROJECT_BINARY_DIR}/changelog.Debian "zbase (${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * See CHANGELOG.md of the sources.

 -- ${CPACK_PACKAGE_CONTACT}  Sun, 22 Nov 2026 00:00:00 +0000
")
execute_process(COMMAND gzip -9nf -k ${PROJECT_BINARY_DIR}/changelog.Debian)
foreach(part IN ITEMS library:libzbase${PROJECT_VERSION_MAJOR} development:libzbase-dev tools:zbase-tools)
    string(REGEX REPLACE ":.*" "" component ${part})
    string(REGEX REPLACE ".*:" "" package ${part})
    set(documents ${CMAKE_INSTALL_DATADIR}/doc/${package})
    install(FILES ${PROJECT_BINARY_DIR}/copyright DESTINATION ${documents} COMPONENT ${component})
    install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz DESTINATION ${documents} COMPONENT ${component})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/zbase.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/zbase.bash RENAME zbase
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)

set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
include(CPack)
