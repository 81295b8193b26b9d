#include <Base/messages/Message.h>
#include <Base/messages/detail/Records.h>

#include <new>

// The memory of a placement message may be smaller than a `Message`, so no destructor is called on it: the
// compiler may treat all 100 bytes as dead afterwards, the neighbour's among them.

namespace ZBase {

using namespace detail;

Message::PlacementPtr::PlacementPtr(void* memory, unsigned int size) {
    if (memory != nullptr && size >= MIN_SIZE) mpMessage = new (memory) Message(size);
}

Message::PlacementPtr::PlacementPtr(void* memory, unsigned int size, const Message& other) {
    if (memory != nullptr && size >= MIN_SIZE) mpMessage = new (memory) Message(size, other);
}

Message::PlacementPtr::PlacementPtr(void* memory, unsigned int size, unsigned short domain, int id,
                                    const char* textTemplate) {
    if (memory != nullptr && size >= MIN_SIZE)
        mpMessage = new (memory) Message(size, domain, id, textTemplate);
}

Message::PlacementPtr::~PlacementPtr() {
    if (mpMessage != nullptr) FreeBlockChain(BlockOf(*mpMessage));
}

namespace {

/// Calls `build` with the address of each element. Returns the first one, or null if there is no array.
template <class Build>
Message* BuildArray(void* memory, unsigned int totalSize, unsigned int elementSize, Build build) {
    // Memory for exactly one element is refused; kept for callers that rely on it.
    if (memory == nullptr || elementSize < Message::MIN_SIZE || elementSize >= totalSize) return nullptr;
    auto* at = static_cast<unsigned char*>(memory);
    for (unsigned int left = totalSize / elementSize; left != 0; --left, at += elementSize) build(at);
    return static_cast<Message*>(memory);
}

}  // namespace

Message::PlacementArrayPtr::PlacementArrayPtr(void* memory, unsigned int totalSize, unsigned int elementSize)
    : mTotalSize(totalSize), mElementSize(elementSize) {
    mpFirst =
        BuildArray(memory, totalSize, elementSize, [&](unsigned char* at) { new (at) Message(elementSize); });
}

Message::PlacementArrayPtr::PlacementArrayPtr(void* memory, unsigned int totalSize, unsigned int elementSize,
                                              const Message& other)
    : mTotalSize(totalSize), mElementSize(elementSize) {
    mpFirst = BuildArray(memory, totalSize, elementSize,
                         [&](unsigned char* at) { new (at) Message(elementSize, other); });
}

Message::PlacementArrayPtr::PlacementArrayPtr(void* memory, unsigned int totalSize, unsigned int elementSize,
                                              unsigned short domain, int id, const char* textTemplate)
    : mTotalSize(totalSize), mElementSize(elementSize) {
    mpFirst = BuildArray(memory, totalSize, elementSize,
                         [&](unsigned char* at) { new (at) Message(elementSize, domain, id, textTemplate); });
}

Message::PlacementArrayPtr::~PlacementArrayPtr() {
    if (mpFirst == nullptr) return;
    for (unsigned int index = mTotalSize / mElementSize; index != 0; --index)
        FreeBlockChain(BlockOf((*this)[index - 1]));
}

Message& Message::PlacementArrayPtr::operator[](unsigned int index) {
    auto* first = reinterpret_cast<unsigned char*>(mpFirst);
    return *reinterpret_cast<Message*>(first + std::size_t{index} * mElementSize);
}

}  // namespace ZBase
