#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <Base/frame/ReferenceCountedImpl.h>

#include "tests/injection/Operation.h"

namespace test {

namespace {

namespace fs = std::filesystem;

constexpr char kOld[] = "<old/>";
constexpr char kNew[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

/// Counts what it is told, without memory.
class Counter final : public ZLiteXML::UTF8EventHandler, public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    void StartElement(const char*) override { ++events; }
    void Attribute(const char*, const char*) override { ++events; }
    void Characters(const char*) override { ++events; }
    void Comment(const char*) override { ++events; }
    void EndElement(const char*) override { ++events; }

    int events = 0;
};

void ReadIn(Trial& trial, const std::string& document, int events, std::size_t piece) {
    const ZBase::SmartPtrI<Counter> counter(new Counter());
    const bool done = trial([&] {
        const auto reader = ZLiteXML::CreateReader({.depth = 100, .size = 1 << 20});
        reader->PushHandler(counter.Get());
        for (std::size_t at = 0; at < document.size(); at += piece)
            reader->Read(document.data() + at, std::min(piece, document.size() - at));
        reader->Finish();
    });
    if (done) {
        EXPECT_EQ(counter->events, events);
    }
}

void ReadsADocument(Trial& trial) {
    const std::string document = "<a b='" + std::string(3000, 'c') + "' d='e'><!-- f --><g/>h&amp;i</a>";
    ReadIn(trial, document, 8, 1000);
}

void ReadsWideText(Trial& trial) {
    std::string document = "\xFF\xFE";
    for (const char c : std::string("<a>text</a>")) document += {c, '\0'};
    ReadIn(trial, document, 3, 5);
}

void WriteDocument(ZLiteXML::UTF8Writer& writer) {
    writer.StartElement("root");
    writer.Attribute("name", "a \"value\"");
    writer.Characters("text that is <escaped>");
    for (int i = 0; i != 3; ++i) {
        writer.StartElement("element");
        writer.Comment(" a comment ");
        writer.EndElement("element");
    }
    writer.EndElement("root");
}

void WritesAText(Trial& trial) {
    std::string document = "before";
    const bool done = trial(
        [&] { WriteDocument(*ZLiteXML::CreateStringWriter(document, {.indentation = 4, .replace = true})); });
    EXPECT_EQ(document.starts_with(kNew), done);
    EXPECT_TRUE(done || document == "before");
}

/// A folder for one file, and what may be in it in the end.
class Folder {
public:
    Folder() { fs::create_directory(mPath); }
    ~Folder() { fs::remove_all(mPath); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string File() const { return mPath + "/a document.xml"; }
    std::string Link() const { return mPath + "/a link"; }
    void Fill(mode_t mode) const {
        std::ofstream(File()) << kOld;
        chmod(File().c_str(), mode);
    }
    /// The file is the old one or the new one as a whole, and nothing is left beside the names that were
    /// there.
    void Expect(Trial& trial, bool wasThere, bool done, std::ptrdiff_t names) const {
        std::ifstream stream(File());
        const std::string content((std::istreambuf_iterator<char>(stream)), {});
        if (fs::exists(File())) {
            EXPECT_TRUE(content.starts_with(kNew) || (!done && wasThere && content == kOld)) << content;
            EXPECT_TRUE(!content.starts_with(kNew) || content.ends_with("</root>\n")) << content;
        } else {
            EXPECT_FALSE(wasThere || done);
        }
        // A name that could not be removed stays.
        if (trial.IsUntouched()) {
            EXPECT_EQ(std::distance(fs::directory_iterator(mPath), {}), names);
        }
    }

private:
    std::string mPath = "/tmp/zlitexml-injection-" + std::to_string(getpid());
};

bool Writes(Trial& trial, const std::string& file) {
    return trial([&] { WriteDocument(*ZLiteXML::CreateFileWriter(file.c_str())); });
}

void WritesANewFile(Trial& trial) {
    const Folder folder;
    const bool done = Writes(trial, folder.File());
    folder.Expect(trial, false, done, 1);
}

void ReplacesAFile(Trial& trial) {
    const Folder folder;
    folder.Fill(0640);
    const bool done = Writes(trial, folder.File());
    folder.Expect(trial, true, done, 1);
    struct stat facts {};
    EXPECT_EQ(stat(folder.File().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07007, 0u) << "others have rights";
}

void ReplacesTheFileBehindALink(Trial& trial) {
    const Folder folder;
    folder.Fill(0644);
    EXPECT_EQ(symlink("a document.xml", folder.Link().c_str()), 0);
    const bool done = Writes(trial, folder.Link());
    folder.Expect(trial, true, done, 2);
    EXPECT_TRUE(fs::is_symlink(folder.Link()));
}

// The reader of the pipe has all of it, or what came before the failure.
void WritesToAPipe(Trial& trial) {
    const Folder folder;
    EXPECT_EQ(mkfifo(folder.File().c_str(), 0600), 0);
    const int reader = open(folder.File().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const bool done = Writes(trial, folder.File());
    char said[4096];
    const ssize_t size = read(reader, said, sizeof said);
    close(reader);
    const std::string_view got(said, size < 0 ? 0 : static_cast<std::size_t>(size));
    EXPECT_TRUE(!done || (got.starts_with(kNew) && got.ends_with("</root>\n"))) << got;
}

void AddsAComment(Trial& trial) {
    const Folder folder;
    const auto writer = [&] {
        auto made = ZLiteXML::CreateFileWriter(folder.File().c_str());
        WriteDocument(*made);
        return made;
    }();
    const bool done = trial([&] { writer->Comment("behind"); });
    std::ifstream stream(folder.File());
    const std::string content((std::istreambuf_iterator<char>(stream)), {});
    EXPECT_TRUE(content.ends_with(done ? "<!--behind-->\n" : "</root>\n") || !trial.IsUntouched()) << content;
}

}  // namespace

std::vector<Operation> XmlOperations() {
    return {
        {"reads a document", {"ZLiteXML::CreateReader"}, kReturns | kBadAlloc, ReadsADocument},
        {"reads a document of wide text", {}, kReturns | kBadAlloc, ReadsWideText},
        {"writes a text of xml", {"ZLiteXML::CreateStringWriter"}, kReturns | kBadAlloc, WritesAText},
        {"writes a new file",
         {"ZLiteXML::CreateFileWriter"},
         kReturns | kBadAlloc | kMessage,
         WritesANewFile},
        {"replaces a file", {}, kReturns | kBadAlloc | kMessage, ReplacesAFile},
        {"replaces the file behind a link", {}, kReturns | kBadAlloc | kMessage, ReplacesTheFileBehindALink},
        {"writes to a pipe", {}, kReturns | kBadAlloc | kMessage, WritesToAPipe},
        {"adds a comment behind the root", {}, kReturns | kBadAlloc | kMessage, AddsAComment},
    };
}

}  // namespace test
