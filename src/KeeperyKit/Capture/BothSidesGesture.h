#pragma once

#include <cstdint>

namespace keepery {

// Detects the both-sides gesture: the left and the right key of one modifier pressed together with
// nothing else. Fed with the keyboard's full modifier flags on every modifier change (flagsChanged) and
// with every ordinary key press (keyDown), it fires once per hold. A hold that something else spoiled, or
// that already fired, stays so until both side keys are up. A plain value, made with designated
// initialisers for `left`, `right` and `others`; not shared between threads.
struct BothSidesGesture {
    // Modifier flag bits of the platform's keyboard events. The side keys are told apart by their
    // device-dependent bits; the either-side bits are set whenever either side key is down.
    static constexpr std::uint64_t leftCommand = 0x8;
    static constexpr std::uint64_t rightCommand = 0x10;
    static constexpr std::uint64_t leftOption = 0x20;
    static constexpr std::uint64_t rightOption = 0x40;
    static constexpr std::uint64_t shift = 0x20000;
    static constexpr std::uint64_t control = 0x40000;
    static constexpr std::uint64_t option = 0x80000;
    static constexpr std::uint64_t command = 0x100000;
    static constexpr std::uint64_t function = 0x800000;

    // The flag bit of the left key, of the right key, and the bits that must not be down.
    std::uint64_t left = 0;
    std::uint64_t right = 0;
    std::uint64_t others = 0;
    // Something else was pressed during this hold.
    bool spoiled = false;
    // The gesture already fired during this hold.
    bool fired = false;
    // The left or the right key is down.
    bool holding = false;

    bool operator==(const BothSidesGesture&) const = default;

    // Takes the modifier flags now down. True exactly when the gesture fires: both side keys down, nothing
    // of `others` pressed during the hold, no ordinary key pressed during it, and not fired yet in it.
    // Releasing both side keys ends the hold and re-arms the gesture.
    [[nodiscard]] bool flagsChanged(std::uint64_t flags);

    // An ordinary key press: spoils the hold when a side key is down (as in a keyboard shortcut); changes
    // nothing otherwise.
    void keyDown();
};

} // namespace keepery
