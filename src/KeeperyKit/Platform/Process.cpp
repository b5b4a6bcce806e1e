#include "Platform/Process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace keepery {
namespace {

std::string failureText(Process::Failure::Reason reason, const std::string& program) {
    switch (reason) {
    case Process::Failure::Reason::missingProgram:
        return program + " is not installed (not found on PATH)";
    case Process::Failure::Reason::timedOut:
        return program + " did not finish in time and was stopped";
    case Process::Failure::Reason::cannotStart:
        break;
    }
    return program + " could not be started";
}

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool open() const { return fd_ >= 0; }
    void reset() {
        if (fd_ >= 0) {
            ::close(fd_);
            fd_ = -1;
        }
    }

private:
    int fd_ = -1;
};

struct Pipe {
    FileDescriptor read;
    FileDescriptor write;
};

Pipe makePipe() {
    int fds[2];
    // Close-on-exec so that children started at the same time from other threads do not inherit our ends
    // and keep them open; the non-blocking read end lets one loop drain both streams.
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        throw Process::Failure(Process::Failure::Reason::cannotStart, "pipe", {});
    }
    Pipe pipe{FileDescriptor(fds[0]), FileDescriptor(fds[1])};
    ::fcntl(pipe.read.get(), F_SETFL, ::fcntl(pipe.read.get(), F_GETFL) | O_NONBLOCK);
    return pipe;
}

// Owns the spawn attributes and file actions for one start.
class SpawnSetup {
public:
    SpawnSetup(int out, int err) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, out, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, err, STDERR_FILENO);
        posix_spawnattr_init(&attributes_);
        // Its own process group, so that a time-out reaches whatever the program started too; default
        // signal handling and an empty mask, whatever the calling thread has blocked.
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_,
                                 POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// Reads what is available now. Returns false once the stream has ended.
bool drain(FileDescriptor& fd, std::string& into) {
    std::array<char, 65536> buffer;
    while (fd.open()) {
        const ssize_t n = ::read(fd.get(), buffer.data(), buffer.size());
        if (n > 0) {
            into.append(buffer.data(), static_cast<std::size_t>(n));
        } else if (n == 0) {
            fd.reset();
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return true;
        } else if (errno != EINTR) {
            fd.reset();
        }
    }
    return false;
}

int waitFor(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

class SystemProcess final : public Process {
public:
    Result run(const std::vector<std::string>& arguments, std::chrono::milliseconds timeout) override {
        if (arguments.empty()) {
            throw std::invalid_argument("Process::run needs at least the program's name");
        }
        const std::string& program = arguments.front();
        Pipe out = makePipe();
        Pipe err = makePipe();

        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (const auto& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);

        const auto deadline = std::chrono::steady_clock::now() + timeout;
        pid_t pid = 0;
        int spawned = 0;
        {
            SpawnSetup setup(out.write.get(), err.write.get());
            spawned = ::posix_spawnp(&pid, program.c_str(), setup.actions(), setup.attributes(), argv.data(),
                                     environ);
        }
        out.write.reset();
        err.write.reset();
        if (spawned != 0) {
            throw Failure(spawned == ENOENT || spawned == ENOTDIR ? Failure::Reason::missingProgram
                                                                  : Failure::Reason::cannotStart,
                          program, {});
        }

        // A pidfd tells when the program itself has ended even while something it started holds the
        // pipes open; without one (old kernels) the end of both streams stands for it.
        FileDescriptor exited(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
        Result result;
        while (out.read.open() || err.read.open()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                stop(pid, program, std::move(result.standardError));
            }
            std::array<pollfd, 3> fds{pollfd{out.read.get(), POLLIN, 0}, pollfd{err.read.get(), POLLIN, 0},
                                      pollfd{exited.get(), POLLIN, 0}};
            const int ready = ::poll(fds.data(), fds.size(),
                                     static_cast<int>(std::min<long long>(left.count() + 1, 60'000)));
            if (ready < 0 && errno != EINTR) {
                stop(pid, program, std::move(result.standardError));
            }
            drain(out.read, result.standardOutput);
            drain(err.read, result.standardError);
            if (fds[2].revents & POLLIN) {
                // Everything the program wrote is in the pipes now; what its own children write later
                // is not its output.
                out.read.reset();
                err.read.reset();
            }
        }
        if (exited.open() && !waitUntil(exited, deadline)) {
            stop(pid, program, std::move(result.standardError));
        }
        const int status = waitFor(pid);
        if (WIFSIGNALED(status)) {
            result.signal = WTERMSIG(status);
        } else {
            result.exitStatus = WEXITSTATUS(status);
        }
        return result;
    }

private:
    static bool waitUntil(const FileDescriptor& exited, std::chrono::steady_clock::time_point deadline) {
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                return false;
            }
            pollfd fd{exited.get(), POLLIN, 0};
            const int ready = ::poll(&fd, 1, static_cast<int>(std::min<long long>(left.count() + 1, 60'000)));
            if (ready > 0) {
                return true;
            }
            if (ready < 0 && errno != EINTR) {
                return false;
            }
        }
    }

    [[noreturn]] static void stop(pid_t pid, const std::string& program, std::string standardError) {
        ::kill(-pid, SIGKILL);
        ::kill(pid, SIGKILL);
        waitFor(pid);
        throw Failure(Failure::Reason::timedOut, program, std::move(standardError));
    }
};

} // namespace

Process::Failure::Failure(Reason reason, std::string program, std::string standardError)
    : std::runtime_error(failureText(reason, program)), reason_(reason), program_(std::move(program)),
      standardError_(std::move(standardError)) {}

Process& Process::system() {
    static SystemProcess instance;
    return instance;
}

} // namespace keepery
