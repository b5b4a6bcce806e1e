#include "Commands.h"

#include "Capture/WindowChoice.h"
#include "Library/Library.h"
#include "Library/ToolTexts.h"
#include "Media/MediaImporter.h"
#include "Media/Thumbnailer.h"
#include "Organizing/Organizer.h"
#include "Platform/Dates.h"
#include "Platform/Files.h"
#include "Platform/MainQueue.h"
#include "Platform/ModelService.h"
#include "Platform/Paths.h"
#include "Platform/Settings.h"
#include "Platform/SystemInfo.h"
#include "Platform/Text.h"
#include "Platform/UUID.h"
#include "Presentation/Wording.h"
#include "Progress.h"
#include "Signals.h"
#include "Store/LibraryStore.h"
#include "Understanding/Models.h"
#include "Watcher.h"
#include "WindowCapture.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <set>
#include <sstream>
#include <unistd.h>

namespace keepery::Commands {
namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// --- Opening the library ------------------------------------------------------------------------------

struct VisionChoice {
    std::string model;
    std::string source;
};

VisionChoice visionModel() {
    if (auto settings = Settings::load()) {
        if (auto stored = settings->string("visionModel")) {
            return {*stored, Settings::defaultFile().string()};
        }
    }
    constexpr std::uint64_t gibibyte = 1ULL << 30;
    const auto gigabytes = static_cast<std::int64_t>(SystemInfo::physicalMemory() / gibibyte);
    return {Models::vision(gigabytes), "chosen for " + std::to_string(gigabytes) + " GiB of memory"};
}

// Shows the pipeline's progress by stage while the library works, reading the counts through a connection
// of its own: the change callback runs on the library's worker thread.
class PipelineProgress {
public:
    explicit PipelineProgress(const fs::path& root) : store_(root) {}

    // Starts showing; returns how many captures are waiting.
    std::int64_t begin() {
        std::lock_guard lock(mutex_);
        waiting_ = waiting(store_.stageCounts());
        bar_.emplace("Processing", waiting_);
        active_ = true;
        refresh();
        return waiting_;
    }

    void changed() {
        std::lock_guard lock(mutex_);
        if (active_) {
            refresh();
        }
    }

    void end() {
        std::lock_guard lock(mutex_);
        if (active_) {
            refresh();
            bar_.reset();
        }
        active_ = false;
    }

private:
    static std::int64_t waiting(const std::unordered_map<CaptureStage, std::int64_t>& counts) {
        std::int64_t n = 0;
        for (const auto& [stage, count] : counts) {
            n += stage == CaptureStage::organized ? 0 : count;
        }
        return n;
    }

    void refresh() {
        try {
            const auto counts = store_.stageCounts();
            std::vector<std::string> stages;
            for (CaptureStage stage : CaptureStage::allCases()) {
                if (stage == CaptureStage::organized) {
                    continue;
                }
                const auto it = counts.find(stage);
                if (it != counts.end() && it->second > 0) {
                    stages.push_back(std::string(stage.rawValue()) + " " + std::to_string(it->second));
                }
            }
            bar_->update(std::max<std::int64_t>(0, waiting_ - waiting(counts)), Text::joined(stages, " · "));
            for (const LibraryStore::Failing& failing : store_.failing(1000)) {
                const std::string error = failing.capture.lastError.value_or("");
                if (shown_.insert({failing.capture.id, error}).second) {
                    bar_->note("Failed: " + failing.capture.displayTitle() + " (id " + failing.capture.id +
                               "): " + error);
                }
            }
        } catch (const std::exception&) {
            // A busy database only delays the next figure.
        }
    }

    LibraryStore store_;
    std::mutex mutex_;
    std::optional<Progress> bar_;
    std::int64_t waiting_ = 0;
    bool active_ = false;
    std::set<std::pair<std::string, std::string>> shown_;
};

Signals* processSignals = nullptr;

struct SessionOptions {
    bool signals = false;
    MainQueue* mainQueue = nullptr;
};

// One open library. Members go in reverse order: the library (whose destructor ends its worker) before
// what its callbacks use.
struct Session {
    Signals* signals = nullptr;
    std::unique_ptr<LibraryStore> store;
    std::unique_ptr<PipelineProgress> progress;
    std::unique_ptr<Library> library;

    explicit Session(SessionOptions options = {}) {
        if (options.signals) {
            signals = processSignals;
        }
        const fs::path root = LibraryStore::defaultRoot();
        try {
            store = std::make_unique<LibraryStore>(root);
        } catch (const std::exception& failure) {
            throw CommandFailure("cannot open the library at " + root.string() + ": " + failure.what());
        }
        library = std::make_unique<Library>(Library::Services{.store = *store,
                                                              .client = OllamaClient(ModelService::host()),
                                                              .mainQueue = options.mainQueue},
                                            Library::Options{.visionModel = visionModel().model,
                                                             .embeddingModel = std::string(Models::embedding),
                                                             .organizer = Organizer()});
        if (signals) {
            signals->onSignal([library = library.get()] { library->stop(); });
        }
    }

