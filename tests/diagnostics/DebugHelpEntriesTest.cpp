#include <Base/diagnostics/AddrToLine.h>
#include <Base/diagnostics/CallStack.h>
#include <Base/diagnostics/DbgHelpBuilder.h>
#include <TestPlaces.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

// The fourteen entry points of the module in the library's directory, as its users call them.

[[gnu::noinline]] int FunctionOfItsOwn(int value) {
    asm volatile("" ::: "memory");
    return value + 1;
}

namespace {

using ZBase::gDbgHelpBuilder;
using ZBase::IMAGEHLP_LINE64;
using ZBase::IMAGEHLP_MODULE64;
using ZBase::STACKFRAME64;
using ZBase::SymbolRecord;

std::uint64_t Code() {
    return reinterpret_cast<std::uint64_t>(&FunctionOfItsOwn);
}

std::uint64_t BaseOfProgram() {
    Dl_info info{};
    dladdr(reinterpret_cast<void*>(Code()), &info);
    return reinterpret_cast<std::uint64_t>(info.dli_fbase);
}

class DebugHelpEntries : public testing::Test {
protected:
    DebugHelpEntries() { gDbgHelpBuilder.EnumerateModulesAndLoadSymbols(); }
    // Others find it begun.
    ~DebugHelpEntries() override {
        gDbgHelpBuilder.GetSymInitialize()(nullptr, nullptr, 1);
        gDbgHelpBuilder.GetSymSetSearchPath()(nullptr, nullptr);
    }

