#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/WideText.h"

namespace {

namespace fs = std::filesystem;
using test::Wide;

std::string Narrow(const ZBase::ReturnWString& text) {
    return ZBase::WideCharToUTF8(text.c_str(), false).c_str();
}

std::uint64_t Id(pid_t process) {
    return static_cast<std::uint64_t>(process);
}

std::size_t OpenDescriptors() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// A process that waits to be ended.
class WaitingProcess {
public:
    WaitingProcess() : mId(fork()) {
        if (mId == 0) {
            for (;;) pause();
        }
    }
    ~WaitingProcess() { End(); }
    WaitingProcess(const WaitingProcess&) = delete;
    WaitingProcess& operator=(const WaitingProcess&) = delete;

    pid_t GetId() const { return mId; }

    /// Returns when the process is a zombie.
    void Kill() const {
        kill(mId, SIGKILL);
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(mId), &info, WEXITED | WNOWAIT);
    }

    void End() {
        if (mId == 0) return;
        kill(mId, SIGKILL);
        waitpid(mId, nullptr, 0);
        mId = 0;
    }

private:
    pid_t mId;
};

/// The exit code of `body()` in a process of another user, without privileges. Only root can do that.
template <class Body>
int RunAsNobody(Body body) {
    const pid_t child = fork();
    if (child == 0) _exit(setgid(65534) == 0 && setuid(65534) == 0 ? body() : 99);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ProcessInformationIsAlive, WhileItRuns) {
    EXPECT_TRUE(ZBase::IsProcessAlive(ZBase::GetCurrentProcessID()));
    const WaitingProcess process;
    EXPECT_TRUE(ZBase::IsProcessAlive(Id(process.GetId())));
}

TEST(ProcessInformationIsAlive, WhileItIsStopped) {
    const WaitingProcess process;
    kill(process.GetId(), SIGSTOP);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(process.GetId()), &info, WSTOPPED);
    EXPECT_TRUE(ZBase::IsProcessAlive(Id(process.GetId())));
}

TEST(ProcessInformationIsAlive, NotWhenItHasEndedAndNobodyAskedForItsResult) {
    const WaitingProcess process;
    process.Kill();
    ASSERT_EQ(kill(process.GetId(), 0), 0);  // the id is still in use
    EXPECT_FALSE(ZBase::IsProcessAlive(Id(process.GetId())));
}

TEST(ProcessInformationIsAlive, NotWhenItIsGone) {
    WaitingProcess process;
    const pid_t id = process.GetId();
    process.End();
    EXPECT_FALSE(ZBase::IsProcessAlive(Id(id)));
}

TEST(ProcessInformationIsAlive, NotForIdsThatNoProcessHas) {
    for (const std::uint64_t id :
         {0ull, 0x7FFFFFFFull, 0x80000000ull, 0xFFFFFFFFull, 0x100000000ull, ~0ull}) {
        EXPECT_FALSE(ZBase::IsProcessAlive(id)) << id;
    }
}

TEST(ProcessInformationIsAlive, ByTheLow32BitsOfItsId) {
    EXPECT_TRUE(ZBase::IsProcessAlive(Id(getpid()) + 0x100000000));
    EXPECT_TRUE(ZBase::IsProcessAlive(Id(getpid()) | 0xFFFFFFFF00000000));
}

// On this system any user may wait for any process.
TEST(ProcessInformationIsAlive, OfAnotherUserToo) {
    if (geteuid() != 0) {
        EXPECT_TRUE(ZBase::IsProcessAlive(1));
        return;
    }
    const auto roots = Id(getpid());
    EXPECT_EQ(RunAsNobody([roots] { return ZBase::IsProcessAlive(roots) ? 0 : 1; }), 0);
}