    ~Session() {
        if (signals) {
            signals->onSignal({});
        }
        library->setOnChange({});
        library.reset();
    }

    // Runs the pipeline until nothing is due, with its progress bar. Returns false when a signal stopped it.
    bool process() {
        if (!progress) {
            progress = std::make_unique<PipelineProgress>(store->root());
        }
        library->setOnChange([p = progress.get()] { p->changed(); });
        if (progress->begin() > 0 && !(signals && signals->requested())) {
            library->work();
        }
        progress->end();
        library->setOnChange({});
        return !(signals && signals->requested());
    }

    int interrupted() const {
        std::cerr << "keepery: stopped; what was kept stays kept.\n";
        return 128 + signals->signal();
    }
};

Instant now() {
    return Clock::system().secondsSince1970();
}

std::string when(Instant instant) {
    return Dates::mediumDateShortTime(instant);
}

// --- JSON for scripts -----------------------------------------------------------------------------------

json optionalText(const std::optional<std::string>& text) {
    return text ? json(*text) : json(nullptr);
}

json captureJSON(const Capture& capture, LibraryStore& store,
                 const std::vector<CaptureCollection>& collections, bool full) {
    json out{{"id", capture.id},
             {"title", capture.displayTitle()},
             {"kind", capture.kind ? json(capture.kind->rawValue()) : json(nullptr)},
             {"media", capture.media.rawValue()},
             {"stage", capture.stage.rawValue()},
             {"app", capture.app},
             {"windowTitle", capture.windowTitle},
             {"url", optionalText(capture.url)},
             {"source", capture.sourceName()},
             {"createdAt", capture.createdAt},
             {"takenAt", capture.takenAt ? json(*capture.takenAt) : json(nullptr)},
             {"summary", optionalText(capture.summary)},
             {"note", optionalText(capture.note)},
             {"tags", capture.tags},
             {"favorite", capture.favorite},
             {"collection", nullptr},
             {"width", capture.width},
             {"height", capture.height},
             {"duration", capture.duration ? json(*capture.duration) : json(nullptr)},
             {"image", store.imageURL(capture).string()},
             {"thumbnail", store.thumbURL(capture.id).string()}};
    if (capture.collectionID) {
        for (const CaptureCollection& collection : collections) {
            if (collection.id == *capture.collectionID) {
                out["collection"] =
                    json{{"id", collection.id}, {"name", collection.name}, {"emoji", collection.emoji}};
            }
        }
    }
    if (full) {
        out["highlights"] = capture.highlights;
        out["links"] = capture.links;
        out["ocrText"] = optionalText(capture.ocrText);
        out["transcript"] = optionalText(capture.transcript);
        out["lastError"] = optionalText(capture.lastError);
        if (auto original = store.originalURL(capture)) {
            out["original"] = original->string();
        }
    }
    return out;
}

json capturesJSON(const std::vector<Capture>& captures, LibraryStore& store) {
    const std::vector<CaptureCollection> collections = store.collections();
    json list = json::array();
    for (const Capture& capture : captures) {
        list.push_back(captureJSON(capture, store, collections, false));
    }
    return list;
}

void print(const json& value) {
    std::cout << value.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
}

// --- Keeping --------------------------------------------------------------------------------------------

// The files under `path` (itself when it is a file), in name order; hidden files and folders left out.
void gather(const fs::path& path, std::vector<fs::path>& files, std::vector<std::string>& problems) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error || !fs::exists(status)) {
        problems.push_back(path.string() + ": no such file or folder");
        return;
    }
    if (!fs::is_directory(status)) {
        files.push_back(path);
        return;
    }
    std::vector<fs::path> found;
    fs::recursive_directory_iterator walk(path, fs::directory_options::skip_permission_denied, error);
    if (error) {
        problems.push_back(path.string() + ": " + error.message());
        return;
    }
    for (auto it = walk; it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (error) {
            problems.push_back(it->path().string() + ": " + error.message());
            break;
        }
        const std::string name = it->path().filename().string();
        if (!name.empty() && name.front() == '.') {
            if (it->is_directory(error)) {
                it.disable_recursion_pending();
            }
            continue;
        }
        if (it->is_regular_file(error)) {
            found.push_back(it->path());
        }
    }
    std::sort(found.begin(), found.end());
    files.insert(files.end(), found.begin(), found.end());
}

std::string importFailure(const fs::path& file, const std::exception& failure) {
    if (dynamic_cast<const MediaImporter::Failure*>(&failure) != nullptr) {
        return file.string() + ": cannot be read as a " +
               (MediaImporter::kind(file) == CaptureMedia::video ? "video" : "photo");
    }
    return file.string() + ": " + failure.what();
}

