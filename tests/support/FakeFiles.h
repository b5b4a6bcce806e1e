#pragma once

#include "Platform/Files.h"

#include <mutex>
#include <optional>

namespace keepery::testing {

// The machine's file system with one failure injected at a time: the chosen operation on the chosen path
// throws std::filesystem::filesystem_error instead of touching the disk, once. Any thread.
class FakeFiles final : public Files {
public:
    enum class Operation { writeAtomically, createDirectories, copy, remove, makePrivate };

    // The next `operation` on `path` fails (the failure names `path` and EIO); a failure set before and not
    // yet met is replaced.
    void failNext(Operation operation, std::filesystem::path path);

    // True until the injected failure has happened.
    [[nodiscard]] bool failurePending() const;

    void writeAtomically(const std::filesystem::path& path,
                         std::span<const std::uint8_t> bytes) const override;
    void createDirectories(const std::filesystem::path& path) const override;
    void copy(const std::filesystem::path& from, const std::filesystem::path& to) const override;
    bool remove(const std::filesystem::path& path) const override;
    void makePrivate(const std::filesystem::path& path) const override;

private:
    struct Failure {
        Operation operation;
        std::filesystem::path path;
    };
    // Throws, and forgets the failure, when it is the one set for this call.
    void maybeFail(Operation operation, const std::filesystem::path& path) const;

    mutable std::mutex mutex_;
    mutable std::optional<Failure> failure_;
};

} // namespace keepery::testing
