#pragma once

#include "Capture/BothSidesGesture.h"
#include "Model/Vocabulary.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace keepery {

namespace detail {
enum class CaptureKeysCase : std::uint8_t { bothCommands, bothOptions, shortcut };
} // namespace detail

// How the user triggers a capture from the keyboard: both Command keys together, both Option keys
// together, or the fixed shortcut Control-Option-Command-K. Raw values equal the case names. Pure; any
// thread.
struct CaptureKeys : detail::Vocabulary<CaptureKeys, detail::CaptureKeysCase, 3> {
    using Vocabulary::Vocabulary;
    using enum detail::CaptureKeysCase;

    static constexpr std::array<std::string_view, 3> rawValues{"bothCommands", "bothOptions", "shortcut"};

    // The platform's virtual key code of the K key.
    static constexpr std::uint16_t shortcutKeyCode = 40;
    static constexpr std::uint64_t shortcutModifiers =
        BothSidesGesture::control | BothSidesGesture::option | BothSidesGesture::command;
    // The modifiers that take part in matching the shortcut; caps lock and the device-dependent and
    // numeric-pad bits are left out.
    static constexpr std::uint64_t shortcutMask = BothSidesGesture::shift | BothSidesGesture::control |
                                                  BothSidesGesture::option | BothSidesGesture::command |
                                                  BothSidesGesture::function;

    // The name shown in settings: "Both ⌘ keys", "Both ⌥ keys" or "⌃⌥⌘K".
    [[nodiscard]] std::string_view title() const;

    // The key caps to draw, left to right.
    [[nodiscard]] std::span<const std::string_view> caps() const;

    // A fresh detector for the two both-sides choices; absent for `shortcut`.
    [[nodiscard]] std::optional<BothSidesGesture> gesture() const;

    // True exactly when the key is K and, of Shift, Control, Option, Command and fn, exactly Control,
    // Option and Command are down.
    [[nodiscard]] static bool isShortcut(std::uint16_t keyCode, std::uint64_t flags);
};

} // namespace keepery

template <>
struct std::hash<keepery::CaptureKeys> : keepery::detail::VocabularyHash<keepery::CaptureKeys> {};