TEST(ProcessInformationIsAlive, QuestionLeavesNothingOpen) {
    const std::size_t before = OpenDescriptors();
    for (int i = 0; i != 100; ++i) ZBase::IsProcessAlive(Id(getpid()));
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(ProcessInformationName, IsTheFileNameOfTheProgram) {
    EXPECT_EQ(Narrow(ZBase::GetProcessName(ZBase::GetCurrentProcessID())), "platform_tests");
    const WaitingProcess process;
    EXPECT_EQ(Narrow(ZBase::GetProcessName(static_cast<unsigned int>(process.GetId()))), "platform_tests");
}

TEST(ProcessInformationName, OfAProcessThatIsGoneOrNeverWasIsEmpty) {
    WaitingProcess process;
    const auto id = static_cast<unsigned int>(process.GetId());
    process.End();
    for (const unsigned int gone : {id, 0u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(Narrow(ZBase::GetProcessName(gone)), "");
    }
}

TEST(ProcessInformationName, OfAnotherUserIsNotTold) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can act for another user; a scripted system shows the same";
    const auto roots = static_cast<unsigned int>(getpid());
    EXPECT_EQ(RunAsNobody([roots] { return *ZBase::GetProcessName(roots).c_str() == 0 ? 0 : 1; }), 0);
}

TEST(ProcessInformationName, ManyQuestionsUseNothingUp) {
    const std::size_t before = OpenDescriptors();
    for (int i = 0; i != 5000; ++i) ZBase::GetProcessName(ZBase::GetCurrentProcessID());
    EXPECT_EQ(OpenDescriptors(), before);
}

std::string CommandLineOf(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {test::ChildProgram("HostProbe"), "command"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const std::string line = test::RunChild(command).output;
    const std::string program = test::ChildProgram("HostProbe");
    EXPECT_EQ(line.substr(0, program.size() + 8), program + " command");
    return line.substr(program.size() + 8);
}

TEST(ProcessInformationCommandLine, HasTheProgramAndItsArguments) {
    EXPECT_EQ(CommandLineOf({}), "");
    EXPECT_EQ(CommandLineOf({"a", "-b=c", "\u00E9\U0001F600"}), " a -b=c \u00E9\U0001F600");
}

TEST(ProcessInformationCommandLine, QuotesWhatWouldNotComeBack) {
    EXPECT_EQ(CommandLineOf({"", "a b", "c\td"}), " \"\" \"a b\" \"c\td\"");
    EXPECT_EQ(CommandLineOf({"say \"x\""}), " \"say \\\"x\\\"\"");
    EXPECT_EQ(CommandLineOf({"\""}), " \"\\\"\"");
    EXPECT_EQ(CommandLineOf({"a\\b", "a\\"}), " a\\b a\\");
    EXPECT_EQ(CommandLineOf({"a \\", "a\\\"b"}), " \"a \\\\\" \"a\\\\\\\"b\"");
}

TEST(ProcessInformationCommandLine, OfAProgramWithASpaceInItsNameIsQuoted) {
    const fs::path folder = fs::temp_directory_path() / ("zbase test " + std::to_string(getpid()));
    fs::create_directory(folder);
    fs::copy_file(test::ChildProgram("HostProbe"), folder / "probe");
    const std::string output =
        test::RunChild({folder / "probe", "command", "x"},
                       {"LD_LIBRARY_PATH=" + fs::path(ZBASE_LIBRARY).parent_path().string()})
            .output;
    EXPECT_EQ(output, std::string("\"").append(folder / "probe").append("\" command x"));
    fs::remove_all(folder);
}

// The arguments after the program, as Windows splits a command line.
std::vector<std::string> Split(const std::string& line) {
    std::vector<std::string> arguments;
    std::size_t at = 0;
    while (at != line.size()) {
        if (line[at] == ' ') {
            ++at;
            continue;
        }
        std::string argument;
        bool quoted = false;
        while (at != line.size() && (quoted || (line[at] != ' ' && line[at] != '\t'))) {
            std::size_t backslashes = 0;
            for (; at != line.size() && line[at] == '\\'; ++at) ++backslashes;
            if (at == line.size() || line[at] != '"') {
                argument.append(backslashes, '\\');
                if (backslashes == 0) argument += line[at++];
                continue;
            }
            argument.append(backslashes / 2, '\\');
            if (backslashes % 2 == 1) {
                argument += '"';
            } else {
                quoted = !quoted;
            }
            ++at;
        }
        arguments.push_back(argument);
    }
    return arguments;
}

TEST(ProcessInformationCommandLine, OfRandomArgumentsIsSplitAgainAsItWas) {
    std::mt19937 random(1);
    for (int i = 0; i != 30; ++i) {
        std::vector<std::string> arguments(40);
        for (std::string& argument : arguments) {
            for (unsigned int length = random() % 8; length != 0; --length)
                argument += "ab \t\\\\\"\""[random() % 8];
        }
        ASSERT_EQ(Split(CommandLineOf(arguments)), arguments);
    }
}

TEST(ProcessInformationCommandLine, MayBeLong) {
    const std::string argument(100000, 'x');
    EXPECT_EQ(CommandLineOf({argument, argument}), " " + argument + " " + argument);
}

/// Private memory of the process, touched.
class CommittedMemory {
public:
    explicit CommittedMemory(std::size_t size) : mSize(size) {
        mpMemory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        std::memset(mpMemory, 1, size);
    }
    ~CommittedMemory() { munmap(mpMemory, mSize); }
    CommittedMemory(const CommittedMemory&) = delete;
    CommittedMemory& operator=(const CommittedMemory&) = delete;

    void MakeReadOnly() { mprotect(mpMemory, mSize, PROT_READ); }
    void GiveBack() { madvise(mpMemory, mSize, MADV_DONTNEED); }

private:
    void* mpMemory;
    std::size_t mSize;
};

constexpr std::int64_t kMiB = 1 << 20;

std::int64_t PrivateBytes() {
    return static_cast<std::int64_t>(ZBase::GetPrivateBytes());
}

// A monitor calls it when memory is exhausted.
TEST(ProcessInformationPrivateBytes, NeedNoHeap) {
    const test::FailingAllocation failing(0);
    EXPECT_GT(PrivateBytes(), 0);
    EXPECT_FALSE(failing.HasFailed());
}

TEST(ProcessInformationPrivateBytes, FollowWhatTheProcessCommits) {
    for (const std::int64_t size : {64 * kMiB, 400 * kMiB}) {
        const std::int64_t before = PrivateBytes();
        ASSERT_GT(before, 0);
        {
            CommittedMemory memory(static_cast<std::size_t>(size));
            EXPECT_NEAR(static_cast<double>(PrivateBytes() - before), static_cast<double>(size),
                        0.1 * static_cast<double>(size));
            memory.MakeReadOnly();
            EXPECT_NEAR(static_cast<double>(PrivateBytes() - before), static_cast<double>(size),
                        0.1 * static_cast<double>(size));
            memory.GiveBack();
            EXPECT_NEAR(static_cast<double>(PrivateBytes() - before), 0, 0.1 * static_cast<double>(size));
        }
        EXPECT_NEAR(static_cast<double>(PrivateBytes() - before), 0, 0.1 * static_cast<double>(size));
    }
}

TEST(ProcessInformationPrivateBytes, LeaveOutWhatIsOnlyReserved) {
    constexpr std::size_t size = 1024 * kMiB;
    const std::int64_t before = PrivateBytes();
    void* reserved = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    EXPECT_NEAR(static_cast<double>(PrivateBytes() - before), 0, 8.0 * kMiB);
    munmap(reserved, size);
}

TEST(ProcessInformationPrivateBytes, MayBeAskedByManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i != 8; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k != 50; ++k) EXPECT_GT(ZBase::GetPrivateBytes(), 0u);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(ProcessInformationPause, IsNotPaused) {
    ZBase::PauseCurrentProcess();
}

class ProcessInformationModuleNames : public test::ScratchFolder {
protected:
    static std::string NameAt(const void* address) {
        return Narrow(ZBase::GetModuleFileNameByAddressWithinModule(address));
    }

    static std::u16string FailureAt(const void* address, int id) {
        try {
            NameAt(address);
        } catch (const ZBase::ExceptionImpl<ZBase::Message>& failure) {
            EXPECT_EQ(failure.GetDomain(), 0);
            EXPECT_EQ(failure.GetID(), id);
            return Wide(failure.GetMessage());
        }
        return u"nothing was thrown";
    }
};

int gInProgram = 1;

TEST_F(ProcessInformationModuleNames, AreThePathsOfProgramAndLibraries) {
    const std::string program = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(NameAt(reinterpret_cast<const void*>(&FailureAt)), program);
    EXPECT_EQ(NameAt(&gInProgram), program);
    const std::string library = NameAt(reinterpret_cast<const void*>(&ZBase::GetPrivateBytes));
    EXPECT_EQ(fs::canonical(library), fs::canonical(ZBASE_LIBRARY));
    EXPECT_NE(NameAt(dlsym(RTLD_DEFAULT, "getpid")).find("libc"), std::string::npos);
}

TEST_F(ProcessInformationModuleNames, MayHaveAnyLetters) {
    const fs::path file = mFolder / "caf\u00E9 \U0001F600.so";
    fs::copy_file(ZBASE_COMPONENTS_DIR "/Component_64.so", file);
    void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    EXPECT_EQ(NameAt(dlsym(module, "AddOne")), file);
    dlclose(module);
}

TEST_F(ProcessInformationModuleNames, AreCutTo259Units) {
    fs::path folder = mFolder;
    for (int i = 0; i != 5; ++i) folder /= std::string(60, 'x');
    fs::create_directories(folder);
    const fs::path file = folder / "Component.so";
    fs::copy_file(ZBASE_COMPONENTS_DIR "/Component_64.so", file);
    void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    EXPECT_EQ(NameAt(dlsym(module, "AddOne")), file.string().substr(0, 259));
    dlclose(module);
}

TEST_F(ProcessInformationModuleNames, AddressOutsideOfUserSpaceFails) {
    for (const std::uintptr_t address :
         {UINTPTR_MAX, std::uintptr_t{1} << 63, std::uintptr_t{0xFFFFFFFFFF600000}}) {
        EXPECT_EQ(FailureAt(reinterpret_cast<const void*>(address), -1), u"::VirtualQuery() failed.");
    }
}

TEST_F(ProcessInformationModuleNames, AddressWhereNothingIsFails) {
    const char16_t text[] = u"::VirtualQuery() returned NULL AllocationBase.";
    EXPECT_EQ(FailureAt(nullptr, -1), text);
    void* gone = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(gone, 4096);
    EXPECT_EQ(FailureAt(gone, -1), text);
}

TEST_F(ProcessInformationModuleNames, AddressInNoModuleFails) {
    const char16_t text[] =
        u"::GetModuleFileNameW() failed.\nSystem Error 0x0000007E (126): --- The module was not found.";
    const std::vector<int> heap(1000);
    const int stack = 0;
    EXPECT_EQ(FailureAt(heap.data(), 126), text);
    EXPECT_EQ(FailureAt(&stack, 126), text);
}

}  // namespace
