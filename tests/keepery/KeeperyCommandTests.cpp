#include "Agents/MCPServer.h"
#include "Library/Library.h"
#include "Platform/Dates.h"
#include "Platform/Settings.h"
#include "Store/Database.h"
#include "Understanding/Models.h"
#include "keepery/KeeperyHome.h"
#include "support/MediaFixtures.h"

#include <gmock/gmock.h>

using namespace keepery;
using namespace keepery::testing;
using nlohmann::json;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

class Keepery : public KeeperyHome {
protected:
    static json sample() {
        return json::parse(R"({
          "collections": [{"id": "c1", "name": "Weeknight Cooking", "emoji": "🍳"}],
          "captures": [
            {"id": "p1", "app": "Firefox", "windowTitle": "Tonkotsu", "title": "Tonkotsu ramen at home",
             "summary": "A slow pork broth.", "kind": "recipe", "tags": ["ramen", "broth"], "collection": "c1",
             "url": "https://example.com/ramen", "embed": "ramen broth pork noodles"},
            {"id": "p2", "app": "Firefox", "windowTitle": "Miso", "title": "Miso soup", "kind": "recipe",
             "collection": "c1", "embed": "miso soup"},
            {"id": "s1", "app": "Terminal", "windowTitle": "build log", "title": "Compiler errors",
             "kind": "code", "ocrText": "error: expected ';'", "embed": "compiler errors", "organized": false}
          ]})");
    }

    // Every row of the tables an edit can change.
    std::vector<Database::Row> rows() const {
        Database database((library() / "library.sqlite").string(), Database::Access::readOnly);
        std::vector<Database::Row> all;
        for (const std::string table : {"captures", "capture_tags", "collections"}) {
            const auto some = database.query("SELECT * FROM " + table + " ORDER BY 1, 2");
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }
};

// Import keeps every photo and video, names what it skips or cannot read, and runs the real pipeline over
// what it kept.
TEST_F(Keepery, ImportKeepsAndProcessesEveryPhotoAndVideoAndNamesTheRest) {
    const fs::path folder = home / "Pictures";
    fs::create_directories(folder / "Trip");
    writeFile(folder / "harbour.jpg", jpegWith(quadrants(640, 480)));
    writeFile(folder / "Trip" / "tram.PNG", pngOf(quadrants(300, 200)));
    makeVideo(folder / "Trip" / "waves.mp4");
    writeFile(folder / "notes.txt", std::string("not a picture"));
    writeFile(folder / ".hidden.jpg", jpegWith(quadrants(64, 64)));
    const auto imported = keepery({"import", folder.string()});
    ASSERT_EQ(imported.exitStatus, 0) << imported.err;
    EXPECT_THAT(imported.out, HasSubstr("Imported two photos and one video.\nSkipped one file that is not a "
                                        "photo or video:\n  " +
                                        (folder / "notes.txt").string() + "\n"));
    EXPECT_THAT(imported.out, ::testing::Not(HasSubstr("hidden")));
    // Standard error is no terminal here: plain lines, no control characters.
    EXPECT_THAT(imported.err,
                ::testing::AllOf(HasSubstr("Importing 3/3"), HasSubstr("Processing"),
                                 HasSubstr("Imported " + (folder / "harbour.jpg").string() + "\n")));
    EXPECT_EQ(imported.err.find('\r'), std::string::npos);

    LibraryStore store(library());
    EXPECT_EQ(store.count(), 3);
    EXPECT_EQ(store.mediaCounts()[CaptureMedia::video], 1);

    // Read, described, embedded and filed, then found by words, and by meaning where no capture holds
    // "zeppelin".
    EXPECT_THAT(keepery({"status"}).out, HasSubstr("organized 3"));
    EXPECT_THAT(keepery({"search", "harbour"}).out, HasSubstr("Keepery for “harbour” (1):"));
    EXPECT_EQ(json::parse(keepery({"search", "--json", "waves", "zeppelin"}).out)["results"][0]["media"],
              "video");

    // What is not there or cannot be decoded is named and fails the run, and never stops the file after it.
    writeFile(home / "broken.jpg", std::string("\xff\xd8 not really"));
    writeFile(home / "one.jpg", jpegWith(quadrants(100, 100)));
    const auto partly = keepery({"import", "--no-process", (home / "missing").string(),
                                 (home / "broken.jpg").string(), (home / "one.jpg").string()});
    EXPECT_EQ(partly.exitStatus, 1);
    EXPECT_THAT(partly.out, HasSubstr((home / "missing").string() + ": no such file or folder"));
    EXPECT_THAT(partly.out, HasSubstr((home / "broken.jpg").string() + ": cannot be read as a photo"));
    EXPECT_EQ(store.count(), 4);
}

