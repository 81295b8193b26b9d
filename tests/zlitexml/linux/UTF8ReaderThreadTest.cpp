#include <ZLiteXML/UTF8Reader.h>

#include <Base/frame/ReferenceCountedImpl.h>
#include <Base/frame/SmartPtrI.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>

namespace {

class CancelledHandler : public ZLiteXML::UTF8EventHandler,
                         public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    void StartElement(const char*) override {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    }
    void Attribute(const char*, const char*) override {}
    void Characters(const char*) override {}
    void Comment(const char*) override {}
    void EndElement(const char*) override {}
};

TEST(UTF8ReaderThread, IsCancelledInAHandlerAsAnywhereElse) {
    const auto read = [](void*) -> void* {
        const auto reader = ZLiteXML::CreateReader({});
        reader->PushHandler(new CancelledHandler);
        reader->Read("<a/>", std::strlen("<a/>"));
        return nullptr;
    };
    pthread_t thread{};
    void* end = nullptr;
    ASSERT_EQ(pthread_create(&thread, nullptr, read, nullptr), 0);
    pthread_join(thread, &end);
    EXPECT_EQ(end, PTHREAD_CANCELED);
}

}  // namespace
