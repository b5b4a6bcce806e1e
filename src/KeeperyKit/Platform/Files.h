#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace keepery {

// The file writes of the library: whole-file writes, directories, copies and removals. What they make is
// private to the user who runs the program (files 0600, directories 0700): a library holds pictures of
// everything a person kept. A seam: tests hand the engine files that fail on purpose. Every operation throws
// std::filesystem::filesystem_error naming the path on failure. Implementations may be called from any thread
// at once.
class Files {
public:
    virtual ~Files() = default;

    // Writes `bytes` to `path` whole: into a new temporary file in the same directory, flushed to disk,
    // then renamed over `path`, so that a reader sees the old file or the new one and never a part. The
    // directory must exist; the temporary file is gone after a failure.
    virtual void writeAtomically(const std::filesystem::path& path,
                                 std::span<const std::uint8_t> bytes) const = 0;

    // Makes `path` and every missing parent; an existing directory is fine and keeps its permissions.
    virtual void createDirectories(const std::filesystem::path& path) const = 0;

    // Copies the file at `from` to `to`, which must not exist yet, flushed to disk before it returns (a row
    // that names the copy is written after it); nothing stays at `to` after a failure.
    virtual void copy(const std::filesystem::path& from, const std::filesystem::path& to) const = 0;

    // Takes every permission of group and others away from the file or directory at `path`.
    virtual void makePrivate(const std::filesystem::path& path) const = 0;

    // Removes the file (or empty directory) at `path`; false when nothing was there.
    virtual bool remove(const std::filesystem::path& path) const = 0;

    // `remove`, with every failure ignored.
    void removeQuietly(const std::filesystem::path& path) const noexcept;

    // The machine's file system; lives as long as the process.
    [[nodiscard]] static const Files& local();
};

} // namespace keepery
