#pragma once

#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

namespace keepery {

// New files in watched folders, through inotify. A file is reported once it is complete: when the program
// that wrote it closes it, or when it is moved or renamed into the folder. Hidden files and the partial
// files of downloads are left out. Folders are watched without their subfolders. One thread.
class Watcher {
public:
    // What the files of a folder become.
    enum class Role { media, screens };

    struct Arrival {
        std::filesystem::path file;
        Role role;
    };

    // Throws std::system_error when inotify is not available.
    Watcher();
    ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    // Watches `folder`. Throws std::system_error naming the folder when it cannot be watched.
    void add(const std::filesystem::path& folder, Role role);

    // Readable (for poll) when files have arrived.
    [[nodiscard]] int fd() const { return fd_; }

    // The files that arrived since the last call, in order; empty when none did. Never blocks.
    [[nodiscard]] std::vector<Arrival> arrivals();

private:
    int fd_ = -1;
    std::unordered_map<int, std::pair<std::filesystem::path, Role>> folders_;
};

} // namespace keepery
