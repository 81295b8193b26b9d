#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/BackgroundChild.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/WideText.h"

// A program or a library is replaced by a newer one while it runs.

namespace {

namespace fs = std::filesystem;
using namespace ZBase::Literals;

std::string Narrow(const ZBase::ReturnWString& text) {
    return ZBase::WideCharToUTF8(text.c_str(), false).c_str();
}

class DeletedFiles : public test::ScratchFolder {
protected:
    // A program that waits for its end, with a name in the folder.
    fs::path CopyProgram(const std::string& name) const {
        fs::copy_file("/bin/sleep", mFolder / name);
        return mFolder / name;
    }

    // Starts the program and returns the library's names for it before and after `change()`.
    template <class Change>
    static std::pair<std::string, std::string> NamesAround(const fs::path& program, Change change) {
        const fs::path real = fs::canonical(program);
        const pid_t child = fork();
        if (child == 0) {
            execl(program.c_str(), program.c_str(), "1000", nullptr);
            _exit(99);
        }
        const auto id = static_cast<unsigned int>(child);
        while (fs::read_symlink("/proc/" + std::to_string(child) + "/exe") != real) usleep(1000);
        const std::string before = Narrow(ZBase::GetProcessName(id));
        change();
        const std::string after = Narrow(ZBase::GetProcessName(id));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        return {before, after};
    }

    using Names = std::pair<std::string, std::string>;
};

TEST_F(DeletedFiles, ProgramKeepsItsNameWhenItIsRemoved) {
    const fs::path program = CopyProgram("server");
    EXPECT_EQ(NamesAround(program, [&] { fs::remove(program); }), Names("server", "server"));
}

TEST_F(DeletedFiles, ProgramKeepsItsNameWhenAnotherTakesItsPlace) {
    const fs::path program = CopyProgram("server");
    EXPECT_EQ(NamesAround(program, [&] { fs::rename(CopyProgram("server.new"), program); }),
              Names("server", "server"));
}

TEST_F(DeletedFiles, ProgramThatIsReallyCalledSoKeepsItsName) {
    const fs::path program = CopyProgram("x (deleted)");
    EXPECT_EQ(NamesAround(program, [] {}), Names("x (deleted)", "x (deleted)"));
    EXPECT_EQ(NamesAround(program, [&] { fs::remove(program); }), Names("x (deleted)", "x (deleted)"));
}

TEST_F(DeletedFiles, ProgramIsNotTakenForAnotherThatIsCalledSo) {
    const fs::path program = CopyProgram("x");
    CopyProgram("x (deleted)");
    EXPECT_EQ(NamesAround(program, [&] { fs::remove(program); }), Names("x", "x"));
}

TEST_F(DeletedFiles, LibraryKeepsItsPathWhenItIsReplaced) {
    for (const std::string name : {"Component_64.so", "real (deleted).so", "real.so (deleted)"}) {
        const fs::path file = mFolder / name;
        fs::copy_file(fs::path(ZBASE_COMPONENTS_DIR) / "Component_64.so", file);
        const fs::path before = fs::current_path();
        fs::current_path(mFolder);
        // By a relative name, so that its path is read from the kernel.
        const auto library = ZBase::LoadSharedLibrary(
            test::Units(ZBase::UTF8ToWideChar(("./" + name).c_str(), false).c_str()).c_str());
        fs::current_path(before);
        void* const function = library->GetFunctionAddress("AddOne"_w);
        EXPECT_EQ(Narrow(library->GetFilePath()), file.string());
        fs::remove(file);
        EXPECT_EQ(Narrow(library->GetFilePath()), file.string());
        EXPECT_EQ(Narrow(ZBase::GetModuleFileNameByAddressWithinModule(function)), file.string());
    }
}

TEST_F(DeletedFiles, ProgramsOwnModuleKeepsItsPath) {
    const fs::path program = mFolder / "probe";
    fs::copy_file(test::ChildProgram("HostProbe"), program);
    const std::string output =
        test::RunChild({program, "removed"},
                       {"LD_LIBRARY_PATH=" + fs::path(ZBASE_LIBRARY).parent_path().string()})
            .output;
    EXPECT_EQ(output, "probe " + program.string());
    EXPECT_FALSE(fs::exists(program));
}

}  // namespace
