#include "Media/ContactSheet.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

using namespace keepery;

namespace {

using Cells = std::optional<std::vector<ContactSheet::Cell>>;

TEST(ContactSheet, CellsExistOnlyForSizesThatFitTheFrameCount) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    const std::vector<std::tuple<std::int64_t, std::int64_t, std::int64_t, Cells>> cases{
        {1936, 728, 6,
         Cells{{{0, 0, 640, 360},
                {648, 0, 640, 360},
                {1296, 0, 640, 360},
                {0, 368, 640, 360},
                {648, 368, 640, 360},
                {1296, 368, 640, 360}}}},
        {640, 1137, 1, Cells{{{0, 0, 640, 1137}}}},
        {1288, 360, 2, Cells{{{0, 0, 640, 360}, {648, 0, 640, 360}}}},
        // Four frames: three columns, the fourth at the left of the second row; rows of a single pixel count.
        {1936, 10, 4, Cells{{{0, 0, 640, 1}, {648, 0, 640, 1}, {1296, 0, 640, 1}, {0, 9, 640, 1}}}},
        {1935, 728, 6, std::nullopt},
        {1936, 729, 6, std::nullopt}, // one pixel left over
        {1936, 361, 6, std::nullopt}, // two rows would need an odd gap
        {1936, 9, 4, std::nullopt},   // rows of no height
        {1288, 728, 6, std::nullopt}, // two columns' width for six frames
        {640, 0, 1, std::nullopt},
        {640, -5, 1, std::nullopt},
        {0, 360, 0, std::nullopt},
        {1936, 728, most, std::nullopt},
        {1936, most, most, std::nullopt},
    };
    for (const auto& [width, height, frames, expected] : cases) {
        EXPECT_EQ(ContactSheet::cells(width, height, frames), expected)
            << width << " x " << height << ", " << frames;
    }
}

TEST(ContactSheet, GeometryTakesTheCellHeightFromTheFirstFrame) {
    EXPECT_EQ(ContactSheet::geometry(6, 1920, 1080), (ContactSheet::Geometry{3, 2, 360, 1936, 728}));
    EXPECT_EQ(ContactSheet::geometry(1, 720, 1280), (ContactSheet::Geometry{1, 1, 1137, 640, 1137}));
    EXPECT_EQ(ContactSheet::geometry(2, 0, 5)->cellHeight, 3200) << "width 0 counts as 1";
    EXPECT_EQ(ContactSheet::geometry(2, 5000, 1)->cellHeight, 1) << "never below one pixel";
    EXPECT_EQ(ContactSheet::geometry(0, 640, 360), std::nullopt);
}

Image solid(int width, int height, int level) {
    return Image::filled(width, height, static_cast<std::uint8_t>(level),
                         static_cast<std::uint8_t>(255 - level), 128);
}

bool pixelIs(const Image& image, std::int64_t x, std::int64_t y, const std::uint8_t* rgb) {
    const auto* p = image.at(static_cast<int>(x), static_cast<int>(y));
    return std::abs(p[0] - rgb[0]) <= 2 && std::abs(p[1] - rgb[1]) <= 2 && std::abs(p[2] - rgb[2]) <= 2;
}

TEST(ContactSheet, DrawsFramesStretchedIntoTheirCellsLeftToRightThenTopToBottom) {
    // Later frames of other proportions are stretched to the first frame's cell.
    const std::vector<Image> frames{solid(1280, 720, 40), solid(300, 900, 90), solid(64, 36, 140),
                                    solid(2, 2, 200)};
    const auto sheet = ContactSheet::draw(frames);
    ASSERT_TRUE(sheet);
    ASSERT_EQ(std::tuple(sheet->width, sheet->height, sheet->bands), std::tuple(1936, 728, 3));
    // Every frame fills its cell to the cell's four corners; the gaps and the two empty cells are background.
    const std::uint8_t background[] = {ContactSheet::background, ContactSheet::background,
                                       ContactSheet::background};
    const auto cells = ContactSheet::cells(sheet->width, sheet->height, 6);
    for (std::size_t i = 0; i < 6; ++i) {
        const auto& [x, y, w, h] = cells.value()[i];
        const std::uint8_t* colour = i < frames.size() ? frames[i].at(0, 0) : background;
        for (const auto& [cx, cy] : {std::pair{x, y}, std::pair{x + w - 1, y}, std::pair{x, y + h - 1},
                                     std::pair{x + w - 1, y + h - 1}}) {
            EXPECT_TRUE(pixelIs(*sheet, cx, cy, colour)) << "cell " << i << " at " << cx << ", " << cy;
        }
        if (x + w < sheet->width) {
            EXPECT_TRUE(pixelIs(*sheet, x + w, y, background) &&
                        pixelIs(*sheet, x + w + 7, y + h - 1, background))
                << "gap right of cell " << i;
        }
        if (y + h < sheet->height) {
            EXPECT_TRUE(pixelIs(*sheet, x, y + h, background)) << "gap below cell " << i;
        }
    }
    EXPECT_EQ(ContactSheet::draw({}), std::nullopt);
    EXPECT_EQ(ContactSheet::draw({solid(64, 36, 1), Image{}}), std::nullopt);
}

} // namespace
