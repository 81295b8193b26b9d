#include <ZLiteXML/UTF8Writer.h>
#include <ZLiteXML/XMLException.h>

#include <Base/messages/MessageFormat.h>

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/ScratchFolder.h"

namespace {

namespace fs = std::filesystem;

class FileWriter : public test::ScratchFolder {
protected:
    static std::string ReadAll(const fs::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::size_t Files() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(mFolder), {}));
    }
    static std::string Utf8(const fs::path& path) {
        const std::u8string text = path.u8string();
        return {text.begin(), text.end()};
    }
    static void WriteTo(const std::string& file) {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
        writer->StartElement("a");
        writer->EndElement("a");
    }
};

TEST_F(FileWriter, FileIsThereFromTheEndOfTheRootOn) {
    const fs::path file = mFolder / L"new \u4E2D.xml";
    const auto writer = ZLiteXML::CreateFileWriter(Utf8(file).c_str(), {.declaration = false});
    writer->StartElement("a");
    writer->Characters(std::string(200000, 'x').c_str());
    EXPECT_FALSE(fs::exists(file));
    writer->EndElement("a");
    EXPECT_EQ(ReadAll(file), "<a>" + std::string(200000, 'x') + "</a>");
    EXPECT_EQ(Files(), 1u);
    writer->Comment("behind");
    EXPECT_TRUE(ReadAll(file).ends_with("</a><!--behind-->"));
}

TEST_F(FileWriter, GivenUpDocumentLeavesTheOldOne) {
    const std::string file = Write("old.xml", "old");
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

TEST_F(FileWriter, OldFileIsReplacedAsAWhole) {
    const std::string file = Write("old.xml", std::string(100000, 'o'));
    WriteTo(file);
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriter, RelativePathStartsAtTheFolderOfTheCall) {
    const fs::path before = fs::current_path();
    fs::current_path(mFolder);
    const auto writer = ZLiteXML::CreateFileWriter("relative.xml", {.declaration = false});
    fs::current_path(before);
    writer->StartElement("a");
    writer->EndElement("a");
    EXPECT_EQ(ReadAll(mFolder / "relative.xml"), "<a/>");
}

TEST_F(FileWriter, WaitingDocumentCanBeOpenedByNobody) {
    const std::string file = Write("old.xml", "old");
    const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
    writer->StartElement("a");
    writer->Characters(std::string(200000, 'x').c_str());
    ASSERT_EQ(Files(), 2u);
    for (const auto& entry : fs::directory_iterator(mFolder)) {
        if (entry.path().extension() != ".part") continue;
        EXPECT_EQ(ReadAll(entry.path()), "");
    }
    writer->EndElement("a");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriter, DevicesAreWrittenToDirectly) {
    WriteTo("\\\\.\\NUL");
    WriteTo("NUL");
}

TEST_F(FileWriter, FileThatCannotBeWrittenIsNamed) {
    for (const std::string& file : {Utf8(mFolder / "no" / "such" / "folder.xml"), Utf8(mFolder)}) {
        try {
            WriteTo(file);
            ADD_FAILURE() << file;
        } catch (const ZLiteXML::XMLException& failure) {
            const std::string text = ZBase::FormatMessage(failure, 0).c_str();
            EXPECT_NE(text.find(file + ": "), std::string::npos) << text;
        }
    }
}

}  // namespace
