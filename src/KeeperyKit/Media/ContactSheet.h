#pragma once

#include "Media/Image.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace keepery {

// The geometry of a video's key-frame contact sheet: frames left to right, then top to bottom, in up to
// three columns of 640-pixel cells with 8-pixel gaps between cells and no outer margin. The sheet's
// composer and the front ends that cut single frames out of a stored sheet share these numbers.
struct ContactSheet {
    ContactSheet() = delete;

    static constexpr std::int64_t maximumColumns = 3;
    static constexpr std::int64_t cellWidth = 640;
    static constexpr std::int64_t gap = 8;
    // The grey of the sheet's background and of cells without a frame: level 0.1 of 255.
    static constexpr std::uint8_t background = 26;

    // The layout of a sheet of `frames` frames whose first frame is `firstWidth` × `firstHeight`.
    struct Geometry {
        std::int64_t columns = 0;
        std::int64_t rows = 0;
        std::int64_t cellHeight = 0; // firstHeight × 640 / max(firstWidth, 1), truncated, at least 1
        std::int64_t width = 0;
        std::int64_t height = 0;
        bool operator==(const Geometry&) const = default;
    };
    // Absent for fewer than one frame. Pure; any thread.
    [[nodiscard]] static std::optional<Geometry> geometry(std::int64_t frames, std::int64_t firstWidth,
                                                          std::int64_t firstHeight);

    // A frame's place in the sheet, in pixels, origin at the top left.
    struct Cell {
        std::int64_t x = 0;
        std::int64_t y = 0;
        std::int64_t width = 0;
        std::int64_t height = 0;
        bool operator==(const Cell&) const = default;
    };

    // One cell per frame, in frame order, when a sheet of `width` × `height` pixels has exactly the
    // geometry of `frames` frames (its width fits the column count and its height splits evenly into rows
    // of at least 1 pixel); absent otherwise, and for fewer than one frame. Pure; any thread.
    [[nodiscard]] static std::optional<std::vector<Cell>> cells(std::int64_t width, std::int64_t height,
                                                                std::int64_t frames);

    // The sheet of `frames`: the background grey, with frame i stretched over the i-th cell of
    // `geometry`; cells without a frame stay background. An opaque RGB image. Absent for no frames or for
    // a frame without pixels. Never throws; any thread.
    [[nodiscard]] static std::optional<Image> draw(const std::vector<Image>& frames);
};

} // namespace keepery
