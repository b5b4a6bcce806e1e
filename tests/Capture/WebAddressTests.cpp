#include "Capture/WebAddress.h"

#include <gtest/gtest.h>

using namespace keepery;

namespace {

std::string extension(std::string_view address) {
    return WebAddress::parse(address)->pathExtension();
}

} // namespace

TEST(WebAddress, ParsesStrictlyAndKeepsTheTextAsWritten) {
    EXPECT_FALSE(WebAddress::parse("https://exa mple.com/"));
    EXPECT_FALSE(WebAddress::parse("https://example.com/<b>"));
    EXPECT_FALSE(WebAddress::parse("http://[::1/"));
    const auto address = WebAddress::parse("HTTPS://WWW.Example.com:8080/a/b.png?q=1#f");
    ASSERT_TRUE(address);
    EXPECT_EQ(address->text(), "HTTPS://WWW.Example.com:8080/a/b.png?q=1#f");
    EXPECT_EQ(address->scheme(), "HTTPS");
    EXPECT_EQ(address->host(), "WWW.Example.com");
    EXPECT_EQ(address->pathSegments(), (std::vector<std::string>{"a", "b.png"}));
    EXPECT_EQ(WebAddress::parse("clip.mp4")->host(), std::nullopt);
    EXPECT_EQ(WebAddress::parse("file:///tmp/a.png")->host(), std::nullopt);
}

TEST(WebAddress, PathExtensionComesFromTheLastNamedSegment) {
    EXPECT_EQ(extension("https://x.com/v/clip.MP4?format=webm#t=1"), "MP4");
    EXPECT_EQ(extension("https://x.com/archive.tar.gz"), "gz");
    EXPECT_EQ(extension("https://x.com/clip.mov/"), "mov");
    EXPECT_EQ(extension("https://x.com/clip%2Emp4"), "mp4");
    EXPECT_EQ(extension("https://clip.mp4"), "");
    EXPECT_EQ(extension("https://x.com/.mp4"), "");
    EXPECT_EQ(extension("https://x.com/clip."), "");
    EXPECT_EQ(extension("https://x.com/v.d/clip"), "");
}