TEST_F(Keepery, KeepStoresAnImageFileAsAScreenCaptureAndRefusesWhatIsNone) {
    writeFile(home / "notes.txt", std::string("text"));
    for (const fs::path& bad : {home / "absent.png", home / "notes.txt"}) {
        const auto refused = keepery({"keep", bad.string()});
        EXPECT_EQ(refused.exitStatus, 1) << bad;
        EXPECT_THAT(refused.err, HasSubstr("keepery: " + bad.string() + ": "));
    }
    writeFile(home / "shot.jpg", jpegWith(quadrants(800, 600)));
    const auto kept = keepery({"keep", (home / "shot.jpg").string(), "--app", "Firefox", "--title",
                               "Release notes", "--url", "https://example.com/notes", "--no-process"});
    ASSERT_EQ(kept.exitStatus, 0) << kept.err;

    LibraryStore store(library());
    const auto all = store.captures(LibraryFilter::recent(), 10);
    ASSERT_EQ(all.size(), 1U);
    const Capture& capture = all.front();
    EXPECT_EQ(kept.out, "Kept Release notes (id " + capture.id + ").\n");
    EXPECT_EQ(
        std::tie(capture.media, capture.app, capture.windowTitle, capture.url, capture.width),
        std::make_tuple(CaptureMedia::screen, "Firefox", "Release notes", "https://example.com/notes", 800));
    std::string signature(8, '\0');
    std::ifstream(store.imageURL(capture), std::ios::binary).read(signature.data(), 8);
    EXPECT_EQ(signature, "\x89PNG\r\n\x1a\n");
}

// The command line and the assistant server answer from one rendering: the same library gives the same text.
TEST_F(Keepery, ListingsAreTheAssistantToolsTexts) {
    seed(sample());
    LibraryStore store(library());
    Library engine({.store = store, .client = OllamaClient(service.host())},
                   {.visionModel = "v", .embeddingModel = std::string(Models::embedding)});
    MCPServer server(engine, store, "test");

    EXPECT_EQ(keepery({"collections"}).out, server.call("list_collections", json::object()) + "\n");
    EXPECT_EQ(keepery({"recent", "--collection", "WEEKNIGHT COOKING"}).out,
              server.call("recent_captures", {{"collection", "WEEKNIGHT COOKING"}}) + "\n");
    EXPECT_EQ(keepery({"recent", "--kind", "Code"}).out,
              server.call("recent_captures", {{"kind", "Code"}}) + "\n");
    EXPECT_EQ(keepery({"show", "s1"}).out, server.call("get_capture", {{"id", "s1"}}) + "\n");

    const auto listed = json::parse(keepery({"recent", "--json", "--limit", "2"}).out);
    ASSERT_EQ(listed.size(), 2U);
    EXPECT_EQ(listed[1]["collection"]["name"], "Weeknight Cooking");
    EXPECT_EQ(json::parse(keepery({"show", "--json", "s1"}).out)["ocrText"], "error: expected ';'");
    EXPECT_EQ(json::parse(keepery({"collections", "--json"}).out)[0]["count"], 2);
}

