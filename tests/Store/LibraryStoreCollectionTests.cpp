#include "Store/LibraryStore.h"

#include "Store/StoreTesting.h"

#include <bit>
#include <limits>

namespace keepery::testing {
namespace {

using namespace std::chrono_literals;

using Collections = StoreTest;

TEST_F(Collections, ListingCountsMembersAndPutsTheLatestUpdateFirst) {
    store.insertCollection({"old", "Old", "\U0001F4DA", 100, 100, 0, 3, false});
    store.insertCollection({"new", "New", "\U0001F35C", 200, 300, 0, 0, true});
    store.insertCollection({"mid", "Mid", "", 150, 200, 0, 0, false});
    for (const char* id : {"a", "b", "c"}) {
        store.insert(screen(id, 1));
        store.setCollection(id, "old");
    }
    store.moveCapture("c", "new");

    auto listed = store.collections();
    ASSERT_EQ(idsOf(listed), (std::vector<std::string>{"new", "mid", "old"}));
    EXPECT_EQ(listed[0], (CaptureCollection{"new", "New", "\U0001F35C", 200, 300, 1, 0, true}));
    EXPECT_EQ(listed[1].count, 0) << "a collection without members is listed with count 0";
    EXPECT_EQ(listed[2], (CaptureCollection{"old", "Old", "\U0001F4DA", 100, 100, 2, 3, false}));
    // The names alone come in the listing's order; asked by id, unknown ids are skipped.
    const auto names = store.collectionNames();
    EXPECT_EQ(idsOf(names), (std::vector<std::string>{"new", "mid", "old"}));
    EXPECT_EQ(names[0].name + names[0].emoji, "New\U0001F35C");
    EXPECT_EQ(store.collectionNames({"old", "nowhere", "mid"}).size(), 2u);

    // Another connection's rename shows at once, though the listing is kept between calls.
    raw.run("UPDATE collections SET name = 'Renamed' WHERE id = 'new'");
    EXPECT_EQ(store.collections().front().name, "Renamed");
}

TEST_F(Collections, MovingFilesWithoutTouchingTheProcessing) {
    store.insertCollection({"c", "C", "", 1, 1, 0, 0, false});
    store.insert(screen("a", 1));
    store.setRead("a", "text", std::nullopt);
    store.recordFailure("a", "still failing", 60s, 100);

    store.moveCapture("a", "c");
    EXPECT_EQ(store.capture("a")->stage, CaptureStage::read);
    EXPECT_EQ(store.capture("a")->lastError, "still failing");
    // Filing into a collection that does not exist breaks the foreign key.
    EXPECT_THROW(store.moveCapture("a", "nowhere"), Database::Failure);
}

TEST_F(Collections, RenamesStampTheTimeAndKeepTheUsersMark) {
    store.insertCollection({"auto", "Untitled", "", 1, 1, 0, 0, false});
    store.insertCollection({"mine", "Mine", "", 1, 2, 0, 0, false});

    store.renameCollection("auto", "Ramen Spots", "\U0001F35C", 4, LibraryStore::NamedBy::namer);
    EXPECT_EQ(store.collections().front(), (CaptureCollection{"auto", "Ramen Spots", "\U0001F35C", 1,
                                                              clock.secondsSince1970(), 0, 4, false}));
    clock.advance(1min);
    store.renameCollection("mine", "My Name", "\u2B50", 1, LibraryStore::NamedBy::user);
    store.renameCollection("mine", "Namer's Name", "\u2728", 9, LibraryStore::NamedBy::namer);
    EXPECT_EQ(store.collections().front().name, "Namer's Name");
    EXPECT_TRUE(store.collections().front().userNamed)
        << "a rename by the namer never clears the user's mark";

    clock.advance(1h);
    store.touchCollection("auto");
    EXPECT_EQ(store.collections().front().id, "auto");
    EXPECT_EQ(store.collections().front().updatedAt, clock.secondsSince1970());
}

using Vectors = StoreTest;

std::vector<std::uint32_t> bits(std::span<const float> v) {
    std::vector<std::uint32_t> out;
    for (float f : v) {
        out.push_back(std::bit_cast<std::uint32_t>(f));
    }
    return out;
}

TEST_F(Vectors, RoundTripBitForBitAsLittleEndianFloats) {
    const std::vector<float> look{1.0f,
                                  -0.0f,
                                  std::numeric_limits<float>::denorm_min(),
                                  std::numeric_limits<float>::max(),
                                  std::numeric_limits<float>::lowest(),
                                  0.1f};
    store.insert(screen("a", 1));
    store.setEmbedding("a", "nomic-embed-text", {{VectorSpace::look, look}});

    auto rows = raw.query("SELECT dim, vector FROM vectors WHERE capture_id = 'a' AND space = 'look'");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].at("dim").asInt(), 6);
    const auto blob = rows[0].at("vector").asBlob().value();
    ASSERT_EQ(blob.size(), 24u);
    EXPECT_EQ(std::vector<std::uint8_t>(blob.begin(), blob.begin() + 4),
              (std::vector<std::uint8_t>{0, 0, 0x80, 0x3F}));
    EXPECT_EQ(std::vector<std::uint8_t>(blob.begin() + 12, blob.begin() + 16),
              (std::vector<std::uint8_t>{0xFF, 0xFF, 0x7F, 0x7F}));

