#include "Platform/Files.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace keepery {
namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path, int error) {
    throw std::filesystem::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

// Closes the descriptor and removes the temporary file unless it was renamed into place.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::filesystem::path& target) {
        name_ = target.string() + ".XXXXXX";
        descriptor_ = mkstemp(name_.data());
        if (descriptor_ < 0) {
            fail("cannot create a temporary file", target, errno);
        }
    }
    ~TemporaryFile() {
        closeDescriptor();
        if (!kept_) {
            ::unlink(name_.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int descriptor() const { return descriptor_; }
    const std::string& name() const { return name_; }
    int closeDescriptor() {
        int result = 0;
        if (descriptor_ >= 0) {
            result = ::close(descriptor_);
            descriptor_ = -1;
        }
        return result;
    }
    void keep() { kept_ = true; }

private:
    std::string name_;
    int descriptor_ = -1;
    bool kept_ = false;
};

class LocalFiles final : public Files {
public:
    void writeAtomically(const std::filesystem::path& path,
                         std::span<const std::uint8_t> bytes) const override;

    void createDirectories(const std::filesystem::path& path) const override {
        std::filesystem::create_directories(path);
    }

    void copy(const std::filesystem::path& from, const std::filesystem::path& to) const override {
        std::filesystem::copy_file(from, to);
    }

    bool remove(const std::filesystem::path& path) const override { return std::filesystem::remove(path); }
};

void LocalFiles::writeAtomically(const std::filesystem::path& path,
                                 std::span<const std::uint8_t> bytes) const {
    TemporaryFile file(path);
    // mkstemp makes the file private to its owner; library files are ordinary user files.
    ::fchmod(file.descriptor(), 0644);
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(file.descriptor(), bytes.data() + written, bytes.size() - written);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("cannot write", path, errno);
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(file.descriptor()) != 0) {
        fail("cannot flush", path, errno);
    }
    if (file.closeDescriptor() != 0) {
        fail("cannot close", path, errno);
    }
    if (::rename(file.name().c_str(), path.c_str()) != 0) {
        fail("cannot move into place", path, errno);
    }
    file.keep();
}

} // namespace

void Files::removeQuietly(const std::filesystem::path& path) const noexcept {
    try {
        remove(path);
    } catch (...) {
    }
}

const Files& Files::local() {
    static const LocalFiles files;
    return files;
}

} // namespace keepery
