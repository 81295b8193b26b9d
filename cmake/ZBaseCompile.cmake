# Which backend of the seam is built: the name of its folders.
set(ZBASE_SYSTEM linux)
if(WIN32)
    set(ZBASE_SYSTEM windows)
endif()

# zbase_compile(target): the warnings and sanitizers that every target of this tree is built with.
function(zbase_compile target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow $<$<BOOL:${ZBASE_WERROR}>:-Werror>)
    # Where calls are not all that throws, g++ 14 takes the growth of any vector of small things for a write before its block.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 14)
        target_compile_options(${target} PRIVATE -Wno-stringop-overflow)
    endif()
    # With all of its optimisations g++ 12 takes what is put in front of a text for a copy over itself.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
    if(WIN32)
        # Windows 10 is the oldest that is served. No macro takes a name away from C++.
        target_compile_definitions(${target} PRIVATE UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
    endif()
    if(ZBASE_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${ZBASE_SANITIZE} -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${ZBASE_SANITIZE})
    endif()
endfunction()

# zbase_installed(target): for what is installed, the same octets wherever the tree and the build are, with sources named from
# the top of the tree; and hardened.
function(zbase_installed target)
    if(NOT ZBASE_COVERAGE)  # which finds the sources by their places
        target_compile_options(${target} PRIVATE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
                                                 -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
    endif()
    set_target_properties(${target} PROPERTIES BUILD_RPATH_USE_ORIGIN ON)
    zbase_hardened(${target})
    zbase_pdb(${target})
endfunction()

# zbase_pdb(target): what debuggers of Windows read goes beside the library or program, where the toolchain can make it.
function(zbase_pdb target)
    get_target_property(type ${target} TYPE)
    if(ZBASE_PDB AND type MATCHES "SHARED_LIBRARY|EXECUTABLE")
        target_link_options(${target} PRIVATE -Wl,--pdb= -Wl,-Xlink=-pdbaltpath:%_PDB% -Wl,-Xlink=-pdbsourcepath:build)
        if(ZBASE_INSTALL)
            set(file $<TARGET_FILE_DIR:${target}>/$<TARGET_FILE_PREFIX:${target}>$<TARGET_FILE_BASE_NAME:${target}>.pdb)
            install(FILES ${file} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT development)
        endif()
    endif()
endfunction()

# zbase_parse_once(target): what most sources include of the standard library is parsed once, where the build says so.
function(zbase_parse_once target)
    if(ZBASE_PARSE_ONCE)
        target_precompile_headers(${target} PRIVATE <algorithm> <atomic> <chrono> <filesystem> <functional> <map> <memory> <mutex>
                                  <optional> <string> <string_view> <thread> <type_traits> <utility> <vector>)
    endif()
endfunction()

# zbase_counted(target): each line and branch counts how often it ran, as it stands in the source. Whoever links the target's
# objects needs the same. The tests themselves stay as they are.
function(zbase_counted target)
    if(ZBASE_COVERAGE)
        target_compile_options(${target} PRIVATE -O0 --coverage -fprofile-update=atomic -fprofile-abs-path)
        target_link_options(${target} PUBLIC --coverage -Wl,-u,__gcov_dump -Wl,-u,__gcov_reset)
    endif()
endfunction()

# zbase_hardened(target): checked calls of the C library, guarded stacks, checked targets of jumps and returns, and nothing that
# the loader has bound can be written. For optimised builds: the checked calls need the optimiser, and sanitizers check more.
function(zbase_hardened target)
    if(NOT ZBASE_HARDENING OR ZBASE_SANITIZE OR ZBASE_COVERAGE OR NOT CMAKE_EXECUTABLE_FORMAT STREQUAL "ELF")
        return()
    endif()
    set(options -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        list(APPEND options -fcf-protection=full)
    endif()
    target_compile_options(${target} PRIVATE "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${options}>")
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now,-z,noexecstack)
endfunction()
