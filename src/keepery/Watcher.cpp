#include "Watcher.h"

#include <cerrno>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>

namespace keepery {
namespace {

bool partial(const std::string& name) {
    for (const char* suffix : {".part", ".crdownload", ".download", ".tmp", "~"}) {
        if (name.ends_with(suffix)) {
            return true;
        }
    }
    return name.empty() || name.front() == '.';
}

} // namespace

Watcher::Watcher() : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "inotify");
    }
}

Watcher::~Watcher() {
    ::close(fd_);
}

void Watcher::add(const std::filesystem::path& folder, Role role) {
    const int wd = ::inotify_add_watch(fd_, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR);
    if (wd < 0) {
        throw std::system_error(errno, std::generic_category(), folder.string());
    }
    folders_[wd] = {folder, role};
}

std::vector<Watcher::Arrival> Watcher::arrivals() {
    std::vector<Arrival> found;
    alignas(inotify_event) char buffer[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(fd_, buffer, sizeof buffer);
        if (n <= 0) {
            return found;
        }
        for (ssize_t at = 0; at < n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            const auto folder = folders_.find(event->wd);
            if (folder == folders_.end() || event->len == 0 || (event->mask & IN_ISDIR) != 0) {
                continue;
            }
            const std::string name(event->name);
            if (!partial(name)) {
                found.push_back({folder->second.first / name, folder->second.second});
            }
        }
    }
}

} // namespace keepery
