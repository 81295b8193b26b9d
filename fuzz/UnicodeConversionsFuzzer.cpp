// The input is decoded as UTF-8 and encoded as wide text, in both modes and by every kind of kernel that the
// processor can run, and compared with the slow model of the tests.
//
// For: Base/text/detail/Utf8Decoder.cpp Base/text/detail/Utf8Encoder.h
// For:

#include <Base/text/UnicodeConversions.h>
#include <Base/text/detail/TextKernels.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/Check.h"
#include "tests/support/SlowUnicode.h"

namespace {

using test::Outcome;
using test::Units;

void CheckDecoding(const std::string& octets, bool replace) {
    const Outcome<Units> expected = test::SlowUtf8ToWide(octets, replace);
    std::vector<unsigned short> units(octets.size() + 1, 0xAAAA);
    const std::string failure = fuzz::Failure([&] {
        const auto* source = reinterpret_cast<const unsigned char*>(octets.data());
        fuzz::Check(ZBase::UTF8ToWideChar(source, units.data(), octets.size(), replace),
                    "decoder says false");
    });
    fuzz::Check(failure == expected.failure, "failure of the decoder");
    if (!failure.empty()) return;
    fuzz::Check(Units(units.data(), expected.text.size()) == expected.text, "text of the decoder");
    fuzz::Check(units[expected.text.size()] == 0, "terminator of the decoder");
}

template <class Encode>
void CheckEncoding(const Outcome<std::string>& expected, Encode encode) {
    std::string text;
    const std::string failure = fuzz::Failure([&] { text = encode().c_str(); });
    fuzz::Check(failure == expected.failure, "failure of an encoder");
    fuzz::Check(text == expected.text, "text of an encoder");
}

void CheckEncodings(const Units& units) {
    for (const bool replace : {false, true}) {
        const Outcome<std::string> expected = test::SlowWideToUtf8(units, replace);
        CheckEncoding(expected, [&] { return ZBase::WideCharToUTF8(units.c_str(), replace); });
        if (units.empty()) continue;
        // The same units at the end of the text.
        const std::vector<unsigned short> bare(units.begin(), units.end());
        const auto length = static_cast<unsigned int>(bare.size());
        CheckEncoding(expected,
                      [&] { return ZBase::WideCharToUTF8UsingLength(bare.data(), length, replace); });
    }
    CheckEncoding(test::SlowUtf16ToUtf8(units), [&] { return ZBase::UTF16ToUTF8(units.c_str()); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string octets(reinterpret_cast<const char*>(data), size);
    Units units(size / 2, 0);
    if (!units.empty()) std::memcpy(units.data(), data, units.size() * 2);
    units.resize(std::min(units.size(), units.find(static_cast<unsigned short>(0))));

    const ZBase::detail::KernelList runnable = ZBase::detail::RunnableKernels();
    for (std::size_t kind = 0; kind != runnable.count; ++kind) {
        ZBase::detail::UseKernels(runnable.kinds[kind]);
        CheckDecoding(octets, false);
        CheckDecoding(octets, true);
        CheckEncodings(units);
    }
    return 0;
}
