#include "Understanding/VectorMath.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define KEEPERY_VECTOR_AVX2 1
#endif

// Sums are never reassociated (the build forbids contraction and fast math): every path below adds each
// row's products one at a time in index order, exactly as `dot` does, and gains its speed only by
// working on several rows side by side.

namespace keepery::VectorMath {
namespace {

// Four rows at once with four independent scalar sums, so that the additions of different rows overlap.
void dotsPortable(const float* query, const float* rows, std::size_t dimension, std::size_t count,
                  float* out) {
    std::size_t r = 0;
    for (; r + 4 <= count; r += 4) {
        const float* row0 = rows + r * dimension;
        const float* row1 = row0 + dimension;
        const float* row2 = row1 + dimension;
        const float* row3 = row2 + dimension;
        float sum0 = 0, sum1 = 0, sum2 = 0, sum3 = 0;
        for (std::size_t i = 0; i < dimension; ++i) {
            const float q = query[i];
            sum0 += row0[i] * q;
            sum1 += row1[i] * q;
            sum2 += row2[i] * q;
            sum3 += row3[i] * q;
        }
        out[r] = sum0;
        out[r + 1] = sum1;
        out[r + 2] = sum2;
        out[r + 3] = sum3;
    }
    for (; r < count; ++r) {
        const float* row = rows + r * dimension;
        float sum = 0;
        for (std::size_t i = 0; i < dimension; ++i) {
            sum += row[i] * query[i];
        }
        out[r] = sum;
    }
}

#ifdef KEEPERY_VECTOR_AVX2

// Lane k of `a[j]` becomes lane j of `a[k]`.
__attribute__((target("avx2"))) inline void transpose8(__m256 a[8]) {
    const __m256 t0 = _mm256_unpacklo_ps(a[0], a[1]);
    const __m256 t1 = _mm256_unpackhi_ps(a[0], a[1]);
    const __m256 t2 = _mm256_unpacklo_ps(a[2], a[3]);
    const __m256 t3 = _mm256_unpackhi_ps(a[2], a[3]);
    const __m256 t4 = _mm256_unpacklo_ps(a[4], a[5]);
    const __m256 t5 = _mm256_unpackhi_ps(a[4], a[5]);
    const __m256 t6 = _mm256_unpacklo_ps(a[6], a[7]);
    const __m256 t7 = _mm256_unpackhi_ps(a[6], a[7]);
    const __m256 s0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 s1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
    const __m256 s2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 s3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
    const __m256 s4 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 s5 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(3, 2, 3, 2));
    const __m256 s6 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 s7 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(3, 2, 3, 2));
    a[0] = _mm256_permute2f128_ps(s0, s4, 0x20);
    a[1] = _mm256_permute2f128_ps(s1, s5, 0x20);
    a[2] = _mm256_permute2f128_ps(s2, s6, 0x20);
    a[3] = _mm256_permute2f128_ps(s3, s7, 0x20);
    a[4] = _mm256_permute2f128_ps(s0, s4, 0x31);
    a[5] = _mm256_permute2f128_ps(s1, s5, 0x31);
    a[6] = _mm256_permute2f128_ps(s2, s6, 0x31);
    a[7] = _mm256_permute2f128_ps(s3, s7, 0x31);
}

// The products of eight consecutive elements of eight rows, multiplied lane by lane with the query's eight
// elements and turned so that vector k holds element i + k of every row.
__attribute__((target("avx2"))) inline void products8(const float* row, std::size_t dimension, std::size_t i,
                                                      __m256 q, __m256 p[8]) {
    for (int k = 0; k < 8; ++k) {
        p[k] = _mm256_mul_ps(_mm256_loadu_ps(row + static_cast<std::size_t>(k) * dimension + i), q);
    }
    transpose8(p);
}

// Lane r of the result is element i of row r, times the query's element i.
__attribute__((target("avx2"))) inline __m256 productColumn(const float* row, std::size_t dimension,
                                                            std::size_t i, float q) {
    const __m256 column = _mm256_setr_ps(
        row[i], row[dimension + i], row[2 * dimension + i], row[3 * dimension + i], row[4 * dimension + i],
        row[5 * dimension + i], row[6 * dimension + i], row[7 * dimension + i]);
    return _mm256_mul_ps(column, _mm256_set1_ps(q));
}