// Keeps one photo or video; the failure's text when it could not be kept.
std::optional<std::string> importOne(Library& library, const fs::path& file) {
    try {
        const MediaImporter::Imported imported = MediaImporter::load(file, now());
        library.keepImported(imported, file);
        return std::nullopt;
    } catch (const std::exception& failure) {
        return importFailure(file, failure);
    }
}

// The screen capture made from an image file, with its PNG and thumbnail.
struct ScreenImage {
    Capture capture;
    std::vector<std::uint8_t> png;
    std::vector<std::uint8_t> thumbnail;
};

ScreenImage screenImage(const Image& image, std::string app, std::string windowTitle,
                        std::optional<std::string> url) {
    std::optional<std::vector<std::uint8_t>> png = Thumbnailer::png(image);
    if (!png) {
        throw CommandFailure("the picture could not be encoded as PNG");
    }
    std::optional<std::vector<std::uint8_t>> thumbnail =
        Thumbnailer::jpeg(*png, MediaImporter::thumbnailPixel, MediaImporter::thumbnailQuality);
    if (!thumbnail) {
        throw CommandFailure("the picture's thumbnail could not be made");
    }
    Capture capture;
    capture.id = UUID::randomLowercase();
    capture.createdAt = now();
    capture.app = std::move(app);
    capture.windowTitle = std::move(windowTitle);
    capture.url = std::move(url);
    capture.width = image.width;
    capture.height = image.height;
    capture.media = CaptureMedia::screen;
    capture.stage = CaptureStage::captured;
    return {std::move(capture), std::move(*png), std::move(*thumbnail)};
}

// A longest side no picture reaches (libvips takes sizes up to ten million), so the picture stays whole.
constexpr int wholePicture = 10'000'000;

ScreenImage screenImageFromFile(const fs::path& file, std::optional<std::string> app,
                                std::optional<std::string> title, std::optional<std::string> url) {
    std::error_code error;
    if (!fs::is_regular_file(file, error)) {
        throw CommandFailure(file.string() + ": no such file");
    }
    std::optional<Image> image = MediaImporter::scaled(file, wholePicture);
    if (!image) {
        throw CommandFailure(file.string() + ": not a picture keepery can read");
    }
    return screenImage(*image, app.value_or("Screenshot"), title.value_or(file.stem().string()),
                       std::move(url));
}

int keptAndProcessed(Session& session, const Capture& capture, Processing processing) {
    std::cout << "Kept " << capture.displayTitle() << " (id " << capture.id << ").\n" << std::flush;
    if (processing == Processing::run && !session.process()) {
        return session.interrupted();
    }
    return 0;
}

// --- Edits ----------------------------------------------------------------------------------------------

Capture existingCapture(LibraryStore& store, const std::string& id) {
    try {
        return ToolTexts::capture(store, id);
    } catch (const ToolTexts::Failure& failure) {
        throw CommandFailure(failure.message);
    }
}

CaptureCollection existingCollection(LibraryStore& store, const std::string& nameOrID) {
    if (nameOrID.empty()) {
        throw CommandFailure("a collection needs its name or id (keepery collections shows them)");
    }
    try {
        const LibraryFilter filter =
            ToolTexts::recentFilter(store, nameOrID, std::nullopt, "keepery collections");
        const std::string& id = std::get<std::string>(filter.payload());
        for (CaptureCollection& collection : store.collections()) {
            if (collection.id == id) {
                return collection;
            }
        }
    } catch (const ToolTexts::Failure& failure) {
        throw CommandFailure(failure.message);
    }
    throw CommandFailure("No collection named “" + nameOrID + "”. keepery collections shows them.");
}

} // namespace

// --- Commands -------------------------------------------------------------------------------------------

void useSignals(Signals& signals) {
    processSignals = &signals;
}

