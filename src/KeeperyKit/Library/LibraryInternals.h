#pragma once

// What the Library's source files share; only they include it.

#include "Library/Library.h"

#include <exception>

namespace keepery {

// Lets go of the Library's lock for the life of the object (while the model service or the transcriber is
// waited for) and takes it again at the end, also when an exception passes.
class Unlocked {
public:
    explicit Unlocked(std::unique_lock<std::mutex>& lock) : lock_(lock) { lock_.unlock(); }
    ~Unlocked() { lock_.lock(); }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

private:
    std::unique_lock<std::mutex>& lock_;
};

template <typename Write, typename Change>
void Library::write(Write&& body, Change&& change) {
    store_.exclusively([&] {
        std::optional<LibraryStore::Generation> before;
        try {
            before = store_.generation();
        } catch (const std::exception&) {
        }
        // A failed write leaves the index as it was: its generation then no longer matches, or nothing
        // changed.
        body();
        try {
            if (before) {
                change(SearchIndex::Write{*before, store_.generation()});
            } else {
                index_.clear();
            }
        } catch (const std::exception&) {
            index_.clear();
        }
    });
}

} // namespace keepery
