// Vectors: one per capture and space, stored as BLOBs of little-endian 32-bit IEEE floats with no header.
#include "Store/LibraryStore.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace keepery {
namespace {

static_assert(sizeof(float) == 4 && std::numeric_limits<float>::is_iec559, "vectors are 32-bit IEEE floats");

Database::Blob blob(const std::vector<float>& vector) {
    Database::Blob bytes(vector.size() * 4);
    if constexpr (std::endian::native == std::endian::little) {
        if (!vector.empty()) {
            std::memcpy(bytes.data(), vector.data(), bytes.size());
        }
    } else {
        for (std::size_t i = 0; i < vector.size(); ++i) {
            const auto bits = std::bit_cast<std::uint32_t>(vector[i]);
            for (std::size_t b = 0; b < 4; ++b) {
                bytes[i * 4 + b] = static_cast<std::uint8_t>(bits >> (8 * b));
            }
        }
    }
    return bytes;
}

// Appends as many floats as `bytes` holds whole 4-byte groups; a trailing remainder is ignored.
void appendFloats(std::span<const std::uint8_t> bytes, std::vector<float>& out) {
    const std::size_t count = bytes.size() / 4;
    const std::size_t start = out.size();
    out.resize(start + count);
    if constexpr (std::endian::native == std::endian::little) {
        if (count > 0) {
            std::memcpy(out.data() + start, bytes.data(), count * 4);
        }
    } else {
        for (std::size_t i = 0; i < count; ++i) {
            std::uint32_t bits = 0;
            for (std::size_t b = 0; b < 4; ++b) {
                bits |= static_cast<std::uint32_t>(bytes[i * 4 + b]) << (8 * b);
            }
            out[start + i] = std::bit_cast<float>(bits);
        }
    }
}

// Another program, or damage, may have stored infinities or NaN. Such a row is no vector: its scores
// would be NaN, which compares false both ways and lets unrelated captures stand out. (An all-ones
// exponent is what infinities and NaN share; testing the bits lets the loop run in SIMD lanes.)
bool finite(std::span<const float> vector) {
    std::uint32_t notFinite = 0;
    for (const float x : vector) {
        notFinite |=
            static_cast<std::uint32_t>((std::bit_cast<std::uint32_t>(x) & 0x7F800000u) == 0x7F800000u);
    }
    return notFinite == 0;
}

// Appends the row when its vector is finite.
void appendRow(LibraryStore::VectorRows& rows, std::string_view id, std::span<const std::uint8_t> bytes) {
    const std::size_t start = rows.floats.size();
    appendFloats(bytes, rows.floats);
    if (!finite(std::span(rows.floats).subspan(start))) {
        rows.floats.resize(start);
        return;
    }
    rows.ids.emplace_back(id);
    rows.starts.push_back(rows.floats.size());
}

// The stored vector, or nothing when it is not finite.
std::optional<std::vector<float>> floats(std::span<const std::uint8_t> bytes) {
    std::vector<float> vector;
    appendFloats(bytes, vector);
    if (!finite(vector)) {
        return std::nullopt;
    }
    return vector;
}

} // namespace

void LibraryStore::setEmbedding(const std::string& id, const std::string& model,
                                const std::map<VectorSpace, std::vector<float>>& vectors) {
    const std::lock_guard guard(mutex_);
    db_.transaction([&] {
        for (const auto& [space, vector] : vectors) {
            db_.run("INSERT OR REPLACE INTO vectors (capture_id, space, model, dim, vector) VALUES (?, ?, ?, "
                    "?, ?)",
                    {id, space.rawValue(), model, static_cast<std::int64_t>(vector.size()), blob(vector)});
        }
        db_.run("UPDATE captures SET stage = ?, attempts = 0, last_error = NULL WHERE id = ?",
                {stageText(CaptureStage::embedded), id});
    });
}

std::optional<std::vector<float>> LibraryStore::vector(const std::string& id, VectorSpace space) {
    const std::lock_guard guard(mutex_);
    std::optional<std::vector<float>> found;
    bool first = true;
    db_.forEachRow("SELECT vector FROM vectors WHERE capture_id = ? AND space = ?", {id, space.rawValue()},
                   [&](const Database::Cursor& cursor) {
                       if (std::exchange(first, false)) {
                           if (auto bytes = cursor.blob(0)) {
                               found = floats(*bytes);
                           }
                       }
                   });
    return found;
}

LibraryStore::VectorRows LibraryStore::vectorRows(const std::string& model, VectorSpace space) {
    const std::lock_guard guard(mutex_);
    VectorRows rows;
    db_.forEachRow("SELECT capture_id, vector FROM vectors WHERE model = ? AND space = ?",
                   {model, space.rawValue()}, [&](const Database::Cursor& cursor) {
                       auto id = cursor.text(0);
                       auto bytes = cursor.blob(1);
                       if (id && bytes) {
                           appendRow(rows, *id, *bytes);
                       }
                   });
    return rows;
}

static_assert(VectorSpace::allCases().size() == 2, "one block of rows per space");

std::array<LibraryStore::VectorRows, 2> LibraryStore::vectorRows(const std::string& model) {
    const std::lock_guard guard(mutex_);
    // How many rows each space has (of any model), from the key's index alone: each space's floats are
    // then placed once, never copied as they grow, with room for a quarter more (the captures this process
    // embeds next join the rows kept in memory without copying them all). Room reserved and never written
    // costs no memory.
    std::array<std::size_t, 2> stored{};
    db_.forEachRow(
        "SELECT space, count(*) FROM vectors GROUP BY space", {}, [&](const Database::Cursor& cursor) {
            const auto raw = cursor.text(0);
            const auto space = raw ? VectorSpace::fromRawValue(*raw) : std::nullopt;
            if (space) {
                stored[static_cast<std::size_t>(static_cast<VectorSpace::Case>(*space))] =
                    static_cast<std::size_t>(std::max<std::int64_t>(0, cursor.value(1).asInt().value_or(0)));
            }
        });
    for (std::size_t& count : stored) {
        count += count / 4 + 64;
    }
    std::array<VectorRows, 2> rows;
    for (std::size_t s = 0; s < rows.size(); ++s) {
        rows[s].ids.reserve(stored[s]);
        rows[s].starts.reserve(stored[s] + 1);
    }
    // One pass in the table's order, which is also the order of each space's own read.
    db_.forEachRow("SELECT capture_id, space, vector FROM vectors WHERE model = ?", {model},
                   [&](const Database::Cursor& cursor) {
                       const auto id = cursor.text(0);
                       const auto raw = cursor.text(1);
                       const auto bytes = cursor.blob(2);
                       const auto space = raw ? VectorSpace::fromRawValue(*raw) : std::nullopt;
                       if (!id || !bytes || !space) {
                           return;
                       }
                       const auto s = static_cast<std::size_t>(static_cast<VectorSpace::Case>(*space));
                       VectorRows& into = rows[s];
                       // An embedding has a few thousand floats at most; a longer first row is no guide.
                       if (into.floats.capacity() == 0 && bytes->size() / 4 <= 16384) {
                           into.floats.reserve(stored[s] * (bytes->size() / 4));
                       }
                       appendRow(into, *id, *bytes);
                   });
    return rows;
}

} // namespace keepery
