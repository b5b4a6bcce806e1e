#pragma once

namespace keepery {

// A size in screen units.
struct ScreenSize {
    double width = 0;
    double height = 0;
    bool operator==(const ScreenSize&) const = default;
};

// A frame on screen: origin and size in the platform's global screen coordinates, as the window list and
// the accessibility elements report them (sizes are not negative).
struct ScreenRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    bool operator==(const ScreenRect&) const = default;

    // True when the frame is at least `size` wide and at least `size` high.
    [[nodiscard]] bool covers(ScreenSize size) const { return width >= size.width && height >= size.height; }

    // The area of the intersection with `other`; 0 when the two do not intersect or only touch.
    [[nodiscard]] double overlapArea(const ScreenRect& other) const;
};

} // namespace keepery