int import(const std::vector<fs::path>& paths, Processing processing) {
    std::vector<fs::path> files;
    std::vector<std::string> problems;
    for (const fs::path& path : paths) {
        gather(path, files, problems);
    }
    std::vector<fs::path> media;
    std::vector<fs::path> skipped;
    for (const fs::path& file : files) {
        (MediaImporter::kind(file) ? media : skipped).push_back(file);
    }

    Session session({.signals = true});
    if (processing == Processing::skip) {
        session.library->stop();
    }
    std::int64_t photos = 0;
    std::int64_t videos = 0;
    {
        Progress bar("Importing", static_cast<std::int64_t>(media.size()));
        std::int64_t done = 0;
        for (const fs::path& file : media) {
            if (session.signals->requested()) {
                break;
            }
            if (auto failure = importOne(*session.library, file)) {
                problems.push_back(*failure);
                bar.note("Could not import " + *failure);
            } else {
                ++(MediaImporter::kind(file) == CaptureMedia::video ? videos : photos);
                bar.logLine("Imported " + file.string());
            }
            bar.update(++done, file.filename().string());
        }
    }
    std::cout << "Imported " << Wording::count(photos, "photo", "photos", Wording::Capitalized::no) << " and "
              << Wording::count(videos, "video", "videos", Wording::Capitalized::no) << ".\n";
    if (!skipped.empty()) {
        std::cout << "Skipped "
                  << Wording::count(static_cast<std::int64_t>(skipped.size()), "file", "files",
                                    Wording::Capitalized::no)
                  << (skipped.size() == 1 ? " that is not a photo or video:\n"
                                          : " that are not photos or videos:\n");
        for (const fs::path& file : skipped) {
            std::cout << "  " << file.string() << "\n";
        }
    }
    if (!problems.empty()) {
        std::cout << "Could not import:\n";
        for (const std::string& problem : problems) {
            std::cout << "  " << problem << "\n";
        }
    }
    std::cout << std::flush;
    if (session.signals->requested()) {
        return session.interrupted();
    }
    if (processing == Processing::run && photos + videos > 0 && !session.process()) {
        return session.interrupted();
    }
    return problems.empty() ? 0 : 1;
}

int keep(const KeepOptions& options) {
    ScreenImage screen = screenImageFromFile(options.image, options.app, options.title, options.url);
    Session session({.signals = true});
    if (options.processing == Processing::skip) {
        session.library->stop();
    }
    session.library->keep(screen.capture, screen.png, screen.thumbnail);
    return keptAndProcessed(session, screen.capture, options.processing);
}

int capture(const CaptureOptions& options) {
    WindowCapture screen;
    const std::vector<WindowEntry> windows = screen.windows();
    if (options.list) {
        for (const WindowEntry& window : windows) {
            char id[32];
            std::snprintf(id, sizeof id, "0x%08llx", static_cast<unsigned long long>(window.number));
            std::cout << id << "  pid " << window.pid << "  " << static_cast<std::int64_t>(window.width)
                      << "x" << static_cast<std::int64_t>(window.height) << "+"
                      << static_cast<std::int64_t>(window.x) << "+" << static_cast<std::int64_t>(window.y)
                      << "  " << window.owner << "  " << window.title
                      << (window.layer != 0 ? "  (not captured)" : "") << "\n";
        }
        return 0;
    }

    std::optional<std::int64_t> wanted;
    const std::optional<std::int64_t> active = screen.activeWindow();
    switch (options.target) {
    case CaptureOptions::Target::active:
        if (!active) {
            throw CommandFailure("the window manager names no active window.");
        }
        wanted = active;
        break;
    case CaptureOptions::Target::pointer:
        wanted = screen.windowUnderPointer();
        if (!wanted) {
            throw CommandFailure("there is no window under the pointer.");
        }
        break;
    case CaptureOptions::Target::window: {
        const std::string& text = options.windowID.value_or("");
        char* end = nullptr;
        const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
        if (text.empty() || end == nullptr || *end != '\0') {
            throw CommandFailure("--window " + text +
                                 ": not a window id (keepery capture --list shows them)");
        }
        wanted = static_cast<std::int64_t>(value);
        break;
    }
    case CaptureOptions::Target::choice:
        break;
    }

    std::optional<WindowEntry> chosen;
    if (wanted) {
        for (const WindowEntry& window : windows) {
            if (window.number == *wanted) {
                chosen = window;
            }
        }
        if (!chosen) {
            throw CommandFailure("no window on screen has the id " + std::to_string(*wanted) +
                                 " (keepery capture --list shows them).");
        }
    } else {
        WindowChoice::Situation situation{.excludingPID = static_cast<std::int64_t>(::getpid())};
        for (const WindowEntry& window : windows) {
            if (active && window.number == *active) {
                situation.frontmostPID = window.pid;
                situation.focusedFrame = window.frame();
            }
        }
        chosen = WindowChoice::pick(windows, situation);
        if (!chosen) {
            throw CommandFailure("no window on screen can be captured.");
        }
    }

    ScreenImage kept = screenImage(screen.grab(*chosen), chosen->owner, chosen->title, std::nullopt);
    Session session({.signals = true});
    if (options.processing == Processing::skip) {
        session.library->stop();
    }
    session.library->keep(kept.capture, kept.png, kept.thumbnail);
    return keptAndProcessed(session, kept.capture, options.processing);
}

