# The target breakpad: Breakpad's client and its upload, from the sources that scripts/breakpad.sh installs. They
# become part of the library, and nothing of them is exported.
set(BREAKPAD_DIR ${PROJECT_SOURCE_DIR}/third_party/breakpad/node_modules/minidump)
if(NOT EXISTS ${PROJECT_SOURCE_DIR}/third_party/breakpad/node_modules/.installed)
    message(FATAL_ERROR "Breakpad is not installed: run scripts/setup.sh build")
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

add_library(breakpad STATIC ${breakpad_sources})
target_include_directories(breakpad SYSTEM PUBLIC ${BREAKPAD_DIR}/deps/breakpad/src)
target_compile_definitions(breakpad PRIVATE HAVE_GETCONTEXT HAVE_SYS_RANDOM_H HAVE_GETRANDOM NDEBUG)
target_compile_options(breakpad PRIVATE -w $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
set_target_properties(breakpad PROPERTIES CXX_EXTENSIONS ON)
target_link_libraries(breakpad PUBLIC ${CMAKE_DL_LIBS})
