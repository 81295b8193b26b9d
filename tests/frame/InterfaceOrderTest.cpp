#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>
#include <vector>

#include "tests/support/VirtualOrder.h"

// Existing modules call the interfaces, and implement them, by the indices of their operations.

namespace {

using test::PlaceInTable;
using Places = std::vector<std::size_t>;

template <class... Operation>
Places PlacesOf(Operation... operation) {
    return {PlaceInTable(operation)...};
}

TEST(InterfaceOrder, Buffer) {
    using ZBase::Buffer;
    EXPECT_EQ(PlacesOf(&Buffer::Delete, &Buffer::EnsureAvailable, &Buffer::Allocate, &Buffer::GetTotalKB,
                       &Buffer::GetUsedKB, &Buffer::GetTotalBytes, &Buffer::GetUsedBytes, &Buffer::Lock,
                       &Buffer::SetLimit, &Buffer::AddCleanup, &Buffer::DetachFromGovernors,
                       &Buffer::IsDetachedFromGovernors),
              Places({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
}

TEST(InterfaceOrder, ReferenceCounted) {
    using ZBase::ReferenceCounted;
    static_assert(std::has_virtual_destructor_v<ReferenceCounted>);
    EXPECT_EQ(PlacesOf(&ReferenceCounted::AddRef, &ReferenceCounted::Release), Places({2, 3}));
}

// Its virtual base comes first.
TEST(InterfaceOrder, MemoryContract) {
    using ZBase::MemoryContract;
    EXPECT_EQ(PlacesOf(&MemoryContract::Request, &MemoryContract::Settle, &MemoryContract::Refund,
                       &MemoryContract::RequestChunk, &MemoryContract::SettleChunk),
              Places({4, 5, 6, 7, 8}));
}

TEST(InterfaceOrder, CallStackAndItsLines) {
    using ZBase::CallStack;
    EXPECT_EQ(
        PlacesOf(&CallStack::GetLine, &CallStack::GetLineCount, &CallStack::Delete, &CallStack::ToString),
        Places({0, 1, 2, 3}));
    EXPECT_EQ(PlacesOf(&ZBase::CallStackLine::GetText), Places({0}));
    static_assert(!std::has_virtual_destructor_v<ZBase::CallStackLine>);
}

TEST(InterfaceOrder, CallStackBuilder) {
    using ZBase::CallStackBuilder;
    EXPECT_EQ(PlacesOf(&CallStackBuilder::LoadSymbols, &CallStackBuilder::BuildCallStack), Places({0, 1}));
}

TEST(InterfaceOrder, RefCountCallStackTracer) {
    using ZBase::RefCountCallStackTracer;
    EXPECT_EQ(PlacesOf(&RefCountCallStackTracer::RecordRefCount, &RefCountCallStackTracer::ReportLeaks,
                       &RefCountCallStackTracer::Clear, &RefCountCallStackTracer::Delete),
              Places({0, 1, 2, 3}));
}

TEST(InterfaceOrder, FragmentedString) {
    using ZBase::FragmentedString;
    EXPECT_EQ(
        PlacesOf(&FragmentedString::Append, &FragmentedString::AppendChar, &FragmentedString::AppendString,
                 &FragmentedString::GetLength, &FragmentedString::CopyTo, &FragmentedString::GetTotalBytes,
                 &FragmentedString::GetFragmentCount, &FragmentedString::GetInitialCapacity,
                 &FragmentedString::Delete),
        Places({0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(InterfaceOrder, MessageLocalizer) {
    EXPECT_EQ(PlacesOf(&ZBase::Message::Localizer::LocalizeText), Places({0}));
}

}  // namespace
