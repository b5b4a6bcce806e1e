#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

namespace keepery::detail {

// True when `value` is one of its enumeration's named enumerators. The compiler spells a template argument
// that names no enumerator as a cast, "(Enum)5", in the function's signature.
template <auto value>
constexpr bool namesAnEnumerator() {
    const std::string_view signature = __PRETTY_FUNCTION__;
    const std::size_t at = signature.rfind("value = ");
    return at != std::string_view::npos && signature[at + 8] != '(';
}

// True when the enumerators of `Case` are exactly 0, 1, ... N - 1.
template <typename Case, std::size_t N>
constexpr bool countsCasesFromZero() {
    return []<std::size_t... i>(std::index_sequence<i...>) {
        return (namesAnEnumerator<static_cast<Case>(i)>() && ...) &&
               !namesAnEnumerator<static_cast<Case>(N)>();
    }
    (std::make_index_sequence<N>());
}

// Shared shape of the closed vocabularies. A vocabulary derives from this with its case enumeration,
// brings the cases into its own scope (`using enum`), so that `CaptureKind::recipe` names a case, and lists
// `rawValues` in declared order. Values convert to their enumeration, so they compare and switch as one.
template <typename Derived, typename CaseType, std::size_t N>
struct Vocabulary {
    static_assert(countsCasesFromZero<CaseType, N>(), "a vocabulary's size must be the number of its cases");

    using Case = CaseType;
    Case value{};

    constexpr Vocabulary() = default;
    constexpr Vocabulary(Case c) : value(c) {}
    constexpr operator Case() const { return value; }

    // The string the database stores and the tools show; equal to the case's name.
    [[nodiscard]] constexpr std::string_view rawValue() const {
        static_assert(Derived::rawValues.size() == N, "every case needs its raw string");
        return Derived::rawValues[static_cast<std::size_t>(value)];
    }

    // The case whose raw string is exactly `raw` (case-sensitive); absent for any other text.
    [[nodiscard]] static constexpr std::optional<Derived> fromRawValue(std::string_view raw) {
        for (std::size_t i = 0; i < N; ++i) {
            if (Derived::rawValues[i] == raw) {
                return Derived(static_cast<Case>(i));
            }
        }
        return std::nullopt;
    }

    // Every case, in declared order.
    [[nodiscard]] static constexpr std::array<Derived, N> allCases() {
        std::array<Derived, N> all{};
        for (std::size_t i = 0; i < N; ++i) {
            all[i] = Derived(static_cast<Case>(i));
        }
        return all;
    }
};

template <typename V>
struct VocabularyHash {
    std::size_t operator()(V v) const noexcept {
        return std::hash<std::size_t>{}(static_cast<std::size_t>(v.value));
    }
};

} // namespace keepery::detail