int work() {
    Session session({.signals = true});
    const bool finished = session.process();
    LibraryStore& store = *session.store;
    const auto counts = store.stageCounts();
    std::vector<std::string> stages;
    for (CaptureStage stage : CaptureStage::allCases()) {
        const auto it = counts.find(stage);
        stages.push_back(std::string(stage.rawValue()) + " " +
                         std::to_string(it == counts.end() ? 0 : it->second));
    }
    std::cout << "Stages: " << Text::joined(stages, " · ") << "\n";
    const auto failing = store.failing(100);
    if (!failing.empty()) {
        std::cout << "Waiting for another try:\n";
        for (const LibraryStore::Failing& f : failing) {
            std::cout << "  " << f.capture.displayTitle() << " (id " << f.capture.id << "), " << f.attempts
                      << (f.attempts == 1 ? " attempt" : " attempts") << ", next at " << when(f.nextAttemptAt)
                      << ": " << f.capture.lastError.value_or("") << "\n";
        }
    }
    std::cout << std::flush;
    return finished ? 0 : session.interrupted();
}

namespace {

fs::path picturesDirectory() {
    const char* home = std::getenv("HOME");
    const fs::path homePath = home != nullptr ? home : "";
    std::ifstream dirs(Paths::configDirectory() / "user-dirs.dirs");
    std::string line;
    while (std::getline(dirs, line)) {
        if (!line.starts_with("XDG_PICTURES_DIR=")) {
            continue;
        }
        std::string value = line.substr(std::string("XDG_PICTURES_DIR=").size());
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        if (value.starts_with("$HOME")) {
            return homePath / value.substr(value.size() > 5 && value[5] == '/' ? 6 : 5);
        }
        if (!value.empty() && value.front() == '/') {
            return value;
        }
    }
    return homePath / "Pictures";
}

} // namespace

int watch(const WatchOptions& options) {
    std::vector<std::pair<fs::path, Watcher::Role>> folders;
    for (const fs::path& folder : options.folders) {
        folders.emplace_back(folder, Watcher::Role::media);
    }
    for (const fs::path& folder : options.screens) {
        folders.emplace_back(folder, Watcher::Role::screens);
    }
    if (folders.empty()) {
        // The desktop's pictures folder, and the screenshot folder the common desktops fill inside it.
        const fs::path pictures = picturesDirectory();
        std::error_code error;
        fs::create_directories(pictures / "Screenshots", error);
        folders.emplace_back(pictures, Watcher::Role::media);
        folders.emplace_back(pictures / "Screenshots", Watcher::Role::screens);
    }
    Watcher watcher;
    for (const auto& [folder, role] : folders) {
        std::error_code error;
        if (!fs::is_directory(folder, error)) {
            throw CommandFailure(folder.string() + ": no such folder");
        }
        watcher.add(folder, role);
    }

    MainQueue mainQueue;
    Session session({.signals = true, .mainQueue = &mainQueue});
    for (const auto& [folder, role] : folders) {
        std::cout << "Watching " << folder.string()
                  << (role == Watcher::Role::screens ? " for screenshots\n" : " for photos and videos\n");
    }
    std::cout << std::flush;

    auto lastWork = std::chrono::steady_clock::now() - std::chrono::hours(1);
    while (!session.signals->requested()) {
        if (std::chrono::steady_clock::now() - lastWork >= std::chrono::seconds(options.workInterval)) {
            // Retries fall due with time; the library keeps no timer, so the loop asks again.
            session.library->work();
            lastWork = std::chrono::steady_clock::now();
            continue;
        }
        pollfd waits[2] = {{watcher.fd(), POLLIN, 0}, {session.signals->fd(), POLLIN, 0}};
        ::poll(waits, 2, 1000);
        mainQueue.drain();
        for (const Watcher::Arrival& arrival : watcher.arrivals()) {
            if (session.signals->requested()) {
                break;
            }
            const std::string name = arrival.file.filename().string();
            if (arrival.role == Watcher::Role::screens) {
                if (MediaImporter::kind(arrival.file) != CaptureMedia::photo) {
                    std::cout << "Skipped " << arrival.file.string() << ": not a picture\n" << std::flush;
                    continue;
                }
                try {
                    ScreenImage screen =
                        screenImageFromFile(arrival.file, std::nullopt, std::nullopt, std::nullopt);
                    session.library->keep(screen.capture, screen.png, screen.thumbnail);
                    std::cout << "Kept " << arrival.file.string() << " (id " << screen.capture.id << ")\n";
                } catch (const std::exception& failure) {
                    std::cout << "Could not keep " << arrival.file.string() << ": " << failure.what() << "\n";
                }
            } else if (!MediaImporter::kind(arrival.file)) {
                std::cout << "Skipped " << arrival.file.string() << ": not a photo or video\n";
            } else if (auto failure = importOne(*session.library, arrival.file)) {
                std::cout << "Could not import " << *failure << "\n";
            } else {
                std::cout << "Imported " << arrival.file.string() << "\n";
            }
            std::cout << std::flush;
        }
    }
    std::cout << "Stopped watching.\n" << std::flush;
    return 0;
}

