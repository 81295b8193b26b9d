#include <ZLiteXML/UTF8Writer.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/RefusedCalls.h"
#include "tests/zlitexml/linux/FileWriterBench.h"

// Whom a written file belongs to, and who may read it meanwhile and then.

namespace {

namespace fs = std::filesystem;
using test::InChild;
using test::kNotAllowed;
using test::ModeOf;
using test::WhatIsSaid;

class FileWriterRights : public test::FileWriterBench {};

// The widest permissions of any file in a folder that this process has open, with or without a name.
mode_t ModesOfOpenFiles(const fs::path& folder) {
    mode_t modes = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code code;
        const std::string target = fs::read_symlink(entry.path(), code);
        struct stat facts {};
        if (!target.starts_with(folder.string() + "/") || stat(entry.path().c_str(), &facts) != 0) continue;
        if (S_ISREG(facts.st_mode)) modes |= facts.st_mode & 07777;
    }
    return modes;
}

TEST_F(FileWriterRights, WaitingDocumentIsAsPrivateAsTheOldOneFromItsFirstMoment) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    fs::permissions(file, fs::perms::owner_read);
    const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
    writer->StartElement("a");
    writer->Characters(std::string(200000, 'x').c_str());
    EXPECT_EQ(ModesOfOpenFiles(mFolder), static_cast<mode_t>(S_IRUSR));
    writer->EndElement("a");
    EXPECT_EQ(ModeOf(file), static_cast<mode_t>(S_IRUSR));
}

TEST_F(FileWriterRights, NewFileGoesByTheMask) {
    const mode_t before = umask(026);
    WriteTo(mFolder / "new.xml");
    umask(before);
    EXPECT_EQ(ModeOf(mFolder / "new.xml"), 0640u);
}

TEST_F(FileWriterRights, OwnerStaysWhereItMay) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may give files away";
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    if (chown(file.c_str(), 12345, 23456) != 0) GTEST_SKIP() << "this root may not give files away";
    ASSERT_EQ(chmod(file.c_str(), 02640), 0);
    WriteTo(file);
    struct stat facts {};
    ASSERT_EQ(stat(file.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_uid, 12345u);
    EXPECT_EQ(facts.st_gid, 23456u);
    EXPECT_EQ(facts.st_mode & 07777u, 02640u);
    EXPECT_EQ(ReadAll(file), "<a/>");
}

// Members of the old group get only the rights of others if the new file can't be given to that group.
TEST_F(FileWriterRights, PermissionsOfAnotherGroupAreNotHandedOn) {
    if (geteuid() != 0) GTEST_SKIP() << "needs a file of another group";
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    if (chown(file.c_str(), 12345, 23456) != 0) GTEST_SKIP() << "this root may not give files away";
    ASSERT_EQ(chmod(file.c_str(), 0664), 0);
    ASSERT_EQ(chmod(mFolder.c_str(), 0777), 0);
    const int result = InChild([&] {
        if (setgid(65534) != 0 || setuid(65534) != 0) return kNotAllowed;
        WriteTo(file);
        return 0;
    });
    if (result == kNotAllowed) GTEST_SKIP() << "this root may not become another user";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ModeOf(file), 0644u);
    EXPECT_EQ(ReadAll(file), "<a/>");
}

