#include <Base/platform/os/files/Files.h>
#include <Base/platform/os/files/HeldFile.h>
#include <Base/platform/os/windows/WideText.h>

#include <gtest/gtest.h>
#include <windows.h>

#include <aclapi.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "tests/support/ScratchFolder.h"

namespace {

using namespace ZBase;
namespace fs = std::filesystem;

class FilesOfTheSystem : public test::ScratchFolder {
protected:
    std::wstring Place(const wchar_t* name) const { return mFolder.wstring() + L"\\" + name; }
    static const unsigned short* Units(const std::wstring& text) {
        return reinterpret_cast<const unsigned short*>(text.c_str());
    }
};

TEST_F(FilesOfTheSystem, AreOpenedByUtf8) {
    const std::wstring path = Place(L"caf\u00E9 \u4E2D.txt");
    std::FILE* const file = os::OpenFile(os::ToUtf8(path).c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    EXPECT_NE(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(os::PathExists(Units(path)));
    EXPECT_FALSE(os::PathExists(Units(Place(L"other"))));
}

TEST_F(FilesOfTheSystem, AreVisitedWithSizeAndTimeAndFoldersAreNot) {
    Write("one", "12345");
    std::FILE* const file = os::OpenFile(os::ToUtf8(Place(L"\u4E2D")).c_str(), "w");
    std::fclose(file);
    fs::create_directory(mFolder / "folder");
    std::map<std::string, unsigned long long> seen;
    long long changed = 0;
    os::VisitFiles(os::ToUtf8(mFolder.wstring()), [&](const os::FileEntry& entry) {
        seen[entry.name] = entry.octets;
        changed = entry.changed;
        EXPECT_LT(entry.nanoseconds, 1'000'000'000u);
    });
    const std::map<std::string, unsigned long long> expected = {{"one", 5}, {"\xE4\xB8\xAD", 0}};
    EXPECT_EQ(seen, expected);
    EXPECT_GT(changed, 1'577'836'800);  // 2020
    EXPECT_LT(changed, 4'102'444'800);  // 2100
    os::VisitFiles(os::ToUtf8(Place(L"no such")), [](const os::FileEntry&) { ADD_FAILURE(); });
}

TEST_F(FilesOfTheSystem, PrivateDirectoryHasOneEntryInItsList) {
    const std::wstring path = Place(L"private");
    ASSERT_TRUE(os::CreatePrivateDirectory(Units(path)));
    EXPECT_FALSE(os::CreatePrivateDirectory(Units(path)));  // it is there
    std::ofstream(mFolder / "private" / "file") << "x";
    EXPECT_TRUE(fs::exists(mFolder / "private" / "file"));
    ACL* list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_EQ(GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                    &list, nullptr, &descriptor),
              static_cast<DWORD>(ERROR_SUCCESS));
    PSID everybody = nullptr;
    SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
    AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &everybody);
    for (DWORD i = 0; i != list->AceCount; ++i) {
        void* entry = nullptr;
        GetAce(list, i, &entry);
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        const bool isForEverybody = EqualSid(&allowed->SidStart, everybody) != 0;
        if (allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE && isForEverybody) {
            EXPECT_EQ(allowed->Mask & (FILE_READ_DATA | FILE_WRITE_DATA), 0u);
        }
    }
    FreeSid(everybody);
    LocalFree(descriptor);
}

TEST_F(FilesOfTheSystem, ThatAreSharedWithNobodyAreInUse) {
    const std::string path = Write("alone", "content");
    const HANDLE alone =
        CreateFileW(os::FromUtf8(path).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(alone, INVALID_HANDLE_VALUE);
    os::HeldFile file;
    errno = 0;
    EXPECT_FALSE(file.Hold(path));
    EXPECT_EQ(errno, EWOULDBLOCK);
    CloseHandle(alone);
}

TEST_F(FilesOfTheSystem, AreHeldByOneAndReadByAll) {
    const std::string path = Write("held", "content");
    os::HeldFile first;
    os::HeldFile second;
    ASSERT_TRUE(first.Hold(path));
    EXPECT_TRUE(first.IsOwn());
    EXPECT_FALSE(second.Hold(path));
    std::string text;
    std::ifstream(path) >> text;
    EXPECT_EQ(text, "content");
    std::ofstream(path, std::ios::app) << "more";
    EXPECT_EQ(fs::file_size(path), 11u);
    first.LetGo();
    EXPECT_TRUE(second.Hold(path));
    EXPECT_FALSE(first.HoldDirectory(path));
}

TEST_F(FilesOfTheSystem, DirectoryIsHeldByOne) {
    const std::string path = os::ToUtf8(mFolder.wstring());
    {
        os::HeldFile first;
        os::HeldFile second;
        ASSERT_TRUE(first.HoldDirectory(path));
        EXPECT_FALSE(second.HoldDirectory(path));
        EXPECT_FALSE(second.HoldDirectory(path + "\\."));  // by another way
        EXPECT_FALSE(second.Hold(path));
    }
    os::HeldFile third;
    EXPECT_TRUE(third.HoldDirectory(path));
}

}  // namespace
