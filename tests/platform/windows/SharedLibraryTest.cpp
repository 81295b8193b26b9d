#include <Base/ZBase.h>

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "tests/platform/ComponentFolder.h"
#include "tests/support/WideText.h"

// Real libraries, loaded, used and let go.

namespace {

using namespace ZBase::Literals;
namespace fs = std::filesystem;
using test::ExpectLog;
using test::Find;
using test::gLog;
using test::kComponents;
using test::Load;
using test::LoadFailure;
using test::Wide;
using ZBase::Message;

bool IsInProcess(const fs::path& file) {
    return GetModuleHandleW(file.c_str()) != nullptr;
}

using SharedLibraryTest = test::ComponentFolder;

TEST_F(SharedLibraryTest, IsLoadedByItsBareNameAndByItsFileName) {
    const fs::path file = Copy("Component_64.dll", "Component_64.dll");
    for (const fs::path& name : {mFolder / "Component", file}) {
        const auto library = Load(name);
        EXPECT_EQ(Find<int(int)>(*library, "AddOne"_w)(41), 42);
        EXPECT_EQ(Wide(library->GetFilePath().c_str()), file.u16string());
    }
}

TEST_F(SharedLibraryTest, IsFoundBesideTheProgramByItsNameAlone) {
    EXPECT_EQ(Wide(Load("Component")->GetFilePath().c_str()),
              fs::absolute(kComponents / "Component_64.dll").u16string());
}

TEST_F(SharedLibraryTest, MayHaveAnyNameThatHasADot) {
    for (const wchar_t* const name : {L"Foo.dll", L"Foo.bar", L"with space.dll", L"\u00E9\u0436\u4E2D.dll"}) {
        const fs::path file = Copy("Component_64.dll", name);
        EXPECT_EQ(Wide(Load(file)->GetFilePath().c_str()), file.u16string());
    }
}

TEST_F(SharedLibraryTest, DotInTheFolderLeavesTheNameUndecorated) {
    fs::create_directory(mFolder / "v1.2");
    Copy("Component_64.dll", "v1.2/Component_64.dll");
    EXPECT_EQ(LoadFailure(mFolder / "v1.2" / "Component"), 126);
}

TEST_F(SharedLibraryTest, LoadFailsWithTheReason) {
    EXPECT_EQ(LoadFailure(mFolder / "Missing"), 126);
    EXPECT_EQ(LoadFailure("NoSuchComponentAnywhere"), 126);
    EXPECT_EQ(LoadFailure(Write("text.dll", "not an image")), 193);
    EXPECT_EQ(LoadFailure(Write("longer.dll", std::string(5000, 'x'))), 193);
    fs::create_directory(mFolder / "folder.dll");
    EXPECT_EQ(LoadFailure(mFolder / "folder.dll"), 126);
}

TEST_F(SharedLibraryTest, LibraryThatLacksAnotherIsNotLoaded) {
    Copy("Plain_64.dll", "Plain_64.dll");
    const auto library = Load(mFolder / "Plain");  // the other one is found beside the program
    EXPECT_EQ(Find<int(int)>(*library, "AddTwo"_w)(40), 42);
}

TEST_F(SharedLibraryTest, ExportsAreTheirOwnOnly) {
    const auto library = Load(kComponents / "Plain");
    for (const auto* name :
         {"AddOne"_w, "GetZENTDLLInitializer"_w, "malloc"_w, "addtwo"_w, "AddTwo "_w, ""_w}) {
        Message message;
        EXPECT_EQ(library->GetFunctionAddressOrNULL(name, &message), nullptr);
        EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetID(), 127);
    }
}

TEST_F(SharedLibraryTest, InitialiserIsHeldUntilTheUnloadAndGoesFirst) {
    const fs::path file = mFolder / "Component_64.dll";
    {
        const auto library = LoadComponent();
        library->ZENTInitialize();
        EXPECT_TRUE(IsInProcess(file));
        ExpectLog({"asked", "made"});
    }
    EXPECT_FALSE(IsInProcess(file));
    ExpectLog({"asked", "made", "released", "destroyed", "unloaded"});
}

TEST_F(SharedLibraryTest, NullInitialiserEmptiesTheHolder) {
    const auto library = LoadComponent();
    library->ZENTInitialize();
    library->ZENTInitialize();
    Find<void()>(*library, "GiveNull"_w)();
    library->ZENTInitialize();
    ExpectLog({"asked", "made", "asked", "asked", "released", "destroyed"});
}

// Exceptions cross from one library to another.
TEST_F(SharedLibraryTest, MessageFromAnInitialiserIsDroppedAndAnythingElsePasses) {
    const auto library = Load(kComponents / "Thrower");
    for (const int kind : {0, 1}) {
        Find<void(int)>(*library, "SetKind"_w)(kind);
        EXPECT_NO_THROW(library->ZENTInitialize());
    }
    Find<void(int)>(*library, "SetKind"_w)(2);
    EXPECT_THROW(library->ZENTInitialize(), std::runtime_error);
    Find<void(int)>(*library, "SetKind"_w)(3);
    EXPECT_THROW(library->ZENTInitialize(), int);
}

// The folder can't be removed as long as a library in it is in use, so this one stays beside the program.
TEST_F(SharedLibraryTest, DismissedLibraryStaysButItsInitialiserGoes) {
    void* function = nullptr;
    {
        const auto library = Load(kComponents / "Component");
        Find<void(component::Log)>(*library, "SetLog"_w)([](const char* what) { gLog.emplace_back(what); });
        library->ZENTInitialize();
        library->Dismiss();
        function = library->GetFunctionAddress("AddOne"_w);
    }
    EXPECT_TRUE(IsInProcess(kComponents / "Component_64.dll"));
    ExpectLog({"asked", "made", "released", "destroyed"});
    EXPECT_EQ(reinterpret_cast<int (*)(int)>(function)(1), 2);
}

}  // namespace
