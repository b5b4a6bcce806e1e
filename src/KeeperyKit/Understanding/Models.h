#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The default models and the model-service version the engine accepts. Pure; any thread.
namespace keepery::Models {

inline constexpr std::string_view embedding = "embeddinggemma-2:440m";
inline constexpr std::int64_t embeddingDimension = 768;
inline constexpr std::string_view minimumOllama = "0.40.0";

// The vision model for a machine with `ramGB` whole gibibytes of memory: the larger one from 16 up.
[[nodiscard]] std::string vision(std::int64_t ramGB);

} // namespace keepery::Models
