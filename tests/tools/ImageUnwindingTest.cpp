#include "tools/zbase/crash/ImageUnwinding.h"

#include <gtest/gtest.h>

// The slots of unwind codes stand in the order of an image, the last instruction first: the offset of the
// instruction's end, from bit 8 on the operation, from bit 12 on its register or size.

namespace {

constexpr ImageFunction kFunction{0x1000, 0x1100, 0};
constexpr char kEntry[] = "STACK CFI INIT 1000 100 .cfa: $rsp 8 + .ra: .cfa 8 - ^";

std::string RulesOf(const std::vector<std::uint16_t>& slots, const UnwindFrame& frame = {}) {
    return UnwindRules(kFunction, ReadUnwindCodes(slots), frame);
}

TEST(ImageUnwinding, FunctionWithoutPrologueHasItsReturnAddressOnly) {
    EXPECT_EQ(RulesOf({}), std::string(kEntry) + "\n");
}

TEST(ImageUnwinding, PushesAndAllocationsMoveTheFrameOneByOne) {
    // push rbx; sub rsp, 40
    EXPECT_EQ(RulesOf({0x4205, 0x3001}), std::string(kEntry) +
                                             "\nSTACK CFI 1001 .cfa: $rsp 16 + $rbx: .cfa 16 - ^"
                                             "\nSTACK CFI 1005 .cfa: $rsp 56 +\n");
}

TEST(ImageUnwinding, FrameRegisterCountsFromWhereItPoints) {
    // push rbp; sub rsp, 32; lea rbp, [rsp + 32]
    EXPECT_EQ(RulesOf({0x030A, 0x3205, 0x5001}, {5, 32}),
              std::string(kEntry) +
                  "\nSTACK CFI 1001 .cfa: $rsp 16 + $rbp: .cfa 16 - ^"
                  "\nSTACK CFI 1005 .cfa: $rsp 48 +"
                  "\nSTACK CFI 100a .cfa: $rbp 16 +\n");
}

TEST(ImageUnwinding, FrameRegisterMayPointAboveTheFrame) {
    // sub rsp, 8; lea rbp, [rsp + 128]
    EXPECT_NE(RulesOf({0x030A, 0x0204}, {5, 128}).find(".cfa: $rbp 112 -\n"), std::string::npos);
}

TEST(ImageUnwinding, RegistersAreSavedAboveTheWholeAllocation) {
    // sub rsp, 136; mov [rsp + 64], rsi
    EXPECT_EQ(RulesOf({0x640A, 8, 0x0104, 17}),
              std::string(kEntry) + "\nSTACK CFI 1004 .cfa: $rsp 144 +\nSTACK CFI 100a $rsi: .cfa 80 - ^\n");
}

TEST(ImageUnwinding, SizesOf32BitsTakeTwoSlotsAndVectorsAreSteppedOver) {
    // sub rsp, 0x12340; movaps [rsp + 32], xmm6; movaps far; push rdi before them
    EXPECT_EQ(RulesOf({0x6920, 0x10, 0, 0x6818, 2, 0x1110, 0x2340, 1, 0x7001}),
              std::string(kEntry) +
                  "\nSTACK CFI 1001 .cfa: $rsp 16 + $rdi: .cfa 16 - ^"
                  "\nSTACK CFI 1010 .cfa: $rsp " +
                  std::to_string(0x12340 + 16) + " +\n");
}

TEST(ImageUnwinding, FrameThatTheProcessorPushedHasNoRules) {
    EXPECT_EQ(RulesOf({0x0A00}), "");
}

TEST(ImageUnwinding, CodesThatAreCutOffOrUnknownEndTheirList) {
    EXPECT_EQ(ReadUnwindCodes({0x0104}).size(), 1u);
    EXPECT_TRUE(ReadUnwindCodes({0x0F04, 0x3001}).empty());
}

}  // namespace
