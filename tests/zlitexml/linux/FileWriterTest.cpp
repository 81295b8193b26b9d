#include <ZLiteXML/UTF8Writer.h>
#include <ZLiteXML/XMLException.h>

#include <Base/messages/MessageFormat.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <chrono>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/support/RefusedCalls.h"
#include "tests/zlitexml/linux/FileWriterBench.h"

namespace {

namespace fs = std::filesystem;
using test::FileSizeLimit;
using test::InChild;
using test::WhatIsSaid;

class FileWriter : public test::FileWriterBench {};

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

}  // namespace
