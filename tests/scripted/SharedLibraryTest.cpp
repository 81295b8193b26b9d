#include <Base/frame/ReferenceCounted.h>
#include <Base/frame/WideLiteral.h>
#include <Base/messages/Message.h>
#include <Base/messages/MessageFormat.h>
#include <Base/platform/SharedLibrary.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/scripted/ScriptedFailure.h"
#include "tests/scripted/ScriptedModules.h"
#include "tests/support/Allocations.h"

namespace {

using namespace ZBase::Literals;
using test::gModules;
using test::Wide;
using ZBase::Message;

class SharedLibraryOverScript : public testing::Test {
protected:
    SharedLibraryOverScript() {
        gModules = {};
        test::SetSystemError(126, "No module.");
    }

    static auto Load(const unsigned short* name = "Foo"_w) { return ZBase::LoadSharedLibrary(name); }

    // Expects a failure of the library that wraps one of the system.
    static void ExpectLevels(const Message& failure, int code, const char* textTemplate,
                             std::initializer_list<const char*> parameters) {
        EXPECT_EQ(failure.GetDomain(), 300);
        EXPECT_EQ(failure.GetID(), 0x12345678);
        EXPECT_STREQ(failure.GetTemplate(), textTemplate);
        unsigned int index = 0;
        for (const char* parameter : parameters) EXPECT_STREQ(failure.GetParameter(index++), parameter);
        EXPECT_EQ(failure.GetParameter(index), nullptr);
        const Message* inner = failure.GetLowerLevelMessageOrNULL();
        ASSERT_NE(inner, nullptr);
        EXPECT_EQ(inner->GetDomain(), 100);
        EXPECT_EQ(inner->GetID(), code);
        EXPECT_EQ(inner->GetTemplate(), nullptr);
        EXPECT_EQ(inner->GetLowerLevelMessageOrNULL(), nullptr);
    }
};

TEST_F(SharedLibraryOverScript, BareNamesAreDecoratedByBothFunctionsAlike) {
    const struct {
        const unsigned short* name;
        const char16_t* file;
    } rows[] = {{"Foo"_w, u"Foo_64.dll"},
                {"Foo.dll"_w, u"Foo.dll"},
                {"Foo.bar"_w, u"Foo.bar"},
                {"..\\lib\\Foo"_w, u"..\\lib\\Foo"},
                {"dir/Foo"_w, u"dir/Foo_64.dll"},
                {"a b\u00E9\U0001F600"_w, u"a b\u00E9\U0001F600_64.dll"},
                {"."_w, u"."},
                {""_w, u"_64.dll"}};
    for (const auto& row : rows) {
        ZBase::LoadSharedLibrary(row.name);
        EXPECT_EQ(Wide(gModules.loadedName.c_str()), row.file);
        ZBase::Load3rdPartySharedLibrary(row.name);
        EXPECT_EQ(Wide(gModules.loadedName.c_str()), row.file);
    }
}

TEST_F(SharedLibraryOverScript, LoadFailureNamesTheLibraryAsTheCallerDid) {
    gModules.loads = false;
    try {
        Load("Foo\u00E9"_w);
        FAIL();
    } catch (const Message& failure) {
        ExpectLevels(failure, 126, "Failed to dynamically load library '%1'.", {"Foo\xC3\xA9"});
    }
}

TEST_F(SharedLibraryOverScript, LoadFailureIsThrownPlain) {
    gModules.loads = false;
    bool plain = false;
    try {
        Load();
    } catch (const ZBase::ExceptionImpl<Message>&) {
    } catch (const Message&) {
        plain = true;
    }
    EXPECT_TRUE(plain);
}

TEST_F(SharedLibraryOverScript, NameThatIsNoUtf16IsRefusedBeforeTheLoad) {
    const unsigned short lone[] = {'F', 0xD800, 'x', 0};
    EXPECT_THROW(Load(lone), ZBase::ExceptionImpl<ZBase::StringConversionException>);
    EXPECT_TRUE(gModules.loadedName.empty());
}

TEST_F(SharedLibraryOverScript, NullNameIsAnEmptyOne) {
    gModules.loads = false;
    EXPECT_THROW(Load(nullptr), Message);
    EXPECT_EQ(Wide(gModules.loadedName.c_str()), u"_64.dll");
}

TEST_F(SharedLibraryOverScript, MissingFunctionThrowsWithBothNames) {
    const auto library = Load();
    test::gSystemErrors.lastCode = 127;
    bool plain = false;
    try {
        library->GetFunctionAddress("Run"_w);
    } catch (const ZBase::ExceptionImpl<Message>&) {
    } catch (const Message& failure) {
        plain = true;
        ExpectLevels(failure, 127, "Failed to look up function '%1' in library '%2'.", {"Run", "Foo_64.dll"});
        EXPECT_EQ(failure.GetSameLevelMessageOrNULL(), nullptr);
    }
    EXPECT_TRUE(plain);
}

TEST_F(SharedLibraryOverScript, MissingFunctionOrNullGoesInFrontOfTheCallersMessage) {
    const auto library = Load();
    test::gSystemErrors.lastCode = 127;
    Message message(7, 8, "mine");
    EXPECT_EQ(library->GetFunctionAddressOrNULL("Run"_w, &message), nullptr);
    ExpectLevels(message, 127, "Failed to look up function '%1' in library '%2'.", {"Run", "Foo_64.dll"});
    const Message* kept = message.GetSameLevelMessageOrNULL();
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->GetID(), 8);
    EXPECT_STREQ(kept->GetTemplate(), "mine");
}

