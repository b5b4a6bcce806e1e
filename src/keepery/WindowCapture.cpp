#include "WindowCapture.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace keepery {
namespace {

// Frees what Xlib allocated.
struct XFreer {
    void operator()(void* data) const {
        if (data != nullptr) {
            XFree(data);
        }
    }
};
template <typename T>
using XPointer = std::unique_ptr<T, XFreer>;

// An X error (a window that went away between two requests) must not end the program: requests that may
// meet one check the code this handler leaves.
int lastError = 0;
int rememberError(Display*, XErrorEvent* event) {
    lastError = event->error_code;
    return 0;
}

bool isSet(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && value[0] != '\0';
}

// Highest set bit's shift of a colour mask, to read 8 bits of the channel.
int shiftOf(unsigned long mask) {
    int shift = 0;
    while (mask != 0 && (mask & 1UL) == 0) {
        mask >>= 1;
        ++shift;
    }
    int bits = 0;
    while ((mask & 1UL) != 0) {
        mask >>= 1;
        ++bits;
    }
    return shift + bits - 8;
}

std::uint8_t channel(unsigned long pixel, unsigned long mask, int shift) {
    const unsigned long value = pixel & mask;
    return static_cast<std::uint8_t>(shift >= 0 ? value >> shift : value << -shift);
}

} // namespace

struct WindowCapture::State {
    Display* display = nullptr;
    ::Window root = 0;
    int screenWidth = 0;
    int screenHeight = 0;
    int (*previousHandler)(Display*, XErrorEvent*) = nullptr;

    Atom atom(const char* name) const { return XInternAtom(display, name, False); }

    // The property's items, each `format` bits, or nothing.
    std::vector<unsigned long> cardinals(::Window window, const char* name, Atom type) const {
        Atom actualType = 0;
        int format = 0;
        unsigned long count = 0;
        unsigned long after = 0;
        unsigned char* data = nullptr;
        std::vector<unsigned long> values;
        if (XGetWindowProperty(display, window, atom(name), 0, 1 << 16, False, type, &actualType, &format,
                               &count, &after, &data) == Success &&
            data != nullptr && format == 32) {
            const auto* items = reinterpret_cast<const unsigned long*>(data);
            values.assign(items, items + count);
        }
        XPointer<unsigned char> owned(data);
        return values;
    }

    std::optional<std::string> text(::Window window, const char* name, Atom type) const {
        Atom actualType = 0;
        int format = 0;
        unsigned long count = 0;
        unsigned long after = 0;
        unsigned char* data = nullptr;
        std::optional<std::string> value;
        if (XGetWindowProperty(display, window, atom(name), 0, 1 << 16, False, type, &actualType, &format,
                               &count, &after, &data) == Success &&
            data != nullptr && format == 8 && actualType != None) {
            value = std::string(reinterpret_cast<const char*>(data), count);
        }
        XPointer<unsigned char> owned(data);
        return value;
    }

    std::string title(::Window window) const {
        if (auto name = text(window, "_NET_WM_NAME", atom("UTF8_STRING")); name && !name->empty()) {
            return *name;
        }
        XTextProperty property{};
        std::string found;
        if (XGetWMName(display, window, &property) != 0 && property.value != nullptr) {
            char** list = nullptr;
            int count = 0;
            if (Xutf8TextPropertyToTextList(display, &property, &list, &count) >= Success && count > 0 &&
                list != nullptr) {
                found = list[0];
            }
            if (list != nullptr) {
                XFreeStringList(list);
            }
            XFree(property.value);
        }
        return found;
    }

    std::string owner(::Window window) const {
        XClassHint hint{};
        std::string found;
        if (XGetClassHint(display, window, &hint) != 0) {
            found = hint.res_class != nullptr && hint.res_class[0] != '\0' ? hint.res_class
                    : hint.res_name != nullptr                             ? hint.res_name
                                                                           : "";
            XFree(hint.res_name);
            XFree(hint.res_class);
        }
        return found;
    }