// Sixteen rows at a time, eight per vector of sums, lane r holding row r's running sum. Two groups keep
// two chains of additions in flight; the additions within each chain stay in index order.
__attribute__((target("avx2"))) void dotsAVX2(const float* query, const float* rows, std::size_t dimension,
                                              std::size_t count, float* out) {
    const std::size_t whole = dimension - dimension % 8;
    std::size_t r = 0;
    for (; r + 16 <= count; r += 16) {
        const float* a = rows + r * dimension;
        const float* b = a + 8 * dimension;
        __m256 sumA = _mm256_setzero_ps();
        __m256 sumB = _mm256_setzero_ps();
        const bool more = r + 32 <= count;
        for (std::size_t i = 0; i < whole; i += 8) {
            if (more && i % 16 == 0) {
                // The next sixteen rows, one cache line of each, while this block is scored.
                const float* next = a + 16 * dimension + i;
                for (int k = 0; k < 16; ++k) {
                    _mm_prefetch(
                        reinterpret_cast<const char*>(next + static_cast<std::size_t>(k) * dimension),
                        _MM_HINT_T0);
                }
            }
            const __m256 q = _mm256_loadu_ps(query + i);
            __m256 pa[8];
            __m256 pb[8];
            products8(a, dimension, i, q, pa);
            products8(b, dimension, i, q, pb);
            for (int k = 0; k < 8; ++k) {
                sumA = _mm256_add_ps(sumA, pa[k]);
                sumB = _mm256_add_ps(sumB, pb[k]);
            }
        }
        for (std::size_t i = whole; i < dimension; ++i) {
            sumA = _mm256_add_ps(sumA, productColumn(a, dimension, i, query[i]));
            sumB = _mm256_add_ps(sumB, productColumn(b, dimension, i, query[i]));
        }
        _mm256_storeu_ps(out + r, sumA);
        _mm256_storeu_ps(out + r + 8, sumB);
    }
    for (; r + 8 <= count; r += 8) {
        const float* a = rows + r * dimension;
        __m256 sum = _mm256_setzero_ps();
        for (std::size_t i = 0; i < whole; i += 8) {
            __m256 p[8];
            products8(a, dimension, i, _mm256_loadu_ps(query + i), p);
            for (int k = 0; k < 8; ++k) {
                sum = _mm256_add_ps(sum, p[k]);
            }
        }
        for (std::size_t i = whole; i < dimension; ++i) {
            sum = _mm256_add_ps(sum, productColumn(a, dimension, i, query[i]));
        }
        _mm256_storeu_ps(out + r, sum);
    }
    dotsPortable(query, rows + r * dimension, dimension, count - r, out + r);
}

bool hasAVX2() {
    static const bool supported = __builtin_cpu_supports("avx2");
    return supported;
}

#endif

} // namespace

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

void dots(std::span<const float> query, std::span<const float> rows, std::size_t dimension,
          std::span<float> out) {
    const std::size_t count = dimension == 0 ? 0 : rows.size() / dimension;
    if (out.size() < count) {
        throw std::invalid_argument("VectorMath::dots: room for " + std::to_string(out.size()) +
                                    " results, " + std::to_string(count) + " rows");
    }
    if (count == 0) {
        return;
    }
    if (query.size() != dimension) {
        std::fill_n(out.begin(), count, 0.0f);
        return;
    }
#ifdef KEEPERY_VECTOR_AVX2
    if (hasAVX2()) {
        dotsAVX2(query.data(), rows.data(), dimension, count, out.data());
        return;
    }
#endif
    dotsPortable(query.data(), rows.data(), dimension, count, out.data());
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

std::optional<std::vector<float>> centroid(std::span<const std::span<const float>> vectors) {
    if (vectors.empty()) {
        return std::nullopt;
    }
    const std::size_t dimension = vectors.front().size();
    std::vector<float> sum(dimension, 0.0f);
    for (const std::span<const float> v : vectors) {
        if (v.size() != dimension) {
            continue;
        }
        for (std::size_t i = 0; i < dimension; ++i) {
            sum[i] += v[i];
        }
    }
    return unit(sum);
}

std::optional<std::vector<float>> centroid(const std::vector<std::vector<float>>& vectors) {
    const std::vector<std::span<const float>> views(vectors.begin(), vectors.end());
    return centroid(std::span<const std::span<const float>>(views));
}

} // namespace keepery::VectorMath
