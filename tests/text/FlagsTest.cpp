// Operands in the place of a flag. All of it is checked by compiling.

#include <Base/text/GovernedConversions.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/NumberText.h>
#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Narrow = const char*;
using Wide = const unsigned short*;
using Units = unsigned short*;
using Octets = const unsigned char*;
using Contract = ZBase::SmartPtrI<ZBase::MemoryContract>&;
enum Unscoped { kSome };

// Converts to its content.
template <class Held>
struct Handle {
    Held held;
    operator Held() const { return held; }
};

// For each function, whether it takes arguments of these types.
#define TAKES(function)          \
    template <class... Argument> \
    constexpr bool function##Takes = requires(Argument... argument) { ZBase::function(argument...); }

TAKES(UTF8ToWideChar);
TAKES(WideCharToUTF8);
TAKES(WideCharToUTF8UsingLength);
TAKES(UTF16ToWideChar);
TAKES(WideCharToUTF16);
TAKES(ASCIIToWideChar);
TAKES(WideCharToASCII);
TAKES(MultiByteToWideChar);
TAKES(WideCharToMultiByte);
TAKES(ASCIIToUTF16);
TAKES(UTF16ToASCII);
TAKES(MultiByteToUTF16);
TAKES(UTF16ToMultiByte);
TAKES(HexToUnsignedInt);
TAKES(WideCharToUTF8Governed);
TAKES(WideCharToUTF8UsingLengthGoverned);

// Whether every function takes a flag of this type; they all do, or none does.
template <class Flag>
constexpr int kTaking =
    UTF8ToWideCharTakes<Narrow, Flag> + UTF8ToWideCharTakes<Octets, Units, std::size_t, Flag> +
    WideCharToUTF8Takes<Wide, Flag> + WideCharToUTF8UsingLengthTakes<Wide, unsigned int, Flag> +
    UTF16ToWideCharTakes<Wide, Flag> + WideCharToUTF16Takes<Wide, Flag> +
    WideCharToUTF16Takes<Wide, Units, std::size_t, Flag> + ASCIIToWideCharTakes<Narrow, Flag> +
    WideCharToASCIITakes<Wide, Flag> + MultiByteToWideCharTakes<Narrow, Flag> +
    WideCharToMultiByteTakes<Wide, Flag> + ASCIIToUTF16Takes<Narrow, Flag> +
    UTF16ToASCIITakes<const char16_t*, Flag> + MultiByteToUTF16Takes<Narrow, Flag> +
    UTF16ToMultiByteTakes<const char16_t*, Flag> + HexToUnsignedIntTakes<Narrow, Flag> +
    HexToUnsignedIntTakes<Wide, Flag> + WideCharToUTF8GovernedTakes<Wide, Flag, Contract> +
    WideCharToUTF8UsingLengthGovernedTakes<Wide, unsigned int, Contract, Flag>;

constexpr int kAll = 19;

TEST(Flags, BoolIsTakenByAll) {
    static_assert(kTaking<bool> == kAll && kTaking<const bool&> == kAll);
    static_assert(kTaking<std::vector<bool>::reference> == kAll && kTaking<std::true_type> == kAll);
    static_assert(kTaking<Handle<bool>> == kAll && kTaking<std::atomic<bool>&> == kAll);
}

TEST(Flags, SizeInItsPlaceDoesNotCompile) {
    static_assert(kTaking<std::size_t> == 0 && kTaking<int> == 0 && kTaking<unsigned char> == 0);
    static_assert(kTaking<double> == 0 && kTaking<Unscoped> == 0);
}

TEST(Flags, TextInItsPlaceDoesNotCompile) {
    static_assert(kTaking<const char*> == 0 && kTaking<const char(&)[3]> == 0 && kTaking<Wide> == 0);
    static_assert(kTaking<void (*)()> == 0 && kTaking<std::nullptr_t> == 0);
}

TEST(Flags, ObjectThatBecomesASizeOrATextInItsPlaceDoesNotCompile) {
    static_assert(kTaking<std::atomic<std::size_t>&> == 0);
    static_assert(kTaking<Handle<std::size_t>> == 0 && kTaking<Handle<int>&> == 0 &&
                  kTaking<Handle<double>> == 0);
    static_assert(kTaking<Handle<const char*>> == 0);
}

TEST(Flags, TextsConvertAsBefore) {
    const std::string text = "abc";
    EXPECT_EQ(ZBase::UTF8ToWideChar(text.c_str(), text.empty()).c_str()[2], 'c');
    EXPECT_EQ(ZBase::HexToUnsignedInt("fg", true), 15u);
}

}  // namespace
