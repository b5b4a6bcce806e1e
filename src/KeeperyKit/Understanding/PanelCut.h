#pragma once

#include <cstdint>
#include <span>
#include <vector>

// Cuts a screen image into the panels that hold its text (a recursive XY cut): a region first loses the
// bars at its top and bottom (parts at most `maximumBarHeight` high that a run of blank rows at least
// `minimumRowGap` high sets apart), else it is split at every run of blank columns at least
// `minimumColumnGap` wide, else at every such run of blank rows, and each part is cut again until none
// splits. A row (column) is blank when no two
// of its colour changes lie closer than `minimumRunBetweenChanges` pixels apart: flat backgrounds and the
// straight edges between differently coloured panels are blank, text is not. Pure; any thread.
namespace keepery::PanelCut {

struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    bool operator==(const Rectangle&) const = default;
};

// A grayscale image, one byte per pixel, rows `width` bytes apart. Borrowed.
struct GrayImage {
    std::span<const std::uint8_t> pixels;
    int width = 0;
    int height = 0;
};

inline constexpr int minimumColumnGap = 20;
inline constexpr int minimumRowGap = 20;
inline constexpr int maximumBarHeight = 72;
// Two neighbouring pixels that differ by more than this are a colour change.
inline constexpr int changeThreshold = 32;
// Changes at most this far apart make one transition (an anti-aliased edge).
inline constexpr int transitionWidth = 3;
inline constexpr int minimumRunBetweenChanges = 12;
// Kept around a panel's content so that the recogniser sees its background.
inline constexpr int margin = 6;

// The panels in reading order (top to bottom, and left to right within a row of panels), each trimmed to
// its content plus `margin` (clipped to the image and never overlapping a neighbour's content). A blank
// image gives none. `image.pixels` must hold width × height bytes.
[[nodiscard]] std::vector<Rectangle> panels(const GrayImage& image);

} // namespace keepery::PanelCut
