#include <ZLiteXML/UTF8Writer.h>
#include <ZLiteXML/XMLException.h>

#include <Base/messages/MessageFormat.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

#include "tests/support/Allocations.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"

namespace {

namespace fs = std::filesystem;

std::string WhatIsSaid(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const ZLiteXML::XMLException& failure) {
        return ZBase::FormatMessage(failure, 0).c_str();
    }
    return {};
}

class FileWriter : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zlitexml-test-XXXXXX";
        mFolder = mkdtemp(name);
    }
    void TearDown() override { fs::remove_all(mFolder); }

    static std::string ReadAll(const fs::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::size_t Files() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(mFolder), {}));
    }
    static void WriteTo(const fs::path& file) {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
        writer->StartElement("a");
        writer->EndElement("a");
    }

    // Whether a program that this process starts would get the file.
    static bool PassedToChildren(const fs::path& file) {
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (fs::read_symlink(entry, gone) != file) continue;
            if ((fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC) == 0) return true;
        }
        return false;
    }

    fs::path mFolder;
};

TEST_F(FileWriter, FileIsThereFromTheEndOfTheRootOn) {
    const fs::path file = mFolder / "new.xml";
    const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
    writer->StartElement("a");
    writer->Characters(std::string(200000, 'x').c_str());
    EXPECT_FALSE(fs::exists(file));
    writer->EndElement("a");
    EXPECT_EQ(ReadAll(file), "<a>" + std::string(200000, 'x') + "</a>");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriter, GivenUpDocumentLeavesTheOldOne) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("a");
        EXPECT_THROW(writer->Characters("\x01"), ZLiteXML::XMLException);
    }
    {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("unended");
    }
    EXPECT_EQ(ReadAll(file), "old");
    EXPECT_EQ(Files(), 1u);
}

/// While it exists, no file of this process grows beyond `size` bytes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) : mHandler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &mBefore);
        const rlimit limit{size, mBefore.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &mBefore);
        std::signal(SIGXFSZ, mHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit mBefore{};
    void (*mHandler)(int);
};

TEST_F(FileWriter, DocumentThatTheDiskCannotHoldLeavesTheOldOneAndNothingElse) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    const std::string text(200000, 'x');
    {
        const FileSizeLimit limit(1000);
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("a");
        EXPECT_THROW(writer->Characters(text.c_str()), ZLiteXML::XMLException);
        EXPECT_THROW(writer->StartElement("a"), ZLiteXML::XMLException);
    }
    {
        const FileSizeLimit limit(1000);
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("a");
        writer->Characters(text.substr(0, 2000).c_str());
        EXPECT_TRUE(WhatIsSaid([&] { writer->EndElement("a"); }).ends_with(": File too large"));
    }
    EXPECT_EQ(ReadAll(file), "old");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriter, ReplacedFileKeepsItsPermissionsAndLinksStayLinks) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("old.xml", mFolder / "link.xml");
    WriteTo(mFolder / "link.xml");
    EXPECT_TRUE(fs::is_symlink(mFolder / "link.xml"));
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(Files(), 2u);
}

TEST_F(FileWriter, DevicesAreWrittenToDirectly) {
    WriteTo("/dev/null");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_THROW(WriteTo("/dev/full"), ZLiteXML::XMLException);
}

TEST_F(FileWriter, FileThatCannotBeWrittenIsNamed) {
    for (const fs::path& file : {mFolder / "no" / "such" / "folder.xml", mFolder}) {
        try {
            WriteTo(file);
            ADD_FAILURE() << file;
        } catch (const ZLiteXML::XMLException& failure) {
            EXPECT_NE(std::string(ZBase::FormatMessage(failure, 0).c_str()).find(file.string() + ": "),
                      std::string::npos);
        }
    }
}

TEST_F(FileWriter, IndependentReaderAcceptsTheDocument) {
    const fs::path file = mFolder / "all.xml";
    {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = true, .indentation = 3});
        writer->Comment("in front");
        writer->StartElement("a");
        writer->Attribute("b", "<&>\"'\t\n\r\xF0\x9F\x98\x80");
        writer->Attribute("c", "");
        writer->StartElement("d");
        writer->Characters("]]>\x7F\xC2\x85\xEF\xBF\xBD");
        writer->EndElement("d");
        writer->EndElement("a");
    }
    const test::ChildResult child = test::RunChild({"/usr/bin/xmllint", "--noout", "--nonet", file});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    const test::ChildResult value = test::RunChild({"/usr/bin/xmllint", "--xpath", "string(/a/@b)", file});
    EXPECT_EQ(value.output, "<&>\"'\t\n\r\xF0\x9F\x98\x80\n");
}

