#include <Base/platform/os/shared/MultipartForm.h>

#include <gtest/gtest.h>

namespace {

using ZBase::os::MultipartForm;

const MultipartForm kForm{"limit"};

TEST(MultipartForm, HasAHeadForEachFieldAndAnEnd) {
    EXPECT_EQ(kForm.FieldHead("name"), "--limit\r\nContent-Disposition: form-data; name=\"name\"\r\n\r\n");
    EXPECT_EQ(kForm.End(), "--limit--\r\n");
}

// RFC 7578 leaves it to HTML, which escapes these three.
TEST(MultipartForm, NameWithAQuoteOrALineEndIsOneLine) {
    EXPECT_EQ(kForm.FieldHead("a\"b\r\nc%"),
              "--limit\r\nContent-Disposition: form-data; name=\"a%22b%0D%0Ac%\"\r\n\r\n");
}

TEST(MultipartForm, FileIsNamedWithoutItsDirectories) {
    const std::string head = "--limit\r\nContent-Disposition: form-data; name=\"log\"; filename=\"";
    const std::string type = "\"\r\nContent-Type: application/octet-stream\r\n\r\n";
    EXPECT_EQ(kForm.FileHead("log", "/var/log/a b.log"), head + "a b.log" + type);
    EXPECT_EQ(kForm.FileHead("log", "plain"), head + "plain" + type);
    EXPECT_EQ(kForm.FileHead("log", "folder/"), head + type);
}

}  // namespace
