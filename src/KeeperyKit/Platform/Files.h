#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

// The file-system seam: whole-file writes and quiet removal. Any thread.
namespace keepery::Files {

// Writes `bytes` to `path` whole: into a new temporary file in the same directory, flushed to disk, then
// renamed over `path`, so that a reader sees the old file or the new one and never a part. The directory
// must exist. Throws std::filesystem::filesystem_error; the temporary file is gone after a failure.
void writeAtomically(const std::filesystem::path& path, std::span<const std::uint8_t> bytes);

// Removes the file at `path`. A missing file, a non-empty directory in its place or any other failure is
// ignored. Never throws.
void removeQuietly(const std::filesystem::path& path) noexcept;

} // namespace keepery::Files
