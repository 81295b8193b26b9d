#include <Base/text/IdentifierHash.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

TEST(IdentifierHash, KeepsIdentifiersInAnUnorderedMap) {
    std::unordered_map<ZBase::GUID, int> numbers;
    const ZBase::GUID first;
    const ZBase::GUID second;
    numbers[first] = 1;
    numbers[second] = 2;
    numbers[first] += 10;
    EXPECT_EQ(numbers.size(), 2u);
    EXPECT_EQ(numbers.at(first), 11);
}

TEST(IdentifierHash, IsThatOfTheRecord) {
    const ZBase::GUID guid;
    EXPECT_EQ(std::hash<ZBase::GUID>()(guid), std::hash<_GUID>()(guid));
}

TEST(IdentifierHash, KeepsRecordsInUnorderedContainers) {
    _GUID guid{};
    std::unordered_set<_GUID> guids{guid};
    reinterpret_cast<unsigned char*>(&guid)[15] = 1;
    EXPECT_FALSE(guids.contains(guid));
    EXPECT_TRUE(guids.insert(guid).second);
    EXPECT_FALSE(guids.insert(guid).second);
    _UDID udid{};
    std::unordered_map<_UDID, int> numbers{{udid, 1}};
    udid.octets[19] = 1;
    numbers[udid] = 2;
    numbers[udid] += 10;
    EXPECT_EQ(numbers.size(), 2u);
    EXPECT_EQ(numbers.at(udid), 12);
}

TEST(IdentifierHash, EveryByteCounts) {
    std::set<std::size_t> hashes;
    _UDID udid{};
    hashes.insert(std::hash<_UDID>()(udid));
    for (unsigned char& octet : udid.octets) {
        octet = 1;
        hashes.insert(std::hash<_UDID>()(udid));
        octet = 0;
    }
    EXPECT_EQ(hashes.size(), 21u);
    hashes.clear();
    _GUID guid{};
    auto* const octets = reinterpret_cast<unsigned char*>(&guid);
    for (std::size_t i = 0; i != sizeof guid; ++i) {
        octets[i] = 1;
        hashes.insert(std::hash<_GUID>()(guid));
        octets[i] = 0;
    }
    EXPECT_EQ(hashes.size(), 16u);
}
