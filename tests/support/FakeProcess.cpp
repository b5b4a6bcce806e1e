#include "support/FakeProcess.h"

#include <algorithm>
#include <filesystem>

namespace keepery::testing {
namespace {

std::string programName(const std::vector<std::string>& arguments) {
    return arguments.empty() ? std::string() : std::filesystem::path(arguments.front()).filename().string();
}

} // namespace

void FakeProcess::inject(const std::string& program, Fault fault, int nth, std::string message) {
    const std::lock_guard lock(mutex_);
    injection_ = Injection{program, fault, nth, std::move(message)};
}

void FakeProcess::answer(const std::string& program, Result result) {
    const std::lock_guard lock(mutex_);
    answers_[program] = std::move(result);
}

std::vector<std::vector<std::string>> FakeProcess::runs() const {
    const std::lock_guard lock(mutex_);
    return runs_;
}

int FakeProcess::count(const std::string& program) const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(runs_.begin(), runs_.end(),
                                          [&](const auto& run) { return programName(run) == program; }));
}

Process::Result FakeProcess::run(const std::vector<std::string>& arguments,
                                 std::chrono::milliseconds timeout) {
    const std::string program = programName(arguments);
    std::optional<Injection> striking;
    std::optional<Result> answered;
    {
        const std::lock_guard lock(mutex_);
        runs_.push_back(arguments);
        if (injection_ && injection_->program == program && --injection_->remaining == 0) {
            striking = std::move(injection_);
            injection_.reset();
        } else if (const auto found = answers_.find(program); found != answers_.end()) {
            answered = found->second;
        }
    }
    if (striking) {
        switch (striking->fault) {
        case Fault::timesOut:
            throw Failure(Failure::Reason::timedOut, arguments.front(), striking->message);
        case Fault::missing:
            throw Failure(Failure::Reason::missingProgram, arguments.front(), {});
        case Fault::exitsNonZero:
            return Result{
                .exitStatus = 1, .signal = 0, .standardOutput = {}, .standardError = striking->message};
        }
    }
    if (answered) {
        return *answered;
    }
    return real_.run(arguments, timeout);
}

} // namespace keepery::testing
