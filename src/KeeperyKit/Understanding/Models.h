#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

// The default models and the model-service version the engine accepts. Pure; any thread.
namespace keepery::Models {

inline constexpr std::string_view embedding = "embeddinggemma-2:440m";
inline constexpr std::int64_t embeddingDimension = 768;
inline constexpr std::string_view minimumOllama = "0.40.0";

// The download size shown for each default model.
inline constexpr std::array<std::pair<std::string_view, std::string_view>, 3> sizes{{
    {"embeddinggemma-2:440m", "710 MB"},
    {"qwen3.5:4b", "3.4 GB"},
    {"qwen3.5:2b-q4_K_M", "1.9 GB"},
}};

// The vision model for a machine with `ramGB` whole gibibytes of memory: the larger one from 16 up.
[[nodiscard]] std::string vision(std::int64_t ramGB);

// True when `version` is at least `minimum`. Each is read as the dot-separated integers before its first
// "-" (empty pieces skipped; a piece that is not an integer counts as 0), and the lists are compared
// position by position, a missing position counting as 0: "0.41.2-rc1" is at least "0.40.0", "0.4.9" is not.
[[nodiscard]] bool isVersion(std::string_view version, std::string_view minimum);

} // namespace keepery::Models
