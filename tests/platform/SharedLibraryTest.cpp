#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <link.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/platform/ComponentFolder.h"
#include "tests/support/Allocations.h"
#include "tests/support/VirtualOrder.h"
#include "tests/support/WideText.h"

// Real libraries, loaded, used and unloaded.

namespace {

using namespace ZBase::Literals;
namespace fs = std::filesystem;
using test::ExpectLog;
using test::Find;
using test::kComponents;
using test::Load;
using test::LoadFailure;
using test::ToName;
using test::Wide;
using ZBase::Message;

bool IsInProcess(const fs::path& file) {
    void* module = dlopen(file.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (module != nullptr) dlclose(module);
    return module != nullptr;
}

using SharedLibraryTest = test::ComponentFolder;

TEST_F(SharedLibraryTest, IsLoadedByItsBareNameAndByItsFileName) {
    const fs::path file = Copy("Component_64.so", "Component_64.so");
    for (const fs::path& name : {mFolder / "Component", file}) {
        const auto library = Load(name);
        EXPECT_EQ(Find<int(int)>(*library, "AddOne"_w)(41), 42);
        EXPECT_EQ(Wide(library->GetFilePath().c_str()), file.u16string());
    }
    EXPECT_EQ(
        Wide(ZBase::Load3rdPartySharedLibrary(ToName(mFolder / "Component").c_str())->GetFilePath().c_str()),
        file.u16string());
}

TEST_F(SharedLibraryTest, IsFoundInTheLoadersPlacesByItsNameAlone) {
    EXPECT_EQ(Wide(Load("Component")->GetFilePath().c_str()), (kComponents / "Component_64.so").u16string());
}

TEST_F(SharedLibraryTest, MayHaveAnyNameThatHasADot) {
    for (const std::string name : {"Foo.dll", "Foo.bar", "with space.so", "\u00E9\u0436\u4E2D\U0001F600.so",
                                   "back\\slash.so", "...", "a'b\"c.so"}) {
        const fs::path file = Copy("Component_64.so", name);
        EXPECT_EQ(Wide(Load(file)->GetFilePath().c_str()), file.u16string());
    }
}

TEST_F(SharedLibraryTest, NameWithSpacesAndLettersBeyondAsciiIsDecorated) {
    const fs::path file = Copy("Component_64.so", "caf\u00E9 \u4E2D_64.so");
    EXPECT_EQ(Wide(Load(mFolder / "caf\u00E9 \u4E2D")->GetFilePath().c_str()), file.u16string());
}

TEST_F(SharedLibraryTest, DotInTheFolderLeavesTheNameUndecorated) {
    fs::create_directory(mFolder / "v1.2");
    Copy("Component_64.so", "v1.2/Component_64.so");
    EXPECT_EQ(LoadFailure(mFolder / "v1.2" / "Component"), 126);
    Copy("Component_64.so", "v1.2/Component");
    EXPECT_EQ(Wide(Load(mFolder / "v1.2" / "Component")->GetFilePath().c_str()),
              (mFolder / "v1.2" / "Component").u16string());
}

TEST_F(SharedLibraryTest, RelativeNameHasAnAbsolutePathAlsoAfterTheFolderChanged) {
    const fs::path file = Copy("Component_64.so", "Component_64.so");
    const fs::path before = fs::current_path();
    fs::current_path(mFolder);
    const auto library = Load("./Component_64.so");
    fs::current_path(before);
    EXPECT_EQ(Wide(library->GetFilePath().c_str()), file.u16string());
}

TEST_F(SharedLibraryTest, PathIsCutTo259Units) {
    fs::path folder = mFolder;
    for (int i = 0; i != 5; ++i) folder /= std::string(60, 'x');
    fs::create_directories(folder);
    fs::copy_file(kComponents / "Component_64.so", folder / "Component_64.so");
    EXPECT_EQ(Wide(Load(folder / "Component")->GetFilePath().c_str()),
              (folder / "Component_64.so").u16string().substr(0, 259));
}

TEST_F(SharedLibraryTest, LoadFailsWithTheReason) {
    EXPECT_EQ(LoadFailure(mFolder / "Missing"), 126);
    EXPECT_EQ(LoadFailure("NoSuchComponentAnywhere"), 126);
    EXPECT_EQ(LoadFailure(""), 126);
    EXPECT_EQ(LoadFailure(Write("text.so", "not an image")), 193);
    EXPECT_EQ(LoadFailure(Write("longer.so", std::string(5000, 'x'))), 193);
    EXPECT_EQ(LoadFailure(Write("empty.so", "")), 193);
    EXPECT_EQ(LoadFailure(Write("header.so",
                                "\x7F"
                                "ELF")),
              193);
    EXPECT_EQ(LoadFailure("/proc/self/exe.so"), 126);
    fs::create_directory(mFolder / "folder.so");
    EXPECT_EQ(LoadFailure(mFolder / "folder.so"), 193);
    EXPECT_EQ(LoadFailure(kComponents / "Unresolved"), 127);
}

TEST_F(SharedLibraryTest, ImageThatIsCutOffIsRefused) {
    const fs::path file = Copy("Component_64.so", "cut.so");
    fs::resize_file(file, 200);
    EXPECT_EQ(LoadFailure(file), 193);
}

// For some of these the loader itself says that they are not there.
TEST_F(SharedLibraryTest, ImageForAnotherMachineIsRefused) {
    const struct {
        const char* name;
        std::streamoff offset;  // into the head of the image
        char value;
    } rows[] = {{"class.so", 4, 1},
                {"encoding.so", 5, 2},
                {"version.so", 6, 7},
                {"object.so", 16, 1},
                {"machine.so", 18, 3}};
    for (const auto& row : rows) {
        const fs::path file = Copy("Component_64.so", row.name);
        std::fstream(file, std::ios::binary | std::ios::in | std::ios::out)
            .seekp(row.offset)
            .write(&row.value, 1);
        EXPECT_EQ(LoadFailure(file), 193) << row.name;
    }
    fs::copy_file("/proc/self/exe", mFolder / "program.so");
    EXPECT_EQ(LoadFailure(mFolder / "program.so"), 193);
    Copy("Plain_64.so", "Plain_64.so");
    fs::rename(mFolder / "machine.so", mFolder / "Component_64.so");
    EXPECT_EQ(LoadFailure(mFolder / "Plain"), 126);  // its dependency is there for another machine only
}

TEST_F(SharedLibraryTest, LibraryThatLacksAnotherIsNotLoaded) {
    EXPECT_EQ(LoadFailure(Copy("Plain_64.so", "Plain_64.so")), 126);
    Copy("Component_64.so", "Component_64.so");
    const auto library = Load(mFolder / "Plain");
    EXPECT_EQ(Find<int(int)>(*library, "AddTwo"_w)(40), 42);
}

TEST_F(SharedLibraryTest, MessageOfAFailureReadsWell) {
    try {
        Load(mFolder / "Missing");
        FAIL();
    } catch (const Message& failure) {
        const std::string text = ZBase::FormatMessage(failure, 0).c_str();
        EXPECT_NE(text.find("Failed to dynamically load library '" + (mFolder / "Missing").string() + "'."),
                  std::string::npos)
            << text;
        EXPECT_NE(text.find("The module was not found."), std::string::npos) << text;
        EXPECT_NE(text.find("Missing_64.so: cannot open shared object file"), std::string::npos) << text;
    }
}

// The loader's text for the failure to load `path`.
std::string LoadersWords(const fs::path& path) {
    try {
        Load(path);
    } catch (const Message& failure) {
        const Message* system = failure.GetLowerLevelMessageOrNULL();
        EXPECT_EQ(system->GetTemplate(), nullptr);
        EXPECT_EQ(system->GetParameterCount(), 0u);
        const Message* words = system->GetLowerLevelMessageOrNULL();
        if (words == nullptr) return "";
        EXPECT_EQ(words->GetDomain(), 0);
        EXPECT_EQ(words->GetID(), -1);
        return words->GetLocalizedText(0);
    }
    return "loaded";
}

TEST_F(SharedLibraryTest, LoadersOwnWordsStandUnderTheSystemCode) {
    const std::string folder = mFolder.string();
    EXPECT_EQ(LoadersWords(mFolder / "Missing"),
              folder + "/Missing_64.so: cannot open shared object file: No such file or directory");
    EXPECT_EQ(LoadersWords(Copy("Plain_64.so", "Plain_64.so")),
              "Component_64.so: cannot open shared object file: No such file or directory");
    const std::string unresolved = LoadersWords(kComponents / "Unresolved");
    EXPECT_NE(unresolved.find("Unresolved_64.so: undefined symbol: "), std::string::npos) << unresolved;
    // The text is not used as a template.
    EXPECT_EQ(LoadersWords(mFolder / "100%1\u00E9.so"),
              folder + "/100%1\u00E9.so: cannot open shared object file: No such file or directory");
}

TEST_F(SharedLibraryTest, ImageThatTheLoaderIsNotGivenIsNamed) {
    const fs::path file = Copy("Component_64.so", "Component_64.so");
    Copy("Plain_64.so", "Plain_64.so");
    fs::resize_file(file, 200);
    const char* why = ": not given to the loader, since it is no image or a damaged one";
    EXPECT_EQ(LoadersWords(file), file.string() + why);
    EXPECT_EQ(LoadersWords(mFolder / "Plain"), file.string() + why);  // its dependency
    EXPECT_EQ(LoadersWords(std::string(5000, 'x') + ".so"), "");      // the loader was not called
}

// The loader's text is in the user's language; the code is right all the same.
TEST_F(SharedLibraryTest, ReasonDoesNotDependOnTheLocale) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    setenv("LANGUAGE", "de:fr", 1);
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    EXPECT_EQ(LoadFailure(mFolder / "Missing"), 126);
    EXPECT_EQ(LoadFailure(Write("text.so", "not an image")), 193);
    EXPECT_EQ(LoadFailure(kComponents / "Unresolved"), 127);
    std::setlocale(LC_ALL, before.c_str());
    unsetenv("LANGUAGE");
}

TEST_F(SharedLibraryTest, ExportsAreTheirOwnOnly) {
    Copy("Component_64.so", "Component_64.so");
    Copy("Plain_64.so", "Plain_64.so");
    const auto library = Load(mFolder / "Plain");
    for (const auto* name :
         {"AddOne"_w, "GetZENTDLLInitializer"_w, "malloc"_w, "addtwo"_w, "AddTwo "_w, ""_w}) {
        Message message;
        EXPECT_EQ(library->GetFunctionAddressOrNULL(name, &message), nullptr);
        EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetID(), 127);
    }
}

