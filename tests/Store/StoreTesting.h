#pragma once

#include "Store/Database.h"
#include "Store/LibraryStore.h"
#include "Understanding/CaptureDescription.h"
#include "support/FakeClock.h"
#include "support/FakeFiles.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace keepery::testing {

// What the describer hands the store.
using Described = CaptureDescription;

// The ids of captures or collections, in their order.
template <typename Records>
std::vector<std::string> idsOf(const Records& records) {
    std::vector<std::string> ids;
    for (const auto& record : records) {
        ids.push_back(record.id);
    }
    return ids;
}

// A unit vector along axis `i` of `dimension`.
inline std::vector<float> axis(std::size_t i, std::size_t dimension = 4) {
    std::vector<float> v(dimension, 0.0f);
    v.at(i) = 1.0f;
    return v;
}

// A store in a fresh library directory on a clock and files the test controls, and a second connection to
// the same file for reading and writing rows behind the store's back.
class StoreTest : public ::testing::Test {
protected:
    StoreTest()
        : store(directory.path() / "Library", clock, files),
          raw((directory.path() / "Library" / "library.sqlite").string()) {}

    static Capture screen(std::string id, Instant createdAt, std::string app = "Safari",
                          std::string windowTitle = "Window") {
        Capture capture;
        capture.id = std::move(id);
        capture.createdAt = createdAt;
        capture.app = std::move(app);
        capture.windowTitle = std::move(windowTitle);
        capture.width = 1440;
        capture.height = 900;
        return capture;
    }

    // A column of the capture's full-text row, "<no row>" when there is none; fails the test when there are
    // several.
    std::string ftsColumn(const std::string& id, const std::string& column) {
        auto rows = raw.query("SELECT * FROM captures_fts WHERE id = ?", {id});
        EXPECT_LE(rows.size(), 1u) << "full-text rows of " << id;
        return rows.empty() ? "<no row>" : rows.front().at(column).asText().value_or("<not text>");
    }

    std::int64_t rowsNaming(const std::string& table, const std::string& column, const std::string& id) {
        auto rows = raw.query("SELECT count(*) AS n FROM " + table + " WHERE " + column + " = ?", {id});
        return rows.front().at("n").asInt().value_or(-1);
    }

    Database::Value column(const std::string& id, const std::string& name) {
        auto rows = raw.query("SELECT " + name + " AS v FROM captures WHERE id = ?", {id});
        return rows.empty() ? Database::Value::null() : rows.front().at("v");
    }

    TemporaryDirectory directory;
    FakeClock clock;
    FakeFiles files;
    LibraryStore store;
    Database raw;
};

} // namespace keepery::testing
