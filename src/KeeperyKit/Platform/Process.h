#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace keepery {

// The child-process seam: runs a program by its argument vector (never through a shell), with a time-out,
// and hands back what it wrote to its standard output and standard error and how it ended. The engine
// reaches external tools (ffprobe, ffmpeg) only through this interface, so that tests can put a fake in
// its place. Implementations may be called from any thread at once.
class Process {
public:
    // How a program that ran to its end finished. A non-zero exit or a signal is a result, not a failure:
    // the caller decides what the tool's status means.
    struct Result {
        int exitStatus = 0; // the exit code; meaningful when `signal` is 0
        int signal = 0;     // the signal that ended the program, 0 when it exited
        std::string standardOutput;
        std::string standardError;

        [[nodiscard]] bool succeeded() const { return signal == 0 && exitStatus == 0; }
    };

    // A program that could not be run to its end.
    class Failure : public std::runtime_error {
    public:
        enum class Reason {
            missingProgram, // no such program on PATH (or at the path given)
            timedOut,       // still running at the time-out; it was killed and reaped
            cannotStart,    // found but could not be started (permissions, resources)
        };
        Failure(Reason reason, std::string program, std::string standardError);

        [[nodiscard]] Reason reason() const { return reason_; }
        // The program as named in the argument vector's first element.
        [[nodiscard]] const std::string& program() const { return program_; }
        // What the program wrote to standard error before it was killed (time-out only).
        [[nodiscard]] const std::string& standardError() const { return standardError_; }

    private:
        Reason reason_;
        std::string program_;
        std::string standardError_;
    };

    virtual ~Process() = default;

    // Runs `arguments[0]` (looked up on PATH unless it contains a slash) with `arguments` as its whole
    // argument vector, the parent's environment and an empty standard input, and waits for it. Both
    // output streams are collected whole, of any size. A program still running after `timeout` is killed
    // together with the processes it started, and reaped. Throws Failure; std::invalid_argument for an
    // empty vector.
    [[nodiscard]] virtual Result run(const std::vector<std::string>& arguments,
                                     std::chrono::milliseconds timeout) = 0;

    // The real implementation, shared by the whole process. Never null.
    [[nodiscard]] static Process& system();
};

} // namespace keepery