TEST_F(SharedLibraryOverScript, MissingFunctionWithoutAMessageBuildsNone) {
    gModules.functions["Fun"] = &gModules;
    const auto library = Load();
    const auto allocationsFor = [&library](const unsigned short* name, Message* message) {
        const std::size_t before = test::AllocationCount();
        library->GetFunctionAddressOrNULL(name, message);
        return test::AllocationCount() - before;
    };
    const std::size_t ofAFoundOne = allocationsFor("Fun"_w, nullptr);
    EXPECT_EQ(allocationsFor("Run"_w, nullptr), ofAFoundOne);
    EXPECT_EQ(gModules.askedFunction, "Run");
    Message message;
    EXPECT_GT(allocationsFor("Run"_w, &message), ofAFoundOne);
}

TEST_F(SharedLibraryOverScript, FoundFunctionLeavesTheMessageAlone) {
    gModules.functions["Run"] = &gModules;
    const auto library = Load();
    Message message;
    EXPECT_EQ(library->GetFunctionAddressOrNULL("Run"_w, &message), &gModules);
    EXPECT_TRUE(message.IsEmpty());
    EXPECT_EQ(library->GetFunctionAddress("Run"_w), &gModules);
}

TEST_F(SharedLibraryOverScript, FunctionNameBeyondAsciiThrows) {
    const auto library = Load();
    EXPECT_THROW(library->GetFunctionAddress("R\u00FCn"_w), ZBase::StringConversionException);
    EXPECT_THROW(library->GetFunctionAddressOrNULL("R\u00FCn"_w, nullptr), ZBase::StringConversionException);
    EXPECT_TRUE(gModules.askedFunction.empty());
}

TEST_F(SharedLibraryOverScript, NullAndEmptyFunctionNamesAreNotFound) {
    const auto library = Load();
    EXPECT_EQ(library->GetFunctionAddressOrNULL(nullptr, nullptr), nullptr);
    EXPECT_THROW(library->GetFunctionAddress(""_w), Message);
}

