#pragma once

#include <Base/frame/ReferenceCountedImpl.h>
#include <ZLiteXML/UTF8Writer.h>
#include <ZLiteXML/detail/Output.h>

#include <array>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ZLiteXML {

class DocumentWriter final : public UTF8Writer, public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    DocumentWriter(std::unique_ptr<Output> output, const WriterOptions& options);

    void StartElement(const char* name) override;
    void Attribute(const char* name, const char* value) override;
    void Characters(const char* text) override;
    void Comment(const char* text) override;
    void EndElement(const char* name) override;

private:
    struct Element {
        std::size_t nameStart = 0;  // in `mNames`, terminated by a zero
        bool hasText = false;
        bool hasMarkup = false;  // elements or comments
    };

    template <class Step>
    void Take(Step step);
    void Start(const char* name);
    void AddAttribute(const char* name, const char* value);
    void AddComment(const char* text);
    void End(const char* name);
    void CloseStartTag();
    void BeginMarkup();
    void BreakLine(std::size_t level);
    void Append(std::string_view text);
    void AppendEscaped(const char* text, const std::array<bool, 256>& plain);
    void AppendReplacement(const char* reason, const char* format, unsigned int value);
    void NoteAttribute(const char* name);
    const char* OpenName() const { return mNames.c_str() + mOpen.back().nameStart; }
    std::string Place() const;

    std::unique_ptr<Output> mOutput;  // null after a failure
    WriterOptions mOptions;
    std::string mBuffer;  // not yet passed to the output
    std::string mNames;   // of all open elements
    std::vector<Element> mOpen;
    std::vector<std::string> mAttributes;      // names in the open start tag
    std::set<std::string> mFurtherAttributes;  // the others, when there are too many for a linear search
    bool mInStartTag = false;
    bool mHasEnded = false;  // the root element has, and the document was committed
};

}  // namespace ZLiteXML