TEST_F(SharedLibraryTest, UnloadIsSeenFromOutside) {
    const fs::path file = mFolder / "Component_64.so";
    {
        const auto library = LoadComponent();
        EXPECT_TRUE(IsInProcess(file));
        { const auto second = Load(file); }
        EXPECT_TRUE(IsInProcess(file));
        ExpectLog({});
    }
    EXPECT_FALSE(IsInProcess(file));
    ExpectLog({"unloaded"});
}

TEST_F(SharedLibraryTest, InitialiserIsHeldUntilTheUnloadAndGoesFirst) {
    {
        const auto library = LoadComponent();
        library->ZENTInitialize();
        ExpectLog({"asked", "made"});
    }
    EXPECT_FALSE(IsInProcess(mFolder / "Component_64.so"));
    ExpectLog({"asked", "made", "released", "destroyed", "unloaded"});
}

TEST_F(SharedLibraryTest, DismissedLibraryStaysButItsInitialiserGoes) {
    void* function = nullptr;
    {
        const auto library = LoadComponent();
        library->ZENTInitialize();
        library->Dismiss();
        library->Dismiss();
        function = library->GetFunctionAddress("AddOne"_w);  // it still works
    }
    EXPECT_TRUE(IsInProcess(mFolder / "Component_64.so"));
    ExpectLog({"asked", "made", "released", "destroyed"});
    EXPECT_EQ(reinterpret_cast<int (*)(int)>(function)(1), 2);
}

