// One failure as it grows: thrown, wrapped by each caller that knows more, joined by one that followed from
// it, and read at the edge of the program in every form.

#include <Base/ZBase.h>

#include <cstdio>
#include <string>

namespace {

// Ids of the program's own messages, in the domain of the server.
constexpr int kNotText = 103;
constexpr int kLoadFailed = 110;
constexpr int kStartFailed = 120;

void Decode(const std::string& name, const char* octets) {
    try {
        ZBase::UTF8ToWideChar(octets, false);
    } catch (ZBase::Message& failure) {  // an exception of the library is a record already
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kNotText, "%1 is not text; %2 bytes were read.")
            << name << std::string_view(octets).size();
        throw;
    }
}

void Load(const std::string& name) {
    try {
        Decode(name, "caf\xE9 au lait");
    } catch (ZBase::Message& failure) {
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kLoadFailed, "The menu could not be loaded.");
        throw;
    }
}

void Start() {
    try {
        Load("menu.txt");
    } catch (ZBase::Message& failure) {
        // Its consequence is put before it on the same level, and both are the cause of the next.
        failure.PrependBy(ZBase::MESSAGE_DOMAIN_ERRNO, 2, nullptr);
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kStartFailed, "%1 did not start after %2 s, state %3.")
            << "kitchen" << 1.5 << &ZBase::Message::Hex << 255;
        failure.SetLocalizedText(0x407, "Die K\u00FCche hat nicht ge\u00F6ffnet.");
        throw;
    }
}

// A program's access to each message of the tree.
void Walk(const ZBase::Message& record) {
    for (const ZBase::MessageVisit& visit : ZBase::MessageWalk(record)) {
        std::printf("  level %zu: domain %s, id %d, %u parameters\n", visit.level,
                    ZBase::ToString(visit.message->GetDomain()), visit.message->GetID(),
                    visit.message->GetParameterCount());
    }
}

}  // namespace

int main() {
    try {
        Start();
    } catch (const ZBase::Message& failure) {
        std::printf("one line:\n%s\n", ZBase::FormatMessage(failure, 0).c_str());
        std::printf("a tree:\n%s", ZBase::FormatTree(failure).c_str());
        std::printf("with all that is in it:\n%s",
                    ZBase::FormatTree(failure, {.parameters = true, .texts = true}).c_str());
        std::puts("message by message:");
        Walk(failure);
        return failure.GetID() == kStartFailed ? 0 : 1;
    }
    return 1;
}
