# The tests on Windows, under Wine where they were cross-built. Those that count allocations need an operator new of their
# own, which reaches no library: all of these programs take the objects themselves, with the compiler's libraries inside. A
# few use the library as others do.
#
# A source that includes what only Linux has is not built; the build directory has a list, "tests/not-built.txt".
# "support/windows/skipped.txt" names each test that is skipped, with the reason.
string(CONCAT only_linux "^#include [<\"](sys/(wait|mman|resource|syscall|prctl|socket|utsname|file|auxv|ptrace|mount)|dlfcn|"
       "poll|link\\.h|netinet|linux/|arpa/|ucontext|spawn|netdb|iconv|unicode/|syslog|pwd|net/if|langinfo|ifaddrs|elf\\.h|"
       "execinfo|alloca|.*/linux/|tests/support/RefusedCalls|tests/crash/FixedServer)")

# zbase_portable(variable): leaves the sources in the variable that Windows can build.
function(zbase_portable variable)
    set(portable "")
    foreach(source ${${variable}})
        file(STRINGS ${source} found REGEX "${only_linux}" LIMIT_COUNT 1)
        if(found)
            file(RELATIVE_PATH name ${PROJECT_SOURCE_DIR} ${source})
            set_property(GLOBAL APPEND_STRING PROPERTY zbase_not_built "${name}  ${found}\n")
        else()
            list(APPEND portable ${source})
        endif()
    endforeach()
    set(${variable} ${portable} PARENT_SCOPE)
endfunction()

function(zbase_write_not_built)
    get_property(not_built GLOBAL PROPERTY zbase_not_built)
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/not-built.txt "${not_built}")
endfunction()

file(STRINGS support/windows/skipped.txt skipped REGEX "^[A-Za-z*]")
list(TRANSFORM skipped REPLACE " .*" "")
if(ZBASE_WINDOWS_CORE)
    # A minute each on a busy machine: storms, the starts of programs that fault, and all texts there are.
    list(APPEND skipped *DeathTest.* LockThreads.* *.TenMillion* *.TenThousand* *.HundredThousand* Utf8DecodingModel.*
         Utf8EncodingModel.*)
endif()
list(JOIN skipped ":" skipped)

# Which needs its parser's sources.
if(ZBASE_WINDOWS_CORE)
    string(APPEND only_linux "|^#include <ZLiteXML/")
endif()

