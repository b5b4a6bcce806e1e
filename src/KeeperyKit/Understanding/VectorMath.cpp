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

// Where each row starts: one after another in one array, or anywhere.
struct ContiguousRows {
    const float* first;
    std::size_t dimension;
    const float* operator()(std::size_t r) const { return first + r * dimension; }
};
struct ScatteredRows {
    const float* const* starts;
    const float* operator()(std::size_t r) const { return starts[r]; }
};

// Four rows at once with four independent scalar sums, so that the additions of different rows overlap.
template <class Rows>
void dotsPortable(const float* query, Rows rowAt, std::size_t dimension, std::size_t first, std::size_t count,
                  float* out) {
    std::size_t r = first;
    for (; r + 4 <= count; r += 4) {
        const float* row0 = rowAt(r);
        const float* row1 = rowAt(r + 1);
        const float* row2 = rowAt(r + 2);
        const float* row3 = rowAt(r + 3);
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
        const float* row = rowAt(r);
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

// The products of eight consecutive elements of rows r to r + 7, multiplied lane by lane with the query's
// eight elements and turned so that vector k holds element i + k of every row.
template <class Rows>
__attribute__((target("avx2"))) inline void products8(Rows rowAt, std::size_t r, std::size_t i, __m256 q,
                                                      __m256 p[8]) {
    for (std::size_t k = 0; k < 8; ++k) {
        p[k] = _mm256_mul_ps(_mm256_loadu_ps(rowAt(r + k) + i), q);
    }
    transpose8(p);
}

// Lane k of the result is element i of row r + k, times the query's element i.
template <class Rows>
__attribute__((target("avx2"))) inline __m256 productColumn(Rows rowAt, std::size_t r, std::size_t i,
                                                            float q) {
    const __m256 column = _mm256_setr_ps(rowAt(r)[i], rowAt(r + 1)[i], rowAt(r + 2)[i], rowAt(r + 3)[i],
                                         rowAt(r + 4)[i], rowAt(r + 5)[i], rowAt(r + 6)[i], rowAt(r + 7)[i]);
    return _mm256_mul_ps(column, _mm256_set1_ps(q));
}

// Sixteen rows at a time, eight per vector of sums, lane k holding row r + k's running sum. Two groups keep
// two chains of additions in flight; the additions within each chain stay in index order.
template <class Rows>
__attribute__((target("avx2"))) void dotsAVX2(const float* query, Rows rowAt, std::size_t dimension,
                                              std::size_t count, float* out) {
    const std::size_t whole = dimension - dimension % 8;
    std::size_t r = 0;
    for (; r + 16 <= count; r += 16) {
        __m256 sumA = _mm256_setzero_ps();
        __m256 sumB = _mm256_setzero_ps();
        const bool more = r + 32 <= count;
        for (std::size_t i = 0; i < whole; i += 8) {
            if (more && i % 16 == 0) {
                // The next sixteen rows, one cache line of each, while this block is scored.
                for (std::size_t k = 0; k < 16; ++k) {
                    _mm_prefetch(reinterpret_cast<const char*>(rowAt(r + 16 + k) + i), _MM_HINT_T0);
                }
            }
            const __m256 q = _mm256_loadu_ps(query + i);
            __m256 pa[8];
            __m256 pb[8];
            products8(rowAt, r, i, q, pa);
            products8(rowAt, r + 8, i, q, pb);
            for (int k = 0; k < 8; ++k) {
                sumA = _mm256_add_ps(sumA, pa[k]);
                sumB = _mm256_add_ps(sumB, pb[k]);
            }
        }
        for (std::size_t i = whole; i < dimension; ++i) {
            sumA = _mm256_add_ps(sumA, productColumn(rowAt, r, i, query[i]));
            sumB = _mm256_add_ps(sumB, productColumn(rowAt, r + 8, i, query[i]));
        }
        _mm256_storeu_ps(out + r, sumA);
        _mm256_storeu_ps(out + r + 8, sumB);
    }
    for (; r + 8 <= count; r += 8) {
        __m256 sum = _mm256_setzero_ps();
        for (std::size_t i = 0; i < whole; i += 8) {
            __m256 p[8];
            products8(rowAt, r, i, _mm256_loadu_ps(query + i), p);
            for (int k = 0; k < 8; ++k) {
                sum = _mm256_add_ps(sum, p[k]);
            }
        }
        for (std::size_t i = whole; i < dimension; ++i) {
            sum = _mm256_add_ps(sum, productColumn(rowAt, r, i, query[i]));
        }
        _mm256_storeu_ps(out + r, sum);
    }
    dotsPortable(query, rowAt, dimension, r, count, out);
}

bool hasAVX2() {
    static const bool supported = __builtin_cpu_supports("avx2");
    return supported;
}

#endif

template <class Rows>
void scoreRows(const float* query, Rows rowAt, std::size_t dimension, std::size_t count, float* out) {
#ifdef KEEPERY_VECTOR_AVX2
    if (hasAVX2()) {
        dotsAVX2(query, rowAt, dimension, count, out);
        return;
    }
#endif
    dotsPortable(query, rowAt, dimension, 0, count, out);
}

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
    scoreRows(query.data(), ContiguousRows{rows.data(), dimension}, dimension, count, out.data());
}

void dots(std::span<const float> query, std::span<const float* const> rows, std::size_t dimension,
          std::span<float> out) {
    if (out.size() < rows.size()) {
        throw std::invalid_argument("VectorMath::dots: room for " + std::to_string(out.size()) +
                                    " results, " + std::to_string(rows.size()) + " rows");
    }
    if (query.size() != dimension || dimension == 0) {
        std::fill_n(out.begin(), rows.size(), 0.0f);
        return;
    }
    scoreRows(query.data(), ScatteredRows{rows.data()}, dimension, rows.size(), out.data());
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
