#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/MessageBytes.h"
#include "tests/support/MessageTrees.h"

// The handlers with a reader played by hand: which calls they make, and which events they use.

namespace {

using test::DescribeTree;
using ZBase::Message;
using ZLiteXML::UTF8EventHandler;

// Sends the attributes of an element to the handler that got its start, or to the pushed one.
enum class ERoute { ToCaller, ToPushed };

class PlayedReader final : public ZLiteXML::UTF8Reader {
public:
    explicit PlayedReader(ERoute route = ERoute::ToCaller) : mRoute(route) {}

    void PushHandler(UTF8EventHandler* handler) override { mListeners.push_back({handler, mDepth}); }
    void Read(const char*, std::size_t) override { ADD_FAILURE() << "only PushHandler is called"; }
    void Finish() override { ADD_FAILURE() << "only PushHandler is called"; }

    PlayedReader& Start(const char* name) {
        const ZBase::SmartPtrI<UTF8EventHandler> caller = mListeners.back().handler;
        ++mDepth;
        caller->StartElement(name);
        mAttributeTaker = mRoute == ERoute::ToCaller ? caller : mListeners.back().handler;
        return *this;
    }
    PlayedReader& Attribute(const char* name, const char* value) {
        mAttributeTaker->Attribute(name, value);
        return *this;
    }
    PlayedReader& Text(const char* text) {
        mListeners.back().handler->Characters(text);
        return *this;
    }
    PlayedReader& End(const char* name) {
        while (mListeners.back().depth == mDepth) mListeners.pop_back();
        --mDepth;
        mListeners.back().handler->EndElement(name);
        return *this;
    }
    PlayedReader& StrayEnd(const char* name) {
        mListeners.back().handler->EndElement(name);
        return *this;
    }
    PlayedReader& Element(const char* name, const char* text) { return Start(name).Text(text).End(name); }
    std::size_t Listeners() const { return mListeners.size(); }

private:
    struct Listener {
        ZBase::SmartPtrI<UTF8EventHandler> handler;
        int depth;
    };
    ERoute mRoute;
    int mDepth = 0;
    std::vector<Listener> mListeners;
    ZBase::SmartPtrI<UTF8EventHandler> mAttributeTaker;
};

TEST(MessageXmlEvents, AttributesArriveByEitherRoute) {
    for (const ERoute route : {ERoute::ToCaller, ERoute::ToPushed}) {
        Message message;
        PlayedReader reader(route);
        reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
        reader.Start("m").Attribute("language_id", "zz");
        reader.Start("id").Attribute("language_id", "zz").Text("7").End("id");
        reader.Start("text").Attribute("language_id", "409").Text("te").Text("xt").End("text");
        reader.Start("lower_level_message").Attribute("language_id", "zz").End("lower_level_message");
        reader.Start("text").Attribute("other", "9").Text("any").End("text");
        reader.End("m");
        Message expected;
        expected.WrapBy(0, 7, nullptr);
        ZBase::MessageCursor cursor(expected);
        cursor.GoToLowerLevelMessage(true);
        cursor.GoToParent();
        expected.SetLocalizedText(0x409, "text");
        expected.SetLocalizedText(0, "any");
        EXPECT_EQ(DescribeTree(message), DescribeTree(expected));
    }
}

TEST(MessageXmlEvents, EachMessageAndEachTextPushesOneHandler) {
    Message message;
    PlayedReader reader;
    reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
    EXPECT_EQ(reader.Listeners(), 1u);
    EXPECT_EQ(reader.Start("m").Listeners(), 2u);
    EXPECT_EQ(reader.Start("id").Listeners(), 2u);
    EXPECT_EQ(reader.End("id").Start("text").Listeners(), 3u);
    EXPECT_EQ(reader.End("text").Start("same_level_message").Listeners(), 3u);
    EXPECT_EQ(reader.Start("lower_level_message").Listeners(), 4u);
    EXPECT_EQ(reader.Start("unknown").Listeners(), 4u);
}

TEST(MessageXmlEvents, EndsGoByTheElementThatWasStarted) {
    Message message;
    PlayedReader reader;
    reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
    reader.Start("m").Start("id").Text("7").End("parameter");
    reader.Start("parameter").Text("p").End("id");
    reader.Start("lower_level_message").Element("template", "t").End("nothing of the kind");
    Message expected;
    expected.SetTemplate("t");
    expected.WrapBy(0, 7, nullptr) << "p";
    EXPECT_EQ(DescribeTree(message), DescribeTree(expected));
}

TEST(MessageXmlEvents, FieldsOfTheRootAreThereFromTheirEndOn) {
    Message message;
    PlayedReader reader;
    reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
    reader.Start("m").Start("domain").Text("Ser").Text("ver");
    EXPECT_TRUE(message.IsEmpty());
    reader.End("domain");
    EXPECT_EQ(message.GetDomain(), 300);
    EXPECT_EQ(message.GetID(), 0);
    reader.Element("id", "7");
    EXPECT_EQ(message.GetID(), 7);
    reader.Start("text").Text("t").End("text");
    EXPECT_STREQ(message.GetLocalizedText(0), "t");
}

// A nested message is part of its parent after its end, and its parent part of the root after its own.
TEST(MessageXmlEvents, NestedMessageArrivesWithItsEnd) {
    Message message;
    PlayedReader reader;
    reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
    reader.Start("m").Start("lower_level_message").Element("id", "1");
    reader.Start("same_level_message").Element("id", "2").End("same_level_message");
    EXPECT_TRUE(message.IsEmpty());
    reader.Element("parameter", "behind what is nested").End("lower_level_message");
    const Message* lower = message.GetLowerLevelMessageOrNULL();
    ASSERT_NE(lower, nullptr);
    EXPECT_EQ(lower->GetID(), 1);
    EXPECT_STREQ(lower->GetParameter(0), "behind what is nested");
    ASSERT_NE(lower->GetSameLevelMessageOrNULL(), nullptr);
    EXPECT_EQ(lower->GetSameLevelMessageOrNULL()->GetID(), 2);
}

TEST(MessageXmlEvents, SecondNestedMessageOfAKindIsKeptBesideTheFirst) {
    Message message;
    PlayedReader reader;
    reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
    reader.Start("m");
    for (const char* id : {"1", "2"})
        reader.Start("lower_level_message").Element("id", id).End("lower_level_message");
    EXPECT_EQ(test::Layout(&message), "100-16: 34#5 34#5");
    EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetID(), 1);
}

