#include "Media/Thumbnailer.h"

#include "support/MediaFixtures.h"

#include <gtest/gtest.h>

namespace keepery::testing {
namespace {

TEST(Thumbnailer, EncodesJPEGAtTheQualityAskedFlatteningAlphaAndPNGKeepingIt) {
    const Image picture = quadrants(400, 300);
    const auto rough = Thumbnailer::jpeg(picture, 0.2);
    const auto fine = Thumbnailer::jpeg(picture, 0.95);
    ASSERT_TRUE(rough && fine);
    EXPECT_LT(rough->size(), fine->size());
    const Image back = decoded(*fine);
    EXPECT_EQ(std::tuple(back.width, back.height, back.bands), std::tuple(400, 300, 3));
    EXPECT_TRUE(near(back, 10, 10, red) && near(back, 390, 10, green) && near(back, 10, 290, blue) &&
                near(back, 390, 290, white));

    // A fully transparent picture comes out of JPEG white, not the black of its colour channels.
    const Image clear{
        .width = 16, .height = 8, .bands = 4, .pixels = std::vector<std::uint8_t>(16 * 8 * 4, 0)};
    const Image flattened = decoded(Thumbnailer::jpeg(clear, 0.9).value());
    EXPECT_EQ(flattened.bands, 3);
    EXPECT_TRUE(near(flattened, 8, 4, {255, 255, 255}, 3));

    EXPECT_EQ(Thumbnailer::jpeg(Image{}, 0.9), std::nullopt);
    EXPECT_EQ(Thumbnailer::jpeg(Image{.width = 4, .height = 4, .bands = 3, .pixels = {1, 2, 3}}, 0.9),
              std::nullopt)
        << "fewer pixels than the size says";

    // PNG keeps every pixel and the alpha.
    Image rgba{.width = 3, .height = 2, .bands = 4, .pixels = {}};
    for (int i = 0; i < 6; ++i) {
        rgba.pixels.insert(rgba.pixels.end(), {static_cast<std::uint8_t>(i * 40), 7, 200,
                                               static_cast<std::uint8_t>(255 - i * 50)});
    }
    EXPECT_EQ(decoded(Thumbnailer::png(rgba).value()), rgba);
    EXPECT_EQ(Thumbnailer::png(Image{}), std::nullopt);
}

TEST(Thumbnailer, ShrinksWholeEncodedPicturesUprightAndNeverEnlarges) {
    const Image small = decoded(Thumbnailer::jpeg(pngOf(quadrants(2000, 1000)), 720, 0.8).value());
    EXPECT_EQ(std::pair(small.width, small.height), std::pair(720, 360));
    EXPECT_EQ(decoded(Thumbnailer::jpeg(pngOf(quadrants(100, 50)), 720, 0.8).value()).width, 100);

    // Stored sideways with orientation 6 (turn clockwise to view): red, top left as stored, ends top right.
    const auto turned = Thumbnailer::jpeg(jpegWith(quadrants(400, 200), PhotoOptions().turned(6)), 300, 0.9);
    const Image upright = decoded(turned.value());
    EXPECT_EQ(std::pair(upright.width, upright.height), std::pair(150, 300));
    EXPECT_TRUE(near(upright, 140, 10, red) && near(upright, 10, 10, blue) && near(upright, 140, 290, green));

    // Bytes that are not a whole picture give nothing.
    const auto jpeg = jpegWith(quadrants(640, 480));
    const std::string text = "just some text, not a picture";
    for (const auto& bytes :
         {std::vector<std::uint8_t>(jpeg.begin(), jpeg.begin() + std::ssize(jpeg) / 2),
          std::vector<std::uint8_t>(text.begin(), text.end()), std::vector<std::uint8_t>{}}) {
        EXPECT_EQ(Thumbnailer::jpeg(bytes, 720, 0.8), std::nullopt) << bytes.size() << " bytes";
    }
    EXPECT_EQ(Thumbnailer::jpeg(jpeg, 0, 0.8), std::nullopt);
}

} // namespace
} // namespace keepery::testing
