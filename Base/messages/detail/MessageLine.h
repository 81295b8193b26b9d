#pragma once

#include <Base/messages/Message.h>
#include <Base/messages/detail/Records.h>

#include <string>
#include <vector>

namespace ZBase::detail {

/// The parts of the text of one message, without those nested in it. Points into the message.
class MessageLine {
public:
    /// Throws `std::bad_alloc`.
    MessageLine(const Message& message, unsigned short language);

    /// The text that is stored for the language, or null.
    const char* Stored() const { return mpStored; }

    unsigned short Domain() const { return mDomain; }
    int ID() const { return mID; }
    const char* Template() const { return mpTemplate; }

    /// Ended by a null pointer.
    const char* const* Parameters() const { return mMore.empty() ? mFew : mMore.data(); }

private:
    static constexpr std::size_t kFew = 16;

    void AddParameter(const char* text);

    unsigned short mDomain = MESSAGE_DOMAIN_UNKNOWN;
    int mID = 0;
    const char* mpTemplate = nullptr;
    const char* mpStored = nullptr;
    std::size_t mCount = 0;
    const char* mFew[kFew + 1];      // all parameters while they are few
    std::vector<const char*> mMore;  // else all of them
};

// Functions that append, so that the texts of a tree need no block each.

/// As `MergeParametersIntoTemplate`. Throws `std::bad_alloc`.
void AppendMerged(std::string& text, const char* textTemplate, const char* const parameters[]);

/// As `SimpleMessageLocalizer`. Throws as that does.
void AppendSimpleText(std::string& text, unsigned short language, unsigned short domain, int id,
                      const char* textTemplate, const char* const parameters[]);

}  // namespace ZBase::detail
