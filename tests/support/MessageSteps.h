#pragma once

#include <Base/messages/Message.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "tests/support/Choices.h"
#include "tests/support/MessageModel.h"

namespace test {

/// A message of a size and an alignment, and the model of it.
struct Specimen {
    Specimen(std::uint32_t size, std::size_t shift)
        : memory(new unsigned char[size + shift]), holder(memory.get() + shift, size), model(size) {}

    ZBase::Message& Real() { return *holder; }

    std::unique_ptr<unsigned char[]> memory;  // of the exact size, so that a sanitizer detects overruns
    ZBase::Message::PlacementPtr holder;
    ModelMessage model;
};

/// One operation that adds to a message or changes it in place.
void Edit(Choices& choices, ZBase::Message& real, ModelMessage& model);

constexpr unsigned int kRewritings = 10;

/// One operation that replaces or moves the whole content of a message. `other` may be the specimen of that
/// message.
void Rewrite(unsigned int operation, Choices& choices, ZBase::Message& real, ModelMessage& model,
             Specimen& other);

/// Of all blocks, in bytes.
std::size_t TotalCapacity(const ModelMessage& model);

}  // namespace test