    std::int64_t pid(::Window window) const {
        if (auto values = cardinals(window, "_NET_WM_PID", XA_CARDINAL); !values.empty()) {
            return static_cast<std::int64_t>(values.front());
        }
        int eventBase = 0;
        int errorBase = 0;
        if (XResQueryExtension(display, &eventBase, &errorBase) == 0) {
            return 0;
        }
        XResClientIdSpec wanted{window, XRES_CLIENT_ID_PID_MASK};
        long count = 0;
        XResClientIdValue* ids = nullptr;
        std::int64_t found = 0;
        if (XResQueryClientIds(display, 1, &wanted, &count, &ids) == Success) {
            for (long i = 0; i < count; ++i) {
                if (XResGetClientIdType(&ids[i]) == XRES_CLIENT_ID_PID) {
                    found = XResGetClientPid(&ids[i]);
                }
            }
            XResClientIdsDestroy(count, ids);
        }
        return found;
    }

    // Windows the user does not capture: panels, the desktop, menus, tooltips, notifications.
    bool isFurniture(::Window window) const {
        static const char* furniture[] = {
            "_NET_WM_WINDOW_TYPE_DOCK",         "_NET_WM_WINDOW_TYPE_DESKTOP",
            "_NET_WM_WINDOW_TYPE_MENU",         "_NET_WM_WINDOW_TYPE_DROPDOWN_MENU",
            "_NET_WM_WINDOW_TYPE_POPUP_MENU",   "_NET_WM_WINDOW_TYPE_TOOLTIP",
            "_NET_WM_WINDOW_TYPE_NOTIFICATION", "_NET_WM_WINDOW_TYPE_SPLASH",
        };
        for (unsigned long type : cardinals(window, "_NET_WM_WINDOW_TYPE", XA_ATOM)) {
            for (const char* name : furniture) {
                if (type == atom(name)) {
                    return true;
                }
            }
        }
        return false;
    }

    bool isHidden(::Window window) const {
        for (unsigned long state : cardinals(window, "_NET_WM_STATE", XA_ATOM)) {
            if (state == atom("_NET_WM_STATE_HIDDEN")) {
                return true;
            }
        }
        return false;
    }

    // Managed windows bottom to top.
    std::vector<::Window> clients() const {
        auto values = cardinals(root, "_NET_CLIENT_LIST_STACKING", XA_WINDOW);
        if (values.empty()) {
            values = cardinals(root, "_NET_CLIENT_LIST", XA_WINDOW);
        }
        return {values.begin(), values.end()};
    }
};

WindowCapture::WindowCapture() : state_(std::make_unique<State>()) {
    if (isSet("WAYLAND_DISPLAY") || (std::getenv("XDG_SESSION_TYPE") != nullptr &&
                                     std::strcmp(std::getenv("XDG_SESSION_TYPE"), "wayland") == 0)) {
        throw Failure("this is a Wayland session, where one program cannot read another's windows. Take the "
                      "picture with the desktop's own screenshot key and let `keepery watch --screens "
                      "FOLDER` keep what lands in its screenshot folder.");
    }
    if (!isSet("DISPLAY")) {
        throw Failure("there is no X display to capture (DISPLAY is not set).");
    }
    state_->display = XOpenDisplay(nullptr);
    if (state_->display == nullptr) {
        throw Failure(std::string("cannot open the X display ") + std::getenv("DISPLAY") + ".");
    }
    state_->previousHandler = XSetErrorHandler(rememberError);
    state_->root = DefaultRootWindow(state_->display);
    state_->screenWidth = DisplayWidth(state_->display, DefaultScreen(state_->display));
    state_->screenHeight = DisplayHeight(state_->display, DefaultScreen(state_->display));
}

WindowCapture::~WindowCapture() {
    if (state_->display != nullptr) {
        XCloseDisplay(state_->display);
        XSetErrorHandler(state_->previousHandler);
    }
}

