#pragma once

#include "Model/Vocabularies.h"
#include "Model/Vocabulary.h"

#include <cstdint>

namespace keepery {

namespace detail {
enum class SearchReasonCase : std::uint8_t { words, look, meaning, collection };
} // namespace detail

// Why a search found a capture: its words matched the full-text index, its `look` or `meaning` vector
// stood out against the query, or most of its collection was found and it was added to complete it.
// Cases order as declared, which is also the order in which evidence lists are fused.
struct SearchReason : detail::Vocabulary<SearchReason, detail::SearchReasonCase, 4> {
    using Vocabulary::Vocabulary;
    using enum detail::SearchReasonCase;

    static constexpr std::array<std::string_view, 4> rawValues{"words", "look", "meaning", "collection"};

    // The reason of evidence found in that vector space: `look` for `look`, `meaning` for `meaning`.
    constexpr explicit SearchReason(VectorSpace space)
        : Vocabulary(space == VectorSpace::look ? look : meaning) {}
};

} // namespace keepery

template <>
struct std::hash<keepery::SearchReason> : keepery::detail::VocabularyHash<keepery::SearchReason> {};