TEST(MessageXmlEvents, ElementNameThatIsNotUtf8IsRefused) {
    Message message;
    PlayedReader reader;
    reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
    reader.Start("\xFF").Element("id", "7");
    EXPECT_THROW(reader.Start("caf\xE9"), ZBase::StringConversionException);
    EXPECT_EQ(message.GetID(), 7);
}

TEST(MessageXmlEvents, CommentsAreNoPartOfAMessage) {
    Message message;
    PlayedReader reader;
    const auto handler = ZBase::GetSerializerFromXML(message, reader);
    handler->Comment("nothing");
    handler->Attribute("a", "b");
    handler->Characters("c");
    handler->EndElement("d");
    EXPECT_TRUE(message.IsEmpty());
}

TEST(MessageXmlEvents, EndsWithoutStartsDoNothing) {
    Message message;
    PlayedReader reader;
    reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
    reader.Start("m").Start("lower_level_message").Element("id", "1");
    for (int time = 0; time < 5; ++time) reader.StrayEnd("lower_level_message");
    reader.End("lower_level_message");
    for (int time = 0; time < 5; ++time) reader.StrayEnd("lower_level_message");
    EXPECT_EQ(test::Layout(&message), "100-50: 34#5");
}

TEST(MessageXmlEvents, AnotherRootAddsToWhatIsThere) {
    const auto fill = [](PlayedReader& reader, const char* domain, const char* id, const char* texts) {
        reader.Start("m").Element("domain", domain).Element("id", id);
        reader.Element("template", texts).Element("parameter", texts);
        reader.Start("text").Attribute("language_id", "407").Text(texts).End("text").End("m");
    };
    Message message;
    PlayedReader reader;
    reader.PushHandler(ZBase::GetSerializerFromXML(message, reader).Get());
    fill(reader, "Windows API", "1", "first");
    fill(reader, "Server", "2", "the second one");
    Message expected(300, 2, "the second one");
    expected << "first"
             << "the second one";
    expected.SetLocalizedText(0x407, "the second one");
    EXPECT_TRUE(message == expected);
    EXPECT_EQ(message.GetID(), 2);
    EXPECT_EQ(message.GetTemplate(), std::string("the second one"));
    EXPECT_EQ(message.GetLocalizedText(0x407), std::string("the second one"));
}

TEST(MessageXmlEvents, HandlerIsHandedOutWithOneReference) {
    Message message;
    PlayedReader reader;
    auto handler = ZBase::GetSerializerFromXML(message, reader);
    UTF8EventHandler* taken = handler.Detach();
    EXPECT_TRUE(handler.IsNull());
    taken->AddRef();
    taken->Release();
    taken->StartElement("m");
    EXPECT_EQ(reader.Listeners(), 1u);
    taken->Release();
}

}  // namespace
