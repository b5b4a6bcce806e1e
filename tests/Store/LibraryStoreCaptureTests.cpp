#include "Store/LibraryStore.h"

#include "Platform/Files.h"
#include "Store/StoreTesting.h"

#include <fstream>

namespace keepery::testing {
namespace {

using namespace std::chrono_literals;

using CaptureWrites = StoreTest;

std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST_F(CaptureWrites, InsertKeepsTheKeptFieldsAndStartsTheRestEmpty) {
    Capture photo = screen("p1", 1'700'000'000.25, "Photos", "IMG_0042");
    photo.media = CaptureMedia::photo;
    photo.bundleID = "com.example.photos";
    photo.documentPath = "/Users/me/IMG_0042.HEIC";
    photo.duration = 12.5;
    photo.takenAt = 1'600'000'000.5;
    photo.imageFile = "media/p1.jpg";
    photo.originalFile = "media/p1-original.heic";
    photo.note = "  kept as written  ";
    photo.favorite = true;
    photo.stage = CaptureStage::read;
    // What processing fills in later is never taken from the record.
    Capture processed = photo;
    processed.ocrText = "recognised";
    processed.transcript = "spoken";
    processed.title = "Title";
    processed.summary = "Summary";
    processed.kind = CaptureKind::recipe;
    processed.tags = {"tag"};
    processed.highlights = {"passage"};
    processed.links = {"https://example.com"};
    processed.collectionID = "c1";
    processed.lastError = "boom";
    store.insert(processed);

    EXPECT_EQ(store.capture("p1"), photo);
    EXPECT_EQ(column("p1", "source").asText(), "Photos");
    EXPECT_EQ(column("p1", "attempts").asInt(), 0);
    EXPECT_EQ(column("p1", "highlights").asText(), "[]");
    EXPECT_EQ(store.capture("missing"), std::nullopt);

    // The source word is fixed at insert from the page's host.
    Capture page = screen("s1", 10);
    page.url = "https://www.example.com/a?b=c";
    store.insert(page);
    EXPECT_EQ(column("s1", "source").asText(), "example.com");
    EXPECT_EQ(ftsColumn("s1", "source"), "example.com Safari");

    // A second insert of an id fails and changes nothing.
    Capture again = screen("s1", 20, "Other", "Other window");
    EXPECT_THROW(store.insert(again), Database::Failure);
    EXPECT_EQ(store.capture("s1"), page);
    EXPECT_EQ(ftsColumn("s1", "title"), " Window");
}

TEST_F(CaptureWrites, StageUpdatesMoveForwardAndClearTheFailure) {
    store.insert(screen("a", 1));
    store.recordFailure("a", "The model service is not running.", 60s, 1000);
    EXPECT_EQ(column("a", "attempts").asInt(), 1);
    store.recordFailure("a", "SQLite: busy", 300s, 2000.5);
    Capture failed = *store.capture("a");
    EXPECT_EQ(failed.stage, CaptureStage::captured) << "a failure never changes the stage";
    EXPECT_EQ(failed.lastError, "SQLite: busy");
    EXPECT_EQ(column("a", "attempts").asInt(), 2);
    EXPECT_EQ(column("a", "next_attempt_at").asDouble(), 2300.5);

    // Each stage's write moves the capture on and clears the failure recorded before it.
    const Described description{"Ramen in Tokyo",
                                "Where to eat.",
                                CaptureKind::place,
                                {"Food", "#tokyo"},
                                {"Say \"hi\" / \u00E9t\u00E9 \u2014 \U0001F35C", "second"},
                                {"https://a.example/x"}};
    store.insertCollection({"c", "Ramen", "\U0001F35C", 1, 1, 0, 0, false});
    const std::vector<std::pair<CaptureStage, std::function<void()>>> steps{
        {CaptureStage::read, [&] { store.setRead("a", "Recognised words", std::nullopt); }},
        {CaptureStage::described, [&] { store.setDescribed("a", description); }},
        {CaptureStage::embedded,
         [&] {
             store.setEmbedding("a", "model", {{VectorSpace::look, {1, 0}}});
         }},
        {CaptureStage::organized, [&] { store.setCollection("a", "c"); }},
    };
    for (const auto& [stage, write] : steps) {
        SCOPED_TRACE(stage.rawValue());
        store.recordFailure("a", "failed before", 60s, 3000);
        write();
        const Capture after = *store.capture("a");
        EXPECT_EQ(after.stage, stage);
        EXPECT_EQ(after.lastError, std::nullopt);
        EXPECT_EQ(column("a", "attempts").asInt(), 0);
    }
    const Capture organized = *store.capture("a");
    EXPECT_EQ(organized.ocrText, "Recognised words");
    EXPECT_EQ(organized.transcript, std::nullopt);
    EXPECT_EQ(organized.title, "Ramen in Tokyo");
    EXPECT_EQ(organized.summary, "Where to eat.");
    EXPECT_EQ(organized.kind, CaptureKind::place);
    EXPECT_EQ(organized.tags, (std::vector<std::string>{"food", "tokyo"}));
    EXPECT_EQ(organized.highlights, description.highlights);
    EXPECT_EQ(organized.links, description.links);
    EXPECT_EQ(organized.collectionID, "c");

    // Writes to an id without a row succeed and change nothing.
    EXPECT_NO_THROW(store.setRead("ghost", "x", "y"));
    EXPECT_NO_THROW(store.setDescribed("ghost", description));
    EXPECT_NO_THROW(store.recordFailure("ghost", "x", 1s, 1));
    EXPECT_EQ(store.count(), 1);
    EXPECT_EQ(rowsNaming("capture_tags", "capture_id", "ghost"), 0) << "tags of a missing capture";
}

TEST_F(CaptureWrites, FullTextRowsFollowEveryWriteOfIndexedText) {
    Capture capture = screen("a", 1, "Safari", "Tokyo guide");
    store.insert(capture);
    // Without a title the title column still opens with the blank before the window title.
    EXPECT_EQ(ftsColumn("a", "title"), " Tokyo guide");
    EXPECT_EQ(ftsColumn("a", "ocr"), " ");
    EXPECT_EQ(ftsColumn("a", "source"), "Safari Safari");

    store.setRead("a", "menu prices", "spoken words");
    EXPECT_EQ(ftsColumn("a", "ocr"), "menu prices spoken words");
    store.setDescribed("a", Described{"Ramen", "A bowl.", CaptureKind::food, {"noodles", "Soup"}, {}, {}});
    EXPECT_EQ(ftsColumn("a", "title"), "Ramen Tokyo guide");
    EXPECT_EQ(ftsColumn("a", "summary"), "A bowl.");
    std::string tags = ftsColumn("a", "tags");
    EXPECT_TRUE(tags == "noodles soup" || tags == "soup noodles") << tags;
    store.setNote("a", "  try the miso \n");
    EXPECT_EQ(ftsColumn("a", "note"), "try the miso");
    store.setTags("a", {"Dinner"});
    EXPECT_EQ(ftsColumn("a", "tags"), "dinner");

    // A marker written behind the store's back shows whether a write rebuilt the row.
    auto mark = [&] { raw.run("UPDATE captures_fts SET note = 'marker' WHERE id = 'a'"); };
    store.insertCollection({"c", "Food", "", 1, 1, 0, 0, false});
    const std::vector<std::pair<const char*, std::function<void()>>> unindexed{
        {"setFavorite", [&] { store.setFavorite("a", true); }},
        {"setEmbedding",
         [&] {
             store.setEmbedding("a", "m", {{VectorSpace::meaning, {0.5f}}});
         }},
        {"recordFailure", [&] { store.recordFailure("a", "e", 1s, 1); }},
        {"moveCapture", [&] { store.moveCapture("a", "c"); }},
        {"setCollection", [&] { store.setCollection("a", std::nullopt); }},
        {"touchCollection", [&] { store.touchCollection("c"); }},
        {"renameCollection",
         [&] { store.renameCollection("c", "Meals", "", 1, LibraryStore::NamedBy::user); }},
    };
    for (const auto& [name, write] : unindexed) {
        mark();
        write();
        EXPECT_EQ(ftsColumn("a", "note"), "marker") << name << " rebuilt the full-text row";
    }
    const std::vector<std::pair<const char*, std::function<void()>>> indexed{
        {"setRead", [&] { store.setRead("a", "menu prices", std::nullopt); }},
        {"setDescribed",
         [&] {
             store.setDescribed("a", Described{"Ramen", "", CaptureKind::food, {}, {}, {}});
         }},
        {"setNote", [&] { store.setNote("a", "try the miso"); }},
        {"setTags", [&] { store.setTags("a", {"dinner"}); }},
    };
    for (const auto& [name, write] : indexed) {
        mark();
        write();
        EXPECT_EQ(ftsColumn("a", "note"), "try the miso") << name << " left the full-text row stale";
    }
    EXPECT_EQ(store.textSearch("miso ramen", 10).size(), 1u);
}

TEST_F(CaptureWrites, FullTextRowsStayOnePerCaptureWhateverAnotherProgramWrote) {
    store.insert(screen("a", 1, "Safari", "Alpha"));
    store.insert(screen("b", 2, "Safari", "Beta"));
    store.setNote("a", "first");
    // Another program rewrote a's row under a new rowid and left a stray duplicate.
    raw.run("DELETE FROM captures_fts WHERE id = 'a'");
    raw.run("INSERT INTO captures_fts (rowid, id, title) VALUES (1000, 'a', 'stale'), (1001, 'a', 'stray')");
    store.setNote("a", "second");
    EXPECT_EQ(ftsColumn("a", "note"), "second");
    EXPECT_EQ(ftsColumn("a", "title"), " Alpha");
    EXPECT_EQ(ftsColumn("b", "title"), " Beta");

    // A row written behind the store's back for a capture it has not touched yet is found too.
    raw.run("DELETE FROM captures_fts WHERE id = 'b'");
    raw.run("INSERT INTO captures_fts (id, title) VALUES ('b', 'stale')");
    store.setTags("b", {"x"});
    EXPECT_EQ(ftsColumn("b", "title"), " Beta");
    store.deleteCapture("b");
    EXPECT_EQ(rowsNaming("captures_fts", "id", "b"), 0);

    // A store opened on an existing library finds the rows already there.
    LibraryStore reopened(store.root());
    reopened.setNote("a", "third");
    EXPECT_EQ(ftsColumn("a", "note"), "third");
    store.setNote("a", "fourth");
    EXPECT_EQ(ftsColumn("a", "note"), "fourth") << "each store sees the other's writes";
    EXPECT_EQ(rowsNaming("captures_fts", "id", "a"), 1);
}

TEST_F(CaptureWrites, AFailedStepRollsBackTheWholeWrite) {
    store.insert(screen("a", 1));
    store.setTags("a", {"old"});
    raw.execute("CREATE TRIGGER refuse AFTER INSERT ON capture_tags WHEN NEW.tag = 'boom' "
                "BEGIN SELECT RAISE(ABORT, 'refused'); END");

    EXPECT_THROW(store.setTags("a", {"fine", "boom"}), Database::Failure);
    EXPECT_EQ(store.capture("a")->tags, std::vector<std::string>{"old"});
    EXPECT_EQ(ftsColumn("a", "tags"), "old");

    EXPECT_THROW(store.setDescribed("a", Described{"New title", "", CaptureKind::code, {"boom"}, {}, {}}),
                 Database::Failure);
    Capture unchanged = *store.capture("a");
    EXPECT_EQ(unchanged.title, std::nullopt);
    EXPECT_EQ(unchanged.stage, CaptureStage::captured);
    EXPECT_EQ(unchanged.tags, std::vector<std::string>{"old"});
    EXPECT_EQ(ftsColumn("a", "title"), " Window");

    // The connection is usable afterwards: no transaction was left open.
    EXPECT_NO_THROW(store.setTags("a", {"new"}));
}

TEST_F(CaptureWrites, TagsAreNormalisedDistinctAndSorted) {
    EXPECT_EQ(LibraryStore::normalizedTag(" #Swift"), "swift");
    EXPECT_EQ(LibraryStore::normalizedTag("##Design Systems## \n"), "design systems");
    EXPECT_EQ(LibraryStore::normalizedTag("c#"), "c");
    EXPECT_EQ(LibraryStore::normalizedTag("a # b"), "a # b");
    EXPECT_EQ(LibraryStore::normalizedTag("\u3000\u00C9T\u00C9\u2028"), "\u00E9t\u00E9");
    EXPECT_EQ(LibraryStore::normalizedTag(" # "), "");

    store.insert(screen("a", 1));
    store.setTags("a", {" #Swift", "swift", "", "UI "});
    EXPECT_EQ(rowsNaming("capture_tags", "capture_id", "a"), 2);
    EXPECT_EQ(store.capture("a")->tags, (std::vector<std::string>{"swift", "ui"}));

    store.setTags("a", {"zebra", "mango", "apple"});
    EXPECT_EQ(store.capture("a")->tags, (std::vector<std::string>{"apple", "mango", "zebra"}));

    store.setTags("a", {"#", "  ", "\n"});
    EXPECT_TRUE(store.capture("a")->tags.empty());
    EXPECT_EQ(ftsColumn("a", "tags"), "");
}

TEST_F(CaptureWrites, NotesAreTrimmedAndBlankNotesCleared) {
    store.insert(screen("a", 1));
    store.setNote("a", "\t call back \r\n");
    EXPECT_EQ(store.capture("a")->note, "call back");
    store.setNote("a", " \n\u2003");
    EXPECT_EQ(store.capture("a")->note, std::nullopt);
    EXPECT_TRUE(column("a", "note").isNull());
    store.setNote("a", "again");
    store.setNote("a", std::nullopt);
    EXPECT_TRUE(column("a", "note").isNull());
}

TEST_F(CaptureWrites, DeleteLeavesNoRowAndNoFile) {
    const auto& root = store.root();
    Capture video = screen("v", 1, "Videos", "clip");
    video.media = CaptureMedia::video;
    video.imageFile = "media/v.jpg";
    video.originalFile = "media/v-original.mov";
    store.insert(video);
    store.insertCollection({"c", "Clips", "", 1, 1, 0, 0, false});
    store.setTags("v", {"a", "b"});
    store.setEmbedding("v", "m", {{VectorSpace::look, {1}}, {VectorSpace::meaning, {1}}});
    store.setCollection("v", "c");
    const std::vector<std::filesystem::path> written{store.imageURL("v"), store.thumbURL("v"),
                                                     store.sheetURL("v"), root / "media/v.jpg",
                                                     root / "media/v-original.mov"};
    for (const auto& file : written) {
        files.writeAtomically(file, bytes("x"));
    }
    store.insert(screen("keep", 2));
    files.writeAtomically(store.thumbURL("keep"), bytes("x"));

    store.deleteCapture("v");
    EXPECT_EQ(rowsNaming("captures", "id", "v"), 0);
    EXPECT_EQ(rowsNaming("capture_tags", "capture_id", "v"), 0);
    EXPECT_EQ(rowsNaming("vectors", "capture_id", "v"), 0);
    EXPECT_EQ(rowsNaming("captures_fts", "id", "v"), 0);
    for (const auto& file : written) {
        EXPECT_FALSE(std::filesystem::exists(file)) << file;
    }
    EXPECT_TRUE(std::filesystem::exists(store.thumbURL("keep")));
    EXPECT_TRUE(store.capture("keep").has_value());
    EXPECT_EQ(store.collections().size(), 1u) << "the emptied collection stays";

    EXPECT_NO_THROW(store.deleteCapture("never-existed"));
}

TEST_F(CaptureWrites, DeleteIgnoresFilesItCannotRemove) {
    store.insert(screen("a", 1));
    files.writeAtomically(store.thumbURL("a"), bytes("x"));
    files.writeAtomically(store.sheetURL("a"), bytes("x"));
    files.failNext(FakeFiles::Operation::remove, store.thumbURL("a"));

    EXPECT_NO_THROW(store.deleteCapture("a"));
    EXPECT_FALSE(files.failurePending());
    EXPECT_FALSE(store.capture("a").has_value());
    EXPECT_FALSE(std::filesystem::exists(store.sheetURL("a"))) << "a failed removal stopped the others";
}

TEST_F(CaptureWrites, CapturesByIdComeBackInTheOrderAsked) {
    store.insert(screen("a", 1));
    store.insert(screen("b", 2));
    store.insert(screen("c", 3));
    EXPECT_EQ(idsOf(store.captures(std::vector<std::string>{"b", "a", "missing"})),
              (std::vector<std::string>{"b", "a"}));
    EXPECT_EQ(idsOf(store.captures(std::vector<std::string>{"a", "c", "a"})),
              (std::vector<std::string>{"a", "c", "a"}));
    EXPECT_TRUE(store.captures(std::vector<std::string>{}).empty());
}

TEST_F(CaptureWrites, PendingHonoursTheNextAttemptToTheSecond) {
    store.insert(screen("new", 30));
    store.insert(screen("old", 10));
    store.insert(screen("done", 5));
    store.insertCollection({"c", "C", "", 1, 1, 0, 0, false});
    store.setCollection("done", "c");
    store.insert(screen("waiting", 20));
    const Instant now = 1'700'000'000;
    store.recordFailure("waiting", "later", 1s, now);

    auto ids = [&](Instant at, std::int64_t limit) { return idsOf(store.pending(at, limit)); };
    EXPECT_EQ(ids(now, 10), (std::vector<std::string>{"old", "new"}));
    EXPECT_EQ(ids(now + 0.999, 10), (std::vector<std::string>{"old", "new"}));
    EXPECT_EQ(ids(now + 1, 10), (std::vector<std::string>{"old", "waiting", "new"}));
    EXPECT_EQ(ids(now + 1, 2), (std::vector<std::string>{"old", "waiting"}));

    // Past the few the stage index serves, the oldest are found by walking the captures by time.
    raw.run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?) "
            "INSERT INTO captures (id, created_at) SELECT 'bulk-' || i, 100 + i FROM n",
            {LibraryStore::fewWaiting});
    EXPECT_EQ(ids(now + 1, 4), (std::vector<std::string>{"old", "waiting", "new", "bulk-1"}));
}

TEST_F(CaptureWrites, RowsWrittenByAnotherProgramDecodeWithDefaults) {
    raw.run(
        "INSERT INTO captures (id, created_at, app, window_title, width, height, stage, kind, highlights, "
        "links, favorite, media, duration, taken_at) VALUES "
        "('odd', 'yesterday', 'App', 'Win', 12.5, 'tall', 'finished', 'Article', 'not json', '[\"a\", 3]', "
        "'yes', 'hologram', 'long', 'x')");
    raw.run("INSERT INTO captures (id, created_at, highlights, links, favorite, duration) VALUES "
            "('ok', 7, '{\"a\": 1}', '[\"\\u00e9\", \"b\"]', 7, 90)");
    raw.run("INSERT INTO capture_tags (capture_id, tag) VALUES ('ok', 'b'), ('ok', ''), ('ok', 'a')");

    std::optional<Capture> odd;
    ASSERT_NO_THROW(odd = store.capture("odd"));
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->createdAt, 0);
    EXPECT_EQ(odd->width, 0) << "a REAL width counts as absent";
    EXPECT_EQ(odd->height, 0);
    EXPECT_EQ(odd->stage, CaptureStage::captured);
    EXPECT_EQ(odd->kind, std::nullopt) << "vocabulary strings are case-sensitive";
    EXPECT_TRUE(odd->highlights.empty());
    EXPECT_TRUE(odd->links.empty()) << "an array with a number is not an array of strings";
    EXPECT_FALSE(odd->favorite);
    EXPECT_EQ(odd->media, CaptureMedia::screen);
    EXPECT_EQ(odd->duration, std::nullopt);
    EXPECT_EQ(odd->takenAt, std::nullopt);

    Capture ok = *store.capture("ok");
    EXPECT_EQ(ok.createdAt, 7);
    EXPECT_TRUE(ok.highlights.empty()) << "an object is not an array";
    EXPECT_EQ(ok.links, (std::vector<std::string>{"\u00E9", "b"}));
    EXPECT_TRUE(ok.favorite);
    EXPECT_EQ(ok.duration, 90.0);
    EXPECT_EQ(ok.tags, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(ok.app, "");
}

} // namespace
} // namespace keepery::testing