constexpr int kSkipped = 77;

/// The result of a forked child for an operation which changes its process; 1 for an exception.
template <class Operation>
int InChild(Operation operation) {
    const pid_t child = fork();
    if (child == 0) {
        int result = 1;
        try {
            result = operation();
        } catch (...) {
        }
        _exit(result);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

mode_t ModeOf(const fs::path& file) {
    struct stat facts {};
    EXPECT_EQ(stat(file.c_str(), &facts), 0);
    return facts.st_mode & 07777;
}

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

TEST_F(FileWriter, WaitingDocumentIsAsPrivateAsTheOldOneFromItsFirstMoment) {
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

TEST_F(FileWriter, NewFileGoesByTheMask) {
    const mode_t before = umask(026);
    WriteTo(mFolder / "new.xml");
    umask(before);
    EXPECT_EQ(ModeOf(mFolder / "new.xml"), 0640u);
}

TEST_F(FileWriter, OwnerStaysWhereItMay) {
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
TEST_F(FileWriter, PermissionsOfAnotherGroupAreNotHandedOn) {
    if (geteuid() != 0) GTEST_SKIP() << "needs a file of another group";
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    if (chown(file.c_str(), 12345, 23456) != 0) GTEST_SKIP() << "this root may not give files away";
    ASSERT_EQ(chmod(file.c_str(), 0664), 0);
    ASSERT_EQ(chmod(mFolder.c_str(), 0777), 0);
    const int result = InChild([&] {
        if (setgid(65534) != 0 || setuid(65534) != 0) return kSkipped;
        WriteTo(file);
        return 0;
    });
    if (result == kSkipped) GTEST_SKIP() << "this root may not become another user";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ModeOf(file), 0644u);
    EXPECT_EQ(ReadAll(file), "<a/>");
}

TEST_F(FileWriter, FileInAClosedDirectoryIsWrittenInPlace) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old and longer than what is written";
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    ASSERT_EQ(chmod(mFolder.c_str(), 0555), 0);
    const int result = InChild([&] {
        if (geteuid() == 0 && setuid(65534) != 0) return kSkipped;
        WriteTo(file);
        return WhatIsSaid([&] { WriteTo(mFolder / "new.xml"); }).ends_with(": Permission denied") ? 0 : 2;
    });
    ASSERT_EQ(chmod(mFolder.c_str(), 0755), 0);
    if (result == kSkipped) GTEST_SKIP() << "this root may not become another user";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriter, MountPointIsWrittenInPlace) {
    const fs::path file = mFolder / "mounted.xml";
    const fs::path source = mFolder / "source.xml";
    std::ofstream(file) << "under";
    std::ofstream(source) << "old";
    const int result = InChild([&] {
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(source.c_str(), file.c_str(), nullptr, MS_BIND, nullptr) != 0)
            return kSkipped;
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
        writer->StartElement("a");
        writer->EndElement("a");
        if (Files() != 2) return 2;
        writer->Comment("behind");
        return 0;
    });
    if (result == kSkipped) GTEST_SKIP() << "this process may not mount";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadAll(source), "<a/><!--behind-->");
    EXPECT_EQ(ReadAll(file), "under");
}

TEST_F(FileWriter, FileInADirectoryThatIsClosedMeanwhileIsWrittenInPlace) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old and longer than what is written";
    constexpr uid_t kOther = 65534;
    const bool isRoot = geteuid() == 0;
    if (isRoot && (chown(file.c_str(), kOther, kOther) != 0 || chown(mFolder.c_str(), kOther, kOther) != 0))
        GTEST_SKIP() << "this root may not give files away";
    const int result = InChild([&] {
        if (isRoot && setuid(kOther) != 0) return kSkipped;
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
        writer->StartElement("a");
        if (chmod(mFolder.c_str(), 0555) != 0) return 2;
        writer->EndElement("a");
        return 0;
    });
    ASSERT_EQ(chmod(mFolder.c_str(), 0755), 0);
    if (result == kSkipped) GTEST_SKIP() << "this root may not become another user";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(Files(), 1u);
}

// As on a file system without hard links.
TEST_F(FileWriter, DocumentThatCannotBeLinkedIsCopiedUnderItsName) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old and longer than what is written";
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    const int result = InChild([&] {
        if (!test::RefuseCalls({SYS_linkat}, EPERM)) return kSkipped;
        {
            const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
            writer->StartElement("a");
            writer->EndElement("a");
            if (PassedToChildren(file)) return 2;
        }
        WriteTo(mFolder / "new.xml");
        return 0;
    });
    if (result == kSkipped) GTEST_SKIP() << "this system does not refuse calls";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(ModeOf(file), 0640u);
    EXPECT_EQ(ReadAll(mFolder / "new.xml"), "<a/>");
    EXPECT_EQ(Files(), 2u);
}

