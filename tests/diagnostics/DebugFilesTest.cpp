#include <Base/diagnostics/AddrToLine.h>
#include <Base/diagnostics/DbgHelpBuilder.h>
#include <TestPlaces.h>
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/Stacks.h"

// A module whose debug information is in another file, or missing.

namespace {

namespace fs = std::filesystem;

using test::StackLine;
using ZBase::gDbgHelpBuilder;

constexpr char kHiddenName[] = "Hidden(int (*)(void*), void*)";

std::string RunTool(std::vector<std::string> command) {
    command.insert(command.begin(), "/usr/bin/env");
    const test::ChildResult child = test::RunChild(command);
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    return child.output;
}

/// The results for one address in each of the module's two functions.
struct Told {
    StackLine hidden;
    StackLine exported;
    std::string module;
    std::string symbol = "-";
    std::string file = "-";
    std::string line = "-";
};

int Note(void* argument) {
    auto& told = *static_cast<Told*>(argument);
    const test::Stack stack(ZBase::CreateCallStack(nullptr));
    told.hidden = test::Parse(test::Narrow(stack->GetLine(1).GetText()));
    told.exported = test::Parse(test::Narrow(stack->GetLine(2).GetText()));
    const std::uint64_t address = std::stoull(told.hidden.address, nullptr, 16);
    ZBase::AddrToLine().Fetch(address, told.module, told.symbol, told.file, told.line);
    return 0;
}

Told AskLoaded(void* module) {
    Told told;
    reinterpret_cast<int (*)(int (*)(void*), void*)>(dlsym(module, "CallNested"))(Note, &told);
    return told;
}

Told Ask(const fs::path& path) {
    void* module = dlopen(path.c_str(), RTLD_NOW);
    EXPECT_NE(module, nullptr) << dlerror();
    if (module == nullptr) return {};
    const Told told = AskLoaded(module);
    dlclose(module);
    return told;
}

class DebugFiles : public test::ScratchFolder {
protected:
    DebugFiles() : mWhole(mFolder / "Whole.so"), mStripped(mFolder / "Stripped.so") {
        fs::copy_file(std::string(ZBASE_MODULES_DIR) + "/libNested.so", mWhole);
        RunTool({"objcopy", "--strip-all", mWhole, mStripped});
    }
    ~DebugFiles() override { SetSearchPath(nullptr); }

    void KeepDebugInformation(const fs::path& file) {
        fs::create_directories(file.parent_path());
        RunTool({"objcopy", "--only-keep-debug", mWhole, file});
    }

    static void SetSearchPath(const char* path) {
        ZBase::InitializeDBGHelpBuilder();
        ASSERT_NE(gDbgHelpBuilder.GetSymSetSearchPath()(nullptr, path), 0);
    }

    void ExpectAllIsTold() {
        const Told expected = Ask(mWhole);
        const Told told = Ask(mStripped);
        EXPECT_EQ(expected.hidden.symbol, kHiddenName);
        EXPECT_TRUE(expected.hidden.file.ends_with("tests/modules/Nested.cpp")) << expected.hidden.file;
        for (const auto part : {&StackLine::symbol, &StackLine::file, &StackLine::line}) {
            EXPECT_EQ(told.hidden.*part, expected.hidden.*part);
            EXPECT_EQ(told.exported.*part, expected.exported.*part);
        }
        EXPECT_EQ(told.hidden.module, mStripped);
        EXPECT_EQ(told.module, mStripped);
        EXPECT_EQ(told.symbol, kHiddenName);
        EXPECT_EQ(told.file, expected.file);
        EXPECT_EQ(told.line, expected.line);
    }

