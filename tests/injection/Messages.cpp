#include <Base/ZBase.h>
#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <stdexcept>

#include "tests/injection/Operation.h"
#include "tests/injection/Texts.h"

namespace test {

namespace {

using namespace ZBase::Literals;
using ZBase::Message;

constexpr char kLong[] =
    "a text that is longer than the room of a message which has a hundred octets for all that it holds";

/// Looks at all that a message holds: nothing of it lies outside, and it can be changed and copied.
void ExpectWellFormed(Message& message) {
    for (const ZBase::MessageVisit& visit : ZBase::MessageWalk(message)) {
        for (const char* parameter : ZBase::MessageParameters(*visit.message)) EXPECT_NE(parameter, nullptr);
        visit.message->GetTemplate();
        visit.message->GetLocalizedText(0);
    }
    const Message copy(message);
    EXPECT_TRUE(copy == message);
    message.WrapBy(1, 2, "outer %1");
    message << "inner";
    EXPECT_STREQ(message.GetParameter(0), "inner");
    message.Clear();
    EXPECT_TRUE(message.IsEmpty());
}

void FillTree(Message& message) {
    message.SetDomainAndID(300, 7);
    message.SetTemplate("the process %1 did not do %2");
    message << kLong << 17;
    message.SetLocalizedText(0x409, kLong);
    message.WrapBy(300, 8, kLong);
    message << "names.txt";
    message.PrependBy(300, 9, "first of a list");
    message.WrapBy(300, 10, "the root");
}

void FillsAMessage(Trial& trial) {
    Message message(300, 1, nullptr);
    trial([&] {
        message.SetTemplate(kLong);
        message << kLong << std::string_view(kLong) << true << 1 << 2u << 3L << 4UL << 5LL << 6ULL << 0.5;
        Message::Hex(message);
        Message::WideHex(message);
        Message::WideWideHex(message);
        message << Message::Dec;
        message.SetLocalizedText(0x409, kLong);
        message.SetLocalizedText(0x409, nullptr);
        message.SetDomainAndID(301, 2);
    });
    EXPECT_EQ(message.GetParameterCount(), 10u);  // an empty one stands for what found no memory
    EXPECT_EQ(message.GetDomain(), 301);
    EXPECT_EQ(message.GetID(), 2);
    EXPECT_EQ(message.GetErrorCode(), 2u);
    if (trial.IsUntouched()) {
        EXPECT_STREQ(message.GetParameter(9), "0.5");
    }
    ExpectWellFormed(message);
}

void FillsAMessageWithWideTexts(Trial& trial) {
    Message message(300, 1, "%1 %2 %3 %4");
    static const unsigned short kWide[] = {'w', 'i', 'd', 'e', 0};
    const ZBase::ReturnString narrow("narrow");
    const ZBase::ReturnWString wide(kWide);
    const ZBase::ReturnUString utf16(kWide);
    trial([&] { message << kWide; });
    trial([&] { message << narrow; });
    trial([&] { message << wide; });
    trial([&] { message << utf16; });
    trial([&] { message.SetMessage(kWide); });
    trial([&] { message.GetMessage(); });
    if (trial.IsUntouched()) {
        EXPECT_EQ(message.GetParameterCount(), 4u);
        EXPECT_TRUE(Is(message.GetMessage(), "wide"));
    }
    Message other(300, 1, "a text made by %1");
    other << "formatting";
    trial([&] { other.GetMessage(); });
    ExpectWellFormed(message);
    ExpectWellFormed(other);
}

void CopiesAndMovesMessages(Trial& trial) {
    Message tree;
    FillTree(tree);
    unsigned char small[40];
    trial([&] {
        Message copy(tree);
        Message assigned;
        assigned = copy;
        Message moved(std::move(copy));
        copy = std::move(moved);
        EXPECT_TRUE(assigned.Swap(copy) || HasFailed());
        const Message::PlacementPtr placed(small, sizeof small, tree);
        tree.Swap(*placed);
        tree.Swap(*placed);
        if (!HasFailed()) {
            EXPECT_EQ(assigned.GetID(), 10);
        }
    });
    Message copy(tree);
    ExpectWellFormed(tree);
    ExpectWellFormed(copy);
}

void PlacesMessages(Trial& trial) {
    unsigned char memory[256];
    trial([&] {
        const Message::PlacementPtr empty(memory, sizeof memory);
        EXPECT_TRUE(empty->IsEmpty());
    });
    trial([&] {
        const Message::PlacementPtr one(memory, 32, 300, 1, kLong);
        EXPECT_EQ(one->GetID(), 1);
        Message::PlacementArrayPtr some(memory + 32, 128, 32, 300, 2, kLong);
        EXPECT_EQ(some[2].GetID(), 2);
    });
    Message tree;
    FillTree(tree);
    trial([&] {
        Message::PlacementArrayPtr copies(memory, 128, 32, tree);
        Message::PlacementArrayPtr none(memory + 128, 128, 32);
        none[0] = copies[3];
    });
}

void WrapsMessages(Trial& trial) {
    Message message;
    trial([&] { FillTree(message); });
    Message list(300, 20, "in front");
    trial([&] { message.PrependBy(list); });
    trial([&] { message.PrependBy(message); });
    if (trial.IsUntouched()) {
        EXPECT_EQ(message.GetID(), 20);
    }
    EXPECT_NE(message.GetID(), 0);
    message.GetLowerLevelMessageOrNULL();
    message.GetSameLevelMessageOrNULL();
    ExpectWellFormed(message);
}

void FormatsMessages(Trial& trial) {
    Message tree;
    FillTree(tree);
    ZBase::SimpleMessageLocalizer localizer;
    const std::string expected = ZBase::FormatMessage(tree, 0).c_str();
    trial([&] { EXPECT_TRUE(Is(ZBase::FormatMessage(tree, 0).c_str(), expected.c_str())); });
    trial([&] { ZBase::FormatMessage(std::as_const(tree), 0x409, localizer); });
    trial([&] { tree.Localize(localizer, 0); });
    trial([&] { ZBase::FormatTree(tree, {.parameters = true, .texts = true, .colour = true}); });
    trial([&] { EXPECT_TRUE(tree == tree); });
    EXPECT_EQ(ZBase::FormatMessage(tree, 0).c_str(), expected);
    ExpectWellFormed(tree);
}

void FormatsAndWrites(Trial& trial) {
    Message tree;
    FillTree(tree);
    Message localized;
    ZBase::SimpleMessageLocalizer localizer;
    trial([&] { ZBase::FormatMessage(std::as_const(tree), localized, 0x409, localizer); });
    ExpectWellFormed(localized);
    trial([&] { ZBase::FormatMessage(tree, 0, localizer); });
    ExpectWellFormed(tree);
}

void WritesToAStream(Trial& trial) {
    Message tree;
    FillTree(tree);
    std::ostringstream stream;
    trial([&] { stream << tree; });
    if (trial.IsUntouched()) {
        EXPECT_EQ(stream.str(), ZBase::FormatMessage(tree, 0).c_str());
    }
}

void MergesParameters(Trial& trial) {
    static const char* const kParameters[] = {"one", "two", nullptr};
    trial([] {
        EXPECT_TRUE(Is(ZBase::MergeParametersIntoTemplate("%2 and %1", kParameters).c_str(), "two and one"));
    });
}

void WalksAndChanges(Trial& trial) {
    Message tree;
    FillTree(tree);
    trial([&] {
        ZBase::MessageCursor cursor(tree);
        ZBase::MessageCursor copy(cursor);
        copy = cursor;
        const bool down = cursor.GoToLowerLevelMessage(false);
        if (down) cursor.GetCurrentMessage() << "added";
        cursor.GoToSameLevelMessage(true);
        cursor.GetCurrentOffset();
        cursor.LowerLevelMessageIsUnvisited();
        cursor.SameLevelMessageIsUnvisited();
        while (cursor.GoToParent()) {
        }
    });
    EXPECT_EQ(tree.GetID(), 10);
    ExpectWellFormed(tree);
}

void WalksAndReads(Trial& trial) {
    Message tree;
    FillTree(tree);
    trial([&] {
        ZBase::ConstMessageCursor cursor(tree);
        ZBase::ConstMessageCursor copy(cursor);
        copy = cursor;
        cursor.GoToLowerLevelMessage(false);
        cursor.GoToSameLevelMessage(true);
        cursor.GetCurrentMessage();
        cursor.GetCurrentOffset();
        cursor.LowerLevelMessageIsUnvisited();
        cursor.SameLevelMessageIsUnvisited();
        while (cursor.GoToParent()) {
        }
    });
    trial([&] {
        std::size_t count = 0;
        ZBase::MessageWalk walk(tree);
        for (const ZBase::MessageVisit& visit : walk) count += visit.message->IsEmpty() ? 0 : 1;
        EXPECT_EQ(count, 4u);
    });
    trial([&] {
        auto one = ZBase::MessageParameters(tree).begin();
        auto other = one;
        if (*one != nullptr) ++one, other++;
    });
    ExpectWellFormed(tree);
}

void TellsExceptions(Trial& trial) {
    try {
        try {
            throw std::system_error(2, std::generic_category(),
                                    "a file whose name is long enough for the heap");
        } catch (...) {
            std::throw_with_nested(std::runtime_error("a text that is long enough to be kept in the heap"));
        }
    } catch (...) {
        Message message;
        trial([&] { message = ZBase::MessageOfCurrentException(); });
        if (trial.IsUntouched()) {
            EXPECT_EQ(message.GetID(), -1);
        }
        ExpectWellFormed(message);
    }
}

void WritesXml(Trial& trial) {
    Message tree;
    FillTree(tree);
    std::string document;
    trial([&] { ZBase::SerializeToXML(tree, *ZLiteXML::CreateStringWriter(document)); });
    if (trial.IsUntouched()) {
        EXPECT_GT(document.size(), 200u);
    }
}

void ReadsXml(Trial& trial) {
    Message tree;
    FillTree(tree);
    std::string document;
    ZBase::SerializeToXML(tree, *ZLiteXML::CreateStringWriter(document));
    Message read;
    const bool done = trial([&] {
        const auto reader = ZLiteXML::CreateReader();
        const auto handler = ZBase::GetSerializerFromXML(read, *reader);
        reader->PushHandler(handler.Get());
        reader->Read(document.data(), document.size());
        reader->Finish();
    });
    if (done && trial.IsUntouched()) {
        EXPECT_TRUE(read == tree);
    }
    ExpectWellFormed(read);
}

void DescribesErrors(Trial& trial) {
    trial([] {
        EXPECT_NE(ZBase::GetSystemErrorDescription(5).c_str(), nullptr);
        EXPECT_TRUE(ZBase::IsSystemError(5));
        EXPECT_FALSE(ZBase::GetWin32APIErrorDescriptionOrNULL(5, 0).c_str() == nullptr);
        EXPECT_TRUE(
            Is(ZBase::GetStandardCLibraryErrorDescriptionOrNULL(2).c_str(), "No such file or directory"));
        EXPECT_TRUE(Is(ZBase::GetStandardCLibraryErrorSymbolOrNULL(2).c_str(), "ENOENT"));
        EXPECT_TRUE(Is(ZBase::GetStandardCLibraryErrorSymbolOrDecimalString(1000).c_str(), "1000"));
        EXPECT_TRUE(
            Is(ZBase::GetWin32ExceptionSymbolOrNULL(0xC0000005).c_str(), "EXCEPTION_ACCESS_VIOLATION"));
        EXPECT_TRUE(Is(ZBase::GetWin32ExceptionSymbolOrHexUpperString(0x12).c_str(), "0x00000012"));
        ZBase::SimpleMessageLocalizer localizer;
        EXPECT_NE(localizer.LocalizeText(0, 100, 5, nullptr, nullptr).c_str(), nullptr);
    });
}

void NamesDomains(Trial& trial) {
    trial([] {
        EXPECT_TRUE(Is(ZBase::ToString(ZBase::MESSAGE_DOMAIN_SERVER), "Server"));
        EXPECT_EQ(ZBase::ToMessageDomain("server"), 300);
    });
}

}  // namespace

std::vector<Operation> MessageOperations() {
    return {
        {"fills a message",
         {"ZBase::Message::operator<<(char const*)",
          "ZBase::Message::operator<<(std::basic_string_view<char, std::char_traits<char> >)",
          "ZBase::Message::operator<<(bool)",
          "ZBase::Message::operator<<(int)",
          "ZBase::Message::operator<<(unsigned int)",
          "ZBase::Message::operator<<(long)",
          "ZBase::Message::operator<<(unsigned long)",
          "ZBase::Message::operator<<(long long)",
          "ZBase::Message::operator<<(unsigned long long)",
          "ZBase::Message::operator<<(double)",
          "ZBase::Message::operator<<(void (*)(ZBase::Message&))",
          "ZBase::Message::Dec",
          "ZBase::Message::Hex",
          "ZBase::Message::WideHex",
          "ZBase::Message::WideWideHex",
          "ZBase::Message::SetNumberFormat",
          "ZBase::Message::GetNumberFormatW",
          "ZBase::Message::SetTemplate",
          "ZBase::Message::SetLocalizedText",
          "ZBase::Message::SetDomainAndID",
          "ZBase::Message::Message(unsigned short, int, char const*)",
          "ZBase::Message::GetParameterCount",
          "ZBase::Message::GetParameter",
          "ZBase::Message::GetDomain",
          "ZBase::Message::GetID",
          "ZBase::Message::GetErrorCode",
          "ZBase::Message::GetTemplate",
          "ZBase::Message::GetLocalizedText",
          "ZBase::Message::Clear",
          "ZBase::Message::IsEmpty",
          "ZBase::Message::Message()",
          "ZBase::Message::~Message"},
         kReturns,
         FillsAMessage},
        {"fills a message with wide texts",
         {"ZBase::Message::operator<<(unsigned short const*)",
          "ZBase::Message::operator<<(ZBase::ReturnString const&)",
          "ZBase::Message::operator<<(ZBase::ReturnWString const&)",
          "ZBase::Message::operator<<(ZBase::ReturnUString const&)", "ZBase::Message::SetMessage",
          "ZBase::Message::GetMessage"},
         kReturns | kBadAlloc,
         FillsAMessageWithWideTexts},
        {"copies and moves messages",
         {"ZBase::Message::Message(ZBase::Message const&)", "ZBase::Message::Message(ZBase::Message&&)",
          "ZBase::Message::operator=", "ZBase::Message::Swap"},
         kReturns,
         CopiesAndMovesMessages},
        {"places messages",
         {"ZBase::Message::PlacementPtr::*", "ZBase::Message::PlacementArrayPtr::*",
          "ZBase::Message::Message(unsigned int)",
          "ZBase::Message::Message(unsigned int, ZBase::Message const&)",
          "ZBase::Message::Message(unsigned int, unsigned short, int, char const*)",
          "ZBase::Message::MIN_SIZE"},
         kReturns,
         PlacesMessages},
        {"wraps messages",
         {"ZBase::Message::WrapBy", "ZBase::Message::PrependBy", "ZBase::Message::GetLowerLevelMessageOrNULL",
          "ZBase::Message::GetSameLevelMessageOrNULL"},
         kReturns,
         WrapsMessages},
        {"formats messages",
         {"ZBase::FormatMessage(ZBase::Message const&, unsigned short)",
          "ZBase::FormatMessage(ZBase::Message const&, unsigned short, ZBase::Message::Localizer&)",
          "ZBase::Message::Localize", "ZBase::FormatTree",
          "ZBase::operator==(ZBase::Message const&, ZBase::Message const&)"},
         kReturns | kBadAlloc,
         FormatsMessages},
        {"formats messages and writes",
         {"ZBase::FormatMessage(ZBase::Message const&, ZBase::Message&, unsigned short, "
          "ZBase::Message::Localizer&)",
          "ZBase::FormatMessage(ZBase::Message&, unsigned short, ZBase::Message::Localizer&)"},
         kReturns | kBadAlloc,
         FormatsAndWrites},
        {"writes a message to a stream",
         {"ZBase::operator<<(std::basic_ostream<char, std::char_traits<char> >&, ZBase::Message const&)"},
         kReturns | kBadAlloc,
         WritesToAStream},
        {"merges parameters into a template",
         {"ZBase::MergeParametersIntoTemplate"},
         kReturns | kBadAlloc,
         MergesParameters},
        {"walks a tree and changes it", {"ZBase::MessageCursor::*"}, kReturns | kBadAlloc, WalksAndChanges},
        {"walks a tree and reads it",
         {"ZBase::ConstMessageCursor::*", "ZBase::MessageWalk::*", "ZBase::MessageParameters::*"},
         kReturns | kBadAlloc,
         WalksAndReads},
        {"tells what was thrown", {"ZBase::MessageOfCurrentException"}, kReturns, TellsExceptions},
        {"writes a message as XML", {"ZBase::SerializeToXML"}, kReturns | kBadAlloc, WritesXml},
        {"reads a message from XML", {"ZBase::GetSerializerFromXML"}, kReturns | kBadAlloc, ReadsXml},
        {"describes errors",
         {"ZBase::GetSystemErrorDescription", "ZBase::IsSystemError",
          "ZBase::GetWin32APIErrorDescriptionOrNULL", "ZBase::GetStandardCLibraryError*",
          "ZBase::GetWin32ExceptionSymbol*", "ZBase::SimpleMessageLocalizer::*"},
         kReturns | kBadAlloc,
         DescribesErrors},
        {"names domains",
         {"ZBase::ToString(unsigned short)", "ZBase::ToMessageDomain", "ZBase::MESSAGE_DOMAIN_*"},
         kReturns,
         NamesDomains},
        // In a child, where nobody sees it end.
        {"tells of an uncaught failure",
         {"ZBase::InstallTerminateHandler"},
         kReturns,
         [](Trial& trial) { trial([] { ZBase::InstallTerminateHandler(); }); },
         EWhere::eInChildren},
    };
}

}  // namespace test
