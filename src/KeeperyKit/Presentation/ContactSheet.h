#pragma once

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
};

} // namespace keepery