TEST_F(SharedLibraryOverScript, FilePathThatTheSystemDoesNotTellThrows) {
    const auto library = Load();
    EXPECT_EQ(Wide(library->GetFilePath().c_str()), u"/lib/module.so");
    EXPECT_EQ(gModules.pathCapacity, 260u);
    gModules.modulePath = nullptr;
    try {
        library->GetFilePath();
        FAIL();
    } catch (const Message& failure) {
        ExpectLevels(failure, 126, "Failed to determine filename of library '%1'.", {"Foo_64.dll"});
    }
}

TEST_F(SharedLibraryOverScript, EndUnloadsUnlessDismissed) {
    {
        const auto library = Load();
        EXPECT_EQ(gModules.loadedModules, 1);
    }
    EXPECT_EQ(gModules.loadedModules, 0);
    {
        const auto library = Load();
        library->Dismiss();
    }
    EXPECT_EQ(gModules.loadedModules, 1);
}

TEST_F(SharedLibraryOverScript, ExhaustedMemoryLeaksNeitherModuleNorBlock) {
    gModules.loadedName.reserve(200);  // the script's own copy
    const std::size_t before = test::LiveBlocks();
    test::ForEachFailingAllocation([] {
        try {
            Load("A component with a name that needs the heap"_w);
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_EQ(gModules.loadedModules, 0);
    EXPECT_EQ(test::LiveBlocks(), before);
}

/// An initialiser that records its calls, and can fail in its release.
class TellingInitialiser : public virtual ZBase::ReferenceCounted {
public:
    explicit TellingInitialiser(const char* name) : mName(name) {}
    void AddRef() override { sTold += mName + "+ "; }
    void Release() override {
        sTold += mName + "- ";
        if (mFails) throw Message(300, 1, "not released");
    }
    void FailToBeReleased(bool fails) { mFails = fails; }

    static std::string sTold;
    static TellingInitialiser* sGiven;

private:
    std::string mName;
    bool mFails = false;
};

std::string TellingInitialiser::sTold;
TellingInitialiser* TellingInitialiser::sGiven = nullptr;

class SharedLibraryInitialiserOverScript : public SharedLibraryOverScript {
protected:
    SharedLibraryInitialiserOverScript() {
        TellingInitialiser::sTold.clear();
        GiveFrom([]() -> ZBase::ReferenceCounted* { return TellingInitialiser::sGiven; });
        TellingInitialiser::sGiven = &mFirst;
    }

    static void GiveFrom(ZBase::ReferenceCounted* (*function)()) {
        gModules.functions["GetZENTDLLInitializer"] = reinterpret_cast<void*>(function);
    }

    TellingInitialiser mFirst{"first"};
    TellingInitialiser mSecond{"second"};
};

TEST_F(SharedLibraryInitialiserOverScript, OldOneIsReleasedBeforeTheNewOneIsTaken) {
    const auto library = Load();
    library->ZENTInitialize();
    TellingInitialiser::sGiven = &mSecond;
    library->ZENTInitialize();
    EXPECT_EQ(TellingInitialiser::sTold, "first+ first- second+ ");
}

TEST_F(SharedLibraryInitialiserOverScript, FailureOfTheOldOneToBeReleasedIsDropped) {
    const auto library = Load();
    library->ZENTInitialize();
    mFirst.FailToBeReleased(true);
    TellingInitialiser::sGiven = &mSecond;
    EXPECT_NO_THROW(library->ZENTInitialize());
    EXPECT_EQ(TellingInitialiser::sTold, "first+ first- ");
}

TEST_F(SharedLibraryInitialiserOverScript, HeldOneSurvivesAMissingExportAndAFailure) {
    const auto library = Load();
    library->ZENTInitialize();
    GiveFrom([]() -> ZBase::ReferenceCounted* { throw Message(300, 1, "no initialiser"); });
    library->ZENTInitialize();
    gModules.functions.erase("GetZENTDLLInitializer");
    library->ZENTInitialize();
    EXPECT_EQ(TellingInitialiser::sTold, "first+ ");
}

}  // namespace
