// The processing worker: drains of due captures on the library's one worker thread, and the steps that
// carry a capture from `captured` to `organized`.
#include "Library/LibraryInternals.h"

#include "Media/Thumbnailer.h"
#include "Media/Transcriber.h"
#include "Understanding/Describer.h"
#include "Understanding/EmbeddingText.h"
#include "Understanding/Reader.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace keepery {
namespace {

// The whole file; throws std::filesystem::filesystem_error naming it when it cannot be read.
std::vector<std::uint8_t> contentsOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        const int error = errno != 0 ? errno : ENOENT;
        throw std::filesystem::filesystem_error("cannot read", path,
                                                std::error_code(error, std::generic_category()));
    }
    std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        throw std::filesystem::filesystem_error("cannot read", path,
                                                std::make_error_code(std::errc::io_error));
    }
    return bytes;
}

} // namespace

Library::~Library() {
    stop();
    if (worker_.joinable()) {
        // The worker may be waiting for an announcement that only this thread can run.
        {
            Lock lock(lock_);
            waitFor(lock, drained_, [&] { return !running_ && !startRequested_; });
        }
        worker_.join();
    }
}

void Library::stop() {
    const std::lock_guard guard(lock_);
    stopped_ = true;
    wanted_ = false;
    wake_.notify_all();
}

std::string Library::environmentLocale() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            const std::string_view locale(value);
            if (locale != "C" && locale != "POSIX" && !locale.starts_with("C.")) {
                return std::string(locale);
            }
        }
    }
    return "en-US";
}

void Library::waitFor(Lock& lock, std::condition_variable& condition, const std::function<bool()>& done) {
    if (mainQueue_ == nullptr || !mainQueue_->isMainThread()) {
        condition.wait(lock, done);
        return;
    }
    while (!done()) {
        lock.unlock();
        mainQueue_->drainFor(std::chrono::milliseconds(5));
        lock.lock();
    }
}

// --- The worker -------------------------------------------------------------------------------------------

bool Library::isDue() {
    try {
        return !store_.pending(clock_.secondsSince1970(), 1).empty();
    } catch (const std::exception&) {
        return false;
    }
}

void Library::work() {
    Lock lock(lock_);
    if (stopped_) {
        return;
    }
    if (running_) {
        const std::uint64_t found = drainsStarted_;
        waitFor(lock, drained_, [&] { return drainsEnded_ >= found; });
        if (running_) {
            const std::uint64_t meanwhile = drainsStarted_;
            waitFor(lock, drained_, [&] { return drainsEnded_ >= meanwhile; });
            return;
        }
    }
    if (stopped_ || !isDue()) {
        return;
    }
    running_ = true;
    startRequested_ = true;
    const std::uint64_t mine = ++drainsStarted_;
    if (!worker_.joinable()) {
        worker_ = std::thread([this] { workerLoop(); });
    }
    wake_.notify_all();
    waitFor(lock, drained_, [&] { return drainsEnded_ >= mine; });
}

void Library::workerLoop() {
    Lock lock(lock_);
    while (true) {
        wake_.wait(lock, [&] { return stopped_ || startRequested_ || wanted_; });
        if (startRequested_) {
            // Counted and waited for by the work() call that asked for it.
            startRequested_ = false;
            drain(lock);
            continue;
        }
        if (stopped_) {
            return;
        }
        wanted_ = false;
        if (isDue()) {
            running_ = true;
            ++drainsStarted_;
            drain(lock);
        }
    }
}

void Library::drain(Lock& lock) {
    while (!stopped_) {
        std::vector<Capture> batch;
        try {
            batch = store_.pending(clock_.secondsSince1970(), batchSize);
        } catch (const std::exception&) {
        }
        if (batch.empty()) {
            break;
        }
        for (const Capture& capture : batch) {
            if (stopped_) {
                break;
            }
            advance(lock, capture);
        }
    }
    running_ = false;
    ++drainsEnded_;
    drained_.notify_all();
}

// --- One capture ------------------------------------------------------------------------------------------

void Library::advance(const Capture& capture) {
    Lock lock(lock_);
    advance(lock, capture);
}

void Library::advance(Lock& lock, const Capture& capture) {
    Capture current = capture;
    try {
        if (current.stage == CaptureStage::captured) {
            read(lock, current);
            current.stage = CaptureStage::read;
        }
        if (current.stage == CaptureStage::read) {
            current = describe(lock, current);
        }
        if (current.stage == CaptureStage::described) {
            embed(lock, current);
            current.stage = CaptureStage::embedded;
        }
        if (current.stage == CaptureStage::embedded) {
            organize(lock, current.id);
            announce(lock);
            lock.lock();
        }
    } catch (...) {
        recordFailure(lock, current, std::current_exception());
    }
}