std::vector<WindowEntry> WindowCapture::windows() {
    std::vector<::Window> stacking = state_->clients();
    std::vector<WindowEntry> found;
    for (auto it = stacking.rbegin(); it != stacking.rend(); ++it) {
        const ::Window window = *it;
        lastError = 0;
        XWindowAttributes attributes{};
        if (XGetWindowAttributes(state_->display, window, &attributes) == 0 || lastError != 0 ||
            attributes.map_state != IsViewable || state_->isHidden(window)) {
            continue;
        }
        int x = 0;
        int y = 0;
        ::Window child = 0;
        XTranslateCoordinates(state_->display, window, state_->root, 0, 0, &x, &y, &child);
        if (lastError != 0) {
            continue;
        }
        found.push_back(WindowEntry{.number = static_cast<std::int64_t>(window),
                                    .pid = state_->pid(window),
                                    .owner = state_->owner(window),
                                    .title = state_->title(window),
                                    .layer = state_->isFurniture(window) ? 1 : 0,
                                    .x = static_cast<double>(x),
                                    .y = static_cast<double>(y),
                                    .width = static_cast<double>(attributes.width),
                                    .height = static_cast<double>(attributes.height)});
    }
    return found;
}

std::optional<std::int64_t> WindowCapture::activeWindow() {
    auto values = state_->cardinals(state_->root, "_NET_ACTIVE_WINDOW", XA_WINDOW);
    if (values.empty() || values.front() == 0) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(values.front());
}

std::optional<std::int64_t> WindowCapture::windowUnderPointer() {
    ::Window rootReturn = 0;
    ::Window child = 0;
    int rootX = 0;
    int rootY = 0;
    int winX = 0;
    int winY = 0;
    unsigned int mask = 0;
    if (XQueryPointer(state_->display, state_->root, &rootReturn, &child, &rootX, &rootY, &winX, &winY,
                      &mask) == 0) {
        return std::nullopt;
    }
    for (const WindowEntry& window : windows()) {
        if (window.layer == 0 && rootX >= window.x && rootX < window.x + window.width && rootY >= window.y &&
            rootY < window.y + window.height) {
            return window.number;
        }
    }
    return std::nullopt;
}

Image WindowCapture::grab(const WindowEntry& window) {
    const int left = std::max(0, static_cast<int>(window.x));
    const int top = std::max(0, static_cast<int>(window.y));
    const int right = std::min(state_->screenWidth, static_cast<int>(window.x + window.width));
    const int bottom = std::min(state_->screenHeight, static_cast<int>(window.y + window.height));
    if (right <= left || bottom <= top) {
        throw Failure("the window lies outside the screen.");
    }
    const unsigned width = static_cast<unsigned>(right - left);
    const unsigned height = static_cast<unsigned>(bottom - top);
    // The root window's pixels are what is on screen, the window manager's frame left out, whether or not
    // another window covers part of it.
    lastError = 0;
    XImage* raw = XGetImage(state_->display, state_->root, left, top, width, height, AllPlanes, ZPixmap);
    if (raw == nullptr || lastError != 0) {
        if (raw != nullptr) {
            XDestroyImage(raw);
        }
        throw Failure("the window's pixels could not be read.");
    }
    Image image;
    image.width = static_cast<int>(width);
    image.height = static_cast<int>(height);
    image.bands = 3;
    image.pixels.resize(static_cast<std::size_t>(width) * height * 3);
    const int redShift = shiftOf(raw->red_mask);
    const int greenShift = shiftOf(raw->green_mask);
    const int blueShift = shiftOf(raw->blue_mask);
    std::uint8_t* out = image.pixels.data();
    for (unsigned y = 0; y < height; ++y) {
        for (unsigned x = 0; x < width; ++x) {
            const unsigned long pixel = XGetPixel(raw, static_cast<int>(x), static_cast<int>(y));
            *out++ = channel(pixel, raw->red_mask, redShift);
            *out++ = channel(pixel, raw->green_mask, greenShift);
            *out++ = channel(pixel, raw->blue_mask, blueShift);
        }
    }
    XDestroyImage(raw);
    return image;
}

} // namespace keepery
