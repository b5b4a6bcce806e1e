#include "Agents/MCPServer.h"
#include "Library/Library.h"
#include "Platform/Clock.h"
#include "Platform/Dates.h"
#include "Platform/Settings.h"
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
    // Two photos (one in a subfolder), a video, a text file and a hidden file.
    fs::path pictures() const {
        const fs::path folder = home / "Pictures";
        fs::create_directories(folder / "Trip");
        writeFile(folder / "harbour.jpg", jpegWith(quadrants(640, 480)));
        writeFile(folder / "Trip" / "tram.PNG", pngOf(quadrants(300, 200)));
        makeVideo(folder / "Trip" / "waves.mp4");
        writeFile(folder / "notes.txt", std::string("not a picture"));
        writeFile(folder / ".hidden.jpg", jpegWith(quadrants(64, 64)));
        return folder;
    }

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
};

// Import keeps every photo and video, names what it skips, and runs the real pipeline over what it kept.
TEST_F(Keepery, ImportKeepsAndProcessesEveryPhotoAndVideoAndListsTheRest) {
    const fs::path folder = pictures();
    const auto imported = keepery({"import", folder.string()});
    ASSERT_EQ(imported.exitStatus, 0) << imported.err;
    EXPECT_THAT(imported.out, HasSubstr("Imported two photos and one video."));
    EXPECT_THAT(imported.out, HasSubstr("Skipped one file that is not a photo or video:\n  " +
                                        (folder / "notes.txt").string() + "\n"));
    EXPECT_THAT(imported.out, ::testing::Not(HasSubstr("hidden")));
    // Standard error is no terminal here: plain lines, no control characters.
    EXPECT_THAT(imported.err, HasSubstr("Importing 3/3"));
    EXPECT_EQ(imported.err.find('\r'), std::string::npos);
    EXPECT_THAT(imported.err, HasSubstr("Imported " + (folder / "harbour.jpg").string() + "\n"));

    LibraryStore store(library());
    const auto kept = store.captures(LibraryFilter::recent(), 100);
    ASSERT_EQ(kept.size(), 3U);
    for (const Capture& capture : kept) {
        EXPECT_TRUE(fs::exists(store.imageURL(capture))) << capture.id;
        EXPECT_TRUE(fs::exists(store.thumbURL(capture.id))) << capture.id;
        ASSERT_TRUE(store.originalURL(capture));
        EXPECT_TRUE(fs::exists(*store.originalURL(capture))) << capture.id;
    }
    EXPECT_EQ(store.mediaCounts()[CaptureMedia::video], 1);

    // Read, described, embedded and filed, then found by words and by meaning alone: no capture holds the
    // second word, but the query's vector shares the video's title word.
    EXPECT_THAT(imported.err, HasSubstr("Processing"));
    EXPECT_THAT(keepery({"status"}).out, HasSubstr("organized 3"));
    EXPECT_THAT(keepery({"search", "harbour"}).out, HasSubstr("Keepery for “harbour” (1):"));
    const auto meaning = json::parse(keepery({"search", "--json", "waves", "zeppelin"}).out);
    ASSERT_FALSE(meaning["results"].empty());
    EXPECT_EQ(meaning["results"][0]["media"], "video");

    // A path that is not there is named and fails the run; the files beside it are still imported.
    writeFile(home / "one.jpg", jpegWith(quadrants(100, 100)));
    const auto partly =
        keepery({"import", "--no-process", (home / "missing").string(), (home / "one.jpg").string()});
    EXPECT_EQ(partly.exitStatus, 1);
    EXPECT_THAT(partly.out, HasSubstr((home / "missing").string() + ": no such file or folder"));
    EXPECT_EQ(store.count(), 4);

    // A picture that cannot be decoded is named too, and never stops the others.
    writeFile(home / "broken.jpg", std::string("\xff\xd8 not really"));
    const auto broken =
        keepery({"import", "--no-process", (home / "broken.jpg").string(), (home / "one.jpg").string()});
    EXPECT_EQ(broken.exitStatus, 1);
    EXPECT_THAT(broken.out, HasSubstr((home / "broken.jpg").string() + ": cannot be read as a photo"));
    EXPECT_EQ(store.count(), 5);
}