TEST_F(SharedLibraryTest, SameInitialiserAgainChangesNothing) {
    const auto library = LoadComponent();
    library->ZENTInitialize();
    library->ZENTInitialize();
    ExpectLog({"asked", "made", "asked"});
}

TEST_F(SharedLibraryTest, AnotherInitialiserTakesThePlaceOfTheFirst) {
    const auto library = LoadComponent();
    library->ZENTInitialize();
    Find<void()>(*library, "GiveAnother"_w)();
    library->ZENTInitialize();
    ExpectLog({"asked", "made", "asked", "made", "released", "destroyed"});
}

TEST_F(SharedLibraryTest, NullInitialiserEmptiesTheHolder) {
    const auto library = LoadComponent();
    library->ZENTInitialize();
    Find<void()>(*library, "GiveNull"_w)();
    library->ZENTInitialize();
    ExpectLog({"asked", "made", "asked", "released", "destroyed"});
    library->ZENTInitialize();
    ExpectLog({"asked", "made", "asked", "released", "destroyed", "asked"});
}

TEST_F(SharedLibraryTest, LibraryWithoutAnInitialiserIsNoError) {
    Copy("Component_64.so", "Component_64.so");
    Copy("Plain_64.so", "Plain_64.so");
    const auto library = Load(mFolder / "Plain");
    library->ZENTInitialize();
    EXPECT_EQ(Find<int(int)>(*library, "AddTwo"_w)(0), 2);
}

