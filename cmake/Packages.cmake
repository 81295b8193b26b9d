# What "cpack" makes: three Debian packages, and an archive that works wherever it is unpacked (scripts/package.sh).
set(CPACK_PACKAGE_NAME zbase)
set(CPACK_PACKAGE_VENDOR "The ZBase developers")
set(CPACK_PACKAGE_CONTACT "The ZBase developers <zbase@zbase.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES OFF)  # the archive keeps names and lines; the packages have them beside
set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_PACKAGE_FILE_NAME "zbase-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Packages refer to their own parts by name.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/Base ${PROJECT_BINARY_DIR}/ZLiteXML)
set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libzbase${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "Error records, region allocators, texts, call stacks, crash reports: the shared\nlibraries that programs load, with the module for symbols and the sender of\ncrash reports.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS "libcurl4")  # the sender opens it when there is something to send
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_BUILD_SOURCE_DIRS ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzbase-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "The headers, and what CMake and pkg-config need to build with them.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libzbase${PROJECT_VERSION_MAJOR} ${same_version}")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zbase-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "The command zbase: shows records, errors, texts and crashes, and tries crash\nreporting.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libzbase${PROJECT_VERSION_MAJOR} ${same_version}")

# Notices of third-party code in the library.
set(notices "")
if(ZBASE_CRASH_REPORTING)
    file(READ ${BREAKPAD_DIR}/deps/breakpad/LICENSE breakpad_licence)
    file(READ ${BREAKPAD_DIR}/LICENSE.md dump_tools_licence)
    file(READ ${BREAKPAD_DIR}/deps/third_party/lss/linux_syscall_support.h system_call_support LIMIT 4096)
    string(REGEX MATCH "/\\*(.*)\\* ---" system_call_licence "${system_call_support}")
    string(REGEX REPLACE "(^|\n) \\*" "\\1" system_call_licence "${CMAKE_MATCH_1}")
    string(APPEND notices
        "Breakpad, which writes and sends dumps:\n\n${breakpad_licence}\n"
        "Linux system call support, which Breakpad uses:\n\n${system_call_licence}\n\n"
        "The package that Breakpad comes in, with its tools:\n\n${dump_tools_licence}")
else()
    string(APPEND notices "The library was built without crash reporting, and contains nothing of others.\n")
endif()
file(WRITE ${PROJECT_BINARY_DIR}/NOTICES "${notices}")
file(WRITE ${PROJECT_BINARY_DIR}/changelog.Debian "zbase (${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * See CHANGELOG.md of the sources.

 -- ${CPACK_PACKAGE_CONTACT}  Sun, 22 Nov 2026 00:00:00 +0000
")
execute_process(COMMAND gzip -9nfk ${PROJECT_BINARY_DIR}/NOTICES ${PROJECT_BINARY_DIR}/changelog.Debian)
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/zbase.1 OUTPUT_FILE ${PROJECT_BINARY_DIR}/zbase.1.gz)

# Each package has its documents under its own name.
foreach(part IN ITEMS library:libzbase${PROJECT_VERSION_MAJOR} development:libzbase-dev tools:zbase-tools)
    string(REGEX REPLACE ":.*" "" component ${part})
    string(REGEX REPLACE ".*:" "" package ${part})
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${PROJECT_BINARY_DIR}/NOTICES.gz
                  ${PROJECT_BINARY_DIR}/changelog.Debian.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/zbase.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/zbase.bash RENAME zbase
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)

set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
include(CPack)