TEST_F(Keepery, EditsChangeTheLibraryAndBadInputChangesNothing) {
    seed(sample());
    const auto before = rows();
    const std::vector<std::vector<std::string>> bad{
        {"note", "nope", "text"},
        {"tag", "nope", "x"},
        {"favorite", "nope"},
        {"move", "nope", "c1"},
        {"rename", "Desserts", "Cakes"},
        {"delete", "nope"},
        {"recent", "--kind", "cake"},
        {"recent", "--collection", "x"},
        {"tag", "p1", "#"},
        {"rename", "c1", " "},
        {"search", " "},
        {"move", "p1", ""},
    };
    for (const auto& arguments : bad) {
        const auto refused = keepery(arguments);
        EXPECT_EQ(refused.exitStatus, 1) << arguments[0] << " " << arguments[1];
        EXPECT_THAT(refused.err, ::testing::StartsWith("keepery: ")) << arguments[0];
    }
    EXPECT_EQ(keepery({"show", "nope"}).err, "keepery: No capture with that id.\n");
    EXPECT_EQ(keepery({"move", "p1", "Desserts"}).err,
              "keepery: No collection named “Desserts”. keepery collections shows them.\n");
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"note", "--bogus", "p1", "x"},
                                                                       {"move", "p1"},
                                                                       {"favorite"},
                                                                       {"recent", "--limit", "0"},
                                                                       {"frobnicate"}}) {
        const auto usage = keepery(arguments);
        EXPECT_EQ(usage.exitStatus, 2) << arguments[0];
        EXPECT_THAT(usage.err, HasSubstr("Run with --help")) << arguments[0];
    }
    EXPECT_THAT(keepery({"note", "--bogus", "p1", "x"}).err, HasSubstr("--bogus"));
    EXPECT_TRUE(rows() == before);

    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"note", "p1", "  Try it with chashu.  "},
                                               {"tag", "p1", "#Pork", "ramen"},
                                               {"tag", "p1", "--remove", "broth"},
                                               {"favorite", "p1"},
                                               {"move", "p2", "--unsorted"},
                                               {"rename", "weeknight cooking", "Soups", "🍜"},
                                               {"delete", "s1"}}) {
        const auto done = keepery(arguments);
        EXPECT_EQ(done.exitStatus, 0) << arguments[0] << ": " << done.err;
    }
    LibraryStore store(library());
    const auto p1 = store.capture("p1");
    ASSERT_TRUE(p1);
    EXPECT_EQ(p1->note, "Try it with chashu.");
    EXPECT_THAT(p1->tags, ::testing::UnorderedElementsAre("ramen", "pork"));
    EXPECT_TRUE(p1->favorite);
    EXPECT_FALSE(store.capture("p2")->collectionID);
    EXPECT_FALSE(store.capture("s1"));
    const auto collections = store.collections();
    ASSERT_EQ(collections.size(), 1U);
    EXPECT_EQ(std::tie(collections[0].name, collections[0].emoji, collections[0].userNamed),
              std::make_tuple("Soups", "🍜", true));
    EXPECT_EQ(keepery({"favorite", "p1", "--off"}).exitStatus, 0);
    EXPECT_FALSE(store.capture("p1")->favorite);
}