    static bool HasSymbol(std::uint64_t address, SymbolRecord& record) {
        record = {};
        record.symbol.SizeOfStruct = sizeof record;
        record.symbol.MaxNameLength = ZBase::kMaxSymbolName;
        return gDbgHelpBuilder.GetSymGetSymFromAddr()(nullptr, address, nullptr, &record.symbol) == 1;
    }
};

TEST_F(DebugHelpEntries, SymbolHasItsStartAndSizeAndTheAddressItsDisplacement) {
    SymbolRecord record{};
    record.symbol.SizeOfStruct = sizeof record;
    record.symbol.MaxNameLength = ZBase::kMaxSymbolName;
    std::uint64_t displacement = 99;
    const auto getSymbol = gDbgHelpBuilder.GetSymGetSymFromAddr();
    ASSERT_EQ(getSymbol(nullptr, Code() + 2, &displacement, &record.symbol), 1);
    EXPECT_STREQ(record.symbol.Name, "FunctionOfItsOwn(int)");
    EXPECT_EQ(record.symbol.Address, Code());
    EXPECT_GT(record.symbol.Size, 2U);
    EXPECT_EQ(displacement, 2U);
    EXPECT_EQ(getSymbol(nullptr, 1, &displacement, &record.symbol), 0);
}

TEST_F(DebugHelpEntries, NameIsCutToWhatTheRecordHolds) {
    SymbolRecord record;
    const auto getSymbol = gDbgHelpBuilder.GetSymGetSymFromAddr();
    const std::string name = "FunctionOfItsOwn(int)";
    for (std::uint32_t room = 0; room != name.size() + 3; ++room) {
        std::memset(&record, '*', sizeof record);
        record.symbol.SizeOfStruct = sizeof record.symbol;
        record.symbol.MaxNameLength = room;
        ASSERT_EQ(getSymbol(nullptr, Code(), nullptr, &record.symbol), 1);
        const char* text = record.symbol.Name;
        EXPECT_EQ(text[std::min<std::size_t>(room, name.size() + 1)], '*') << room;
        EXPECT_EQ(std::string(text, room == 0 ? 0 : std::strlen(text)),
                  name.substr(0, std::max(room, 1U) - 1));
    }
}

TEST_F(DebugHelpEntries, NameOf1024CharactersIsCutTo1023) {
    void* module = dlopen(ZBASE_MODULES_DIR "/libLongNames.so", RTLD_NOW);
    ASSERT_NE(module, nullptr);
    const auto* functions = static_cast<int (**)()>(dlsym(module, "LongNames"));
    const std::size_t lengths[] = {1023, 1024, 5000};
    for (int i = 0; i != 3; ++i) {
        ASSERT_EQ(functions[i](), i + 1);
        struct {
            SymbolRecord record;
            char behind[64];
        } room;
        std::memset(&room, '*', sizeof room);
        room.record.symbol.SizeOfStruct = sizeof room.record;
        room.record.symbol.MaxNameLength = ZBase::kMaxSymbolName;
        const auto address = reinterpret_cast<std::uint64_t>(functions[i]);
        ASSERT_EQ(gDbgHelpBuilder.GetSymGetSymFromAddr()(nullptr, address, nullptr, &room.record.symbol), 1);
        EXPECT_EQ(std::strlen(room.record.symbol.Name), 1023U) << lengths[i];
        EXPECT_EQ(std::string(room.behind, sizeof room.behind), std::string(sizeof room.behind, '*'));
        std::string fetched, other;
        ZBase::AddrToLine().Fetch(address, other, fetched, other, other);
        EXPECT_EQ(fetched.size(), 1023U);
    }
    dlclose(module);
}

TEST_F(DebugHelpEntries, LineHasItsAddressAndDisplacement) {
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    std::uint32_t displacement = 99;
    const auto getLine = gDbgHelpBuilder.GetSymGetLineFromAddr();
    ASSERT_EQ(getLine(nullptr, Code(), &displacement, &line), 1);
    EXPECT_TRUE(std::string(line.FileName).ends_with("tests/diagnostics/DebugHelpEntriesTest.cpp"));
    EXPECT_EQ(line.Address, Code());
    EXPECT_EQ(displacement, 0U);
    const std::uint32_t first = line.LineNumber;
    ASSERT_EQ(getLine(nullptr, Code() + 1, nullptr, &line), 1);
    EXPECT_GE(line.LineNumber, first);
    EXPECT_LE(line.LineNumber, first + 3);
    EXPECT_EQ(getLine(nullptr, 1, &displacement, &line), 0);
}

TEST_F(DebugHelpEntries, ModuleHasItsNamesAndPlace) {
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module;
    const auto getModule = gDbgHelpBuilder.GetSymGetModuleInfo64();
    ASSERT_EQ(getModule(nullptr, Code(), &module), 1);
    EXPECT_STREQ(module.ModuleName, "diagnostics_tests");
    EXPECT_TRUE(std::string(module.ImageName).ends_with("/diagnostics_tests"));
    EXPECT_STREQ(module.LoadedImageName, module.ImageName);
    EXPECT_EQ(module.BaseOfImage, BaseOfProgram());
    EXPECT_GT(module.ImageSize, Code() - BaseOfProgram());
    EXPECT_EQ(module.MachineType, 0x8664U);
    EXPECT_EQ(getModule(nullptr, 1, &module), 0);
}

TEST_F(DebugHelpEntries, RecordsThatAreTooSmallOrNoneAreRefused) {
    SymbolRecord symbol{};
    symbol.symbol.SizeOfStruct = sizeof symbol.symbol - 1;
    symbol.symbol.MaxNameLength = 1024;
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line - 1;
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module - 1;
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetSymFromAddr()(nullptr, Code(), nullptr, &symbol.symbol), 0);
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetLineFromAddr()(nullptr, Code(), nullptr, &line), 0);
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetModuleInfo64()(nullptr, Code(), &module), 0);
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetSymFromAddr()(nullptr, Code(), nullptr, nullptr), 0);
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetLineFromAddr()(nullptr, Code(), nullptr, nullptr), 0);
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetModuleInfo64()(nullptr, Code(), nullptr), 0);
}

