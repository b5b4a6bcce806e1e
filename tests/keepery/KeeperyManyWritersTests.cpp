// Every program that writes the library at once: the watcher keeping and processing what arrives, an import
// processing its own photos, the user's edits through `keepery`, and the assistant's searches through
// `keepery-mcp`. SQLite's busy time-out and immediate transactions must keep every one of them from seeing
// a locked database, and nothing any of them reported done may be missing afterwards.
#include "Store/Database.h"
#include "keepery/KeeperyHome.h"
#include "support/MediaFixtures.h"

#include <gmock/gmock.h>
#include <mutex>
#include <set>

using namespace keepery;
using namespace keepery::testing;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

// How long every writer runs at once.
constexpr auto together = std::chrono::seconds(10);

// What SQLite says when a lock outlasted the busy time-out, in any of its forms.
bool soundsBusy(const std::string& text) {
    return text.find("locked") != std::string::npos || text.find("busy") != std::string::npos ||
           text.find("BUSY") != std::string::npos;
}

class ManyWriters : public KeeperyHome {
protected:
    fs::path camera = home / "Camera";
    fs::path screens = home / "Screenshots";
    fs::path holiday = home / "Holiday";
    fs::path staging = home / "staging";

    std::mutex mutex;
    std::vector<std::string> complaints; // every complaint any writer saw, with who saw it

    void complain(const std::string& who, const std::string& what) {
        const std::lock_guard lock(mutex);
        complaints.push_back(who + ": " + what);
    }

    void SetUp() override {
        for (const fs::path& folder : {camera, screens, holiday, staging}) {
            fs::create_directories(folder);
        }
        // Two collections the user names before anything runs (so the namer leaves them alone), each with
        // a capture that stays in it; one capture moves between them and one gathers tags.
        seed(json::parse(R"({
          "collections": [{"id": "c1", "name": "Cooking", "emoji": "🍳"},
                          {"id": "c2", "name": "Travel", "emoji": "🧳"}],
          "captures": [
            {"id": "p1", "title": "Tonkotsu ramen at home", "collection": "c1", "embed": "ramen broth pork"},
            {"id": "p2", "title": "Night train to Kyoto", "collection": "c2", "embed": "train timetable kyoto"},
            {"id": "m1", "title": "Miso soup", "collection": "c1", "embed": "miso soup"},
            {"id": "t1", "title": "Packing list", "collection": "c2", "embed": "packing list socks"}
          ]})"));
        for (const char* id : {"c1", "c2"}) {
            ASSERT_EQ(keepery({"rename", id, std::string("Named ") + id}).exitStatus, 0);
        }
        // The photos of the second import, real JPEG files with a date taken.
        for (int i = 0; i < 8; ++i) {
            writeFile(holiday / ("holiday-" + std::to_string(i) + ".jpg"),
                      jpegWith(quadrants(160 + 8 * i, 120),
                               PhotoOptions().taken("2026:07:0" + std::to_string(i + 1) + " 10:00:00")));
        }
    }

    // Writes the picture elsewhere and moves it in whole, as a camera upload or a screenshot tool does.
    void arrive(const fs::path& folder, const std::string& name, const std::vector<std::uint8_t>& bytes) {
        writeFile(staging / name, bytes);
        fs::rename(staging / name, folder / name);
    }

    // Runs `keepery` for the user; the command must succeed and say nothing of a lock.
    bool user(const std::vector<std::string>& arguments, std::string* out = nullptr) {
        const ChildResult result = keepery(arguments);
        const std::string said = result.out + result.err;
        if (soundsBusy(said) || result.exitStatus != 0) {
            complain("keepery " + arguments.front(),
                     "exit " + std::to_string(result.exitStatus) + ": " + said);
        } else if (out != nullptr) {
            *out = result.out;
        }
        return result.exitStatus == 0;
    }
};

// The edits that reported success, and what the library must hold for them at the end.
struct Edits {
    std::map<std::string, std::string> notes;
    std::string m1In = "c1";
    std::map<std::string, std::string> names;
    std::set<std::string> tags;
};

