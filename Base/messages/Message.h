#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnUString.h>
#include <Base/frame/ReturnWString.h>
#include <Base/messages/MessageDomains.h>

#include <concepts>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#if defined(_WIN32)  // <windows.h> has macros of these names
#pragma push_macro("GetMessage")
#undef GetMessage
#endif

namespace ZBase {

class Message;

namespace detail {

// The kinds of operands of `message << operand`.
struct MessageOperand {
    static std::true_type IsBool(bool);
    static std::false_type IsBool(int);
    static std::false_type IsBool(unsigned int);
    static std::false_type IsBool(long);
    static std::false_type IsBool(unsigned long);
    static std::false_type IsBool(long long);
    static std::false_type IsBool(unsigned long long);
    static std::false_type IsBool(double);
    static std::false_type IsBool(std::string_view);
    static std::false_type IsBool(const std::string&);
    static std::false_type IsBool(const ReturnString&);
    static std::false_type IsBool(const ReturnWString&);
    static std::false_type IsBool(const ReturnUString&);
    static std::false_type IsBool(const char*);
    static std::false_type IsBool(const unsigned short*);
    static std::false_type IsBool(void (*)(Message&));
};

/// Operands that convert to `bool`: functions, members, other pointers, types with an `operator bool`.
template <class T>
concept TurnsIntoBool = !std::same_as<std::remove_cv_t<T>, bool> && requires(T& operand) {
    { MessageOperand::IsBool(operand) } -> std::same_as<std::true_type>;
};

}  // namespace detail

/// An error or a piece of information: a domain and an id, a template text with its parameters, texts in
/// several languages, a wide text, and further messages nested inside.
///
/// A message is one flat sequence of tagged records in a block of 100 bytes, with all its content inline;
/// when the block is full it continues in a chain of heap blocks, each of 100 bytes or as large as the one
/// record in it. What fits in the block is built, copied and swapped without the heap, and thrown with no
/// more than the language takes for the thrown object. Nesting and localising take heap. A message may be at
/// any address and belongs to one thread at a time.
///
/// Additions never throw for want of memory: what can't be stored is lost and the message stays well-formed.
/// Texts are copied in; a returned pointer is valid until the message changes. The space of a deleted or
/// replaced text is reclaimed when the message is copied. An addition and a look-up walk the message, so n
/// parameters cost O(n^2); a message is made for tens of them.
class ZBASE_API Message {
public:
    /// The smallest memory in bytes that a message can be built in.
    static const unsigned int MIN_SIZE = 16;

    class PlacementPtr;
    class PlacementArrayPtr;
    class Localizer;

    /// An empty message.
    Message() noexcept;

    /// A message with this domain, id and, unless it is null, UTF-8 template text. "%1" to "%9" in the
    /// template stand for the parameters.
    Message(unsigned short domain, int id, const char* textTemplate) noexcept;

    Message(const Message& other) noexcept;

    /// Assigned to itself it becomes empty, as it is cleared first; kept for callers that clear by it.
    Message& operator=(const Message& other) noexcept;

    /// Take the content over with its heap blocks and leave `other` empty. Only if `other` has a larger first
    /// block than this one, as a message in memory of its own may, is that copied; without memory for all of
    /// the copy `other` keeps its content.
    Message(Message&& other) noexcept;
    Message& operator=(Message&& other) noexcept;

    ~Message();

    /// Drops all content and frees the heap blocks.
    void Clear();

    /// True when there is nothing in the message.
    bool IsEmpty() const;

    /// Exchanges the contents. Allocates nothing between messages of one size; otherwise one heap block, and
    /// false, with both unchanged, when there is no memory for it.
    bool Swap(Message& other);

    // Identity

    /// The domain and the id; 0 when none was set.
    unsigned short GetDomain() const;
    int GetID() const;
    unsigned int GetErrorCode() const;
    void SetDomainAndID(unsigned short domain, int id);

    // Template and parameters

    /// The UTF-8 template, or null.
    const char* GetTemplate() const;

    /// Replaces the template; null removes it.
    void SetTemplate(const char* textTemplate);

    /// The UTF-8 text of parameter `index`, counted from 0; null past the end.
    const char* GetParameter(unsigned int index) const;

    /// The number of parameters. To read them all use `MessageParameters`, which takes one walk for all.
    unsigned int GetParameterCount() const;

