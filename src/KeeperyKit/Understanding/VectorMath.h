#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

// Arithmetic on vectors of 32-bit floats. Embeddings are kept at unit length, so `dot` is their cosine
// similarity. Pure; any thread.
namespace keepery::VectorMath {

// The sum of the element products, accumulated in 32-bit floats in index order; 0 when `a` is empty or
// the lengths differ.
[[nodiscard]] float dot(std::span<const float> a, std::span<const float> b);

// `dot(query, row)` for every row of `rows`, a matrix of `rows.size() / dimension` rows of `dimension`
// floats stored one row after another (trailing floats that make no whole row are ignored). Result r goes
// to `out[r]`; `out` must hold at least that many floats, or std::invalid_argument is thrown. Every result
// is bit for bit the one `dot` gives (each row keeps its own index-order sum; rows are scored side by
// side with SIMD lanes where the processor has them), and all are 0 when `query.size()` differs from
// `dimension`. A `dimension` of 0 makes no rows.
void dots(std::span<const float> query, std::span<const float> rows, std::size_t dimension,
          std::span<float> out);

// The same for rows found anywhere: `dot(query, row)` for every row, each `dimension` floats from its start,
// into `out[r]`, bit for bit as `dot` gives it; all 0 when `query.size()` differs from `dimension`.
void dots(std::span<const float> query, std::span<const float* const> rows, std::size_t dimension,
          std::span<float> out);

// `v` scaled to unit length; returned unchanged when empty or when its norm is 0 or not a number.
[[nodiscard]] std::vector<float> unit(std::span<const float> v);

// The unit-length direction of the sum of the vectors whose length equals the first one's (others are
// skipped); absent for an empty list, empty when the first vector is empty.
// Views are read in place, so rows of one contiguous array need no copies.
[[nodiscard]] std::optional<std::vector<float>> centroid(std::span<const std::span<const float>> vectors);
[[nodiscard]] std::optional<std::vector<float>> centroid(const std::vector<std::vector<float>>& vectors);

} // namespace keepery::VectorMath