TEST_F(FileWriter, NamesUpToTheLimitAreTaken) {
    const std::string longest(NAME_MAX, 'n');
    WriteTo(mFolder / longest);
    EXPECT_EQ(ReadAll(mFolder / longest), "<a/>");
    EXPECT_NE(WhatIsSaid([&] { WriteTo(mFolder / (longest + "n")); }), "");

    fs::path folder = mFolder;
    while (folder.string().size() + NAME_MAX + 2 < PATH_MAX - 10) folder /= std::string(NAME_MAX, 'd');
    fs::create_directories(folder);
    const fs::path deepest = folder / std::string(PATH_MAX - 2 - folder.string().size(), 'f');
    WriteTo(deepest);
    EXPECT_EQ(ReadAll(deepest), "<a/>");
}

TEST_F(FileWriter, RelativePathStartsWhereTheWriterWasMade) {
    fs::create_directory(mFolder / "one");
    fs::create_directory(mFolder / "other");
    EXPECT_EQ(InChild([&] {
                  fs::current_path(mFolder / "one");
                  const auto writer = ZLiteXML::CreateFileWriter("file.xml", {.declaration = false});
                  fs::current_path(mFolder / "other");
                  fs::rename(mFolder / "one", mFolder / "renamed");
                  writer->StartElement("a");
                  writer->EndElement("a");
                  return 0;
              }),
              0);
    EXPECT_EQ(ReadAll(mFolder / "renamed" / "file.xml"), "<a/>");
    EXPECT_TRUE(fs::is_empty(mFolder / "other"));
}

TEST_F(FileWriter, LinksAreFollowedToWhatIsThereOrIsNot) {
    fs::create_directory(mFolder / "inner");
    fs::create_symlink("inner/second", mFolder / "first");
    fs::create_symlink("../target.xml", mFolder / "inner" / "second");
    WriteTo(mFolder / "first");
    EXPECT_EQ(ReadAll(mFolder / "target.xml"), "<a/>");
    EXPECT_TRUE(fs::is_symlink(mFolder / "first"));
    EXPECT_TRUE(fs::is_symlink(mFolder / "inner" / "second"));

    fs::create_symlink("loop", mFolder / "loop");
    EXPECT_NE(WhatIsSaid([&] { WriteTo(mFolder / "loop"); }), "");
    EXPECT_EQ(Files(), 4u);
}

TEST_F(FileWriter, CommentBehindTheRootIsAdded) {
    const fs::path file = mFolder / "new.xml";
    const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
    writer->StartElement("a");
    writer->EndElement("a");
    const std::string document = ReadAll(file);
    writer->Comment(" one ");
    EXPECT_EQ(ReadAll(file), document + "<!-- one -->\n");
    const std::string comment(200000, 'x');
    {
        const FileSizeLimit limit(100000);
        EXPECT_THROW(writer->Comment(comment.c_str()), ZLiteXML::XMLException);
    }
    EXPECT_EQ(ReadAll(file), document + "<!-- one -->\n");
    EXPECT_THROW(writer->Comment(" two "), ZLiteXML::XMLException);
}

TEST_F(FileWriter, PlaceThatIsTakenByADirectoryMeanwhileLeavesNothingBehind) {
    const fs::path file = mFolder / "new.xml";
    const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
    writer->StartElement("a");
    writer->Characters(std::string(200000, 'x').c_str());
    fs::create_directory(file);
    EXPECT_THROW(writer->EndElement("a"), ZLiteXML::XMLException);
    EXPECT_EQ(Files(), 1u);
    EXPECT_TRUE(fs::is_empty(file));
}

TEST_F(FileWriter, OutOfMemoryLeavesNothingBehind) {
    const fs::path file = mFolder / "new.xml";
    const std::string text(100000, 'x');
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openFiles();
    const std::size_t failures = test::ForEachFailingAllocation([&] {
        try {
            const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
            writer->StartElement("a");
            writer->Characters(text.c_str());
            writer->EndElement("a");
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(Files(), 0u);
        }
    });
    EXPECT_GT(failures, 3u);
    EXPECT_EQ(openFiles(), before);
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriter, WithoutDescriptorsTheReasonIsTold) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer looks at memory through a pipe";
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const std::string said = WhatIsSaid([&] { WriteTo(mFolder / "new.xml"); });
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(said.ends_with(": Too many open files")) << said;
    EXPECT_EQ(Files(), 0u);
}

