// The organizing step: filing a capture by the organizer's decision, and naming collections.
#include "Library/LibraryInternals.h"

#include "Organizing/CollectionNamer.h"
#include "Platform/UUID.h"

#include <algorithm>

namespace keepery {

void Library::organize(const std::string& captureID) {
    Lock lock(lock_);
    organize(lock, captureID);
}

void Library::nameIfDue(const std::string& collectionID) {
    Lock lock(lock_);
    nameIfDue(lock, collectionID);
}

void Library::organize(Lock& lock, const std::string& captureID) {
    const std::optional<std::vector<float>> vector = store_.vector(captureID, VectorSpace::meaning);
    if (!vector) {
        return;
    }
    const Organizer::Decision decision =
        index_.decide(store_, organizer_, captureID, *vector, membershipListing);

    std::optional<std::string> target;
    if (const Organizer::Decision::Join* join = decision.asJoin()) {
        target = join->collectionID;
    } else if (const Organizer::Decision::Form* form = decision.asForm()) {
        const Instant now = clock_.secondsSince1970();
        const CaptureCollection collection{.id = UUID::randomLowercase(),
                                           .name = std::string(provisionalName),
                                           .emoji = std::string(provisionalEmoji),
                                           .createdAt = now,
                                           .updatedAt = now};
        write([&] { store_.insertCollection(collection); },
              [&](const SearchIndex::Write& change) { index_.unchanged(change); });
        for (const std::string& other : form->with) {
            write(
                [&] { store_.moveCapture(other, collection.id); },
                [&](const SearchIndex::Write& change) { index_.filed(change, other, collection.id, false); });
        }
        target = collection.id;
    }

    write([&] { store_.setCollection(captureID, target); },
          [&](const SearchIndex::Write& change) { index_.filed(change, captureID, target, true); });
    if (!target) {
        return;
    }
    write([&] { store_.touchCollection(*target); },
          [&](const SearchIndex::Write& change) { index_.unchanged(change); });
    nameIfDue(lock, *target);
}

void Library::nameIfDue(Lock& lock, const std::string& collectionID) {
    // The one collection, as the listing of every collection gives it.
    const std::optional<CaptureCollection> found = store_.collection(collectionID);
    if (!found || !Organizer::shouldRename(*found)) {
        return;
    }
    const std::vector<Capture> newest =
        store_.captures(LibraryFilter::collection(collectionID), namingCaptures);
    const CollectionNamer namer(client_, visionModel_, timeouts_.naming);
    CollectionNamer::Naming naming;
    {
        // A rename by the user may land meanwhile; the namer's rename leaves the user's mark as it is.
        const Unlocked unlocked(lock);
        naming = namer.name(newest);
    }
    write(
        [&] {
            store_.renameCollection(collectionID, naming.name, naming.emoji, found->count,
                                    LibraryStore::NamedBy::namer);
        },
        [&](const SearchIndex::Write& change) { index_.unchanged(change); });
}

} // namespace keepery
