#include "Understanding/VectorMath.h"

#include <cmath>

namespace keepery::VectorMath {

float dot(std::span<const float> a, std::span<const float> b) {
    if (a.empty() || a.size() != b.size()) {
        return 0;
    }
    float sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += a[i] * b[i];
    }
    return sum;
}

std::vector<float> unit(std::span<const float> v) {
    std::vector<float> out(v.begin(), v.end());
    if (out.empty()) {
        return out;
    }
    float squares = 0;
    for (float x : out) {
        squares += x * x;
    }
    const float norm = std::sqrt(squares);
    if (norm > 0) {
        for (float& x : out) {
            x /= norm;
        }
    }
    return out;
}

std::optional<std::vector<float>> centroid(const std::vector<std::vector<float>>& vectors) {
    if (vectors.empty()) {
        return std::nullopt;
    }
    const std::size_t dimension = vectors.front().size();
    std::vector<float> sum(dimension, 0.0f);
    for (const auto& v : vectors) {
        if (v.empty() || v.size() != dimension) {
            continue;
        }
        for (std::size_t i = 0; i < dimension; ++i) {
            sum[i] += v[i];
        }
    }
    return unit(sum);
}

} // namespace keepery::VectorMath
