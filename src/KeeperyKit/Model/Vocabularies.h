#pragma once

#include "Model/Vocabulary.h"

#include <cstdint>

namespace keepery {

namespace detail {
enum class CaptureMediaCase : std::uint8_t { screen, photo, video };
} // namespace detail

// Where a capture came from: a window on the screen, an imported photo or an imported video.
struct CaptureMedia : detail::Vocabulary<CaptureMedia, detail::CaptureMediaCase, 3> {
    using Vocabulary::Vocabulary;
    using enum detail::CaptureMediaCase;

    static constexpr std::array<std::string_view, 3> rawValues{"screen", "photo", "video"};

    // "Screens", "Photos" or "Videos".
    [[nodiscard]] constexpr std::string_view title() const {
        constexpr std::array<std::string_view, 3> titles{"Screens", "Photos", "Videos"};
        return titles[static_cast<std::size_t>(value)];
    }

    // The name of the symbol-font glyph a front end draws for the media.
    [[nodiscard]] constexpr std::string_view symbol() const {
        constexpr std::array<std::string_view, 3> symbols{"macwindow", "photo", "film"};
        return symbols[static_cast<std::size_t>(value)];
    }
};

namespace detail {
enum class CaptureStageCase : std::uint8_t { captured, read, described, embedded, organized };
} // namespace detail

// How far processing has got; a capture moves forward one stage at a time.
struct CaptureStage : detail::Vocabulary<CaptureStage, detail::CaptureStageCase, 5> {
    using Vocabulary::Vocabulary;
    using enum detail::CaptureStageCase;

    static constexpr std::array<std::string_view, 5> rawValues{"captured", "read", "described", "embedded",
                                                               "organized"};
};

namespace detail {
enum class VectorSpaceCase : std::uint8_t { look, meaning };
} // namespace detail

// The two spaces a capture can have a vector in: its look (image with text) and its meaning (words).
struct VectorSpace : detail::Vocabulary<VectorSpace, detail::VectorSpaceCase, 2> {
    using Vocabulary::Vocabulary;
    using enum detail::VectorSpaceCase;

    static constexpr std::array<std::string_view, 2> rawValues{"look", "meaning"};
};

} // namespace keepery

template <>
struct std::hash<keepery::CaptureMedia> : keepery::detail::VocabularyHash<keepery::CaptureMedia> {};
template <>
struct std::hash<keepery::CaptureStage> : keepery::detail::VocabularyHash<keepery::CaptureStage> {};
template <>
struct std::hash<keepery::VectorSpace> : keepery::detail::VocabularyHash<keepery::VectorSpace> {};
