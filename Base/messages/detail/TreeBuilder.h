#pragma once

// Builds a message tree from the outside in, at a cost that is linear in what goes into it.
//
// `MessageCursor` packs a nested message into its parent at each step up, which copies what is at the bottom
// of n levels n times over. Here everything below the root grows in one run of bytes that has the packed form
// from the start: a nested message begins with the head of its record and of its block, what goes into it is
// appended, and their sizes are written when it ends. When the outermost one ends, the run is copied into the
// root as one record.

#include <Base/messages/detail/Records.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ZBase::detail {

/// Each addition throws `std::bad_alloc` with nothing added; but what finds no place in the root is lost, as
/// it is with `Message`. No addition takes longer because of what is there already.
class TreeBuilder {
public:
    /// Stands on `root`, which nobody else changes while something is added to the tree.
    explicit TreeBuilder(Message& root);
    TreeBuilder(const TreeBuilder&) = delete;
    TreeBuilder& operator=(const TreeBuilder&) = delete;

    /// Back to the root, whatever is in it now. What was begun and has not ended is lost.
    void Restart();

    /// Begins a message below the current one, under `TAG_LOWER_LEVEL` or `TAG_SAME_LEVEL`.
    void Begin(ETag tag);

    /// Ends the current message and goes back to its parent; at the root nothing happens.
    void End();

    /// Messages around the current one.
    std::size_t Depth() const { return mLevels.size() - 1; }

    // To the current message, as `Message` does it.
    void SetDomainAndID(unsigned short domain, int id);
    void SetTemplate(const std::string& text);
    void AddParameter(const std::string& text);
    void SetLocalizedText(unsigned short language, const std::string& text);

    /// The same for a text that begins with the `stored` characters that the last call for this message
    /// stored in this language, and that may grow further: such calls together cost what the text has grown.
    /// False when it is lost.
    bool GrowLocalizedText(unsigned short language, const std::string& text, std::size_t stored);

private:
    // Where a record is: below the root an offset in the run, where the first 21 bytes are heads; in the root
    // an address.
    using Place = std::uintptr_t;
    static constexpr Place kNowhere = 0;

    // In a longer chain gaps are not looked for any more: hostile input could make each search a long one.
    static constexpr std::size_t kSearchedBlocks = 64;

    // So many languages are told apart without an allocation.
    static constexpr std::size_t kFewTexts = 4;

    struct Level {
        std::size_t start = 0;  // of its record in the run
        Place header = kNowhere;
        Place textTemplate = kNowhere;
        Place texts[kFewTexts] = {};                   // of any languages; nowhere behind the last
        std::map<unsigned short, Place> furtherTexts;  // those that had no room there
    };

    bool IsAtRoot() const { return mLevels.size() == 1; }
    Record& At(Place place);
    Place& TextOf(unsigned short language);
    Place Add(std::size_t payloadSize, ETag tag);
    bool HasRoom(Place place, std::size_t payloadSize, ETag tag);
    bool MakeRoom(Place& place, std::size_t payloadSize, ETag tag);
    void WriteSizes(std::size_t start, std::size_t end);
    void MoveRunToRoot();
    void DropDeadRecords();
    void FollowRootChain();
    void NoteRootRecords();
    Block& RootSearchStart() { return mRootBlocks > kSearchedBlocks ? *mpLastRootBlock : *mpRoot; }

    Block* mpRoot;
    Block* mpLastRootBlock;
    std::size_t mRootBlocks = 1;
    std::vector<Level> mLevels;       // from the root to the current message
    std::vector<unsigned char> mRun;  // what is below the root and not in it yet
    bool mRunHasDead = false;         // it holds records that were replaced
};

}  // namespace ZBase::detail