TEST_F(Keepery, KeepStoresAnImageFileAsAScreenCapture) {
    writeFile(home / "shot.jpg", jpegWith(quadrants(800, 600)));
    const auto kept = keepery({"keep", (home / "shot.jpg").string(), "--app", "Firefox", "--title",
                               "Release notes", "--url", "https://example.com/notes", "--no-process"});
    ASSERT_EQ(kept.exitStatus, 0) << kept.err;

    LibraryStore store(library());
    const auto all = store.captures(LibraryFilter::recent(), 10);
    ASSERT_EQ(all.size(), 1U);
    const Capture& capture = all.front();
    EXPECT_EQ(capture.media, CaptureMedia::screen);
    EXPECT_EQ(capture.app, "Firefox");
    EXPECT_EQ(capture.windowTitle, "Release notes");
    EXPECT_EQ(capture.url, "https://example.com/notes");
    EXPECT_EQ(capture.width, 800);
    EXPECT_EQ(kept.out, "Kept Release notes (id " + capture.id + ").\n");
    std::ifstream png(store.imageURL(capture), std::ios::binary);
    std::string signature(8, '\0');
    png.read(signature.data(), 8);
    EXPECT_EQ(signature, "\x89PNG\r\n\x1a\n");
    EXPECT_TRUE(fs::exists(store.thumbURL(capture.id)));

    // What is not a readable picture is refused and nothing is kept.
    writeFile(home / "notes.txt", std::string("text"));
    for (const fs::path& bad : {home / "absent.png", home / "notes.txt"}) {
        const auto refused = keepery({"keep", bad.string()});
        EXPECT_EQ(refused.exitStatus, 1) << bad;
        EXPECT_THAT(refused.err, HasSubstr("keepery: " + bad.string() + ": "));
    }
    EXPECT_EQ(store.count(), 1);
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
    EXPECT_EQ(keepery({"search", "ramen", "broth"}).out,
              server.call("search_keepery", {{"query", "ramen broth"}}) + "\n");

    const auto listed = json::parse(keepery({"recent", "--json", "--limit", "2"}).out);
    ASSERT_EQ(listed.size(), 2U);
    EXPECT_EQ(listed[1]["collection"]["name"], "Weeknight Cooking");
    const auto found = json::parse(keepery({"search", "--json", "compiler"}).out);
    ASSERT_EQ(found["results"].size(), 1U);
    EXPECT_EQ(found["results"][0]["id"], "s1");
    EXPECT_EQ(json::parse(keepery({"show", "--json", "s1"}).out)["ocrText"], "error: expected ';'");
    EXPECT_EQ(json::parse(keepery({"collections", "--json"}).out)[0]["count"], 2);
}