int status(const StatusOptions& options) {
    Session session;
    LibraryStore& store = *session.store;
    const fs::path root = store.root();
    std::optional<LibraryStore::Leftovers> cleaned;
    if (options.clean) {
        cleaned = store.removeLeftovers();
    }
    const LibraryStore::Leftovers leftovers = store.leftovers();
    std::uintmax_t bytes = 0;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(root, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        std::error_code sizeError;
        if (it->is_regular_file(sizeError)) {
            bytes += it->file_size(sizeError);
        }
    }
    const auto stages = store.stageCounts();
    const auto media = store.mediaCounts();
    const auto kinds = store.kindCounts();
    const auto failing = store.failing(20);
    const std::int64_t total = store.count();

    // Today's keeping, from local midnight.
    const std::time_t nowSeconds = std::time(nullptr);
    std::tm local{};
    localtime_r(&nowSeconds, &local);
    const int hour = local.tm_hour;
    local.tm_hour = 0;
    local.tm_min = 0;
    local.tm_sec = 0;
    const std::int64_t keptToday = store.count(static_cast<Instant>(std::mktime(&local)));
    const Wording::Today today = Wording::today(keptToday, hour);

    const OllamaClient client(ModelService::host());
    const VisionChoice vision = visionModel();
    std::optional<std::string> version;
    std::optional<std::vector<std::string>> installed;
    std::string serviceError;
    try {
        version = client.version();
        installed = client.models();
    } catch (const std::exception& failure) {
        serviceError = failure.what();
    }
    const bool recentEnough = version && Models::isVersion(*version, Models::minimumOllama);
    const std::string embedding(Models::embedding);

    if (options.json) {
        json out{{"library", root.string()},
                 {"bytes", bytes},
                 {"captures", total},
                 {"today", today.lead + " " + today.close}};
        for (CaptureStage stage : CaptureStage::allCases()) {
            out["stages"][stage.rawValue()] = stages.contains(stage) ? stages.at(stage) : 0;
        }
        for (CaptureMedia m : CaptureMedia::allCases()) {
            out["media"][m.rawValue()] = media.contains(m) ? media.at(m) : 0;
        }
        out["kinds"] = json::object();
        for (const auto& [kind, n] : kinds) {
            out["kinds"][kind.rawValue()] = n;
        }
        out["leftovers"] = {{"files", leftovers.files.size()}, {"bytes", leftovers.bytes}};
        if (cleaned) {
            out["cleaned"] = {{"files", cleaned->files.size()}, {"bytes", cleaned->bytes}};
        }
        out["failing"] = json::array();
        for (const LibraryStore::Failing& f : failing) {
            out["failing"].push_back({{"id", f.capture.id},
                                      {"title", f.capture.displayTitle()},
                                      {"error", optionalText(f.capture.lastError)},
                                      {"attempts", f.attempts},
                                      {"nextAttemptAt", f.nextAttemptAt}});
        }
        out["modelService"] = {{"host", client.host()},
                               {"version", version ? json(*version) : json(nullptr)},
                               {"minimumVersion", Models::minimumOllama},
                               {"error", serviceError.empty() ? json(nullptr) : json(serviceError)}};
        out["visionModel"] = {
            {"name", vision.model},
            {"installed", installed ? json(OllamaClient::has(vision.model, *installed)) : json(nullptr)}};
        out["embeddingModel"] = {
            {"name", embedding},
            {"installed", installed ? json(OllamaClient::has(embedding, *installed)) : json(nullptr)}};
        print(out);
        return 0;
    }

    const auto megabytes = [](std::uintmax_t n) {
        char text[32];
        std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(n) / 1e6);
        return std::string(text);
    };
    const auto files = [](std::size_t n) {
        return Wording::count(static_cast<std::int64_t>(n), "file", "files", Wording::Capitalized::no);
    };
    if (cleaned) {
        std::cout << "Removed " << files(cleaned->files.size()) << " (" << megabytes(cleaned->bytes)
                  << ") that interrupted keeps left behind.\n";
    }
    std::cout << "Library: " << root.string() << " (" << megabytes(bytes) << ")\n";
    std::cout << today.lead << " " << today.close << "\n";
    std::cout << "Captures: " << total << "\n";
    std::vector<std::string> parts;
    for (CaptureStage stage : CaptureStage::allCases()) {
        parts.push_back(std::string(stage.rawValue()) + " " +
                        std::to_string(stages.contains(stage) ? stages.at(stage) : 0));
    }
    std::cout << "Stages: " << Text::joined(parts, " · ") << "\n";
    parts.clear();
    for (CaptureMedia m : CaptureMedia::allCases()) {
        parts.push_back(std::string(m.title()) + " " + std::to_string(media.contains(m) ? media.at(m) : 0));
    }
    std::cout << "Media: " << Text::joined(parts, " · ") << "\n";
    if (!kinds.empty()) {
        parts.clear();
        for (const auto& [kind, n] : kinds) {
            parts.push_back(std::string(kind.title()) + " " + std::to_string(n));
        }
        std::cout << "Kinds: " << Text::joined(parts, " · ") << "\n";
    }
    if (!leftovers.files.empty()) {
        std::cout << "Left behind: " << files(leftovers.files.size()) << " (" << megabytes(leftovers.bytes)
                  << ") that no capture names, from interrupted keeps; keepery status --clean removes them\n";
    }
    if (!failing.empty()) {
        std::cout << "Failing:\n";
        for (const LibraryStore::Failing& f : failing) {
            std::cout << "  " << f.capture.displayTitle() << " (id " << f.capture.id << "), next try "
                      << when(f.nextAttemptAt) << ": " << f.capture.lastError.value_or("") << "\n";
        }
    }
    if (version) {
        std::cout << "Model service: " << client.host() << ", version " << *version
                  << (recentEnough
                          ? ""
                          : " (too old: Keepery needs " + std::string(Models::minimumOllama) + " or newer)")
                  << "\n";
    } else {
        std::cout << "Model service: " << client.host() << " is not answering (" << serviceError
                  << "); searches use words only and nothing is described\n";
    }
    auto modelLine = [&](const char* role, const std::string& name) {
        std::cout << role << name;
        if (installed) {
            std::cout << (OllamaClient::has(name, *installed) ? " (installed)"
                                                              : " (not installed: keepery models pull)");
        }
        std::cout << "\n";
    };
    modelLine("Vision model: ", vision.model);
    modelLine("Embedding model: ", embedding);
    return 0;
}

