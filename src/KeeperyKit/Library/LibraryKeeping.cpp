// Keeping new captures: their files first, then the row, the announcement and a drain.
#include "Library/LibraryInternals.h"

namespace keepery {

void Library::keep(const Capture& capture, std::span<const std::uint8_t> png,
                   std::span<const std::uint8_t> thumbnail) {
    Lock lock(lock_);
    files_.writeAtomically(store_.imageURL(capture.id), png);
    files_.writeAtomically(store_.thumbURL(capture.id), thumbnail);
    keepWritten(lock, capture);
}

void Library::keepImported(const MediaImporter::Imported& imported, const std::filesystem::path& original) {
    const Capture& capture = imported.capture;
    Lock lock(lock_);
    files_.writeAtomically(store_.imageURL(capture), imported.image);
    files_.writeAtomically(store_.thumbURL(capture.id), imported.thumbnail);
    if (imported.sheet) {
        files_.writeAtomically(store_.sheetURL(capture.id), *imported.sheet);
    }
    if (const std::optional<std::filesystem::path> destination = store_.originalURL(capture)) {
        files_.removeQuietly(*destination);
        files_.copy(original, *destination);
    }
    keepWritten(lock, capture);
}

void Library::keepWritten(Lock& lock, const Capture& capture) {
    write([&] { store_.insert(capture); },
          [&](const SearchIndex::Write& change) { index_.inserted(change, capture); });
    announce(lock);
    lock.lock();
    // A work() of its own that nobody waits for: the worker drains once the running drain (if any) ends.
    if (!stopped_) {
        wanted_ = true;
        if (!worker_.joinable()) {
            worker_ = std::thread([this] { workerLoop(); });
        }
        wake_.notify_all();
    }
}

} // namespace keepery
