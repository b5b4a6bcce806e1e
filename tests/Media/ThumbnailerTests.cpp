#include "Media/Thumbnailer.h"

#include "support/MediaFixtures.h"

#include <gtest/gtest.h>

namespace keepery::testing {
namespace {

TEST(Thumbnailer, EncodesJPEGAtTheQualityAskedAndFlattensAlpha) {
    const Image picture = quadrants(400, 300);
    const auto rough = Thumbnailer::jpeg(picture, 0.2);
    const auto fine = Thumbnailer::jpeg(picture, 0.95);
    ASSERT_TRUE(rough && fine);
    EXPECT_LT(rough->size(), fine->size());
    const Image back = decoded(*fine);
    EXPECT_EQ(back.width, 400);
    EXPECT_EQ(back.height, 300);
    EXPECT_EQ(back.bands, 3);
    EXPECT_TRUE(near(back, 10, 10, red) && near(back, 390, 10, green) && near(back, 10, 290, blue) &&
                near(back, 390, 290, white));

    // A fully transparent picture comes out of JPEG white, not the black of its colour channels.
    Image clear{.width = 16, .height = 8, .bands = 4, .pixels = std::vector<std::uint8_t>(16 * 8 * 4, 0)};
    const auto flattened = Thumbnailer::jpeg(clear, 0.9);
    ASSERT_TRUE(flattened);
    const Image white = decoded(*flattened);
    EXPECT_EQ(white.bands, 3);
    EXPECT_TRUE(near(white, 8, 4, {255, 255, 255}, 3));

    EXPECT_EQ(Thumbnailer::jpeg(Image{}, 0.9), std::nullopt);
    EXPECT_EQ(Thumbnailer::jpeg(Image{.width = 4, .height = 4, .bands = 3, .pixels = {1, 2, 3}}, 0.9),
              std::nullopt)
        << "fewer pixels than the size says";
}

TEST(Thumbnailer, PNGKeepsEveryPixelAndTheAlpha) {
    Image picture{.width = 3, .height = 2, .bands = 4, .pixels = {}};
    for (int i = 0; i < 6; ++i) {
        picture.pixels.insert(picture.pixels.end(), {static_cast<std::uint8_t>(i * 40), 7, 200,
                                                     static_cast<std::uint8_t>(255 - i * 50)});
    }
    const auto png = Thumbnailer::png(picture);
    ASSERT_TRUE(png);
    EXPECT_EQ(decoded(*png), picture);
    EXPECT_EQ(Thumbnailer::png(Image{}), std::nullopt);
}

TEST(Thumbnailer, ShrinksEncodedPicturesUprightAndNeverEnlarges) {
    const auto large = Thumbnailer::jpeg(pngOf(quadrants(2000, 1000)), 720, 0.8);
    ASSERT_TRUE(large);
    const Image small = decoded(*large);
    EXPECT_EQ(small.width, 720);
    EXPECT_EQ(small.height, 360);

    const auto tiny = Thumbnailer::jpeg(pngOf(quadrants(100, 50)), 720, 0.8);
    ASSERT_TRUE(tiny);
    EXPECT_EQ(decoded(*tiny).width, 100) << "a picture smaller than the limit keeps its size";

    // Stored sideways with orientation 6 (turn clockwise to view): red, top left as stored, ends top right.
    const auto turned = Thumbnailer::jpeg(jpegWith(quadrants(400, 200), PhotoOptions().turned(6)), 300, 0.9);
    ASSERT_TRUE(turned);
    const Image upright = decoded(*turned);
    EXPECT_EQ(upright.width, 150);
    EXPECT_EQ(upright.height, 300);
    EXPECT_TRUE(near(upright, 140, 10, red));
    EXPECT_TRUE(near(upright, 10, 10, blue));
    EXPECT_TRUE(near(upright, 140, 290, green));
}

TEST(Thumbnailer, BytesThatAreNotAWholePictureGiveNothing) {
    const auto jpeg = jpegWith(quadrants(640, 480));
    const std::vector<std::uint8_t> truncated(jpeg.begin(),
                                              jpeg.begin() + static_cast<long>(jpeg.size() / 2));
    EXPECT_EQ(Thumbnailer::jpeg(truncated, 720, 0.8), std::nullopt);
    const std::string text = "just some text, not a picture";
    EXPECT_EQ(Thumbnailer::jpeg(std::vector<std::uint8_t>(text.begin(), text.end()), 720, 0.8), std::nullopt);
    EXPECT_EQ(Thumbnailer::jpeg(std::vector<std::uint8_t>{}, 720, 0.8), std::nullopt);
    EXPECT_EQ(Thumbnailer::jpeg(jpeg, 0, 0.8), std::nullopt);
    EXPECT_TRUE(Thumbnailer::jpeg(jpeg, 720, 0.8)) << "the whole file is fine";
}

} // namespace
} // namespace keepery::testing
