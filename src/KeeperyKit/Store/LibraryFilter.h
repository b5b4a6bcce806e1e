#pragma once

#include "Model/Capture.h"

#include <cstdint>
#include <functional>
#include <string>
#include <variant>

namespace keepery {

// What a capture listing is limited to. Made by the static function named after its case; compared and
// hashed by case and payload.
class LibraryFilter {
public:
    enum class Case : std::uint8_t { collection, kind, source, since, media, recent, favorites, unsorted };
    // The collection id (`collection`) or source word (`source`), the kind, the moment (`since`), the media,
    // or nothing for the three cases without a payload.
    using Payload = std::variant<std::monostate, std::string, CaptureKind, Instant, CaptureMedia>;

    // Captures filed in the collection with this id.
    [[nodiscard]] static LibraryFilter collection(std::string collectionID) {
        return {Case::collection, std::move(collectionID)};
    }
    // Captures of this kind.
    [[nodiscard]] static LibraryFilter kind(CaptureKind kind) { return {Case::kind, kind}; }
    // Captures whose source word equals this one exactly.
    [[nodiscard]] static LibraryFilter source(std::string source) {
        return {Case::source, std::move(source)};
    }
    // Captures kept at or after this moment (the time kept, never the time a photo was taken).
    [[nodiscard]] static LibraryFilter since(Instant start) { return {Case::since, start}; }
    // Screen captures, photos or videos.
    [[nodiscard]] static LibraryFilter media(CaptureMedia media) { return {Case::media, media}; }
    // Every capture.
    [[nodiscard]] static LibraryFilter recent() { return LibraryFilter(Case::recent); }
    // Captures marked favourite.
    [[nodiscard]] static LibraryFilter favorites() { return LibraryFilter(Case::favorites); }
    // Captures in no collection.
    [[nodiscard]] static LibraryFilter unsorted() { return LibraryFilter(Case::unsorted); }

    [[nodiscard]] Case which() const { return case_; }
    [[nodiscard]] const Payload& payload() const { return payload_; }

    bool operator==(const LibraryFilter&) const = default;

private:
    // The payload is made in place: moving a whole variant trips a false warning of GCC 12.
    explicit LibraryFilter(Case which) : case_(which) {}
    template <typename T>
    LibraryFilter(Case which, T&& payload) : case_(which), payload_(std::forward<T>(payload)) {}

    Case case_;
    Payload payload_;
};

} // namespace keepery

template <>
struct std::hash<keepery::LibraryFilter> {
    std::size_t operator()(const keepery::LibraryFilter& filter) const noexcept {
        const std::size_t payload = std::visit(
            [](const auto& value) -> std::size_t {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, std::monostate>) {
                    return 0;
                } else {
                    return std::hash<T>{}(value);
                }
            },
            filter.payload());
        return payload * 31 + static_cast<std::size_t>(filter.which());
    }
};
