#pragma once

#include "Library/SearchFindings.h"
#include "Library/SearchIndex.h"
#include "Model/Capture.h"
#include "Organizing/Organizer.h"
#include "Platform/MainQueue.h"
#include "Store/LibraryStore.h"
#include "Understanding/OllamaClient.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace keepery {

// The engine's one owner of a library. Its operations run one at a time under its lock, which is let go
// while an operation waits for the model service or for a change announcement, so other calls may run in
// between (and the library may change under a search between its steps). Every public operation may be
// called from any thread and blocks its caller until done. The store is shared: a front end may read it
// directly on its own thread.
class Library {
public:
    // Least similarity for a capture to count as related to another.
    static constexpr float relatedFloor = 0.76f;

    // At most this many ids come from the full-text index per query.
    static constexpr std::int64_t wordCandidates = 100;
    // At most this many ids survive the fusion, before collections are completed.
    static constexpr std::size_t fusedHits = 60;
    // At most this many captures are read to learn who belongs to which collection.
    static constexpr std::int64_t membershipListing = 100000;
    // How long the query's embedding may take.
    static constexpr OllamaClient::Timeout queryEmbeddingTimeout = std::chrono::seconds(60);
    // At most this many characters of a query are embedded. The embedding model reads a couple of
    // thousand tokens and the service drops the rest, so a longer text changes nothing but the time spent
    // sending and tokenizing it (a 10 MB query took longer than the whole search ought to).
    static constexpr std::size_t mostEmbeddedQueryCharacters = 32'768;

    // What the library works through. The store and the queue must outlive the library.
    struct Services {
        LibraryStore& store;
        OllamaClient client;
        // The front end's main thread, where change announcements run. A front end without a loop gives
        // none: its callback then runs on the thread that made the change.
        MainQueue* mainQueue = nullptr;
    };

    struct Options {
        std::string visionModel;
        std::string embeddingModel;
        Organizer organizer{};
        // How a search's scan of the vectors is shared between threads.
        SearchIndex::Scan scan{};
    };

    // Keeps the values; no I/O and no checks.
    Library(Services services, Options options);

    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    [[nodiscard]] LibraryStore& store() const { return store_; }

    // Called after every change, on the front end's main thread (see Services::mainQueue); the change does
    // not return until the callback has.
    void setOnChange(std::function<void()> callback);
    // Takes effect for the next description or naming; announces nothing.
    void setVisionModel(std::string model);
    [[nodiscard]] std::string visionModel();
    [[nodiscard]] Organizer organizer();
    void setOrganizer(Organizer organizer);

    // The user's edits. None throws: a store failure is dropped and the change is announced all the same.

    // Stores the note trimmed; a blank or absent note clears it.
    void setNote(const std::string& captureID, const std::optional<std::string>& note);
    void setFavorite(const std::string& captureID, bool favorite);
    void setTags(const std::string& captureID, const std::vector<std::string>& tags);
    // Files the capture in the collection (absent: unsorted), then drops collections left empty.
    void move(const std::string& captureID, const std::optional<std::string>& collectionID);
    // Renames the collection as the user's choice, recording its member count at naming.
    void renameCollection(const std::string& collectionID, const std::string& name, const std::string& emoji);
    // Deletes the capture with its rows and files, then drops collections left empty.
    void deleteCapture(const std::string& captureID);

    // Starts reading what the first search needs in the background, on a connection of its own, and
    // returns at once; a search that comes sooner waits only for the rest of that reading. Never fails: a
    // load that fails, or that a write makes stale, leaves the search to read afresh.
    void preload();

    // The captures that answer `query`, best first, with why each was found, and the collections the
    // ranking covers; only the first `most` captures when given. Never fails: a source that fails (the
    // full-text index, the model service, a vector read, the listing) contributes nothing.
    [[nodiscard]] SearchFindings findings(const std::string& query,
                                          std::size_t most = std::numeric_limits<std::size_t>::max());
    // The captures of `findings`, in order; only the first `most` when given.
    [[nodiscard]] std::vector<Capture> search(const std::string& query,
                                              std::size_t most = std::numeric_limits<std::size_t>::max());
    // At most `limit` captures whose meaning is at least `relatedFloor` close to the capture's, closest
    // first (equal scores in the store's order), never the capture itself. Never fails; asks nothing of
    // the model service.
    [[nodiscard]] std::vector<Capture> related(const std::string& captureID, std::int64_t limit);

private:
    // Calls the change callback, if any, on the main thread and waits for it. Lets go of the lock first.
    void announce(std::unique_lock<std::mutex>& lock);

    LibraryStore& store_;
    const OllamaClient client_;
    MainQueue* const mainQueue_;
    const std::string embeddingModel_;

    std::mutex lock_;
    std::string visionModel_;
    Organizer organizer_;
    std::function<void()> onChange_;
    SearchIndex index_;
};

} // namespace keepery