TEST_F(Keepery, ConfigWritesTheSettingsTheServerReadsAndKeepsTheOtherKeys) {
    const fs::path file = home / ".config" / Settings::domain / "settings.json";
    EXPECT_THAT(keepery({"config"}).out, HasSubstr("GiB of memory"));
    ASSERT_EQ(keepery({"config", "vision-model", "llava:7b"}).exitStatus, 0);
    EXPECT_EQ(Settings::load(file)->string("visionModel"), "llava:7b");
    EXPECT_THAT(keepery({"config"}).out, HasSubstr("vision-model     llava:7b  (" + file.string() + ")"));

    std::ofstream(file) << R"({"visionModel": "a", "theme": "dark"})";
    ASSERT_EQ(keepery({"config", "vision-model", "b"}).exitStatus, 0);
    EXPECT_EQ(json::parse(std::ifstream(file)), json::parse(R"({"visionModel": "b", "theme": "dark"})"));

    EXPECT_EQ(keepery({"config", "colour", "x"}).exitStatus, 2);
    EXPECT_EQ(keepery({"config", "vision-model"}).exitStatus, 2);
    EXPECT_EQ(keepery({"config", "vision-model", " "}).exitStatus, 1);
    EXPECT_EQ(Settings::load(file)->string("visionModel"), "b");
}

TEST_F(Keepery, StatusAndModelsSpeakToTheModelService) {
    seed(sample());
    service.setVersion("0.39.2");
    service.setModels({std::string(Models::embedding)});
    ASSERT_EQ(keepery({"config", "vision-model", "llava:7b"}).exitStatus, 0);
    const auto status = keepery({"status"});
    ASSERT_EQ(status.exitStatus, 0) << status.err;
    // The seeded captures were kept in 2023: "Nothing kept yet today." or, after six, "A quiet day, nothing
    // kept."
    for (const std::string& line :
         {"Library: " + library().string(),
          std::string("Stages: captured 0 · read 0 · described 0 · embedded 1 · organized 2"),
          std::string("Kinds: Recipes 2 · Code 1"),
          std::string("version 0.39.2 (too old: Keepery needs 0.40.0 or newer)"),
          std::string("Vision model: llava:7b (not installed: keepery models pull)"),
          std::string("Embedding model: embeddinggemma-2:440m (installed)"), std::string("othing kept")}) {
        EXPECT_THAT(status.out, HasSubstr(line));
    }
    const auto asJSON = json::parse(keepery({"status", "--json"}).out);
    EXPECT_EQ(asJSON["stages"]["organized"], 2);
    EXPECT_EQ(asJSON["visionModel"]["installed"], false);

    service.setPullLines({R"({"status":"pulling manifest"})",
                          R"({"status":"downloading","completed":500,"total":1000})",
                          R"({"status":"success"})"});
    const auto pulled = keepery({"models", "pull"});
    EXPECT_EQ(pulled.exitStatus, 0) << pulled.err;
    EXPECT_EQ(pulled.out, "Pulled llava:7b.\nPulled embeddinggemma-2:440m.\n");

    service.refuseConnections();
    EXPECT_THAT(keepery({"status"}).out, HasSubstr("is not answering"));
}

// What goes wrong with the model service reaches the user: a pull whose stream breaks off is no success,
// and a step that failed is listed with its error, its attempts and its next try.
TEST_F(Keepery, ModelServiceFaultsReachTheUser) {
    ASSERT_EQ(keepery({"config", "vision-model", "llava:7b"}).exitStatus, 0);
    service.cutPullAfter(2);
    const auto cut = keepery({"models", "pull"});
    EXPECT_EQ(cut.exitStatus, 1);
    EXPECT_EQ(cut.out, "");
    EXPECT_THAT(cut.err, HasSubstr("keepery: cannot pull llava:7b from the model service at " +
                                   service.host() + ": The network connection was lost."));
    service.clearFailures();

    writeFile(home / "shot.jpg", jpegWith(quadrants(320, 240)));
    ASSERT_EQ(keepery({"import", "--no-process", (home / "shot.jpg").string()}).exitStatus, 0);
    service.failWith("/api/embed", FakeModelService::Reply::text(200, "{\"embeddings\": [[0.1,"));
    const auto worked = keepery({"work"});
    ASSERT_EQ(worked.exitStatus, 0) << worked.err;
    const auto failing = LibraryStore(library()).failing(10);
    ASSERT_EQ(failing.size(), 1U);
    const LibraryStore::Failing& failed = failing.front();
    EXPECT_THAT(worked.out,
                HasSubstr("Stages: captured 0 · read 0 · described 1 · embedded 0 · organized 0\n"));
    EXPECT_THAT(worked.out, HasSubstr("Waiting for another try:\n  " + failed.capture.displayTitle() +
                                      " (id " + failed.capture.id + "), 1 attempt, next at " +
                                      Dates::mediumDateShortTime(failed.nextAttemptAt) +
                                      ": Unexpected reply from Ollama: not a JSON object\n"));
}

