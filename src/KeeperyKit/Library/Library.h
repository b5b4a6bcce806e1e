#pragma once

#include "Library/SearchFindings.h"
#include "Library/SearchIndex.h"
#include "Media/MediaImporter.h"
#include "Model/Capture.h"
#include "Organizing/CollectionNamer.h"
#include "Organizing/Organizer.h"
#include "Platform/Clock.h"
#include "Platform/Files.h"
#include "Platform/MainQueue.h"
#include "Store/LibraryStore.h"
#include "Understanding/Describer.h"
#include "Understanding/OllamaClient.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace keepery {

// The engine's one owner of a library. Its operations run one at a time under its lock, which is let go
// while an operation waits for the model service or for a change announcement, so other calls may run in
// between (and the library may change under a search between its steps). Every public operation may be
// called from any thread and blocks its caller until done. The store is shared: a front end may read it
// directly on its own thread.
//
// Kept captures are processed on one worker thread the library owns: `work()` starts a drain of every due
// capture there (or waits for the one running), and each capture goes through reading, description,
// embedding and filing in `advance`. Only one drain runs at a time, one capture at a time. Text
// recognition keeps the lock; the model service, the transcriber and announcements do not.
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
        // When a failed step is tried again; the time a formed collection is made.
        const Clock& clock = Clock::system();
        // Where kept images and originals are written.
        const Files& files = Files::local();
    };

    // The longest wait for the model service's next bytes, by purpose: describing a capture, naming a
    // collection, and embedding a capture or a query. A call that waits longer fails as a service that does
    // not answer: the capture's step is retried later, a search goes on with words alone.
    struct ModelTimeouts {
        OllamaClient::Timeout describing = Describer::timeout;
        OllamaClient::Timeout naming = CollectionNamer::timeout;
        OllamaClient::Timeout embedding = std::chrono::seconds(60);
    };

    struct Options {
        std::string visionModel;
        std::string embeddingModel;
        ModelTimeouts timeouts{};
        Organizer organizer{};
        // The language of a video's speech, as a locale name ("en-US", "de_DE.UTF-8").
        std::string locale = environmentLocale();
        // How a search's scan of the vectors is shared between threads.
        SearchIndex::Scan scan{};
    };

    // Captures fetched per batch of a drain.
    static constexpr std::int64_t batchSize = 20;
    // The longest side of the image shown to the models, and its JPEG quality.
    static constexpr int modelImagePixel = 1280;
    static constexpr double modelImageQuality = 0.85;
    // How long a failed step waits: the model service did not answer; a model is missing; anything else.
    static constexpr std::chrono::seconds unreachableDelay{60};
    static constexpr std::chrono::seconds missingModelDelay{300};
    static constexpr std::chrono::seconds otherFailureDelay{600};
    // A formed collection's name and emoji until the model names it.
    static constexpr std::string_view provisionalName = "New collection";
    static constexpr std::string_view provisionalEmoji = "\U0001F4C1";
    // How many of a collection's newest captures its naming looks at.
    static constexpr std::int64_t namingCaptures = 12;

    // Keeps the values; no I/O and no checks. The worker thread starts with the first drain.
    Library(Services services, Options options);
    // Stops, and waits for the worker thread to end (a drain ends after the capture in hand).
    ~Library();

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

    // --- Keeping ------------------------------------------------------------------------------------------

    // Writes the PNG to captures/<id>.png and the thumbnail to thumbs/<id>.jpg (each whole), inserts the
    // capture, announces the change and starts a drain without waiting for it. Throws the first failure
    // (std::filesystem::filesystem_error, Database::Failure); the later steps then do not run, and files
    // already written stay.
    void keep(const Capture& capture, std::span<const std::uint8_t> png,
              std::span<const std::uint8_t> thumbnail);
    // Writes the image where the capture names it, the thumbnail, the sheet when there is one, and a copy
    // of `original` at the capture's original file (replacing what is there); then as `keep`.
    void keepImported(const MediaImporter::Imported& imported, const std::filesystem::path& original);

    // --- Processing ---------------------------------------------------------------------------------------

    // Waits for the drain running, if any; then, unless another caller started one meanwhile (which it
    // then waits for too), starts a drain when a capture is due and waits for it. Returns at once after
    // `stop`.
    void work();
    // Carries the capture as far as it goes from its stage: read, describe, embed, organize. A failed step
    // records its failure and retry time on the capture and ends the run. Never throws.
    void advance(const Capture& capture);

    // What a failed step records: the message and how long until the next attempt.
    struct RetryPlan {
        std::string message;
        std::chrono::duration<double> delay;
    };
    // The model service did not answer: "Ollama is not running", 60 s. A model is missing (404, or a
    // message saying "not found"): "A model is missing: " + the service's message, 300 s. Anything else:
    // its text, 600 s.
    [[nodiscard]] static RetryPlan retryPlan(std::exception_ptr error);
    [[nodiscard]] static RetryPlan retryPlan(const std::exception& error);

    // The image shown to the models: a video's sheet when it can be read, else the capture's image, as a
    // JPEG of at most 1280 px (the bytes as read when they cannot be re-encoded). Throws
    // std::filesystem::filesystem_error when neither can be read.
    [[nodiscard]] std::vector<std::uint8_t> modelImage(const Capture& capture);

    // Files the capture: into a collection close to it, into a new one with unsorted captures close to it,
    // or nowhere; then names the collection when due. A capture without a meaning vector is left alone.
    // Throws the first failure; what was done before stays done.
    void organize(const std::string& captureID);
    // Names the collection with the vision model when its name is out of date. Throws.
    void nameIfDue(const std::string& collectionID);

    // Ends processing: a drain in progress ends after the capture in hand and later `work()` calls return
    // at once. Idempotent; does not wait.
    void stop();

    // LC_ALL, LC_MESSAGES or LANG, the first set (and not "C" or "POSIX"); "en-US" when none is.
    [[nodiscard]] static std::string environmentLocale();

