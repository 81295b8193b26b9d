# 64-bit Windows by Clang and its linker, over the headers and libraries of mingw-w64's compiler: the same binary interface as
# mingw-w64.cmake's, but the debug information is what debuggers of Windows read, with a PDB file beside each library and program.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
set(ZBASE_PDB ON)
set(ZBASE_RUNTIME_OWNER ${mingw}-g++-posix)
execute_process(COMMAND ${ZBASE_RUNTIME_OWNER} -print-libgcc-file-name OUTPUT_VARIABLE libgcc OUTPUT_STRIP_TRAILING_WHITESPACE)
cmake_path(GET libgcc PARENT_PATH gcc)

set(CMAKE_C_COMPILER clang-16)
set(CMAKE_CXX_COMPILER clang++-16)
set(CMAKE_C_COMPILER_TARGET ${mingw})
set(CMAKE_CXX_COMPILER_TARGET ${mingw})
set(CMAKE_C_FLAGS_INIT "--start-no-unused-arguments -gcodeview -gno-codeview-command-line --end-no-unused-arguments")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} --start-no-unused-arguments -nostdinc++ --end-no-unused-arguments")
foreach(part "" /${mingw} /backward)
    string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${gcc}/include/c++${part}")
endforeach()
# The compiler's library stands on POSIX threads, which its own driver knows.
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld-16 -L${gcc} -B${gcc} -lpthread")
endforeach()
