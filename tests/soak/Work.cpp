#include "tests/soak/Work.h"

#include <sys/wait.h>
#include <unistd.h>

#include <memory_resource>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "tests/support/MessageTrees.h"
#include "tests/support/XmlDocuments.h"

namespace soak {

namespace {

using namespace ZBase::Literals;

void Expect(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(what);
}

void GrowRecords(World&, Random& random) {
    ZBase::Message message(300, 7, "%1 of %2");
    message << static_cast<int>(random()) << "text";
    for (unsigned int levels = random() % 8; levels != 0; --levels) message.WrapBy(10, 2, "level");
    ZBase::Message copy(message);
    copy.PrependBy(message);
    ZBase::MessageCursor cursor(copy);
    while (cursor.GoToLowerLevelMessage(false)) cursor.GetCurrentMessage() << "seen";
    while (cursor.GoToParent()) {
    }
    Expect(*ZBase::FormatMessage(std::as_const(copy), 0x409).c_str() != 0, "a record without a text");
}

void ExchangeRecords(World&, Random& random) {
    ZBase::Message message;
    test::FillAtRandom(message, random());
    ZBase::Message back;
    test::FromXML(test::ToXML(message), back, 1 + random() % 4096);
    Expect(test::DescribeTree(back) == test::DescribeTree(message), "a record came back another one");
}

void TakePieces(World& world, Random& random) {
    if (world.buffer == nullptr) return;
    for (int i = 0; i != 64; ++i) {
        const std::size_t size = random() % 2000;
        auto* const piece = static_cast<unsigned char*>(world.buffer->Allocate(size));
        std::fill(piece, piece + size, static_cast<unsigned char>(i));
    }
}

void OwnBuffer(World& world, Random& random) {
    const auto create = random() % 2 == 0 ? ZBase::CreateBufferSingleThread : ZBase::CreateBufferThreadSafe;
    const ZBase::BufferPtr buffer(create(0, 1, &world.contract, 0, random() % 2 == 0));
    ZBase::BufferResource memory(buffer.get());
    std::pmr::vector<unsigned int> numbers(&memory);
    const unsigned int count = random() % 20000;
    for (unsigned int i = 0; i != count; ++i) numbers.push_back(i);
    for (unsigned int i = 0; i != numbers.size(); ++i) Expect(numbers[i] == i, "a number in a buffer");
    if (random() % 4 == 0) buffer->Lock();
    if (random() % 4 == 0) buffer->DetachFromGovernors();
}

void ConvertTexts(World&, Random& random) {
    std::u16string units;
    for (unsigned int i = random() % 300; i != 0; --i)
        units.push_back(static_cast<char16_t>(1 + random() % 0xD7FF));
    const std::string octets = ZBase::ToUTF8(units, true);
    Expect(ZBase::ToUTF16(octets, false) == units, "a text came back another one");
    Expect(ZBase::UrlDecode(ZBase::UrlEncode(octets)) == octets, "a part of a URL came back another one");
    std::string bad = octets + "\xFF";
    try {
        ZBase::ToUTF16(bad, false);
        Expect(false, "an octet that is none");
    } catch (const ZBase::StringConversionException&) {
    }
    const double number = static_cast<double>(random()) / 7;
    Expect(ZBase::NearestDouble(ZBase::ShortestText(number)) == number, "a number came back another one");
}

void ConvertUnderABudget(World& world, Random& random) {
    const std::vector<unsigned short> letters(9001, static_cast<unsigned short>('a' + random() % 26));
    ZBase::SmartPtrI<ZBase::MemoryContract> contract(&world.contract);
    const ZBase::ReturnString text =
        ZBase::WideCharToUTF8UsingLengthGoverned(letters.data(), 9000, contract, false);
    Expect(std::string_view(text.c_str()).size() == 9000, "a text under a budget");
    const ZBase::BufferPtr buffer(ZBase::CreateBufferSingleThread(0, 1, &world.contract, 0, false));
    ZBase::FragmentedString* const string =
        ZBase::CreateFragmentedString("begin"_w, ZBase::Allocator<unsigned short>(buffer.get()));
    for (int i = 0; i != 40; ++i) string->Append(letters.data(), 100);
    string->Delete();
}

[[gnu::noipa]] void Fault(volatile int* at) {
    *at = 1;
}

void CatchAFault(World&, Random&) {
    thread_local const bool sIsSet = (ZBase::SetExceptionTranslator(), true);
    try {
        Fault(sIsSet ? nullptr : nullptr);
        Expect(false, "a fault that is none");
    } catch (const ZBase::StructuredExceptionImp& fault) {
        Expect(fault.GetCode() == 0xC0000005, "the code of a fault");
    }
}

void LookAtStacks(World&, Random&) {
    ZBase::CallStack* const stack = ZBase::CreateCallStack(nullptr);
    const bool hasText = *stack->ToString() != 0;
    stack->Delete();
    Expect(hasText, "a stack without lines");
}

void ReloadAComponent(World& world, Random&) {
    const ZBase::ReturnWString path = ZBase::UTF8ToWideChar(world.component.c_str(), false);
    const auto component = ZBase::LoadSharedLibrary(path.c_str());
    const auto addOne = reinterpret_cast<int (*)(int)>(component->GetFunctionAddress("AddOne"_w));
    Expect(addOne(41) == 42, "a function of a component");
}

void ForkAChild(World&, Random&) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        ZBase::Buffer* const buffer = ZBase::CreateBufferThreadSafe(1, 1, nullptr, 0, true);
        buffer->Allocate(10'000);
        buffer->Delete();
        ZBase::AddCrashNote("in a child");
        _exit(17);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0) {
    }
    Expect(child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 17, "a child ended otherwise");
}

void ChangeFlags(World&, Random& random) {
    ZBase::SetFeatureEnabled("Soak/Feature"_w, random() % 2 == 0);
    ZBase::IsFeatureEnabled("Soak/Feature"_w);
    ZBase::AddCrashNote("a flag has changed");
    ZBase::SetCrashAttr("flags", random() % 2 == 0 ? "even" : "odd", true);
}

void LookAtTheHost(World&, Random&) {
    ZBase::GetComputerName();
    ZBase::GetCurrentLogin();
    Expect(ZBase::IsValidIPAddress("127.0.0.1"), "an address");
    const ZBase::GUID fresh;
    _GUID read{};
    Expect(ZBase::String2Guid(read, fresh.ToWString().c_str()) && fresh == read, "an identifier");
    const ZBase::ReturnString denied =
        ZBase::WideCharToUTF8(ZBase::GetSystemErrorDescription(5).c_str(), false);
    Expect(std::string_view(denied.c_str()).find("Access is denied.") != std::string_view::npos,
           "the text of a code");
}

}  // namespace

const std::array<Operation, kOperations> kWork = {{
    {"records", GrowRecords},
    {"documents", ExchangeRecords},
    {"pieces of one buffer", TakePieces},
    {"buffers", OwnBuffer},
    {"texts", ConvertTexts},
    {"texts under a budget", ConvertUnderABudget},
    {"faults", CatchAFault},
    {"stacks", LookAtStacks},
    {"reloads of a component", ReloadAComponent},
    {"forks", ForkAChild},
    {"changes of flags", ChangeFlags},
    {"facts of the host", LookAtTheHost},
}};

World::World() {
    RenewBuffer();
}

World::~World() {
    if (buffer != nullptr) buffer->Delete();
}

void World::RenewBuffer() {
    if (buffer != nullptr) buffer->Delete();
    buffer = nullptr;
    try {
        buffer = ZBase::CreateBufferThreadSafe(1, 1, &contract, 0, false);
        ZBase::LimitGrowth(buffer, 65536);
    } catch (const ZBase::ContractManagerAllocException&) {
    }
}

}  // namespace soak
