#include "Platform/Files.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

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

    void createDirectories(const std::filesystem::path& path) const override;

    void copy(const std::filesystem::path& from, const std::filesystem::path& to) const override;

    void makePrivate(const std::filesystem::path& path) const override {
        struct stat info {};
        if (::stat(path.c_str(), &info) != 0) {
            fail("cannot read the permissions of", path, errno);
        }
        if ((info.st_mode & 077) != 0 && ::chmod(path.c_str(), info.st_mode & 0700) != 0) {
            fail("cannot make private", path, errno);
        }
    }

    bool remove(const std::filesystem::path& path) const override { return std::filesystem::remove(path); }
};

void LocalFiles::writeAtomically(const std::filesystem::path& path,
                                 std::span<const std::uint8_t> bytes) const {
    TemporaryFile file(path); // mkstemp makes it 0600
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

void LocalFiles::createDirectories(const std::filesystem::path& path) const {
    std::error_code error;
    if (std::filesystem::is_directory(path, error) || path.empty()) {
        return;
    }
    if (path.has_relative_path() && path.parent_path() != path) {
        createDirectories(path.parent_path());
    }
    if (::mkdir(path.c_str(), 0700) != 0 &&
        !(errno == EEXIST && std::filesystem::is_directory(path, error))) {
        fail("cannot create the directory", path, errno);
    }
}

void LocalFiles::copy(const std::filesystem::path& from, const std::filesystem::path& to) const {
    const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) {
        fail("cannot open", from, errno);
    }
    const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0) {
        const int error = errno;
        ::close(in);
        fail("cannot create", to, error);
    }
    std::vector<char> buffer(1 << 16);
    int error = 0;
    while (error == 0) {
        const ssize_t n = ::read(in, buffer.data(), buffer.size());
        if (n == 0) {
            break;
        }
        if (n < 0) {
            error = errno == EINTR ? 0 : errno;
            continue;
        }
        for (ssize_t written = 0; written < n && error == 0;) {
            const ssize_t m = ::write(out, buffer.data() + written, static_cast<std::size_t>(n - written));
            if (m < 0) {
                error = errno == EINTR ? 0 : errno;
            } else {
                written += m;
            }
        }
    }
    ::close(in);
    if (error == 0 && ::fsync(out) != 0) {
        error = errno;
    }
    if (::close(out) != 0 && error == 0) {
        error = errno;
    }
    if (error != 0) {
        ::unlink(to.c_str());
        fail("cannot copy to", to, error);
    }
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
