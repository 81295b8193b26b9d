// EventProbe: runs through the life of the process's event channel and prints what happens.

#include <Base/ZBase.h>

#include <cstdio>

class ZBase::AppGlobalEvent {
public:
    int number;
};

namespace {

using ZBase::AppGlobalEvent;
using Reporter = ZBase::AppGlobalEventReporter;

class Listener : public ZBase::AppGlobalEventCallback {
public:
    explicit Listener(const char* name) : mName(name) {}
    void OnEvent(AppGlobalEvent& event) override {
        std::printf("%s got %d\n", mName, event.number++);
        if (event.number == 10) throw event.number;
    }

private:
    const char* mName;
};

void Register(Listener* listener) {
    try {
        Reporter::RegisterCallback(listener);
        std::puts("registered");
    } catch (const ZBase::Message& failure) {
        std::printf("refused: %d %d %s\n", failure.GetDomain(), failure.GetID(), failure.GetLocalizedText(0));
    }
}

void RegisterByType(Listener* listener) {
    try {
        Reporter::RegisterCallback(listener);
    } catch (const ZBase::ExceptionImpl<ZBase::AppGlobalEventReporterException>&) {
        std::puts("refused by its type");
    }
}

}  // namespace

int main() {
    AppGlobalEvent event{1};
    Reporter::Report(event);
    std::printf("nobody: %d\n", event.number);
    Register(nullptr);
    Reporter::Report(event);

    Listener a("a");
    Listener b("b");
    Register(&a);
    Reporter::Report(event);
    Register(&b);
    Register(&a);
    Register(nullptr);
    RegisterByType(&b);
    Reporter::Report(event);
    std::printf("after: %d\n", event.number);
    std::printf("read back: %s\n", Reporter::GetCallback() == nullptr ? "null" : "something");
    event.number = 9;
    try {
        Reporter::Report(event);
    } catch (int number) {
        std::printf("passed through: %d\n", number);
    }
}
