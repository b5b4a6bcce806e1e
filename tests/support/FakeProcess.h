#pragma once

#include "Platform/Process.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace keepery::testing {

// A Process that passes runs on to a real one, except where a test told it otherwise: one injected
// failure at a time on the n-th run of a program, or a fixed answer for every run of a program. Programs
// are matched by the last component of the argument vector's first element. Records every run. Any thread.
class FakeProcess final : public Process {
public:
    enum class Fault {
        timesOut,     // throws Failure::Reason::timedOut with `message` as its standard error
        exitsNonZero, // exit status 1, `message` on standard error, no output
        missing,      // throws Failure::Reason::missingProgram
    };

    explicit FakeProcess(Process& real = Process::system()) : real_(real) {}

    // The `nth` run of `program` from now on (1 = the next one) fails with `fault`; the other runs pass
    // through. Replaces an earlier injection that has not struck yet.
    void inject(const std::string& program, Fault fault, int nth = 1,
                std::string message = "injected failure") {
        const std::lock_guard lock(mutex_);
        injection_ = Injection{program, fault, nth, std::move(message)};
    }

    // Every later run of `program` returns `result` without running anything (an injection still wins).
    void answer(const std::string& program, Result result) {
        const std::lock_guard lock(mutex_);
        answers_[program] = std::move(result);
    }

    // The argument vectors of every run so far, in order, and how many ran `program`.
    [[nodiscard]] std::vector<std::vector<std::string>> runs() const {
        const std::lock_guard lock(mutex_);
        return runs_;
    }
    [[nodiscard]] int count(const std::string& program) const {
        const auto all = runs();
        return static_cast<int>(
            std::count_if(all.begin(), all.end(), [&](const auto& run) { return name(run) == program; }));
    }

    Result run(const std::vector<std::string>& arguments, std::chrono::milliseconds timeout) override {
        std::unique_lock lock(mutex_);
        runs_.push_back(arguments);
        if (injection_ && injection_->program == name(arguments) && --injection_->remaining == 0) {
            const Injection striking = *std::exchange(injection_, std::nullopt);
            switch (striking.fault) {
            case Fault::timesOut:
                throw Failure(Failure::Reason::timedOut, arguments.front(), striking.message);
            case Fault::missing:
                throw Failure(Failure::Reason::missingProgram, arguments.front(), {});
            case Fault::exitsNonZero:
                return Result{
                    .exitStatus = 1, .signal = 0, .standardOutput = {}, .standardError = striking.message};
            }
        }
        if (const auto found = answers_.find(name(arguments)); found != answers_.end()) {
            return found->second;
        }
        lock.unlock();
        return real_.run(arguments, timeout);
    }

private:
    struct Injection {
        std::string program;
        Fault fault;
        int remaining;
        std::string message;
    };

    static std::string name(const std::vector<std::string>& arguments) {
        return arguments.empty() ? std::string()
                                 : std::filesystem::path(arguments.front()).filename().string();
    }

    Process& real_;
    mutable std::mutex mutex_;
    std::optional<Injection> injection_;
    std::map<std::string, Result> answers_;
    std::vector<std::vector<std::string>> runs_;
};

} // namespace keepery::testing