TEST_F(FileWriterRights, FileInAClosedDirectoryIsWrittenInPlace) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old and longer than what is written";
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    ASSERT_EQ(chmod(mFolder.c_str(), 0555), 0);
    const int result = InChild([&] {
        if (geteuid() == 0 && setuid(65534) != 0) return kNotAllowed;
        WriteTo(file);
        return WhatIsSaid([&] { WriteTo(mFolder / "new.xml"); }).ends_with(": Permission denied") ? 0 : 2;
    });
    ASSERT_EQ(chmod(mFolder.c_str(), 0755), 0);
    if (result == kNotAllowed) GTEST_SKIP() << "this root may not become another user";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriterRights, MountPointIsWrittenInPlace) {
    const fs::path file = mFolder / "mounted.xml";
    const fs::path source = mFolder / "source.xml";
    std::ofstream(file) << "under";
    std::ofstream(source) << "old";
    const int result = InChild([&] {
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(source.c_str(), file.c_str(), nullptr, MS_BIND, nullptr) != 0)
            return kNotAllowed;
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
        writer->StartElement("a");
        writer->EndElement("a");
        if (Files() != 2) return 2;
        writer->Comment("behind");
        return 0;
    });
    if (result == kNotAllowed) GTEST_SKIP() << "this process may not mount";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadAll(source), "<a/><!--behind-->");
    EXPECT_EQ(ReadAll(file), "under");
}

TEST_F(FileWriterRights, FileInADirectoryThatIsClosedMeanwhileIsWrittenInPlace) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old and longer than what is written";
    constexpr uid_t kOther = 65534;
    const bool isRoot = geteuid() == 0;
    if (isRoot && (chown(file.c_str(), kOther, kOther) != 0 || chown(mFolder.c_str(), kOther, kOther) != 0))
        GTEST_SKIP() << "this root may not give files away";
    const int result = InChild([&] {
        if (isRoot && setuid(kOther) != 0) return kNotAllowed;
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
        writer->StartElement("a");
        if (chmod(mFolder.c_str(), 0555) != 0) return 2;
        writer->EndElement("a");
        return 0;
    });
    ASSERT_EQ(chmod(mFolder.c_str(), 0755), 0);
    if (result == kNotAllowed) GTEST_SKIP() << "this root may not become another user";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(Files(), 1u);
}

// As on a file system without hard links.
TEST_F(FileWriterRights, DocumentThatCannotBeLinkedIsCopiedUnderItsName) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old and longer than what is written";
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    const int result = InChild([&] {
        if (!test::RefuseCalls({SYS_linkat}, EPERM)) return kNotAllowed;
        {
            const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
            writer->StartElement("a");
            writer->EndElement("a");
            if (PassedToChildren(file)) return 2;
        }
        WriteTo(mFolder / "new.xml");
        return 0;
    });
    if (result == kNotAllowed) GTEST_SKIP() << "this system does not refuse calls";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(ModeOf(file), 0640u);
    EXPECT_EQ(ReadAll(mFolder / "new.xml"), "<a/>");
    EXPECT_EQ(Files(), 2u);
}

// As on a file system without hard links. The list gives a user of its own the right that the mask shows.
TEST_F(FileWriterRights, AccessListIsTakenAlongEvenIntoACopy) {
    struct Entry {
        std::uint16_t tag, rights;
        std::uint32_t id;
    };
    struct {
        std::uint32_t version = 2;
        Entry entries[5] = {{1, 6, ~0u}, {2, 6, 12345}, {4, 4, ~0u}, {16, 6, ~0u}, {32, 0, ~0u}};
    } list;
    const fs::path file = mFolder / "old.xml";
    for (const bool isCopied : {false, true}) {
        std::ofstream(file) << "old";
        if (setxattr(file.c_str(), "system.posix_acl_access", &list, sizeof list, 0) != 0)
            GTEST_SKIP() << "this file system has no access lists";
        const int result = InChild([&] {
            if (isCopied && !test::RefuseCalls({SYS_linkat}, EPERM)) return kNotAllowed;
            WriteTo(file);
            return 0;
        });
        if (result == kNotAllowed) GTEST_SKIP() << "this system does not refuse calls";
        EXPECT_EQ(result, 0);
        EXPECT_EQ(ReadAll(file), "<a/>");
        auto after = list;
        for (Entry& entry : after.entries) entry = {};
        EXPECT_EQ(getxattr(file.c_str(), "system.posix_acl_access", &after, sizeof after),
                  ssize_t{sizeof after});
        EXPECT_EQ(std::memcmp(&after, &list, sizeof list), 0);
    }
}

}  // namespace
