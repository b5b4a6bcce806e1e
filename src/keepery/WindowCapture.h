#pragma once

#include "Capture/ScreenRect.h"
#include "Capture/WindowEntry.h"
#include "Media/Image.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace keepery {

// The windows of the running X11 session and their pixels, through Xlib and the window manager's EWMH
// properties. One thread.
class WindowCapture {
public:
    // Why nothing can be captured: no display, a Wayland session, a window that is gone. The text is for
    // the user as it stands.
    struct Failure : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    // Opens the display named by $DISPLAY. Throws Failure on Wayland and when there is no X display.
    WindowCapture();
    ~WindowCapture();
    WindowCapture(const WindowCapture&) = delete;
    WindowCapture& operator=(const WindowCapture&) = delete;

    // The managed windows that are on screen, front to back: title from _NET_WM_NAME, else WM_NAME;
    // owner from WM_CLASS; pid from _NET_WM_PID, else the X-Resource extension; frame in root coordinates.
    // Docks, desktops, menus and notifications stand on layer 1 so that they are never chosen.
    [[nodiscard]] std::vector<WindowEntry> windows();

    // The window the window manager calls active (_NET_ACTIVE_WINDOW), if any.
    [[nodiscard]] std::optional<std::int64_t> activeWindow();

    // The frontmost managed window under the pointer, if any.
    [[nodiscard]] std::optional<std::int64_t> windowUnderPointer();

    // The pixels of `window`'s frame as they are on screen (the part outside the screen left out).
    // Throws Failure when the frame lies wholly off screen or cannot be read.
    [[nodiscard]] Image grab(const WindowEntry& window);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace keepery