int modelsPull() {
    const OllamaClient client(ModelService::host());
    const std::vector<std::string> models{visionModel().model, std::string(Models::embedding)};
    for (const std::string& model : models) {
        Progress bar("Pulling " + model, 0, Progress::Unit::bytes);
        try {
            client.pull(model, [&](std::int64_t completed, std::int64_t total, const std::string& status) {
                bar.setTotal(total);
                bar.update(completed, status);
            });
        } catch (const OllamaClient::Failure& failure) {
            bar.finish();
            throw CommandFailure("cannot pull " + model + " from the model service at " + client.host() +
                                 ": " + failure.what());
        } catch (const std::exception& failure) {
            bar.finish();
            throw CommandFailure("cannot pull " + model + " from the model service at " + client.host() +
                                 ": " + failure.what());
        }
        bar.finish();
        std::cout << "Pulled " << model << ".\n" << std::flush;
    }
    return 0;
}

int showConfig() {
    const VisionChoice vision = visionModel();
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    const char* ollamaHost = std::getenv("OLLAMA_HOST");
    const fs::path settings = Settings::defaultFile();
    std::error_code error;
    std::cout << "vision-model     " << vision.model << "  (" << vision.source << ")\n"
              << "embedding-model  " << Models::embedding << "  (built in)\n"
              << "model service    " << ModelService::host() << "  ("
              << (ollamaHost != nullptr && *ollamaHost != '\0' ? "OLLAMA_HOST" : "default") << ")\n"
              << "library          " << LibraryStore::defaultRoot().string() << "  ("
              << (dataHome != nullptr && *dataHome == '/' ? "XDG_DATA_HOME" : "default") << ")\n"
              << "settings file    " << settings.string()
              << (fs::exists(settings, error) ? "" : "  (not written yet)") << "\n";
    return 0;
}

