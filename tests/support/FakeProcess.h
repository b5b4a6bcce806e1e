#pragma once

#include "Platform/Process.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace keepery::testing {

// A Process that passes runs on to a real one, except where a test told it otherwise: one injected
// failure at a time on the n-th run of a program, or a fixed answer for every run of a program. Programs
// are matched by the last component of the argument vector's first element. Records every run. Any thread.
class FakeProcess final : public Process {
public:
    enum class Fault {
        timesOut,     // throws Failure::Reason::timedOut carrying `message` as its standard error
        exitsNonZero, // returns exit status 1 with `message` on standard error, and nothing on standard
                      // output
        missing,      // throws Failure::Reason::missingProgram
    };

    explicit FakeProcess(Process& real = Process::system()) : real_(real) {}

    // The `nth` run of `program` from now on (1 = the next one) fails with `fault`; the other runs pass
    // through. Replaces an earlier injection that has not struck yet.
    void inject(const std::string& program, Fault fault, int nth = 1,
                std::string message = "injected failure");
    // Every later run of `program` returns `result` without running anything (an injection still wins).
    void answer(const std::string& program, Result result);

    // The argument vectors of every run so far, in order.
    [[nodiscard]] std::vector<std::vector<std::string>> runs() const;
    // How many runs of `program` there were.
    [[nodiscard]] int count(const std::string& program) const;

    Result run(const std::vector<std::string>& arguments, std::chrono::milliseconds timeout) override;

private:
    struct Injection {
        std::string program;
        Fault fault;
        int remaining;
        std::string message;
    };

    Process& real_;
    mutable std::mutex mutex_;
    std::optional<Injection> injection_;
    std::map<std::string, Result> answers_;
    std::vector<std::vector<std::string>> runs_;
};

} // namespace keepery::testing