    /// Appends a parameter. A null text counts as an empty one. When there is no memory for a text, an empty
    /// parameter is stored instead, so that later ones keep their numbers. The call does not return before
    /// that one is stored: it yields, and then sleeps, between its tries.
    Message& operator<<(const char* text);

    /// Appends wide text as UTF-8. Throws `StringConversionException` for a lone surrogate, and
    /// `std::bad_alloc`, before the message changes. Other bad units are replaced.
    Message& operator<<(const unsigned short* text);

    /// The same with a text that has its length. A parameter ends at its first zero, and so does this one. A
    /// wide result string fails as wide text does.
    Message& operator<<(std::string_view text);
    Message& operator<<(const std::string& text) { return *this << std::string_view(text); }
    Message& operator<<(const ReturnString& text);
    Message& operator<<(const ReturnWString& text);
    Message& operator<<(const ReturnUString& text);

    /// Appends "true" or "false".
    Message& operator<<(bool value);

    /// Deleted for operands that only convert to `bool`: the name of a function, a `wchar_t` text or any
    /// other pointer, a handle with an `operator bool`, an element of a `std::vector<bool>`. Write
    /// `bool(...)`.
    template <detail::TurnsIntoBool T>
    Message& operator<<(const T& operand) = delete;

    /// Appends a number in the number format of the message: its low 32 bits, so 4294967297 in a `long` is 1;
    /// cast what may have more, such as a `std::size_t`, to `long long` or `unsigned long long`. Characters
    /// and plain enumerations are appended as numbers: 'c' is 99. An ambiguous operand, such as a `long
    /// double` or `nullptr`, does not compile.
    Message& operator<<(int value);
    Message& operator<<(unsigned int value);
    Message& operator<<(long value);
    Message& operator<<(unsigned long value);

    /// All 64 bits, in the number format of the message.
    Message& operator<<(long long value);
    Message& operator<<(unsigned long long value);

    /// The shortest decimal text that reads back as the same number, such as "0.1", "1e+100", "inf" or "nan";
    /// the same in every locale and number format.
    Message& operator<<(double value);

    /// Calls the manipulator on this message: `message << Message::Hex << 255`.
    Message& operator<<(void (*manipulator)(Message&));

    /// Set how further numbers are written: decimal; "0x" and as many upper-case hexadecimal digits as
    /// needed, at least 8, at least 16. The format stays with the message and its copies. No effect on a
    /// message that has neither domain nor id.
    static void Dec(Message& message);
    static void Hex(Message& message);
    static void WideHex(Message& message);
    static void WideWideHex(Message& message);

    // Texts

    /// The stored UTF-8 text for a Windows language id, or null.
    const char* GetLocalizedText(unsigned short language) const;

    /// Stores a UTF-8 text for a language in place of the one there; null removes it.
    void SetLocalizedText(unsigned short language, const char* text);

    /// Stores a wide text, and the same in UTF-8 as the text of language 0; null removes both. Throws
    /// `StringConversionException` for a lone surrogate, and `std::bad_alloc`, before the message changes.
    void SetMessage(const unsigned short* text);

    /// The wide text that was set, or else the text of the whole tree in language 0x409, which is then kept
    /// in the message and not made anew when the message changes. Null when there is no memory to keep it.
    /// Only for a message that is not nested in another: what a nested one keeps is never freed. Although it
    /// is const it writes, so two threads must not call it on one message. Throws `std::bad_alloc`.
    const unsigned short* GetMessage() const;
#if defined(_WIN32)
    // What the call is named by the macro of <windows.h>.
    const unsigned short* GetMessageA() const { return GetMessage(); }
    const unsigned short* GetMessageW() const { return GetMessage(); }
#endif

    /// The text of this message without those nested in it: the one stored for `language`, otherwise the
    /// result of `localizer`, which may be a null string. Throws `std::bad_alloc`.
    ReturnString Localize(Localizer& localizer, unsigned short language) const;

    // Nesting

    /// Makes the content a lower-level message, the cause, of a new message with this domain, id and
    /// template. On an empty message only the new one is made. Copies the content twice, so n wraps cost
    /// O(n^2). Without memory for the first copy the message stays unchanged, and also if the content would
    /// reach 4 GiB; without memory for the second, the content is lost and the new message stays.
    Message& WrapBy(unsigned short domain, int id, const char* textTemplate);