private:
    using Lock = std::unique_lock<std::mutex>;

    // Calls the change callback, if any, on the main thread and waits for it. Lets go of the lock first.
    void announce(std::unique_lock<std::mutex>& lock);

    // Pipeline internals; each runs holding `lock` and may let go of it while it waits.
    void keepWritten(Lock& lock, const Capture& capture);
    void advance(Lock& lock, const Capture& capture);
    void recordFailure(Lock& lock, const Capture& capture, std::exception_ptr error);
    // The steps; `advance` goes from one to the next. `read` adds what it read to `capture`, `describe`
    // gives the capture as stored after it.
    void read(Lock& lock, Capture& capture);
    [[nodiscard]] Capture describe(Lock& lock, const Capture& capture);
    void embed(Lock& lock, const Capture& capture);
    void organize(Lock& lock, const std::string& captureID);
    void nameIfDue(Lock& lock, const std::string& collectionID);
    [[nodiscard]] std::vector<std::uint8_t> sourceImage(const Capture& capture) const;

    // A store write of this process, applied to the search index as `change` says (the index is read again
    // when another connection wrote meanwhile). Passes on what the write throws.
    template <typename Write, typename Change>
    void write(Write&& body, Change&& change);

    [[nodiscard]] bool isDue();
    void drain(Lock& lock);
    void workerLoop();
    // Waits on `condition` until `done`; on the main thread it runs the announcements posted meanwhile.
    void waitFor(Lock& lock, std::condition_variable& condition, const std::function<bool()>& done);

    LibraryStore& store_;
    const OllamaClient client_;
    MainQueue* const mainQueue_;
    const std::string embeddingModel_;
    const Clock& clock_;
    const Files& files_;
    const std::string locale_;
    const ModelTimeouts timeouts_;

    std::mutex lock_;
    std::string visionModel_;
    Organizer organizer_;
    std::function<void()> onChange_;
    SearchIndex index_;

    // The worker: drains started and ended (they run one after another), whether one runs, whether a
    // drain was asked for without a waiting caller (by keeping), and whether it is told to stop.
    std::thread worker_;
    std::condition_variable wake_;
    std::condition_variable drained_;
    std::uint64_t drainsStarted_ = 0;
    std::uint64_t drainsEnded_ = 0;
    bool running_ = false;
    bool startRequested_ = false;
    bool wanted_ = false;
    bool stopped_ = false;
};

} // namespace keepery
