#include "Capture/CaptureKeys.h"

namespace keepery {
namespace {

constexpr std::array<std::string_view, 2> commandCaps{"\u2318", "\u2318"};
constexpr std::array<std::string_view, 2> optionCaps{"\u2325", "\u2325"};
constexpr std::array<std::string_view, 4> shortcutCaps{"\u2303", "\u2325", "\u2318", "K"};

} // namespace

std::string_view CaptureKeys::title() const {
    switch (value) {
    case bothCommands:
        return "Both \u2318 keys";
    case bothOptions:
        return "Both \u2325 keys";
    case shortcut:
        break;
    }
    return "\u2303\u2325\u2318K";
}

std::span<const std::string_view> CaptureKeys::caps() const {
    switch (value) {
    case bothCommands:
        return commandCaps;
    case bothOptions:
        return optionCaps;
    case shortcut:
        break;
    }
    return shortcutCaps;
}

std::optional<BothSidesGesture> CaptureKeys::gesture() const {
    using G = BothSidesGesture;
    // The modifier's own either-side bit stays out of `others`: the platform sets it with either side key.
    switch (value) {
    case bothCommands:
        return G{.left = G::leftCommand,
                 .right = G::rightCommand,
                 .others = G::shift | G::control | G::option | G::function};
    case bothOptions:
        return G{.left = G::leftOption,
                 .right = G::rightOption,
                 .others = G::shift | G::control | G::command | G::function};
    case shortcut:
        break;
    }
    return std::nullopt;
}

bool CaptureKeys::isShortcut(std::uint16_t keyCode, std::uint64_t flags) {
    return keyCode == shortcutKeyCode && (flags & shortcutMask) == shortcutModifiers;
}

} // namespace keepery