    fs::path mWhole;
    fs::path mStripped;
};

TEST_F(DebugFiles, StrippedModuleStillGivesItsExportedSymbols) {
    const Told told = Ask(mStripped);
    EXPECT_EQ(told.exported.symbol, "CallNested");
    EXPECT_EQ(told.exported.file, "(NA)");
    EXPECT_EQ(told.exported.line, "0");
    EXPECT_NE(told.exported.displacement, "0");
    EXPECT_EQ(told.hidden.symbol, "(NA)");
    EXPECT_EQ(told.hidden.module, mStripped);
    EXPECT_EQ(told.symbol, "-");
    EXPECT_EQ(told.module, mStripped);
}

TEST_F(DebugFiles, FoundByTheirLinkBesideTheModule) {
    KeepDebugInformation(mFolder / "Stripped.debug");
    RunTool({"objcopy", "--add-gnu-debuglink=" + (mFolder / "Stripped.debug").string(), mStripped});
    ExpectAllIsTold();
}

TEST_F(DebugFiles, FoundByTheirLinkInTheFolderForThem) {
    const fs::path file = mFolder / ".debug" / "Stripped.debug";
    KeepDebugInformation(file);
    RunTool({"objcopy", "--add-gnu-debuglink=" + file.string(), mStripped});
    ExpectAllIsTold();
}

TEST_F(DebugFiles, FoundByTheBuildIdInTheSearchPath) {
    const std::string notes = RunTool({"readelf", "-n", mStripped});
    const std::string mark = "Build ID: ";
    const std::size_t start = notes.find(mark);
    ASSERT_NE(start, std::string::npos) << notes;
    const std::string id = notes.substr(start + mark.size(), notes.find('\n', start) - start - mark.size());
    KeepDebugInformation(mFolder / ".build-id" / id.substr(0, 2) / (id.substr(2) + ".debug"));
    SetSearchPath(mFolder.c_str());
    ExpectAllIsTold();
}

// The environment may name servers for debug files; they are never queried.
TEST_F(DebugFiles, AreNotLookedForInTheNetwork) {
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(bind(server, general, size), 0);
    ASSERT_EQ(listen(server, 100), 0);
    ASSERT_EQ(getsockname(server, general, &size), 0);
    const std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    setenv("DEBUGINFOD_URLS", url.c_str(), 1);
    setenv("DEBUGINFOD_TIMEOUT", "1", 1);
    setenv("DEBUGINFOD_CACHE_PATH", mFolder.c_str(), 1);
    EXPECT_EQ(Ask(mStripped).hidden.symbol, "(NA)");
    for (const char* name : {"DEBUGINFOD_URLS", "DEBUGINFOD_TIMEOUT", "DEBUGINFOD_CACHE_PATH"})
        unsetenv(name);
    EXPECT_EQ(accept(server, nullptr, nullptr), -1);
    close(server);
}

TEST_F(DebugFiles, OfAnotherModuleAreNotBelieved) {
    KeepDebugInformation(mFolder / "Stripped.debug");
    RunTool({"objcopy", "--add-gnu-debuglink=" + (mFolder / "Stripped.debug").string(), mStripped});
    RunTool({"objcopy", "--only-keep-debug", std::string(ZBASE_MODULES_DIR) + "/libNestedTwin.so",
             mFolder / "Stripped.debug"});
    EXPECT_EQ(Ask(mStripped).hidden.symbol, "(NA)");
}

TEST_F(DebugFiles, InlinedFunctionIsNamedByTheOneAroundIt) {
    const Told told = Ask(mWhole);
    EXPECT_EQ(told.hidden.symbol, kHiddenName);
    EXPECT_EQ(told.exported.symbol, "CallNested");
    EXPECT_EQ(told.symbol, kHiddenName);
    // The line of the address itself is that of the inlined call, which is further up in the file.
    EXPECT_LT(std::stoi(told.line), std::stoi(told.hidden.line));
}

/// Gives the dynamic section of the file a place and a size in it that wrap around. The loader needs neither.
void MoveDynamicSectionOut(const fs::path& path) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    Elf64_Ehdr header;
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    for (int i = 0; i != header.e_phnum; ++i) {
        const auto place =
            static_cast<std::streamoff>(header.e_phoff + sizeof(Elf64_Phdr) * static_cast<std::size_t>(i));
        Elf64_Phdr segment;
        file.seekg(place);
        file.read(reinterpret_cast<char*>(&segment), sizeof segment);
        if (segment.p_type != PT_DYNAMIC) continue;
        segment.p_offset = std::uint64_t{1} << 63;
        segment.p_filesz = (std::uint64_t{1} << 63) + 64;
        file.seekp(place);
        file.write(reinterpret_cast<const char*>(&segment), sizeof segment);
    }
    EXPECT_TRUE(file.good());
}

// Without /proc nothing leads to a file that was removed: what is mapped of it has the dynamic symbols.
class DebugFilesOfARemovedModule : public DebugFiles {
protected:
    void ExpectToTell(int (*check)(const Told& told, const fs::path& module)) const {
        const int result = test::InChild([&] {
            if (!test::HideProc()) return test::kNotAllowed;
            void* const module = dlopen(mWhole.c_str(), RTLD_NOW);
            if (module == nullptr) return 1;
            fs::remove(mWhole);
            return check(AskLoaded(module), mWhole);
        });
        if (result == test::kNotAllowed) GTEST_SKIP() << "nothing may be mounted here";
        EXPECT_EQ(result, 0);
    }
};

TEST_F(DebugFilesOfARemovedModule, GiveItsExportedSymbolsFromMemory) {
    ExpectToTell([](const Told& told, const fs::path& module) {
        if (told.exported.symbol != "CallNested" || told.exported.module != module) return 2;
        if (told.exported.file != "(NA)" || told.exported.line != "0") return 3;
        return told.hidden.symbol == "(NA)" && told.module == module ? 0 : 4;
    });
}

TEST_F(DebugFilesOfARemovedModule, AreNotReadWhereItsDynamicSectionIsNotInItsFile) {
    MoveDynamicSectionOut(mWhole);
    ExpectToTell(
        [](const Told& told, const fs::path& module) { return told.exported.module == module ? 0 : 2; });
}

}  // namespace