// Installing puts both programs and the user service where a prefix says, and mcp-config names the server
// installed beside keepery.
TEST_F(Keepery, InstallPutsTheProgramsAndTheUserServiceUnderThePrefix) {
    const fs::path prefix = home / "prefix";
    const auto installed = runChild(
        "/usr/bin/cmake", {"--install", KEEPERY_BINARY_DIR, "--prefix", prefix.string()}, environment(), "");
    ASSERT_EQ(installed.exitStatus, 0) << installed.err;
    EXPECT_TRUE(fs::exists(prefix / "bin/keepery-mcp"));
    std::stringstream unit;
    unit << std::ifstream(prefix / "lib/systemd/user/keepery-watch.service").rdbuf();
    EXPECT_THAT(unit.str(), HasSubstr("ExecStart=" + (prefix / "bin/keepery").string() + " watch\n"));

    const auto printed = runChild((prefix / "bin/keepery").string(), {"mcp-config"}, environment(), "");
    ASSERT_EQ(printed.exitStatus, 0) << printed.err;
    const fs::path server = json::parse(printed.out)["mcpServers"]["keepery"]["command"].get<std::string>();
    EXPECT_EQ(server, fs::canonical(prefix / "bin/keepery-mcp"));
}

// A keep killed between writing its files and inserting its row leaves files that no row names: status counts
// those older than an hour, and --clean removes only them.
TEST_F(Keepery, StatusCleanRemovesOnlyOldFilesThatNoCaptureNames) {
    writeFile(home / "one.jpg", jpegWith(quadrants(100, 100)));
    ASSERT_EQ(keepery({"import", "--no-process", (home / "one.jpg").string()}).exitStatus, 0);
    const fs::path orphan = library() / "captures" / "gone.png";
    const fs::path temporary = library() / "thumbs" / "gone.jpg.Ab12Cd";
    writeFile(orphan, std::string(1000, 'x'));
    writeFile(temporary, std::string(500, 'x'));
    writeFile(library() / "notes.txt", std::string("not the library's"));
    std::vector<fs::path> kept;
    for (const auto& entry : fs::recursive_directory_iterator(library())) {
        if (entry.is_regular_file() && !entry.path().filename().string().starts_with("library.sqlite")) {
            fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::hours(2));
            kept.push_back(entry.path());
        }
    }
    writeFile(library() / "media" / "fresh-original.jpg", std::string("still being kept"));

    EXPECT_THAT(keepery({"status"}).out, HasSubstr("Left behind: two files (0.0 MB) that no capture names"));
    EXPECT_EQ(json::parse(keepery({"status", "--json"}).out)["leftovers"],
              json::parse(R"({"files": 2, "bytes": 1500})"));
    const auto cleaned = keepery({"status", "--clean"});
    ASSERT_EQ(cleaned.exitStatus, 0) << cleaned.err;
    EXPECT_THAT(cleaned.out, HasSubstr("Removed two files (0.0 MB) that interrupted keeps left behind."));
    EXPECT_THAT(cleaned.out, ::testing::Not(HasSubstr("Left behind")));
    EXPECT_TRUE(fs::exists(library() / "media" / "fresh-original.jpg"));
    for (const fs::path& file : kept) {
        EXPECT_NE(file == orphan || file == temporary, fs::exists(file)) << file;
    }
}

} // namespace
