#include <Base/frame/Version.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

TEST(Version, OfTheLoadedLibraryIsThatOfItsHeaders) {
    EXPECT_STREQ(ZBase::GetLibraryVersion(), ZBASE_VERSION);
    EXPECT_EQ(ZBase::GetLibraryVersionNumber(), ZBASE_VERSION_NUMBER);
}

TEST(Version, NumberHasTwoDigitsForEachPart) {
    int major = -1;
    int minor = -1;
    int patch = -1;
    ASSERT_EQ(std::sscanf(ZBASE_VERSION, "%d.%d.%d", &major, &minor, &patch), 3);
    EXPECT_EQ(ZBASE_VERSION_NUMBER, major * 10000 + minor * 100 + patch);
    EXPECT_LT(minor, 100);
    EXPECT_LT(patch, 100);
}

}  // namespace
