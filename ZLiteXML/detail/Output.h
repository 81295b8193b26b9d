#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace ZLiteXML {

/// The target of a document. It is unchanged without a `Commit`.
class Output {
public:
    virtual ~Output() = default;
    virtual void Write(std::string_view text) = 0;
    virtual void Commit() = 0;

    /// Appends to what was committed: all of it, or it throws without a change.
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

/// For a file that is replaced as a whole, or another target that is written to at `Commit`. Until then the
/// output is in an unnamed file, not in memory. The path is resolved now. Each operation, this one too,
/// throws `XMLException` with the path and the system's reason.
std::unique_ptr<Output> CreateFileOutput(const char* file);

}  // namespace ZLiteXML