    /// The same, with the content following the new message on its own level.
    Message& PrependBy(unsigned short domain, int id, const char* textTemplate);

    /// Puts `other` and what follows it on its level in front of this message, at a cost that is linear in
    /// both. `other` may be this message or one nested in it. Losses without memory are as above, including
    /// the messages after `other`.
    Message& PrependBy(const Message& other);

    /// The message that this one wraps, or that follows it on its level; null if there is none. Valid until
    /// this message changes.
    const Message* GetLowerLevelMessageOrNULL() const;
    const Message* GetSameLevelMessageOrNULL() const;

private:
    // `size` is the number of bytes of the memory at `this`.
    explicit Message(unsigned int size) noexcept;
    Message(unsigned int size, const Message& other) noexcept;
    Message(unsigned int size, unsigned short domain, int id, const char* textTemplate) noexcept;

    void SetNumberFormat(unsigned char radix, unsigned char width);
    void GetNumberFormatW(unsigned char& radix, unsigned char& width) const;

    unsigned char mBlock[100];
};

/// Whether two trees are equal: domains, ids, templates, parameters and the texts of all languages, message
/// by message. One without domain and id is not one whose domain and id are 0, as its XML form says neither.
/// Number formats and wide texts are not compared. Throws `std::bad_alloc`.
ZBASE_API bool operator==(const Message& one, const Message& other);

/// Writes the whole tree as `FormatMessage(message, 0)` gives it. Throws `std::bad_alloc`.
ZBASE_API std::ostream& operator<<(std::ostream& stream, const Message& message);

static_assert(sizeof(Message) == 100);
static_assert(alignof(Message) == 1);

/// Makes the text of one message when it is read, for one language.
class ZBASE_API Message::Localizer {
public:
    /// The UTF-8 text for `language`, or a null string. `textTemplate` is null if the message has none;
    /// `parameters` ends with a null pointer.
    virtual ReturnString LocalizeText(unsigned short language, unsigned short domain, int id,
                                      const char* textTemplate, const char* const* parameters) = 0;

    virtual ~Localizer() = default;
};

/// A message in memory that the caller supplies and keeps: the holder frees its heap blocks, but not that
/// memory.
class ZBASE_API Message::PlacementPtr {
public:
    /// Null when `memory` is null or `size`, in bytes, is below `Message::MIN_SIZE`.
    PlacementPtr(void* memory, unsigned int size);
    PlacementPtr(void* memory, unsigned int size, const Message& other);
    PlacementPtr(void* memory, unsigned int size, unsigned short domain, int id, const char* textTemplate);
    ~PlacementPtr();

    PlacementPtr(const PlacementPtr&) = delete;
    PlacementPtr& operator=(const PlacementPtr&) = delete;

    Message* operator->() const { return mpMessage; }
    Message* Get() const { return mpMessage; }
    Message& operator*() const { return *mpMessage; }
    bool IsNull() const { return mpMessage == nullptr; }

private:
    Message* mpMessage = nullptr;  // in the caller's memory
};

/// Consecutive messages in memory that the caller supplies and keeps.
class ZBASE_API Message::PlacementArrayPtr {
public:
    /// As many messages of `elementSize` bytes as fit in `totalSize`. Null when `memory` is null,
    /// `elementSize` is below `Message::MIN_SIZE`, or not smaller than `totalSize`: memory for exactly one is
    /// refused; kept for callers that rely on it.
    PlacementArrayPtr(void* memory, unsigned int totalSize, unsigned int elementSize);
    PlacementArrayPtr(void* memory, unsigned int totalSize, unsigned int elementSize, const Message& other);
    PlacementArrayPtr(void* memory, unsigned int totalSize, unsigned int elementSize, unsigned short domain,
                      int id, const char* textTemplate);
    ~PlacementArrayPtr();

    PlacementArrayPtr(const PlacementArrayPtr&) = delete;
    PlacementArrayPtr& operator=(const PlacementArrayPtr&) = delete;

    /// Message number `index`; the index is not checked.
    Message& operator[](unsigned int index);
    bool IsNull() const { return mpFirst == nullptr; }

private:
    Message* mpFirst = nullptr;  // in the caller's memory
    unsigned int mTotalSize;     // bytes
    unsigned int mElementSize;   // bytes
};

}  // namespace ZBase

#if defined(_WIN32)
#pragma pop_macro("GetMessage")
#endif