TEST_F(SharedLibraryTest, MessageFromAnInitialiserIsDropped) {
    const auto library = Load(kComponents / "Thrower");
    for (const int kind : {0, 1}) {
        Find<void(int)>(*library, "SetKind"_w)(kind);
        EXPECT_NO_THROW(library->ZENTInitialize());
    }
}

TEST_F(SharedLibraryTest, AnythingElseFromAnInitialiserPasses) {
    const auto library = Load(kComponents / "Thrower");
    Find<void(int)>(*library, "SetKind"_w)(2);
    EXPECT_THROW(library->ZENTInitialize(), std::runtime_error);
    Find<void(int)>(*library, "SetKind"_w)(3);
    EXPECT_THROW(library->ZENTInitialize(), int);
}

TEST_F(SharedLibraryTest, HolderGivesTheLibraryToWhoeverTakesIt) {
    ZBase::SharedLibrary* taken = nullptr;
    {
        auto library = LoadComponent();
        taken = library.Detach();
    }
    EXPECT_TRUE(IsInProcess(mFolder / "Component_64.so"));
    delete taken;
    EXPECT_FALSE(IsInProcess(mFolder / "Component_64.so"));
}

TEST_F(SharedLibraryTest, MayBeAskedByManyThreadsAtOnce) {
    const auto library = LoadComponent();
    std::vector<std::thread> threads;
    for (int i = 0; i != 8; ++i) {
        threads.emplace_back([&library] {
            for (int k = 0; k != 200; ++k) {
                EXPECT_EQ(Find<int(int)>(*library, "AddOne"_w)(k), k + 1);
                Message message;
                EXPECT_EQ(library->GetFunctionAddressOrNULL("Nothing"_w, &message), nullptr);
                EXPECT_FALSE(message.IsEmpty());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(SharedLibraryInterface, OperationsComeInTheirOrder) {
    using ZBase::SharedLibrary;
    static_assert(std::has_virtual_destructor_v<SharedLibrary>);
    EXPECT_EQ(test::PlaceInTable(&SharedLibrary::GetFunctionAddress), 2u);
    EXPECT_EQ(test::PlaceInTable(&SharedLibrary::GetFunctionAddressOrNULL), 3u);
    EXPECT_EQ(test::PlaceInTable(&SharedLibrary::GetFilePath), 4u);
    EXPECT_EQ(test::PlaceInTable(&SharedLibrary::Dismiss), 5u);
    EXPECT_EQ(test::PlaceInTable(&SharedLibrary::ZENTInitialize), 6u);
}

TEST_F(SharedLibraryTest, ExhaustedMemoryLeavesNothingBehind) {
    const fs::path file = Copy("Component_64.so", "Component_64.so");
    const test::Units name = ToName(mFolder / "Component");
    const std::size_t live = test::LiveBlocks();
    const std::size_t failures = test::ForEachFailingAllocation([&name] {
        try {
            ZBase::LoadSharedLibrary(name.c_str());
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_GT(failures, 3u);
    EXPECT_FALSE(IsInProcess(file));
    EXPECT_EQ(test::LiveBlocks(), live);
}

}  // namespace