TEST_F(DebugHelpEntries, WalkWithoutAFrameAContextOrThisMachineGivesNothing) {
    STACKFRAME64 frame{};
    std::vector<char> context(4096);
    const auto walk = gDbgHelpBuilder.GetStackWalk();
    const auto step = [&](std::uint32_t machine, STACKFRAME64* at, void* registers) {
        return walk(machine, nullptr, nullptr, at, registers, nullptr, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(step(0x14C, &frame, context.data()), 0);
    EXPECT_EQ(step(0x8664, nullptr, context.data()), 0);
    EXPECT_EQ(step(0x8664, &frame, nullptr), 0);
}

// A record that was copied, or made by hand, belongs to no walk of this thread.
TEST_F(DebugHelpEntries, RecordOfNoWalkBeginsOneAtTheRegisters) {
    std::thread([] {
        const auto walk = gDbgHelpBuilder.GetStackWalk();
        std::vector<char> context(4096);
        STACKFRAME64 frame{};
        frame.Reserved[0] = 1;
        EXPECT_EQ(walk(0x8664, nullptr, nullptr, &frame, context.data(), nullptr, nullptr, nullptr, nullptr),
                  1);
        EXPECT_EQ(frame.AddrPC.Offset, 0U);
        EXPECT_EQ(frame.AddrReturn.Offset, 0U);
    }).join();
}

// The loader ends a process that has no memory for the storage of a thread when that is first used.
TEST_F(DebugHelpEntries, LibraryHasNoStorageOfThreads) {
    int libraries = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* module, std::size_t, void* count) {
            if (std::strstr(module->dlpi_name, "/libzbase_debughelp.so") == nullptr) return 0;
            ++*static_cast<int*>(count);
            for (int i = 0; i != module->dlpi_phnum; ++i) EXPECT_NE(module->dlpi_phdr[i].p_type, PT_TLS);
            return 0;
        },
        &libraries);
    EXPECT_EQ(libraries, 1);
}

TEST_F(DebugHelpEntries, BaseAndFunctionAreThoseOfTheModule) {
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetModuleBase()(nullptr, Code()), BaseOfProgram());
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetModuleBase()(nullptr, 1), 0U);
    const auto* function =
        static_cast<const std::uint32_t*>(gDbgHelpBuilder.GetSymFunctionTableAccess()(nullptr, Code() + 1));
    ASSERT_NE(function, nullptr);
    EXPECT_EQ(BaseOfProgram() + function[0], Code());
    EXPECT_GT(function[1], function[0]);
    EXPECT_EQ(gDbgHelpBuilder.GetSymFunctionTableAccess()(nullptr, 1), nullptr);
}

TEST_F(DebugHelpEntries, OptionsAreKept) {
    const std::uint32_t before = gDbgHelpBuilder.GetSymGetOptions()();
    EXPECT_EQ(before & 0x2034, 0x2034U);
    EXPECT_EQ(gDbgHelpBuilder.GetSymSetOptions()(0x2035), 0x2035U);
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetOptions()(), 0x2035U);
    gDbgHelpBuilder.GetSymSetOptions()(before);
}

TEST_F(DebugHelpEntries, SearchPathIsKeptAndCutToTheRoomForIt) {
    const auto get = gDbgHelpBuilder.GetSymGetSearchPath();
    ASSERT_EQ(gDbgHelpBuilder.GetSymSetSearchPath()(nullptr, "/some/place"), 1);
    char path[8] = {'*', '*', '*', '*', '*', '*', '*', '*'};
    EXPECT_EQ(get(nullptr, path, 0), 0);
    EXPECT_EQ(path[0], '*');
    EXPECT_EQ(get(nullptr, path, 1), 1);
    EXPECT_STREQ(path, "");
    EXPECT_EQ(path[1], '*');
    EXPECT_EQ(get(nullptr, path, 7), 1);
    EXPECT_STREQ(path, "/some/");
    EXPECT_EQ(path[7], '*');
    EXPECT_EQ(get(nullptr, nullptr, 7), 0);
    ASSERT_EQ(gDbgHelpBuilder.GetSymSetSearchPath()(nullptr, nullptr), 1);
    EXPECT_EQ(get(nullptr, path, 7), 1);
    EXPECT_STREQ(path, "");
    SymbolRecord record;
    EXPECT_TRUE(HasSymbol(Code(), record));
}