int setConfig(const std::string& key, const std::string& value) {
    if (key != "vision-model") {
        throw CommandFailure("unknown setting " + key + " (the one setting is vision-model)");
    }
    if (Text::trimWhitespace(value).empty()) {
        throw CommandFailure("vision-model needs a model tag, for example qwen3.5:4b");
    }
    const fs::path file = Settings::defaultFile();
    json settings = json::object();
    if (std::ifstream in(file); in) {
        std::stringstream text;
        text << in.rdbuf();
        json read = json::parse(text.str(), nullptr, false);
        if (read.is_object()) {
            settings = std::move(read);
        }
    }
    settings["visionModel"] = value;
    const std::string text = settings.dump(2) + "\n";
    try {
        Files::local().createDirectories(file.parent_path());
        Files::local().writeAtomically(
            file, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    } catch (const std::exception& failure) {
        throw CommandFailure(std::string("cannot write the settings: ") + failure.what());
    }
    std::cout << "vision-model is " << value << " (written to " << file.string() << ").\n";
    return 0;
}

int mcpConfig() {
    std::error_code error;
    fs::path server = fs::read_symlink("/proc/self/exe", error).parent_path() / "keepery-mcp";
    if (!fs::exists(server, error)) {
        server.clear();
        const char* path = std::getenv("PATH");
        std::stringstream folders(path != nullptr ? path : "");
        for (std::string folder; std::getline(folders, folder, ':');) {
            if (!folder.empty() && ::access((fs::path(folder) / "keepery-mcp").c_str(), X_OK) == 0) {
                server = fs::absolute(fs::path(folder) / "keepery-mcp");
                break;
            }
        }
    }
    if (server.empty()) {
        throw CommandFailure(
            "keepery-mcp is not installed beside keepery or on the PATH (make install puts it there)");
    }
    const json config{{"mcpServers", {{"keepery", {{"command", server.string()}, {"args", json::array()}}}}}};
    print(config);
    return 0;
}

int search(const SearchOptions& options) {
    std::string query;
    try {
        query = ToolTexts::searchQuery(options.query);
    } catch (const ToolTexts::Failure&) {
        throw CommandFailure("search needs words to look for");
    }
    Session session;
    const std::vector<Capture> found = ToolTexts::searchResults(*session.library, query, options.limit);
    if (options.json) {
        print(json{{"query", query}, {"results", capturesJSON(found, *session.store)}});
    } else {
        std::cout << ToolTexts::searchText(query, found, ToolTexts::labels(*session.store, found)) << "\n";
    }
    return 0;
}

int recent(const RecentOptions& options) {
    Session session;
    LibraryFilter filter = LibraryFilter::recent();
    try {
        filter =
            ToolTexts::recentFilter(*session.store, options.collection, options.kind, "keepery collections");
    } catch (const ToolTexts::Failure& failure) {
        throw CommandFailure(failure.message);
    }
    const std::vector<Capture> found = session.store->captures(filter, options.limit);
    if (options.json) {
        print(capturesJSON(found, *session.store));
    } else {
        std::cout << ToolTexts::recentText(found, ToolTexts::labels(*session.store, found)) << "\n";
    }
    return 0;
}

int show(const std::string& id, bool asJSON) {
    Session session;
    const Capture capture = existingCapture(*session.store, id);
    if (asJSON) {
        print(captureJSON(capture, *session.store, session.store->collections(), true));
    } else {
        std::cout << ToolTexts::full(capture, ToolTexts::labels(*session.store, std::span(&capture, 1)))
                  << "\n";
    }
    return 0;
}

int collections(bool asJSON) {
    Session session;
    const std::vector<CaptureCollection> all = session.store->collections();
    if (asJSON) {
        json list = json::array();
        for (const CaptureCollection& c : all) {
            if (c.count > 0) {
                list.push_back({{"id", c.id},
                                {"name", c.name},
                                {"emoji", c.emoji},
                                {"count", c.count},
                                {"userNamed", c.userNamed},
                                {"createdAt", c.createdAt},
                                {"updatedAt", c.updatedAt}});
            }
        }
        print(list);
    } else {
        std::cout << ToolTexts::collectionsText(all) << "\n";
    }
    return 0;
}

int note(const std::string& id, const std::string& text) {
    Session session;
    existingCapture(*session.store, id);
    session.library->setNote(id, text);
    return 0;
}

int tag(const std::string& id, const std::vector<std::string>& tags, bool remove) {
    Session session;
    const Capture capture = existingCapture(*session.store, id);
    std::vector<std::string> result = capture.tags;
    for (const std::string& tag : tags) {
        const std::string normal = LibraryStore::normalizedTag(tag);
        if (normal.empty()) {
            throw CommandFailure("“" + tag + "” is not a tag");
        }
        const auto at = std::find(result.begin(), result.end(), normal);
        if (remove && at != result.end()) {
            result.erase(at);
        } else if (!remove && at == result.end()) {
            result.push_back(normal);
        }
    }
    session.library->setTags(id, result);
    return 0;
}

int favorite(const std::string& id, bool on) {
    Session session;
    existingCapture(*session.store, id);
    session.library->setFavorite(id, on);
    return 0;
}

int move(const std::string& id, const std::optional<std::string>& collection) {
    Session session;
    existingCapture(*session.store, id);
    std::optional<std::string> target;
    if (collection) {
        target = existingCollection(*session.store, *collection).id;
    }
    session.library->move(id, target);
    return 0;
}

int rename(const std::string& collection, const std::string& name, const std::optional<std::string>& emoji) {
    Session session;
    const CaptureCollection found = existingCollection(*session.store, collection);
    const std::string trimmed = Text::trimWhitespaceAndNewlines(name);
    if (trimmed.empty()) {
        throw CommandFailure("a collection needs a name");
    }
    session.library->renameCollection(found.id, trimmed, emoji.value_or(found.emoji));
    return 0;
}

int remove(const std::string& id) {
    Session session;
    existingCapture(*session.store, id);
    session.library->deleteCapture(id);
    return 0;
}

} // namespace keepery::Commands
