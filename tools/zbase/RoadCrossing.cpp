#include "RoadCrossing.h"
#include "Console.h"
#include "MessageDocument.h"
#include "RecordView.h"
#include "SecondProcess.h"

#include <cstring>

namespace {

using ZBase::ConstMessageCursor;
using ZBase::Message;

bool Equal(const char* one, const char* other) {
    return one == nullptr || other == nullptr ? one == other : std::strcmp(one, other) == 0;
}

bool FieldsAreTheSame(const Message& one, const Message& other) {
    const auto sameText = [](const LocalizedText& left, const LocalizedText& right) {
        return left.language == right.language && Equal(left.text, right.text);
    };
    const std::vector<LocalizedText> texts = LocalizedTexts(one);
    const std::vector<LocalizedText> otherTexts = LocalizedTexts(other);
    const std::vector<const char*> parameters = Parameters(one);
    const std::vector<const char*> otherParameters = Parameters(other);
    return one.GetDomain() == other.GetDomain() && one.GetID() == other.GetID() &&
           Equal(one.GetTemplate(), other.GetTemplate()) &&
           std::equal(texts.begin(), texts.end(), otherTexts.begin(), otherTexts.end(), sameText) &&
           std::equal(parameters.begin(), parameters.end(), otherParameters.begin(), otherParameters.end(),
                      Equal);
}

// Walks both trees in step.
bool TreesAreTheSame(const Message& one, const Message& other) {
    ConstMessageCursor left(one);
    ConstMessageCursor right(other);
    for (;;) {
        if (!FieldsAreTheSame(left.GetCurrentMessage(), right.GetCurrentMessage())) return false;
        for (;;) {
            const bool lower = left.LowerLevelMessageIsUnvisited();
            const bool same = left.SameLevelMessageIsUnvisited();
            if (lower != right.LowerLevelMessageIsUnvisited() || same != right.SameLevelMessageIsUnvisited())
                return false;
            if (lower) {
                left.GoToLowerLevelMessage(false);
                right.GoToLowerLevelMessage(false);
                break;
            }
            if (same) {
                left.GoToSameLevelMessage(false);
                right.GoToSameLevelMessage(false);
                break;
            }
            const bool climbed = left.GoToParent();
            if (climbed != right.GoToParent()) return false;
            if (!climbed) return true;
        }
    }
}

std::string Indented(const std::string& lines) {
    std::string indented;
    for (std::size_t at = 0; at < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', at), lines.size() - 1) + 1;
        indented += "  " + lines.substr(at, end - at);
        at = end;
    }
    return indented;
}

}  // namespace

void CrossProcesses(const Message& record) {
    const std::string document = ToDocument(record);
    Print(Styled("  as it leaves process " +
                     std::string(
                         ZBase::ToDecimalString(static_cast<int>(ZBase::GetCurrentProcessID())).c_str()) +
                     ":",
                 "2") +
          "\n" + Indented(document));
    const SecondProcess second = RunSecondProcess({"message", "--xml", "-"}, document);
    Message back;
    ReadDocumentText(second.output, back);
    Print(Styled("  as it comes back from process " + std::to_string(second.id) + ":", "2") + "\n");
    PrintTree(back);
    Message sent;
    ReadDocumentText(document, sent);
    if (!TreesAreTheSame(sent, back)) throw Failure("the record came back another one");
    Print(TreesAreTheSame(record, sent) ? "  It came back the same.\n"
                                        : "  It came back the same, but for what XML cannot hold.\n");
}
