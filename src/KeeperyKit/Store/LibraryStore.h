#pragma once

#include "Model/Capture.h"
#include "Store/Database.h"

#include <filesystem>
#include <optional>
#include <string>

namespace keepery {

// The library: one directory holding the SQLite database `library.sqlite` and the image files
// (`captures/`, `thumbs/`, `media/`). The layout and schema are a storage format shared with the companion
// app. The store has no lock of its own: one caller at a time (the Library actor, or the server's loop).
class LibraryStore {
public:
    static constexpr std::int64_t schemaVersion = 2;

    // The application-support directory of the current user with `Keepery` appended.
    [[nodiscard]] static std::filesystem::path defaultRoot();

    // Creates the directories and the database when missing and migrates the schema to version 2 (a newer
    // version is left alone). Throws std::filesystem::filesystem_error when a directory cannot be made,
    // Database::Failure when the database cannot be opened or migrated (the migration then leaves nothing
    // behind).
    explicit LibraryStore(std::filesystem::path root);

    LibraryStore(const LibraryStore&) = delete;
    LibraryStore& operator=(const LibraryStore&) = delete;

    [[nodiscard]] const std::filesystem::path& root() const { return root_; }

    // File locations; pure functions of `root`, none touches the disk.
    [[nodiscard]] std::filesystem::path imageURL(const std::string& id) const;
    [[nodiscard]] std::filesystem::path thumbURL(const std::string& id) const;
    [[nodiscard]] std::filesystem::path sheetURL(const std::string& id) const;
    [[nodiscard]] std::filesystem::path imageURL(const Capture& capture) const;
    [[nodiscard]] std::optional<std::filesystem::path> originalURL(const Capture& capture) const;

private:
    void migrate();

    std::filesystem::path root_;
    Database db_;
};

} // namespace keepery