# What nearly every test includes is parsed once for all: most of the time of compiling would be that.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/headers.cpp "")
add_library(zbase_test_headers OBJECT ${CMAKE_CURRENT_BINARY_DIR}/headers.cpp)
zbase_compile(zbase_test_headers)
target_compile_options(zbase_test_headers PRIVATE -O0)
target_compile_definitions(zbase_test_headers PUBLIC ZLITEXML_STATIC ZBASE_STATIC)
target_include_directories(zbase_test_headers PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/places/$<CONFIG>)
target_include_directories(zbase_test_headers PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(zbase_test_headers PRIVATE GTest::gtest)
target_precompile_headers(zbase_test_headers PRIVATE <gtest/gtest.h> <Base/ZBase.h>)

target_compile_definitions(zbase_test_support PRIVATE ZBASE_STATIC ZLITEXML_STATIC)
target_compile_options(zbase_test_support PRIVATE -O1 -Wno-maybe-uninitialized)

# zbase_tests(folder [SHARED] LIBRARIES ... [EXCEPT ...]): one test program of a folder's sources, without those of these stems.
function(zbase_tests folder)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SHARED" "" "LIBRARIES;EXCEPT")
    string(REPLACE "/" "_" name ${folder})
    set(program ${name}_tests)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp
         ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/windows/*.cpp)
    foreach(stem ${arg_EXCEPT})
        list(REMOVE_ITEM sources ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/${stem}.cpp)
        set_property(GLOBAL APPEND_STRING PROPERTY zbase_not_built "tests/${folder}/${stem}.cpp  is about what only Linux has\n")
    endforeach()
    zbase_portable(sources)
    add_executable(${program} ${sources})
    zbase_compile(${program})
    # What is tested is optimised; the tests themselves would take twice as long to compile.
    target_compile_options(${program} PRIVATE -O0)
    target_link_libraries(${program} PRIVATE zbase_test_support ${arg_LIBRARIES} GTest::gtest_main psapi)
    if(NOT arg_SHARED)
        target_compile_definitions(${program} PRIVATE ZLITEXML_STATIC ZBASE_STATIC)
        target_precompile_headers(${program} REUSE_FROM zbase_test_headers)
        target_link_options(${program} PRIVATE -static)
    endif()
    add_test(NAME ${program} COMMAND ${program})
    set_tests_properties(${program} PROPERTIES TIMEOUT 600 ENVIRONMENT "GTEST_FILTER=-${skipped}")
endfunction()

# Programs that the tests start as other processes: one source, one program.
foreach(name BufferChoiceProbe EventProbe HostProbe LeakProbe OverlapProbe SettingsProbe TerminateProbe)
    add_executable(${name} children/${name}.cpp)
    zbase_compile(${name})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    list(APPEND children ${name})
endforeach()
foreach(name BufferChoiceProbe EventProbe HostProbe LeakProbe OverlapProbe TerminateProbe)
    target_link_libraries(${name} PRIVATE ZBase::ZBase)
endforeach()
target_link_libraries(SettingsProbe PRIVATE zbase_logic zbase_os)

# Components that the tests load by their names, and a stand-in for the outside heap.
file(GLOB component_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/components/*.cpp)
zbase_portable(component_sources)
foreach(source ${component_sources})
    get_filename_component(name ${source} NAME_WE)
    if(name MATCHES "^(Unresolved|Kinds)$")  # no linker here makes what lacks a function, and there are no ifuncs
        set_property(GLOBAL APPEND_STRING PROPERTY zbase_not_built "tests/components/${name}.cpp  only ELF has that\n")
        continue()
    endif()
    add_library(${name} SHARED ${source})
    zbase_compile(${name})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX "_64.dll")
    list(APPEND components_built ${name})
endforeach()
target_link_libraries(Component PRIVATE ZBase::ZBase)
target_link_libraries(Plain PRIVATE Component)
target_link_libraries(Thrower PRIVATE ZBase::ZBase)
set_target_properties(shsmp64 PROPERTIES SUFFIX ".dll")

set(objects zbase_logic zbase_os)
foreach(folder frame text memory switches)
    zbase_tests(${folder} LIBRARIES ${objects})
endforeach()
set_source_files_properties(memory/NewAlignmentOptionTest.cpp PROPERTIES COMPILE_OPTIONS -faligned-new=8
                            SKIP_PRECOMPILE_HEADERS ON)
# Who uses the library gets this option from its target.
set_source_files_properties(platform/os/windows/FaultsTest.cpp PROPERTIES COMPILE_OPTIONS -fnon-call-exceptions
                            SKIP_PRECOMPILE_HEADERS ON)
zbase_tests(text/detail LIBRARIES ${objects})
zbase_tests(platform/os LIBRARIES ${objects})
foreach(program frame_tests memory_tests switches_tests platform_os_tests)
    add_dependencies(${program} ${children} ${components_built})
endforeach()

if(ZBASE_WINDOWS_CORE)  # what knows the system, and what is compiled soonest
    zbase_write_not_built()
    return()
endif()

# The neighbour module without its library.
file(GLOB xml_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/ZLiteXML/*.cpp ${PROJECT_SOURCE_DIR}/ZLiteXML/detail/*.cpp
     ${PROJECT_SOURCE_DIR}/ZLiteXML/detail/windows/*.cpp)
add_library(zbase_test_zlitexml STATIC ${xml_sources})
zbase_compile(zbase_test_zlitexml)
target_compile_definitions(zbase_test_zlitexml PUBLIC ZLITEXML_STATIC ZBASE_STATIC)
target_include_directories(zbase_test_zlitexml PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(zbase_test_zlitexml PUBLIC EXPAT::EXPAT)

foreach(folder messages zlitexml)
    zbase_tests(${folder} LIBRARIES zbase_test_zlitexml ${objects})
endforeach()

# Through the library, as others use it.
zbase_tests(platform SHARED LIBRARIES ZBase::ZBase)
if(children OR components_built)
    add_dependencies(platform_tests ${children} ${components_built})
endif()

# Its output is compared with that of the same source on Linux: scripts/windows/messages.sh.
add_executable(RecordProbe platform/os/windows/children/RecordProbe.cpp)
zbase_compile(RecordProbe)
target_include_directories(RecordProbe PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(RecordProbe PRIVATE ZBase::ZLiteXML)

if(ZBASE_CRASH_REPORTING)
    add_subdirectory(platform/os/windows)
endif()
zbase_tests(diagnostics SHARED LIBRARIES ZBase::ZBase EXCEPT CaptureTest DebugHelpTest)
add_dependencies(diagnostics_tests ${children})
if(ZBASE_CRASH_REPORTING)
    zbase_tests(crash SHARED LIBRARIES ZBase::ZBase EXCEPT CrashReportTest CrashConfinedTest CrashChainTest CrashRightsTest
                CrashRuntimesTest CrashAttachmentsTest CrashInstallationTest CrashNotesTest CrashDeliveryTest LastWordsTest
                PackedReportTest FaultReportTest CrashUploadTest)
    add_dependencies(crash_tests zbase-crash-sender)
endif()
if(ZBASE_BUILD_TOOLS)
    zbase_tests(tools SHARED LIBRARIES ZBase::ZLiteXML advapi32 shell32 EXCEPT HostCommandTest ProgressTest)
    add_dependencies(tools_tests zbase WindowsCrashProbe)
    target_sources(tools_tests PRIVATE ${ZBASE_TOOLS_SYSTEM_SOURCES})
    foreach(component crash/DumpedModules crash/ImageSymbols crash/ImageUnwinding crash/PdbSymbols terminal/Console terminal/Progress text/TextScan
            text/TextStream)
        target_sources(tools_tests PRIVATE ${PROJECT_SOURCE_DIR}/tools/zbase/${component}.cpp)
    endforeach()
endif()

add_library(zbase_os_for_scripts STATIC $<TARGET_OBJECTS:zbase_os>)
target_link_libraries(zbase_os_for_scripts PUBLIC rpcrt4 advapi32 psapi ws2_32 iphlpapi ntdll)
zbase_tests(scripted LIBRARIES zbase_logic zbase_os_for_scripts)

zbase_write_not_built()
