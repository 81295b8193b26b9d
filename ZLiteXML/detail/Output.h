#pragma once

#include <string>
#include <string_view>

namespace ZLiteXML {

/// Where a document goes. Without `Commit` before its end nothing has changed there.
class Output {
public:
    virtual ~Output() = default;
    virtual void Write(std::string_view text) = 0;
    virtual void Commit() = 0;
};

class StringOutput final : public Output {
public:
    explicit StringOutput(std::string& document) : mDocument(document) {}
    void Write(std::string_view text) override { mText += text; }
    void Commit() override { mDocument.swap(mText); }

private:
    std::string& mDocument;
    std::string mText;
};

/// Throws `XMLException` when the file can't be written.
class FileOutput final : public Output {
public:
    explicit FileOutput(const char* file) : mFile(file) {}
    void Write(std::string_view text) override { mText += text; }
    void Commit() override;

private:
    std::string mFile;
    std::string mText;
};

}  // namespace ZLiteXML