// However many are left, a failure leaves the old file, and success its permissions.
TEST_F(FileWriter, WithFewDescriptorsAFailureLeavesTheOldFile) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer looks at memory through a pipe";
    const fs::path file = mFolder / "old.xml";
    int failures = 0;
    int successes = 0;
    for (int left = 0; left != 6; ++left) {
        std::ofstream(file) << "old";
        ASSERT_EQ(chmod(file.c_str(), 0664), 0);
        const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(next);
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit few{static_cast<rlim_t>(next + left), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        const std::string said = WhatIsSaid([&] { WriteTo(file); });
        setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_EQ(ReadAll(file), said.empty() ? "<a/>" : "old") << left << " left: " << said;
        EXPECT_EQ(ModeOf(file), 0664u) << left << " left";
        (said.empty() ? successes : failures) += 1;
    }
    EXPECT_GT(failures, 0);
    EXPECT_GT(successes, 0);
    EXPECT_EQ(Files(), 1u);
}

// As on a file system without hard links. The list gives a user of its own the right that the mask shows.
TEST_F(FileWriter, AccessListIsTakenAlongEvenIntoACopy) {
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
            if (isCopied && !test::RefuseCalls({SYS_linkat}, EPERM)) return kSkipped;
            WriteTo(file);
            return 0;
        });
        if (result == kSkipped) GTEST_SKIP() << "this system does not refuse calls";
        EXPECT_EQ(result, 0);
        EXPECT_EQ(ReadAll(file), "<a/>");
        auto after = list;
        for (Entry& entry : after.entries) entry = {};
        EXPECT_EQ(getxattr(file.c_str(), "system.posix_acl_access", &after, sizeof after),
                  ssize_t{sizeof after});
        EXPECT_EQ(std::memcmp(&after, &list, sizeof list), 0);
    }
}

TEST_F(FileWriter, PipeWithoutReaderIsAFailureAndNoSignal) {
    const fs::path pipe = mFolder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string text(1 << 20, 'x');
    const int result = InChild([&] {
        std::signal(SIGPIPE, SIG_DFL);
        std::thread reader([&] {
            const int end = open(pipe.c_str(), O_RDONLY);
            char octet = 0;
            if (read(end, &octet, 1) == 1) close(end);
        });
        const std::string said = WhatIsSaid([&] {
            const auto writer = ZLiteXML::CreateFileWriter(pipe.c_str());
            writer->StartElement("a");
            writer->Characters(text.c_str());
            writer->EndElement("a");
        });
        reader.join();
        return said.ends_with(": Broken pipe") ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(FileWriter, PipeIsWaitedForThroughASignal) {
    const fs::path pipe = mFolder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int result = InChild([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};  // without SA_RESTART
        sigaction(SIGUSR1, &action, nullptr);
        const pthread_t writing = pthread_self();
        std::string document;
        std::thread reader([&] {
            for (int i = 0; i != 20; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
                pthread_kill(writing, SIGUSR1);
            }
            std::ifstream stream(pipe);
            document.assign(std::istreambuf_iterator<char>(stream), {});
        });
        const std::string said = WhatIsSaid([&] {
            const auto writer = ZLiteXML::CreateFileWriter(pipe.c_str());
            writer->StartElement("a");
            writer->EndElement("a");
        });
        reader.join();
        return !said.empty() ? 1 : document.find("<a") != std::string::npos ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(FileWriter, TwoAtOnceLeaveOneWholeDocument) {
    const fs::path file = mFolder / "both.xml";
    const auto first = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
    const auto second = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
    for (const auto* writer : {&first, &second}) {
        (*writer)->StartElement("a");
        (*writer)->Characters(std::string(100000, writer == &first ? '1' : '2').c_str());
    }
    second->EndElement("a");
    first->EndElement("a");
    EXPECT_EQ(ReadAll(file), "<a>" + std::string(100000, '1') + "</a>");
    EXPECT_EQ(Files(), 1u);
}

std::size_t PeakOfMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) * 1024;
    }
    return 0;
}

TEST_F(FileWriter, LargeDocumentIsNotHeldInMemory) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer holds back what is freed";
    const fs::path file = mFolder / "large.xml";
    const std::string text(1000, 'x');
    EXPECT_EQ(InChild([&] {
                  std::ofstream("/proc/self/clear_refs") << "5";
                  const std::size_t before = PeakOfMemory();
                  const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.indentation = 2});
                  writer->StartElement("a");
                  for (int number = 0; number < 70000; ++number) {
                      writer->StartElement("b");
                      writer->Characters(text.c_str());
                      writer->EndElement("b");
                  }
                  writer->EndElement("a");
                  return PeakOfMemory() - before < (4u << 20) ? 0 : 2;
              }),
              0);
    EXPECT_GT(fs::file_size(file), 64u << 20);
}

}  // namespace