void Library::recordFailure(Lock& lock, const Capture& capture, std::exception_ptr error) {
    const RetryPlan plan = retryPlan(std::move(error));
    try {
        write([&] { store_.recordFailure(capture.id, plan.message, plan.delay, clock_.secondsSince1970()); },
              [&](const SearchIndex::Write& change) { index_.unchanged(change); });
    } catch (const std::exception&) {
    }
    announce(lock);
    lock.lock();
}

std::vector<std::uint8_t> Library::sourceImage(const Capture& capture) const {
    if (capture.media == CaptureMedia::video) {
        try {
            return contentsOf(store_.sheetURL(capture.id));
        } catch (const std::filesystem::filesystem_error&) {
        }
    }
    return contentsOf(store_.imageURL(capture));
}

std::vector<std::uint8_t> Library::modelImage(const Capture& capture) {
    std::vector<std::uint8_t> bytes = sourceImage(capture);
    if (std::optional<std::vector<std::uint8_t>> smaller =
            Thumbnailer::jpeg(bytes, modelImagePixel, modelImageQuality)) {
        return std::move(*smaller);
    }
    return bytes;
}

void Library::read(Lock& lock, Capture& capture) {
    const std::vector<std::uint8_t> bytes = sourceImage(capture);
    // Recognition keeps the lock: no other call of this library runs meanwhile.
    std::string text = Reader::text(bytes);
    std::optional<std::string> transcript;
    if (capture.media == CaptureMedia::video) {
        if (const std::optional<std::filesystem::path> original = store_.originalURL(capture)) {
            const Unlocked unlocked(lock);
            transcript = Transcriber::transcribe(*original, locale_);
        }
    }
    write([&] { store_.setRead(capture.id, text, transcript); },
          [&](const SearchIndex::Write& change) { index_.staged(change, capture.id, false); });
    capture.ocrText = std::move(text);
    capture.transcript = std::move(transcript);
}

Capture Library::describe(Lock& lock, const Capture& capture) {
    const Describer describer(client_, visionModel_, timeouts_.describing);
    const std::vector<std::uint8_t> image = modelImage(capture);
    const Describer::Context context = Describer::Context::from(capture);
    CaptureDescription description;
    {
        const Unlocked unlocked(lock);
        description = describer.describe(image, context, capture.ocrText.value_or(std::string()));
    }
    write([&] { store_.setDescribed(capture.id, description); },
          [&](const SearchIndex::Write& change) { index_.staged(change, capture.id, false); });
    std::optional<Capture> stored = store_.capture(capture.id);
    announce(lock);
    lock.lock();
    return stored ? std::move(*stored) : capture;
}

void Library::embed(Lock& lock, const Capture& capture) {
    const std::vector<std::uint8_t> image = modelImage(capture);
    const std::array<OllamaClient::EmbedInput, 2> inputs{
        OllamaClient::EmbedInput{EmbeddingText::document(capture), std::span<const std::uint8_t>(image)},
        OllamaClient::EmbedInput{EmbeddingText::meaning(capture), std::nullopt}};
    std::vector<std::vector<float>> vectors;
    {
        const Unlocked unlocked(lock);
        vectors = client_.embed(embeddingModel_, inputs, timeouts_.embedding);
    }
    if (vectors.size() != inputs.size()) {
        throw OllamaClient::Failure::badReply("expected 2 embeddings");
    }
    const std::map<VectorSpace, std::vector<float>> spaces{{VectorSpace::look, std::move(vectors[0])},
                                                           {VectorSpace::meaning, std::move(vectors[1])}};
    write([&] { store_.setEmbedding(capture.id, embeddingModel_, spaces); },
          [&](const SearchIndex::Write& change) { index_.embedded(change, capture.id, spaces); });
}

// --- Retries ----------------------------------------------------------------------------------------------

Library::RetryPlan Library::retryPlan(const std::exception& error) {
    if (const auto* failure = dynamic_cast<const OllamaClient::Failure*>(&error)) {
        if (failure->kind() == OllamaClient::Failure::Kind::unreachable) {
            return {"Ollama is not running", unreachableDelay};
        }
        if (failure->kind() == OllamaClient::Failure::Kind::server &&
            (failure->status() == 404 || failure->message().find("not found") != std::string::npos)) {
            return {"A model is missing: " + failure->message(), missingModelDelay};
        }
    }
    return {error.what(), otherFailureDelay};
}

Library::RetryPlan Library::retryPlan(std::exception_ptr error) {
    try {
        std::rethrow_exception(std::move(error));
    } catch (const std::exception& failure) {
        return retryPlan(failure);
    } catch (...) {
        return {"Unknown error", otherFailureDelay};
    }
}

} // namespace keepery