TEST_F(Keepery, EditsChangeTheLibraryAndBadInputChangesNothing) {
    seed(sample());
    const std::string before = rows();
    const std::vector<std::vector<std::string>> bad{
        {"note", "nope", "text"},
        {"tag", "nope", "x"},
        {"favorite", "nope"},
        {"move", "nope", "c1"},
        {"move", "p1", "Desserts"},
        {"rename", "Desserts", "Cakes"},
        {"delete", "nope"},
        {"show", "nope"},
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
    EXPECT_EQ(rows(), before);

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
    EXPECT_EQ(collections[0].name, "Soups");
    EXPECT_EQ(collections[0].emoji, "🍜");
    EXPECT_TRUE(collections[0].userNamed);
    EXPECT_EQ(keepery({"favorite", "p1", "--off"}).exitStatus, 0);
    EXPECT_FALSE(store.capture("p1")->favorite);
}

TEST_F(Keepery, ConfigWritesTheSettingsTheServerReads) {
    const fs::path file = home / ".config" / Settings::domain / "settings.json";
    EXPECT_THAT(keepery({"config"}).out, HasSubstr("GiB of memory"));

    const auto set = keepery({"config", "vision-model", "llava:7b"});
    ASSERT_EQ(set.exitStatus, 0) << set.err;
    const auto settings = Settings::load(file);
    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->string("visionModel"), "llava:7b");
    EXPECT_THAT(keepery({"config"}).out, HasSubstr("vision-model     llava:7b  (" + file.string() + ")"));

    // Other keys in the file survive a change.
    std::ofstream(file) << R"({"visionModel": "a", "theme": "dark"})";
    ASSERT_EQ(keepery({"config", "vision-model", "b"}).exitStatus, 0);
    std::ifstream in(file);
    const json written = json::parse(in);
    EXPECT_EQ(written["theme"], "dark");
    EXPECT_EQ(written["visionModel"], "b");

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
    EXPECT_THAT(status.out, HasSubstr("Library: " + library().string()));
    EXPECT_THAT(status.out,
                HasSubstr("Stages: captured 0 · read 0 · described 0 · embedded 1 · organized 2"));
    EXPECT_THAT(status.out, HasSubstr("Kinds: Recipes 2 · Code 1"));
    EXPECT_THAT(status.out, HasSubstr("version 0.39.2 (too old: Keepery needs 0.40.0 or newer)"));
    EXPECT_THAT(status.out, HasSubstr("Vision model: llava:7b (not installed: keepery models pull)"));
    EXPECT_THAT(status.out, HasSubstr("Embedding model: embeddinggemma-2:440m (installed)"));
    // The seeded captures were kept in 2023: "Nothing kept yet today." or, after six, "A quiet day, nothing
    // kept."
    EXPECT_THAT(status.out, HasSubstr("othing kept"));
    const auto asJSON = json::parse(keepery({"status", "--json"}).out);
    EXPECT_EQ(asJSON["stages"]["organized"], 2);
    EXPECT_EQ(asJSON["visionModel"]["installed"], false);

    service.setPullLines({R"({"status":"pulling manifest"})",
                          R"({"status":"downloading","completed":500,"total":1000})",
                          R"({"status":"success"})"});
    const auto pulled = keepery({"models", "pull"});
    EXPECT_EQ(pulled.exitStatus, 0) << pulled.err;
    EXPECT_EQ(pulled.out, "Pulled llava:7b.\nPulled embeddinggemma-2:440m.\n");
    EXPECT_EQ(service.requests("/api/pull").size(), 2U);

    service.setPullLines({R"({"error":"pull model manifest: file does not exist"})"});
    const auto failed = keepery({"models", "pull"});
    EXPECT_EQ(failed.exitStatus, 1);
    EXPECT_THAT(failed.err, HasSubstr("keepery: cannot pull llava:7b"));
    EXPECT_THAT(failed.err, HasSubstr("file does not exist"));

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
    const double before = Clock::system().secondsSince1970();
    const auto worked = keepery({"work"});
    const double after = Clock::system().secondsSince1970();
    ASSERT_EQ(worked.exitStatus, 0) << worked.err;
    LibraryStore store(library());
    const auto failing = store.failing(10);
    ASSERT_EQ(failing.size(), 1U);
    const LibraryStore::Failing& failed = failing.front();
    EXPECT_GE(failed.nextAttemptAt, before + 600);
    EXPECT_LE(failed.nextAttemptAt, after + 600);
    EXPECT_THAT(worked.out,
                HasSubstr("Stages: captured 0 · read 0 · described 1 · embedded 0 · organized 0\n"));
    EXPECT_THAT(worked.out, HasSubstr("Waiting for another try:\n  " + failed.capture.displayTitle() +
                                      " (id " + failed.capture.id + "), 1 attempt, next at " +
                                      Dates::mediumDateShortTime(failed.nextAttemptAt) +
                                      ": Unexpected reply from Ollama: not a JSON object\n"));
}

