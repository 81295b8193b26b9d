// The input is a program of operations on wide text in fragments, on the heap or in a buffer that fails as
// the program says; a model has the text, and the sizes of the fragments.
//
// For: Base/text/FragmentedString.cpp

#include <Base/frame/Exceptions.h>
#include <Base/text/FragmentedString.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "fuzz/Check.h"
#include "tests/support/Choices.h"
#include "tests/support/SlowUnicode.h"
#include "tests/support/StandInBuffer.h"

namespace {

using test::Choices;
using test::Units;

constexpr int kFailures = 6;

// Pieces of exact size; a failure of each kind where the program wants one.
class FailingBuffer final : public test::StandInBuffer {
public:
    void* Allocate(std::size_t size) override {
        switch (failure) {
            case 1:
                return nullptr;
            case 2:
                throw std::bad_alloc();
            case 3:
                throw ZBase::ExceptionImpl<ZBase::BufferException>();
            case 4: {
                ZBase::ExceptionImpl<ZBase::ContractManagerAllocException> refusal;
                refusal.SetDomainAndID(0, 1816);
                throw refusal;
            }
            case 5:
                throw std::runtime_error("of no kind");
            default:
                blocks.emplace_back(new char[size]);
                return blocks.back().get();
        }
    }

    // What an append then returns.
    unsigned int Code() const {
        const unsigned int codes[kFailures] = {0, 0x8007000E, 0x8007000E, 0x80041FF2, 1816, 0x8000FFFF};
        return codes[failure];
    }

    int failure = 0;
    std::vector<std::unique_ptr<char[]>> blocks;
};

struct Model {
    Units text;
    std::vector<std::size_t> fragments;  // bytes of each, 16 of the header included
    std::size_t capacity = 0;

    std::size_t Total() const {
        std::size_t total = 0;
        for (const std::size_t size : fragments) total += size;
        return total;
    }
    std::size_t Room() const { return (Total() - 16 * fragments.size()) / 2 - text.size(); }

