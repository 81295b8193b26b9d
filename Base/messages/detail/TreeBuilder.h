#pragma once

// Builds a message tree from the outside in, at a cost that is linear in what goes into it.
//
// `MessageCursor` packs a nested message into its parent at each step up, which copies the innermost of n
// levels n times. Here everything below the root grows in one run of bytes that has the packed form from the
// start: a nested message begins with the head of its record and of its block, its content is appended, and
// the sizes are written when it ends. When the outermost one ends, the run is copied into the root as one
// record.

#include <Base/messages/detail/Records.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ZBase::detail {

/// Each addition throws `std::bad_alloc` with nothing added; but what can't be stored in the root is lost, as
/// with `Message`. The time of an addition does not depend on what is there already.
class TreeBuilder {
public:
    /// Starts at `root`, which must not be changed otherwise while the tree is built.
    explicit TreeBuilder(Message& root);
    TreeBuilder(const TreeBuilder&) = delete;
    TreeBuilder& operator=(const TreeBuilder&) = delete;

    /// Back to the root, whatever it holds now. Messages that have not ended are lost.
    void Restart();

    /// Begins a message below the current one, under `TAG_LOWER_LEVEL` or `TAG_SAME_LEVEL`.
    void Begin(ETag tag);

    /// Ends the current message and goes back to its parent; no effect at the root.
    void End();

    /// Messages around the current one.
    std::size_t Depth() const { return mLevels.size() - 1; }

    // To the current message, as the functions of `Message` do.
    void SetDomainAndID(unsigned short domain, int id);
    void SetTemplate(const std::string& text);
    void AddParameter(const std::string& text);
    void SetLocalizedText(unsigned short language, const std::string& text);

    /// The same for a text that begins with the `stored` characters of the last call for this message and
    /// language, and that may grow further: such calls together cost what the text has grown. False when it
    /// is lost.
    bool GrowLocalizedText(unsigned short language, const std::string& text, std::size_t stored);

private:
    // The place of a record: below the root an offset in the run, where the first 21 bytes are heads; in the
    // root an address.
    using Place = std::uintptr_t;
    static constexpr Place kNowhere = 0;

    // In a longer chain gaps are no longer searched: hostile input could make each search long.
    static constexpr std::size_t kSearchedBlocks = 64;

    // The number of languages that need no allocation.
    static constexpr std::size_t kFewTexts = 4;

    struct Level {
        std::size_t start = 0;  // of its record in the run
        Place header = kNowhere;
        Place textTemplate = kNowhere;
        Place texts[kFewTexts] = {};                   // of any languages; 0 after the last
        std::map<unsigned short, Place> furtherTexts;  // the others
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
    std::vector<unsigned char> mRun;  // everything below the root that is not in it yet
    bool mRunHasDead = false;         // it has records that were replaced
};

}  // namespace ZBase::detail
