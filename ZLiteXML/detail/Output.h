#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace ZLiteXML {

/// Where a document goes. Without `Commit` before its end nothing has changed there.
class Output {
public:
    virtual ~Output() = default;
    virtual void Write(std::string_view text) = 0;
    virtual void Commit() = 0;

    /// Adds to what was committed: all of it, or it throws and nothing has changed.
    virtual void Append(std::string_view text) = 0;
};

class StringOutput final : public Output {
public:
    explicit StringOutput(std::string& document) : mDocument(document) {}
    void Write(std::string_view text) override { mText += text; }
    void Commit() override { mDocument.swap(mText); }
    void Append(std::string_view text) override { mDocument += text; }

private:
    std::string& mDocument;
    std::string mText;
};

/// For a file that is replaced as a whole, or something else that is written to at `Commit`. What is written
/// before waits in a file without a name, not in memory. The path is looked up now. Each operation, this one
/// too, throws `XMLException` with the path and the system's reason.
std::unique_ptr<Output> CreateFileOutput(const char* file);

}  // namespace ZLiteXML