    // A fragment takes no more than 512 bytes, or the rest of the text that opens it, in 512 bytes each.
    bool Append(const Units& added, bool fails) {
        const std::size_t fitting = std::min(Room(), added.size());
        text += added.substr(0, fitting);
        if (fitting == added.size()) return true;
        if (fails) return false;
        std::size_t size = 512;
        while (size - 16 < 2 * (added.size() - fitting)) size += 512;
        fragments.push_back(size);
        text += added.substr(fitting);
        return true;
    }
};

struct DeleteString {
    void operator()(ZBase::FragmentedString* string) const { string->Delete(); }
};
using StringPtr = std::unique_ptr<ZBase::FragmentedString, DeleteString>;

Units Text(Choices& choices) {
    const unsigned int length = choices.Below(8) == 0 ? choices.Below(256) * 9 : choices.Below(40);
    const unsigned int first = choices.Below(256);
    Units text;
    for (unsigned int i = 0; i != length; ++i) text += static_cast<unsigned short>(1 + (first + i) % 60000);
    return text;
}

template <class Get>
unsigned int Number(Get get) {
    unsigned int value = 0xAAAAAAAA;
    fuzz::Check(get(&value) == 0 && get(nullptr) == 1, "a number of the text");
    return value;
}

void CheckText(ZBase::FragmentedString& string, const Model& model, unsigned int count) {
    fuzz::Check(Number([&](unsigned int* out) { return string.GetLength(out); }) == model.text.size(),
                "length");
    fuzz::Check(Number([&](unsigned int* out) { return string.GetTotalBytes(out); }) == model.Total(),
                "total bytes");
    fuzz::Check(
        Number([&](unsigned int* out) { return string.GetFragmentCount(out); }) == model.fragments.size(),
        "fragments");
    fuzz::Check(Number([&](unsigned int* out) { return string.GetInitialCapacity(out); }) == model.capacity,
                "initial capacity");
    for (const std::size_t wanted : {std::size_t{count}, model.text.size()}) {
        const std::size_t copied = std::min(wanted, model.text.size());
        // Of the exact size, so that a sanitizer detects overruns; null is no destination for more than none.
        const std::unique_ptr<unsigned short[]> units(new unsigned short[copied]);
        fuzz::Check(string.CopyTo(static_cast<unsigned int>(wanted), units.get()) == 0, "CopyTo");
        fuzz::Check(std::memcmp(units.get(), model.text.data(), copied * sizeof(unsigned short)) == 0,
                    "text");
    }
}

// Null when the first fragment, or the object, failed.
StringPtr Create(Choices& choices, FailingBuffer& buffer, bool onHeap, Model& model) {
    const Units text = Text(choices);
    const bool isNull = choices.Below(4) == 0;
    const bool withCapacity = choices.Flag();
    const std::size_t capacity = choices.Below(64);
    const unsigned short* const given = isNull ? nullptr : text.c_str();
    const ZBase::Allocator<unsigned short> allocator(onHeap ? nullptr : &buffer);
    model.capacity = withCapacity ? capacity : 0;
    model.fragments = {withCapacity ? 2 * capacity + 16 : 512};
    const Units added = isNull ? Units() : text;
    if (!withCapacity)
        while (model.fragments[0] - 16 < 2 * added.size()) model.fragments[0] += 512;
    model.Append(added, false);
    try {
        return StringPtr(withCapacity ? ZBase::CreateFragmentedString(given, capacity, allocator)
                                      : ZBase::CreateFragmentedString(given, allocator));
    } catch (const std::exception&) {
    } catch (const ZBase::Message&) {
    } catch (long code) {
        fuzz::Check(code == static_cast<long>(0x8007000E), "a long that is thrown");
    }
    return nullptr;
}

// A text of 4 GiB and more is refused, whatever of it could be had.
void CheckLargest(ZBase::FragmentedString& string) {
    try {
        const ZBase::Allocator<unsigned short> heap;
        StringPtr(ZBase::CreateFragmentedString(nullptr, 0xFFFFFFFFull, heap));
        fuzz::Check(false, "a text of 8 GiB");
    } catch (const std::bad_alloc&) {
    }
    fuzz::Check(string.Append(nullptr, 3) == 1 && string.AppendString(nullptr) == 1 &&
                    string.AppendChar(0) == 1 && string.CopyTo(2, nullptr) == 1 &&
                    string.CopyTo(0, nullptr) == 0,
                "null");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices choices(data, size);
    FailingBuffer buffer;
    const bool onHeap = choices.Flag();
    buffer.failure = choices.Below(8) == 0 ? static_cast<int>(choices.Below(kFailures)) : 0;
    Model model;
    const StringPtr string = Create(choices, buffer, onHeap, model);
    fuzz::Check((string == nullptr) == (!onHeap && buffer.failure != 0), "whether there is a text");
    if (string == nullptr) return 0;
    CheckLargest(*string);
    CheckText(*string, model, 3);
    while (!choices.IsOver() && model.Total() < 200000) {
        const unsigned int operation = choices.Below(6);
        const bool fails = !onHeap && buffer.failure != 0;
        if (operation == 0) {
            buffer.failure = choices.Flag() ? static_cast<int>(choices.Below(kFailures)) : 0;
        } else if (operation < 3) {
            const Units text = Text(choices);
            const bool isWhole = model.Append(text, fails);
            const int code = operation == 1
                                 ? string->AppendString(text.c_str())
                                 : string->Append(text.data(), static_cast<unsigned int>(text.size()));
            fuzz::Check(static_cast<unsigned int>(code) == (isWhole ? 0 : buffer.Code()),
                        "result of an append");
        } else {
            const auto unit = static_cast<unsigned short>(1 + choices.Below(256));
            const bool isWhole = model.Append({unit}, fails);
            fuzz::Check(static_cast<unsigned int>(string->AppendChar(unit)) == (isWhole ? 0 : buffer.Code()),
                        "result of AppendChar");
        }
        CheckText(*string, model, choices.Below(256) * 4);
    }
    return 0;
}