    EXPECT_EQ(bits(store.vector("a", VectorSpace::look).value()), bits(look));
    auto all = store.vectorRows("nomic-embed-text", VectorSpace::look);
    ASSERT_EQ(all.ids, std::vector<std::string>{"a"});
    EXPECT_EQ(bits(all.row(0)), bits(look));
}

TEST_F(Vectors, OneVectorPerSpaceAndModelsKeptApart) {
    store.insert(screen("a", 1));
    store.insert(screen("b", 2));
    store.setEmbedding("a", "old-model", {{VectorSpace::look, {1, 2}}, {VectorSpace::meaning, {3, 4}}});
    store.setEmbedding("b", "old-model", {{VectorSpace::look, {5, 6}}});
    // A new look vector replaces the old one; the meaning vector it was not given stays.
    store.setEmbedding("a", "new-model", {{VectorSpace::look, {7, 8, 9}}});

    EXPECT_EQ(store.vector("a", VectorSpace::look), (std::vector<float>{7, 8, 9}));
    EXPECT_EQ(store.vector("a", VectorSpace::meaning), (std::vector<float>{3, 4}));
    EXPECT_EQ(store.vector("b", VectorSpace::meaning), std::nullopt);
    EXPECT_EQ(store.vectorRows("new-model", VectorSpace::look).ids, std::vector<std::string>{"a"});
    EXPECT_EQ(store.vectorRows("old-model", VectorSpace::look).ids, std::vector<std::string>{"b"});
    EXPECT_EQ(store.vectorRows("old-model", VectorSpace::meaning).size(), 1u);
}

TEST_F(Vectors, OddOrNotFiniteBlobsReadAsWholeFloatsOrNone) {
    for (const char* id : {"a", "b", "c", "d"}) {
        store.insert(screen(id, 1));
    }
    const Database::Blob tenBytes{0, 0, 0x80, 0x3F, 0, 0, 0, 0x40, 0xAA, 0xBB};
    raw.run("INSERT INTO vectors VALUES ('a', 'look', 'm', 99, ?)", {tenBytes});
    raw.run("INSERT INTO vectors VALUES ('b', 'look', 'm', 1, ?)", {Database::Blob{1, 2, 3}});
    raw.run("INSERT INTO vectors VALUES ('c', 'look', 'm', 1, 'not a blob')");
    store.setEmbedding("d", "m", {{VectorSpace::look, {1.0f, -std::numeric_limits<float>::infinity()}}});

    EXPECT_EQ(store.vector("a", VectorSpace::look), (std::vector<float>{1, 2})) << "dim is not consulted";
    EXPECT_EQ(store.vector("b", VectorSpace::look), std::vector<float>{});
    EXPECT_EQ(store.vector("c", VectorSpace::look), std::nullopt);
    EXPECT_EQ(store.vector("d", VectorSpace::look), std::nullopt);
    const auto all = store.vectorRows("m", VectorSpace::look);
    EXPECT_EQ(all.ids, (std::vector<std::string>{"a", "b"})) << "neither a text nor an infinity is a vector";
    EXPECT_EQ(all.floats.size(), 2u) << "whole floats only";
}

} // namespace
} // namespace keepery::testing
