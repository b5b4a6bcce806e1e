#pragma once

#include "Capture/PointerNode.h"
#include "Capture/ScreenRect.h"
#include "Capture/WebAddress.h"

#include <cstddef>
#include <optional>
#include <span>
#include <variant>

namespace keepery {

// What the pointer rests on: a picture (and where to fetch it), a playing video (and where it is on
// screen), or neither, in which case the whole window is captured. A value; equal when the case and its
// payload are equal.
struct PageTarget {
    // Capture this picture; fetch it from `source` when present.
    struct Image {
        std::optional<WebAddress> source{};
        ScreenRect frame{};
        bool operator==(const Image&) const = default;
    };
    // Capture this area of the screen, where a video plays.
    struct Video {
        ScreenRect frame{};
        bool operator==(const Video&) const = default;
    };
    // Capture the window.
    struct Window {
        bool operator==(const Window&) const = default;
    };

    std::variant<Image, Video, Window> value = Window{};

    bool operator==(const PageTarget&) const = default;

    [[nodiscard]] static PageTarget image(std::optional<WebAddress> source, ScreenRect frame) {
        return {Image{std::move(source), frame}};
    }
    [[nodiscard]] static PageTarget video(ScreenRect frame) { return {Video{frame}}; }
    [[nodiscard]] static PageTarget window() { return {Window{}}; }

    // An image element smaller than this on either side is not taken as an image.
    static constexpr double minimumImageSide = 120;
    static constexpr ScreenSize minimumVideoSize{.width = 160, .height = 90};
    // How many elements, from the pointer outward, are examined for a video-like role or wording, and
    // for an image.
    static constexpr std::size_t videoSearchDepth = 7;
    static constexpr std::size_t imageSearchDepth = 3;

    // The decision for the elements under the pointer, `nodes[0]` the element hit and the next ones those
    // that contain it. In order, the first that applies:
    // 1. a video-like element among the first seven (role "AXVideo", the whole word "video" or "player"
    //    in its role description, title or description, or "video" or "player" anywhere in its page
    //    element's identifier or class names) of at least minimumVideoSize: `video` with its frame;
    // 2. the first element whose address names a video file (.mp4, .webm, .mov, .m4v, in any case): the
    //    first element before it of at least minimumVideoSize gives `video` with that frame;
    // 3. the first "AXImage" element among the first three: `image` with its frame and its http or https
    //    address when at least minimumImageSide on both sides, else `window`;
    // and `window` otherwise. Pure; any thread.
    [[nodiscard]] static PageTarget decide(std::span<const PointerNode> nodes);
};

} // namespace keepery
