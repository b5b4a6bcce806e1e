#pragma once

#include "Model/Vocabulary.h"

#include <cstdint>

namespace keepery {

namespace detail {
enum class SkyPhaseCase : std::uint8_t { night, dawn, morning, day, golden, dusk };
} // namespace detail

// The phase of the day, by which a front end tints itself. Raw values equal the case names.
struct SkyPhase : detail::Vocabulary<SkyPhase, detail::SkyPhaseCase, 6> {
    using Vocabulary::Vocabulary;
    using enum detail::SkyPhaseCase;

    static constexpr std::array<std::string_view, 6> rawValues{"night", "dawn",   "morning",
                                                               "day",   "golden", "dusk"};

    // The phase at the clock time hour + minute / 60: dawn from 5:00, morning from 7:00, day from 10:00,
    // golden from 17:00, dusk from 19:00 and night from 21:00 until 5:00. Any time outside 0:00 to 24:00
    // is night. Pure; any thread.
    [[nodiscard]] static SkyPhase at(int hour, int minute);
};

} // namespace keepery

template <>
struct std::hash<keepery::SkyPhase> : keepery::detail::VocabularyHash<keepery::SkyPhase> {};
