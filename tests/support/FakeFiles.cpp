#include "support/FakeFiles.h"

#include <cerrno>
#include <system_error>

namespace keepery::testing {

void FakeFiles::failNext(Operation operation, std::filesystem::path path) {
    std::lock_guard lock(mutex_);
    failure_ = Failure{operation, std::move(path)};
}

bool FakeFiles::failurePending() const {
    std::lock_guard lock(mutex_);
    return failure_.has_value();
}

void FakeFiles::maybeFail(Operation operation, const std::filesystem::path& path) const {
    std::lock_guard lock(mutex_);
    if (!failure_ || failure_->operation != operation || failure_->path != path) {
        return;
    }
    failure_.reset();
    throw std::filesystem::filesystem_error("injected failure", path,
                                            std::error_code(EIO, std::generic_category()));
}

void FakeFiles::writeAtomically(const std::filesystem::path& path,
                                std::span<const std::uint8_t> bytes) const {
    maybeFail(Operation::writeAtomically, path);
    local().writeAtomically(path, bytes);
}

void FakeFiles::createDirectories(const std::filesystem::path& path) const {
    maybeFail(Operation::createDirectories, path);
    local().createDirectories(path);
}

void FakeFiles::copy(const std::filesystem::path& from, const std::filesystem::path& to) const {
    maybeFail(Operation::copy, to);
    local().copy(from, to);
}

bool FakeFiles::remove(const std::filesystem::path& path) const {
    maybeFail(Operation::remove, path);
    return local().remove(path);
}

void FakeFiles::makePrivate(const std::filesystem::path& path) const {
    maybeFail(Operation::makePrivate, path);
    local().makePrivate(path);
}

} // namespace keepery::testing
