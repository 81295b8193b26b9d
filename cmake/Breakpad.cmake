# The target zbase_breakpad: Breakpad's client and its upload, from the sources that scripts/breakpad.sh installs. They
# become part of the library, and nothing of them is exported.
set(ZBASE_BREAKPAD_DIR "" CACHE PATH "Breakpad's package, where scripts/setup.sh could not fetch it: as it came, or unpacked")

if(WIN32 AND NOT ZBASE_CRASH_REPORTING)
    add_library(zbase_breakpad INTERFACE)
    return()
endif()
if(NOT ZBASE_CRASH_REPORTING)
    message(WARNING "Built without crash reporting (ZBASE_CRASH_REPORTING is OFF). The library exports all its names, but "
                    "InstallCrashHandler installs nothing, CreateDump dumps nothing and CrashReportSender reaches no "
                    "server. zbase-crash-sender, and the tests of dumps and reports, are not built.")
    add_library(zbase_breakpad INTERFACE)
    return()
endif()

set(breakpad_place ${PROJECT_SOURCE_DIR}/third_party/breakpad/node_modules)
if(ZBASE_BREAKPAD_DIR)
    set(breakpad_place ${PROJECT_BINARY_DIR}/breakpad)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env ZBASE_BREAKPAD_DIR=${ZBASE_BREAKPAD_DIR} ZBASE_CRASH_REPORTING=ON
                            ${PROJECT_SOURCE_DIR}/scripts/breakpad.sh ${breakpad_place}
                    RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "Breakpad can't be taken from ZBASE_BREAKPAD_DIR")
    endif()
endif()
set(BREAKPAD_DIR ${breakpad_place}/minidump)
if(NOT ZBASE_BREAKPAD_DIR)  # costs nothing when it is there and as our patches make it
    execute_process(COMMAND ${CMAKE_COMMAND} -E env ZBASE_CRASH_REPORTING=ON ${PROJECT_SOURCE_DIR}/scripts/breakpad.sh
                    RESULT_VARIABLE failed)
    if(failed AND EXISTS ${breakpad_place}/.installed)
        message(FATAL_ERROR "Breakpad is there, but not as this tree patches it: scripts/setup.sh build")
    endif()
endif()
if(NOT EXISTS ${breakpad_place}/.installed)
    message(FATAL_ERROR "Breakpad is not there. Each of these helps:\n"
                        "  scripts/setup.sh build                   fetches it\n"
                        "  -DZBASE_BREAKPAD_DIR=/path/to/package    takes it from where somebody has put it\n"
                        "  -DZBASE_CRASH_REPORTING=OFF              leaves crash reporting out")
endif()
if(WIN32)  # whose own debug help writes dumps
    add_library(zbase_breakpad INTERFACE)
    include(BreakpadReaders)
    return()
endif()
set(BREAKPAD_TOOLS_DIR ${BREAKPAD_DIR}/bin/linux-x64)

set(breakpad_sources
    client/linux/crash_generation/crash_generation_client.cc
    client/linux/dump_writer_common/thread_info.cc
    client/linux/dump_writer_common/ucontext_reader.cc
    client/linux/handler/exception_handler.cc
    client/linux/handler/minidump_descriptor.cc
    client/linux/log/log.cc
    client/linux/microdump_writer/microdump_writer.cc
    client/linux/minidump_writer/linux_core_dumper.cc
    client/linux/minidump_writer/linux_dumper.cc
    client/linux/minidump_writer/linux_ptrace_dumper.cc
    client/linux/minidump_writer/minidump_writer.cc
    client/linux/minidump_writer/pe_file.cc
    client/minidump_file_writer.cc
    common/convert_UTF.cc
    common/linux/elf_core_dump.cc
    common/linux/elfutils.cc
    common/linux/file_id.cc
    common/linux/guid_creator.cc
    common/linux/http_upload.cc
    common/linux/linux_libc_support.cc
    common/linux/memory_mapped_file.cc
    common/linux/safe_readlink.cc
    common/md5.cc
    common/string_conversion.cc)
list(TRANSFORM breakpad_sources PREPEND ${BREAKPAD_DIR}/deps/breakpad/src/)

add_library(zbase_breakpad STATIC ${breakpad_sources})
target_include_directories(zbase_breakpad SYSTEM PUBLIC ${BREAKPAD_DIR}/deps/breakpad/src)
target_compile_definitions(zbase_breakpad PRIVATE HAVE_GETCONTEXT HAVE_SYS_RANDOM_H HAVE_GETRANDOM NDEBUG)
zbase_installed(zbase_breakpad)
target_compile_options(zbase_breakpad PRIVATE -w $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
set_target_properties(zbase_breakpad PROPERTIES CXX_EXTENSIONS ON)
target_link_libraries(zbase_breakpad PUBLIC ${CMAKE_DL_LIBS})
