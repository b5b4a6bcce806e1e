#include "Store/LibraryStore.h"

#include "Store/StoreTesting.h"

namespace keepery::testing {
namespace {

using namespace std::chrono_literals;

using CaptureWrites = StoreTest;

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
    processed.title = "Title";
    processed.tags = {"tag"};
    processed.collectionID = "c1";
    processed.lastError = "boom";
    store.insert(processed);
    EXPECT_EQ(store.capture("p1"), photo);
    EXPECT_EQ(store.capture("missing"), std::nullopt);

    // The source word is fixed at insert from the page's host; a second insert of an id changes nothing.
    Capture page = screen("s1", 10);
    page.url = "https://www.example.com/a?b=c";
    store.insert(page);
    EXPECT_EQ(ftsColumn("s1", "source"), "example.com Safari");
    EXPECT_THROW(store.insert(screen("s1", 20, "Other", "Other window")), Database::Failure);
    EXPECT_EQ(store.capture("s1"), page);
    EXPECT_EQ(ftsColumn("s1", "title"), " Window");
}

TEST_F(CaptureWrites, StageWritesMoveTheCaptureOnAndClearTheFailureBeforeThem) {
    store.insert(screen("a", 1));
    store.recordFailure("a", "The model service is not running.", 60s, 1000);
    store.recordFailure("a", "SQLite: busy", 300s, 2000.5);
    EXPECT_EQ(store.capture("a")->lastError, "SQLite: busy");
    EXPECT_EQ(column("a", "attempts").asInt(), 2);
    EXPECT_EQ(column("a", "next_attempt_at").asDouble(), 2300.5);

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
        EXPECT_EQ(store.capture("a")->stage, stage);
        EXPECT_EQ(store.capture("a")->lastError, std::nullopt);
        EXPECT_EQ(column("a", "attempts").asInt(), 0);
    }
    Capture expected = screen("a", 1);
    expected.stage = CaptureStage::organized;
    expected.ocrText = "Recognised words";
    expected.title = description.title;
    expected.summary = description.summary;
    expected.kind = description.kind;
    expected.tags = {"food", "tokyo"};
    expected.highlights = description.highlights;
    expected.links = description.links;
    expected.collectionID = "c";
    EXPECT_EQ(store.capture("a"), expected);

    // A write to an id without a row succeeds and changes nothing: no tag row breaks its foreign key.
    EXPECT_NO_THROW(store.setDescribed("ghost", description));
    EXPECT_EQ(rowsNaming("capture_tags", "capture_id", "ghost"), 0);
}

TEST_F(CaptureWrites, FullTextRowsFollowEveryWriteOfIndexedText) {
    store.insert(screen("a", 1, "Safari", "Tokyo guide"));
    const std::vector<std::pair<const char*, std::function<void()>>> writes{
        {"setRead", [&] { store.setRead("a", "menu prices", "spoken words"); }},
        {"setDescribed",
         [&] {
             store.setDescribed("a", Described{"Ramen", "A bowl.", CaptureKind::food, {}, {}, {}});
         }},
        {"setNote", [&] { store.setNote("a", "try the miso"); }},
        {"setTags",
         [&] {
             store.setTags("a", {"Dinner", "late"});
         }},
    };
    for (const auto& [name, write] : writes) {
        // A marker written behind the store's back shows whether the write rebuilt the row.
        raw.run("UPDATE captures_fts SET note = 'marker' WHERE id = 'a'");
        write();
        EXPECT_NE(ftsColumn("a", "note"), "marker") << name << " left the full-text row stale";
    }
    std::vector<std::string> row;
    for (const char* name : {"title", "summary", "ocr", "note", "tags", "source"}) {
        row.push_back(ftsColumn("a", name));
    }
    EXPECT_EQ(row, (std::vector<std::string>{"Ramen Tokyo guide", "A bowl.", "menu prices spoken words",
                                             "try the miso", "dinner late", "Safari Safari"}));
}

TEST_F(CaptureWrites, FullTextRowsStayOnePerCaptureWhateverAnotherProgramWrote) {
    store.insert(screen("a", 1, "Safari", "Alpha"));
    store.insert(screen("b", 2, "Safari", "Beta"));
    store.setNote("a", "first");
    // Another program rewrote a's row under a new rowid and left a stray duplicate.
    raw.run("DELETE FROM captures_fts WHERE id = 'a'");
    raw.run("INSERT INTO captures_fts (rowid, id, title) VALUES (1000, 'a', 'stale'), (1001, 'a', 'stray')");
    store.setNote("a", "second");
    EXPECT_EQ(ftsColumn("a", "title"), " Alpha");
    EXPECT_EQ(ftsColumn("b", "title"), " Beta");

    // A row written behind the store's back for a capture it has not touched yet is found too.
    raw.run("DELETE FROM captures_fts WHERE id = 'b'");
    raw.run("INSERT INTO captures_fts (id, title) VALUES ('b', 'stale')");
    store.setTags("b", {"x"});
    EXPECT_EQ(ftsColumn("b", "title"), " Beta");

    // A store opened on an existing library finds the rows already there, and each sees the other's writes.
    LibraryStore reopened(store.root());
    reopened.setNote("a", "third");
    store.setNote("a", "fourth");
    EXPECT_EQ(ftsColumn("a", "note"), "fourth");
}