TEST_F(ManyWriters, WatchImportEditsAndSearchesShareOneLibraryWithoutLosingAnything) {
    RunningChild watch(KEEPERY_PATH, {"watch", camera.string(), "--screens", screens.string()}, environment(),
                       home / "watch.log");
    ASSERT_TRUE(eventually([&] { return watch.output().find("Watching") != std::string::npos; }))
        << watch.output();
    const auto end = std::chrono::steady_clock::now() + together;
    const auto running = [&] { return std::chrono::steady_clock::now() < end; };

    // The second import, processing its photos (and whatever else is due) beside the watcher's drain.
    std::thread import([&] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        std::string out;
        if (user({"import", holiday.string()}, &out)) {
            EXPECT_THAT(out, ::testing::HasSubstr("Imported eight photos"));
        }
    });

    // Two hands at once: notes and tags on some captures, moves and renames of collections on others.
    Edits edits;
    std::thread writer([&] {
        for (int i = 0; running(); ++i) {
            const std::string n = std::to_string(i);
            const std::string noted = i % 2 == 0 ? "p1" : "p2";
            if (user({"note", noted, "note " + n})) {
                edits.notes[noted] = "note " + n;
            }
            if (user({"tag", "t1", "tag" + n})) {
                edits.tags.insert("tag" + n);
            }
            // A note on the newest capture, which the pipeline may be reading or describing right now.
            std::string listed;
            if (user({"recent", "--json", "--limit", "1"}, &listed)) {
                const json newest = json::parse(listed);
                if (!newest.empty() && user({"note", newest[0]["id"], "fresh " + n})) {
                    edits.notes[newest[0]["id"]] = "fresh " + n;
                }
            }
        }
    });
    std::thread filer([&] {
        for (int i = 0; running(); ++i) {
            const std::string into = i % 2 == 0 ? "c2" : "c1";
            if (user({"move", "m1", into})) {
                edits.m1In = into;
            }
            const std::string renamed = i % 2 == 0 ? "c1" : "c2";
            if (user({"rename", renamed, "Name " + std::to_string(i)})) {
                edits.names[renamed] = "Name " + std::to_string(i);
            }
        }
    });

    std::thread assistant([&] {
        LineChild mcp(KEEPERY_MCP_PATH, environment());
        const std::vector<json> calls{
            {{"name", "search_keepery"}, {"arguments", {{"query", "tonkotsu ramen"}}}},
            {{"name", "recent_captures"}, {"arguments", {{"limit", 5}}}},
            {{"name", "list_collections"}, {"arguments", json::object()}},
            {{"name", "search_keepery"}, {"arguments", {{"query", "holiday"}}}},
        };
        for (int id = 1; running(); ++id) {
            const json& call = calls[static_cast<std::size_t>(id) % calls.size()];
            mcp.send(json{{"jsonrpc", "2.0"}, {"id", id}, {"method", "tools/call"}, {"params", call}}.dump() +
                     "\n");
            const std::string line = mcp.readLine();
            const json reply = json::parse(line, nullptr, false);
            const std::string text =
                reply.is_object() ? reply.value(json::json_pointer("/result/content/0/text"), "") : "";
            // A search that dropped a failing source would still answer, but without its best match.
            if (!reply.is_object() || reply.value("id", json()) != id ||
                reply.value(json::json_pointer("/result/isError"), true) || soundsBusy(text) ||
                (&call == &calls[0] && text.find("Tonkotsu ramen at home") == std::string::npos)) {
                complain("keepery-mcp " + call["name"].get<std::string>(), line);
            }
        }
        EXPECT_EQ(mcp.finish(), 0);
    });

    // New photos and screenshots arrive in the watched folders the whole time.
    int arrived = 0;
    for (int i = 0; running(); ++i, ++arrived) {
        if (i % 2 == 0) {
            arrive(camera, "camera-" + std::to_string(i) + ".jpg", jpegWith(quadrants(200 + 4 * i, 150)));
        } else {
            arrive(screens, "Screenshot " + std::to_string(i) + ".png", pngOf(quadrants(240, 160 + 4 * i)));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    for (std::thread* thread : {&writer, &filer, &assistant, &import}) {
        thread->join();
    }
    const std::int64_t expected = 4 + 8 + arrived;
    EXPECT_TRUE(eventually([&] { return LibraryStore(library()).count() == expected; })) << watch.output();
    watch.signal(SIGTERM);
    EXPECT_EQ(watch.finish(), 0);
    const std::string watched = watch.output();
    EXPECT_FALSE(soundsBusy(watched)) << watched;
    EXPECT_THAT(watched, ::testing::Not(::testing::HasSubstr("Could not")));

    // What is left of the processing finishes in one more run.
    EXPECT_TRUE(user({"work"}));
    for (const std::string& complaint : complaints) {
        ADD_FAILURE() << complaint;
    }
    LibraryStore store(library());
    EXPECT_EQ(store.count(), expected) << watched;
    EXPECT_EQ(store.stageCounts()[CaptureStage::organized], expected);
    EXPECT_TRUE(store.failing(10).empty());
    for (const Capture& capture : store.captures(LibraryFilter::recent(), 1000)) {
        if (capture.id.size() > 2) { // kept in this run, not seeded
            EXPECT_TRUE(fs::exists(store.imageURL(capture)) && fs::exists(store.thumbURL(capture.id)))
                << capture.id;
        }
    }
    // Each capture has exactly one full-text row, however many processes rewrote it.
    Database database((library() / "library.sqlite").string(), Database::Access::readOnly);
    EXPECT_EQ(database.query("SELECT id FROM captures_fts GROUP BY id HAVING count(*) != 1").size(), 0U);
    EXPECT_EQ(database.query("SELECT DISTINCT id FROM captures_fts").size(),
              static_cast<std::size_t>(expected));
    for (const auto& [id, note] : edits.notes) {
        EXPECT_EQ(store.capture(id)->note, note) << id;
    }
    EXPECT_EQ(store.capture("m1")->collectionID, edits.m1In);
    for (const auto& [id, name] : edits.names) {
        EXPECT_EQ(store.collection(id)->name, name) << id;
    }
    const std::vector<std::string> tags = store.capture("t1")->tags;
    EXPECT_EQ(std::set<std::string>(tags.begin(), tags.end()), edits.tags);

    std::cout << "[ counts   ] kept " << expected - 4 << " (" << arrived << " watched, 8 imported), notes "
              << edits.notes.size() << ", tags " << edits.tags.size() << ", lost " << expected - store.count()
              << "\n";
}

} // namespace