TEST_F(Keepery, McpConfigNamesTheServerInstalledBesideIt) {
    const auto printed = keepery({"mcp-config"});
    ASSERT_EQ(printed.exitStatus, 0) << printed.err;
    const json config = json::parse(printed.out);
    const fs::path server = config["mcpServers"]["keepery"]["command"].get<std::string>();
    EXPECT_TRUE(server.is_absolute());
    EXPECT_EQ(fs::canonical(server), fs::canonical(KEEPERY_MCP_PATH));
}

// Installing puts both programs and the user service where a prefix says.
TEST_F(Keepery, InstallPutsTheProgramsAndTheUserServiceUnderThePrefix) {
    const fs::path prefix = home / "prefix";
    const auto installed = runChild(
        "/usr/bin/cmake", {"--install", KEEPERY_BINARY_DIR, "--prefix", prefix.string()}, environment(), "");
    ASSERT_EQ(installed.exitStatus, 0) << installed.err;
    EXPECT_TRUE(fs::exists(prefix / "bin/keepery"));
    EXPECT_TRUE(fs::exists(prefix / "bin/keepery-mcp"));
    std::ifstream unit(prefix / "lib/systemd/user/keepery-watch.service");
    std::stringstream text;
    text << unit.rdbuf();
    EXPECT_THAT(text.str(), HasSubstr("ExecStart=" + (prefix / "bin/keepery").string() + " watch\n"));
}

// A keep killed between writing its files and inserting its row leaves files that no row names: status counts
// those older than an hour, and --clean removes only them.
TEST_F(Keepery, StatusCleanRemovesOnlyOldFilesThatNoCaptureNames) {
    writeFile(home / "one.jpg", jpegWith(quadrants(100, 100)));
    ASSERT_EQ(keepery({"import", "--no-process", (home / "one.jpg").string()}).exitStatus, 0);
    const fs::path orphan = library() / "captures" / "gone.png";
    const fs::path temporary = library() / "thumbs" / "gone.jpg.Ab12Cd";
    const fs::path fresh = library() / "media" / "fresh-original.jpg";
    const fs::path outside = library() / "notes.txt";
    writeFile(orphan, std::string(1000, 'x'));
    writeFile(temporary, std::string(500, 'x'));
    writeFile(outside, std::string("not the library's"));
    std::vector<fs::path> kept;
    for (const auto& entry : fs::recursive_directory_iterator(library())) {
        if (entry.is_regular_file() && !entry.path().filename().string().starts_with("library.sqlite")) {
            fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::hours(2));
            kept.push_back(entry.path());
        }
    }
    writeFile(fresh, std::string("still being kept"));

    const auto status = keepery({"status"});
    EXPECT_THAT(status.out, HasSubstr("Left behind: two files (0.0 MB) that no capture names"));
    EXPECT_EQ(json::parse(keepery({"status", "--json"}).out)["leftovers"],
              json::parse(R"({"files": 2, "bytes": 1500})"));

    const auto cleaned = keepery({"status", "--clean"});
    ASSERT_EQ(cleaned.exitStatus, 0) << cleaned.err;
    EXPECT_THAT(cleaned.out, HasSubstr("Removed two files (0.0 MB) that interrupted keeps left behind."));
    EXPECT_THAT(cleaned.out, ::testing::Not(HasSubstr("Left behind")));
    EXPECT_FALSE(fs::exists(orphan));
    EXPECT_FALSE(fs::exists(temporary));
    EXPECT_TRUE(fs::exists(fresh));
    for (const fs::path& file : kept) {
        EXPECT_TRUE(file == orphan || file == temporary || fs::exists(file)) << file;
    }
    EXPECT_EQ(json::parse(keepery({"status", "--json"}).out)["leftovers"]["files"], 0);
}

} // namespace