TEST_F(CaptureWrites, AFailedStepRollsBackTheWholeWrite) {
    store.insert(screen("a", 1));
    store.setTags("a", {"old"});
    const Capture before = *store.capture("a");
    raw.execute("CREATE TRIGGER refuse AFTER INSERT ON capture_tags WHEN NEW.tag = 'boom' "
                "BEGIN SELECT RAISE(ABORT, 'refused'); END");

    EXPECT_THROW(store.setTags("a", {"fine", "boom"}), Database::Failure);
    EXPECT_THROW(store.setDescribed("a", Described{"New title", "", CaptureKind::code, {"boom"}, {}, {}}),
                 Database::Failure);
    EXPECT_EQ(store.capture("a"), before);
    EXPECT_EQ(ftsColumn("a", "tags"), "old");
    EXPECT_EQ(ftsColumn("a", "title"), " Window");
    EXPECT_NO_THROW(store.setTags("a", {"new"})) << "a transaction was left open";
}

TEST_F(CaptureWrites, TagsAreNormalisedDistinctAndSortedAndNotesTrimmed) {
    for (const auto& [tag, normalized] : std::vector<std::pair<std::string, std::string>>{
             {" #Swift", "swift"},
             {"##Design Systems## \n", "design systems"},
             {"c#", "c"},
             {"a # b", "a # b"},
             {"\u3000\u00C9T\u00C9\u2028", "\u00E9t\u00E9"},
             {" # ", ""},
         }) {
        EXPECT_EQ(LibraryStore::normalizedTag(tag), normalized) << tag;
    }
    store.insert(screen("a", 1));
    store.setTags("a", {"zebra", " #Zebra", "", "mango ", "apple"});
    EXPECT_EQ(store.capture("a")->tags, (std::vector<std::string>{"apple", "mango", "zebra"}));
    store.setTags("a", {"#", "  ", "\n"});
    EXPECT_EQ(rowsNaming("capture_tags", "capture_id", "a"), 0);

    store.setNote("a", "\t call back \r\n");
    EXPECT_EQ(store.capture("a")->note, "call back");
    store.setNote("a", " \n\u2003");
    EXPECT_TRUE(column("a", "note").isNull()) << "a blank note is no note";
}

TEST_F(CaptureWrites, DeleteLeavesNoRowAndNoFileAndIgnoresFilesItCannotRemove) {
    const auto& root = store.root();
    Capture video = screen("v", 1, "Videos", "clip");
    video.imageFile = "media/v.jpg";
    video.originalFile = "media/v-original.mov";
    store.insert(video);
    store.setTags("v", {"a", "b"});
    store.setEmbedding("v", "m", {{VectorSpace::look, {1}}, {VectorSpace::meaning, {1}}});
    const std::vector<std::filesystem::path> written{store.imageURL("v"), store.thumbURL("v"),
                                                     store.sheetURL("v"), root / "media/v.jpg",
                                                     root / "media/v-original.mov"};
    const std::vector<std::uint8_t> content{'x'};
    for (const auto& file : written) {
        files.writeAtomically(file, content);
    }
    store.insert(screen("keep", 2));
    files.writeAtomically(store.thumbURL("keep"), content);
    files.failNext(FakeFiles::Operation::remove, store.thumbURL("v"));

    EXPECT_NO_THROW(store.deleteCapture("v"));
    EXPECT_FALSE(files.failurePending());
    EXPECT_EQ(rowsNaming("captures", "id", "v"), 0);
    EXPECT_EQ(rowsNaming("captures_fts", "id", "v"), 0);
    EXPECT_EQ(rowsNaming("capture_tags", "capture_id", "v"), 0);
    EXPECT_EQ(rowsNaming("vectors", "capture_id", "v"), 0);
    for (const auto& file : written) {
        EXPECT_EQ(std::filesystem::exists(file), file == store.thumbURL("v")) << file;
    }
    EXPECT_TRUE(std::filesystem::exists(store.thumbURL("keep")));
    EXPECT_NO_THROW(store.deleteCapture("never-existed"));
}

TEST_F(CaptureWrites, CapturesByIdComeBackInTheOrderAsked) {
    store.insert(screen("a", 1));
    store.insert(screen("b", 2));
    store.insert(screen("c", 3));
    EXPECT_EQ(idsOf(store.captures(std::vector<std::string>{"b", "a", "missing", "c", "a"})),
              (std::vector<std::string>{"b", "a", "c", "a"}));
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
    EXPECT_EQ(ids(now + 0.999, 10), (std::vector<std::string>{"old", "new"}));
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

    // A REAL width, a kind in another case, an array with a number: each reads as absent.
    Capture odd;
    odd.id = "odd";
    odd.app = "App";
    odd.windowTitle = "Win";
    std::optional<Capture> read;
    ASSERT_NO_THROW(read = store.capture("odd"));
    EXPECT_EQ(read, odd);

    Capture ok;
    ok.id = "ok";
    ok.createdAt = 7;
    ok.links = {"\u00E9", "b"};
    ok.favorite = true;
    ok.duration = 90;
    ok.tags = {"a", "b"};
    EXPECT_EQ(store.capture("ok"), ok);
}

} // namespace
} // namespace keepery::testing
