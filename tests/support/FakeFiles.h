#pragma once

#include "Platform/Files.h"

#include <cerrno>
#include <mutex>
#include <optional>
#include <system_error>

namespace keepery::testing {

// The machine's file system with one failure injected at a time: the chosen operation on the chosen path
// throws std::filesystem::filesystem_error (naming the path and EIO) instead of touching the disk, once.
// Any thread.
class FakeFiles final : public Files {
public:
    enum class Operation { writeAtomically, createDirectories, copy, remove, makePrivate };

    // The next `operation` on `path` fails; replaces a failure set before and not yet met.
    void failNext(Operation operation, std::filesystem::path path) {
        std::lock_guard lock(mutex_);
        failure_ = Failure{operation, std::move(path)};
    }

    // True until the injected failure has happened.
    [[nodiscard]] bool failurePending() const {
        std::lock_guard lock(mutex_);
        return failure_.has_value();
    }

    void writeAtomically(const std::filesystem::path& path,
                         std::span<const std::uint8_t> bytes) const override {
        disk(Operation::writeAtomically, path).writeAtomically(path, bytes);
    }
    void createDirectories(const std::filesystem::path& path) const override {
        disk(Operation::createDirectories, path).createDirectories(path);
    }
    void copy(const std::filesystem::path& from, const std::filesystem::path& to) const override {
        disk(Operation::copy, to).copy(from, to);
    }
    bool remove(const std::filesystem::path& path) const override {
        return disk(Operation::remove, path).remove(path);
    }
    void makePrivate(const std::filesystem::path& path) const override {
        disk(Operation::makePrivate, path).makePrivate(path);
    }

private:
    struct Failure {
        Operation operation;
        std::filesystem::path path;
    };

    // The disk, after throwing (and forgetting the failure) when it is the one set for this call.
    const Files& disk(Operation operation, const std::filesystem::path& path) const {
        std::lock_guard lock(mutex_);
        if (failure_ && failure_->operation == operation && failure_->path == path) {
            failure_.reset();
            throw std::filesystem::filesystem_error("injected failure", path,
                                                    std::error_code(EIO, std::generic_category()));
        }
        return local();
    }

    mutable std::mutex mutex_;
    mutable std::optional<Failure> failure_;
};

} // namespace keepery::testing
