// The user's edits through the Library: what each stores, which collections it drops, and how the change is
// announced on the front end's main thread.
#include "Library/Library.h"

#include "Platform/MainQueue.h"
#include "Store/StoreTesting.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <thread>

using namespace keepery;
using namespace std::chrono_literals;

namespace {

class LibraryEdits : public keepery::testing::StoreTest {
protected:
    // Runs `edit` on a thread of its own while this thread serves as the main thread. Returns the threads
    // the callback ran on; fails the test when the edit returned before its callback had.
    std::vector<std::thread::id> announcementsOf(const std::function<void()>& edit) {
        std::vector<std::thread::id> ran;
        std::atomic<bool> callbackReturned = false;
        library.setOnChange([&] {
            ran.push_back(std::this_thread::get_id());
            std::this_thread::sleep_for(5ms);
            callbackReturned = true;
        });
        auto done = std::async(std::launch::async, [&] {
            edit();
            return callbackReturned.load();
        });
        while (done.wait_for(0ms) != std::future_status::ready) {
            mainQueue.drainFor(10ms);
        }
        EXPECT_TRUE(done.get()) << "the edit returned before its announcement had run";
        return ran;
    }

    void addCollection(const std::string& id) {
        store.insertCollection(CaptureCollection{.id = id, .name = "Cooking", .emoji = "🍳"});
    }

    bool collectionExists(const std::string& id) {
        return !raw.query("SELECT 1 AS found FROM collections WHERE id = ?", {id}).empty();
    }

    MainQueue mainQueue;
    Library library{{.store = store, .client = OllamaClient("http://127.0.0.1:1"), .mainQueue = &mainQueue},
                    {.visionModel = "vision", .embeddingModel = "embedding"}};
};

TEST_F(LibraryEdits, EveryEditAnnouncesOnceOnTheMainThreadAndWaitsForIt) {
    store.insert(screen("a", 1));
    store.insert(screen("b", 2));
    addCollection("c1");
    store.setCollection("a", "c1");
    const std::vector<std::pair<const char*, std::function<void()>>> edits{
        {"note", [&] { library.setNote("a", "kept for later"); }},
        {"favorite", [&] { library.setFavorite("a", true); }},
        {"tags", [&] { library.setTags("a", {"Ramen"}); }},
        {"move", [&] { library.move("b", "c1"); }},
        {"rename", [&] { library.renameCollection("c1", "Noodles", "🍜"); }},
        {"delete", [&] { library.deleteCapture("b"); }},
    };
    for (const auto& [name, edit] : edits) {
        const auto threads = announcementsOf(edit);
        ASSERT_EQ(threads.size(), 1u) << name;
        EXPECT_EQ(threads.front(), std::this_thread::get_id()) << name;
    }
}

TEST_F(LibraryEdits, NoEditWaitsForALoopThatNobodyRuns) {
    store.insert(screen("a", 1));
    store.insert(screen("b", 2));
    // A front end without a loop gives no queue: its callback runs on the thread that made the change.
    Library loopless{{.store = store, .client = OllamaClient("http://127.0.0.1:1")},
                     {.visionModel = "vision", .embeddingModel = "embedding"}};
    std::vector<std::thread::id> heard;
    loopless.setOnChange([&] { heard.push_back(std::this_thread::get_id()); });
    // Nobody drains the main queue here: an edit that waited for it would never return.
    auto done = std::async(std::launch::async, [&] {
        library.setNote("a", "n"); // with a queue but without a callback
        library.deleteCapture("a");
        loopless.setFavorite("b", true);
        return std::this_thread::get_id();
    });
    ASSERT_EQ(done.wait_for(30s), std::future_status::ready);
    EXPECT_EQ(heard, std::vector<std::thread::id>{done.get()});
    EXPECT_FALSE(store.capture("a"));
    EXPECT_TRUE(store.capture("b")->favorite);
}

TEST_F(LibraryEdits, MovingOrDeletingTheLastMemberDropsTheCollectionAndRenamingMarksTheUsersName) {
    addCollection("c1");
    addCollection("c2");
    for (const auto& [id, collectionID] :
         std::vector<std::pair<const char*, const char*>>{{"a", "c1"}, {"b", "c2"}, {"c", "c2"}}) {
        store.insert(screen(id, 1));
        store.setCollection(id, collectionID);
    }
    library.renameCollection("c2", "Noodle Nights", "🍜");
    const CaptureCollection renamed{"c2", "Noodle Nights", "🍜", 0, clock.secondsSince1970(), 2, 2, true};
    EXPECT_EQ(store.collection("c2"), renamed) << "the member count is recorded";

    library.move("a", "c2");
    EXPECT_FALSE(collectionExists("c1"));
    EXPECT_EQ(store.capture("a")->collectionID, "c2");
    library.move("a", std::nullopt); // b and c are now the last members of c2
    library.deleteCapture("b");
    EXPECT_TRUE(collectionExists("c2"));
    library.deleteCapture("c");
    EXPECT_FALSE(collectionExists("c2"));
    // Renaming a collection that is gone changes nothing and is still announced.
    const auto before = raw.query("SELECT * FROM collections");
    EXPECT_EQ(announcementsOf([&] { library.renameCollection("nope", "X", "❌"); }).size(), 1u);
    EXPECT_EQ(raw.query("SELECT * FROM collections"), before);
}

TEST_F(LibraryEdits, AStoreFailureIsDroppedLeavesTheRowsAndIsStillAnnounced) {
    store.insert(screen("a", 1));
    store.setNote("a", "old");
    raw.execute(
        "CREATE TRIGGER refuse BEFORE UPDATE ON captures BEGIN SELECT RAISE(ABORT, 'refused'); END;"
        "CREATE TRIGGER keep BEFORE DELETE ON captures BEGIN SELECT RAISE(ABORT, 'refused'); END;"
        "CREATE TRIGGER untagged BEFORE INSERT ON capture_tags BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    EXPECT_EQ(announcementsOf([&] { library.setNote("a", "new"); }).size(), 1u);
    EXPECT_EQ(store.capture("a")->note, "old");
    EXPECT_EQ(ftsColumn("a", "note"), "old") << "the failed write's full-text refresh is rolled back too";
    EXPECT_EQ(announcementsOf([&] { library.setTags("a", {"x"}); }).size(), 1u);
    EXPECT_TRUE(store.capture("a")->tags.empty());
    EXPECT_EQ(announcementsOf([&] { library.deleteCapture("a"); }).size(), 1u);
    EXPECT_TRUE(store.capture("a"));

    // The second step of a move still runs when the first fails.
    addCollection("empty");
    EXPECT_EQ(announcementsOf([&] { library.move("a", "empty"); }).size(), 1u);
    EXPECT_FALSE(collectionExists("empty"));
}

} // namespace