using Modules = std::map<std::uint64_t, std::string>;

TEST_F(DebugHelpEntries, ModulesAreEnumeratedUntilTheCallbackHasEnough) {
    const auto enumerate = gDbgHelpBuilder.GetSymEnumerateModules();
    Modules all;
    const auto note = [](const char* name, std::uint64_t base, void* argument) -> std::int32_t {
        static_cast<Modules*>(argument)->emplace(base, name);
        return 1;
    };
    EXPECT_EQ(enumerate(nullptr, note, &all), 1);
    EXPECT_GT(all.size(), 4U);
    EXPECT_TRUE(all[BaseOfProgram()].ends_with("/diagnostics_tests"));
    int calls = 0;
    const auto count = [](const char*, std::uint64_t, void* argument) -> std::int32_t {
        return ++*static_cast<int*>(argument) < 2;
    };
    EXPECT_EQ(enumerate(nullptr, count, &calls), 1);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(enumerate(nullptr, nullptr, nullptr), 0);
}

TEST_F(DebugHelpEntries, LoadedModuleIsFoundByItsBaseOrItsName) {
    using Load = ZBase::SymLoadModule64Function;
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(gDbgHelpBuilder.GetStackWalk()), &info), 0);
    void* library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    const auto load = reinterpret_cast<Load>(dlsym(library, "SymLoadModule64"));
    dlclose(library);
    EXPECT_EQ(load(nullptr, nullptr, "diagnostics_tests", nullptr, 0, 0), BaseOfProgram());
    EXPECT_EQ(load(nullptr, nullptr, nullptr, nullptr, BaseOfProgram(), 0), BaseOfProgram());
    EXPECT_EQ(load(nullptr, nullptr, "diagnostics_tests", nullptr, 1, 0), 0U);
    EXPECT_EQ(load(nullptr, nullptr, "no such module", nullptr, 0, 0), 0U);
    EXPECT_EQ(load(nullptr, nullptr, nullptr, nullptr, 0, 0), 0U);
    EXPECT_EQ(gDbgHelpBuilder.GetSymLoadModule()(nullptr, nullptr, "no such module", nullptr, 0, 0), 0);
}

TEST_F(DebugHelpEntries, AfterTheEndNothingIsKnownUntilTheNextBeginning) {
    SymbolRecord record;
    ASSERT_TRUE(HasSymbol(Code(), record));
    EXPECT_EQ(gDbgHelpBuilder.GetSymCleanup()(nullptr), 1);
    EXPECT_FALSE(HasSymbol(Code(), record));
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetLineFromAddr()(nullptr, Code(), nullptr, &line), 0);
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module;
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetModuleInfo64()(nullptr, Code(), &module), 0);
    char path[8];
    EXPECT_EQ(gDbgHelpBuilder.GetSymGetSearchPath()(nullptr, path, sizeof path), 0);
    EXPECT_EQ(gDbgHelpBuilder.GetSymSetSearchPath()(nullptr, "/"), 0);
    const auto none = [](const char*, std::uint64_t, void*) -> std::int32_t { return 1; };
    EXPECT_EQ(gDbgHelpBuilder.GetSymEnumerateModules()(nullptr, none, nullptr), 0);
    ZBase::CallStack* stack = ZBase::CreateCallStack(nullptr);
    EXPECT_GT(stack->GetLineCount(), 3U);
    stack->Delete();
    EXPECT_EQ(gDbgHelpBuilder.GetSymInitialize()(nullptr, nullptr, 1), 1);
    EXPECT_EQ(gDbgHelpBuilder.GetSymInitialize()(nullptr, nullptr, 1), 1);
    EXPECT_TRUE(HasSymbol(Code(), record));
    EXPECT_STREQ(record.symbol.Name, "FunctionOfItsOwn(int)");
}

}  // namespace
