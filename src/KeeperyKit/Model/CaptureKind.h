#pragma once

#include "Model/Vocabulary.h"

#include <cstdint>
#include <optional>
#include <string>

namespace keepery {

namespace detail {
enum class CaptureKindCase : std::uint8_t {
    article,
    code,
    design,
    chat,
    email,
    document,
    spreadsheet,
    slides,
    product,
    receipt,
    recipe,
    food,
    place,
    video,
    social,
    data,
    idea,
    other
};
} // namespace detail

// What a capture shows, as the describer judged it.
struct CaptureKind : detail::Vocabulary<CaptureKind, detail::CaptureKindCase, 18> {
    using Vocabulary::Vocabulary;
    using enum detail::CaptureKindCase;

    static constexpr std::array<std::string_view, 18> rawValues{
        "article", "code",   "design", "chat",  "email", "document", "spreadsheet", "slides", "product",
        "receipt", "recipe", "food",   "place", "video", "social",   "data",        "idea",   "other"};

    // Every raw value in declared order, joined by ", " ("article, code, …, other"), as prompts and tool
    // descriptions list the kinds.
    [[nodiscard]] static std::string rawValueList();

    // The plural heading shown for the kind ("Video" stays singular).
    [[nodiscard]] std::string_view title() const;

    // The name of the symbol-font glyph a front end draws for the kind.
    [[nodiscard]] std::string_view symbol() const;

    // The lenient reading of a kind word written by a language model: trimmed, lower-cased, matched whole
    // against the raw strings and then a fixed list of synonyms; anything else is `other`. Never fails.
    [[nodiscard]] static CaptureKind parse(const std::optional<std::string>& text);
};

} // namespace keepery

template <>
struct std::hash<keepery::CaptureKind> : keepery::detail::VocabularyHash<keepery::CaptureKind> {};
