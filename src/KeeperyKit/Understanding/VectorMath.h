#pragma once

#include <optional>
#include <span>
#include <vector>

// Arithmetic on vectors of 32-bit floats. Embeddings are kept at unit length, so `dot` is their cosine
// similarity. Pure; any thread.
namespace keepery::VectorMath {

// The sum of the element products, accumulated in 32-bit floats in index order; 0 when `a` is empty or
// the lengths differ.
[[nodiscard]] float dot(std::span<const float> a, std::span<const float> b);

// `v` scaled to unit length; returned unchanged when empty or when its norm is 0 or not a number.
[[nodiscard]] std::vector<float> unit(std::span<const float> v);

// The unit-length direction of the sum of the vectors whose length equals the first one's (others are
// skipped); absent for an empty list, empty when the first vector is empty.
[[nodiscard]] std::optional<std::vector<float>> centroid(const std::vector<std::vector<float>>& vectors);

} // namespace keepery::VectorMath
