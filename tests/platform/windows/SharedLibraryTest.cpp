#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/components/ComponentLog.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/WideText.h"

// Real libraries, loaded, used and let go.

namespace {

using namespace ZBase::Literals;
namespace fs = std::filesystem;
using test::Wide;
using ZBase::Message;

const fs::path kComponents = fs::path(ZBASE_COMPONENTS_DIR).make_preferred();

std::vector<std::string>& gLog = *new std::vector<std::string>;

std::string Utf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

auto Load(const fs::path& path) {
    return ZBase::LoadSharedLibrary(reinterpret_cast<const unsigned short*>(path.c_str()));
}

bool IsInProcess(const fs::path& file) {
    return GetModuleHandleW(file.c_str()) != nullptr;
}

// A component in a folder of its own, so that each test has it to itself. The folder's name has no dot.
class Components : public test::ScratchFolder {
protected:
    Components() { gLog.clear(); }

    fs::path Copy(const std::string& module, const fs::path& name) const {
        fs::copy_file(kComponents / module, mFolder / name);
        return mFolder / name;
    }

    template <class Function>
    static Function* Find(ZBase::SharedLibrary& library, const unsigned short* name) {
        return reinterpret_cast<Function*>(library.GetFunctionAddress(name));
    }

    auto LoadComponent() const {
        Copy("Component_64.dll", "Component_64.dll");
        auto library = Load(mFolder / "Component");
        Find<void(component::Log)>(*library, "SetLog"_w)([](const char* what) { gLog.emplace_back(what); });
        return library;
    }

    void ExpectLog(std::initializer_list<std::string> expected) const {
        EXPECT_EQ(gLog, std::vector<std::string>(expected));
    }

    static int LoadFailure(const fs::path& path) {
        try {
            Load(path);
        } catch (const Message& failure) {
            EXPECT_EQ(failure.GetDomain(), 300);
            EXPECT_EQ(failure.GetID(), 0x12345678);
            EXPECT_STREQ(failure.GetParameter(0), Utf8(path).c_str());
            const Message* inner = failure.GetLowerLevelMessageOrNULL();
            EXPECT_NE(inner, nullptr);
            EXPECT_EQ(inner->GetDomain(), 100);
            return inner->GetID();
        }
        ADD_FAILURE() << path << " was loaded";
        return 0;
    }
};

TEST_F(Components, IsLoadedByItsBareNameAndByItsFileName) {
    const fs::path file = Copy("Component_64.dll", "Component_64.dll");
    for (const fs::path& name : {mFolder / "Component", file}) {
        const auto library = Load(name);
        EXPECT_EQ(Find<int(int)>(*library, "AddOne"_w)(41), 42);
        EXPECT_EQ(Wide(library->GetFilePath().c_str()), file.u16string());
    }
}

TEST_F(Components, IsFoundBesideTheProgramByItsNameAlone) {
    EXPECT_EQ(Wide(Load("Component")->GetFilePath().c_str()), (kComponents / "Component_64.dll").u16string());
}

TEST_F(Components, MayHaveAnyNameThatHasADot) {
    for (const wchar_t* const name : {L"Foo.dll", L"Foo.bar", L"with space.dll", L"\u00E9\u0436\u4E2D.dll"}) {
        const fs::path file = Copy("Component_64.dll", name);
        EXPECT_EQ(Wide(Load(file)->GetFilePath().c_str()), file.u16string());
    }
}

TEST_F(Components, DotInTheFolderLeavesTheNameUndecorated) {
    fs::create_directory(mFolder / "v1.2");
    Copy("Component_64.dll", "v1.2/Component_64.dll");
    EXPECT_EQ(LoadFailure(mFolder / "v1.2" / "Component"), 126);
}

TEST_F(Components, LoadFailsWithTheReason) {
    EXPECT_EQ(LoadFailure(mFolder / "Missing"), 126);
    EXPECT_EQ(LoadFailure("NoSuchComponentAnywhere"), 126);
    EXPECT_EQ(LoadFailure(Write("text.dll", "not an image")), 193);
    EXPECT_EQ(LoadFailure(Write("longer.dll", std::string(5000, 'x'))), 193);
    fs::create_directory(mFolder / "folder.dll");
    EXPECT_EQ(LoadFailure(mFolder / "folder.dll"), 126);
}

TEST_F(Components, LibraryThatLacksAnotherIsNotLoaded) {
    Copy("Plain_64.dll", "Plain_64.dll");
    const auto library = Load(mFolder / "Plain");  // the other one is found beside the program
    EXPECT_EQ(Find<int(int)>(*library, "AddTwo"_w)(40), 42);
}

TEST_F(Components, ExportsAreTheirOwnOnly) {
    const auto library = Load(kComponents / "Plain");
    for (const auto* name :
         {"AddOne"_w, "GetZENTDLLInitializer"_w, "malloc"_w, "addtwo"_w, "AddTwo "_w, ""_w}) {
        Message message;
        EXPECT_EQ(library->GetFunctionAddressOrNULL(name, &message), nullptr);
        EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetID(), 127);
    }
}

TEST_F(Components, InitialiserIsHeldUntilTheUnloadAndGoesFirst) {
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

TEST_F(Components, NullInitialiserEmptiesTheHolder) {
    const auto library = LoadComponent();
    library->ZENTInitialize();
    library->ZENTInitialize();
    Find<void()>(*library, "GiveNull"_w)();
    library->ZENTInitialize();
    ExpectLog({"asked", "made", "asked", "asked", "released", "destroyed"});
}

// Exceptions cross from one library to another.
TEST_F(Components, MessageFromAnInitialiserIsDroppedAndAnythingElsePasses) {
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
TEST_F(Components, DismissedLibraryStaysButItsInitialiserGoes) {
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
