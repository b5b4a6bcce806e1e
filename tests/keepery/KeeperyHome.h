#pragma once

// Drives the real `keepery` binary as a user would: a fresh HOME per test and the fake model service on a
// loopback port.
#include "Store/LibraryStore.h"
#include "support/ChildProcess.h"
#include "support/FakeModelService.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace keepery::testing {

// A child process left running (watch, work), its output and errors going to one file.
class RunningChild {
public:
    RunningChild(const std::string& program, const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment, const std::filesystem::path& output)
        : output_(output) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        pid_ = spawn(program, arguments, environment, actions);
    }
    ~RunningChild() {
        signal(SIGKILL);
        finish();
    }
    RunningChild(const RunningChild&) = delete;
    RunningChild& operator=(const RunningChild&) = delete;

    void signal(int which) const {
        if (pid_ > 0) {
            ::kill(pid_, which);
        }
    }
    // The exit status, -1 when it did not exit normally.
    int finish() {
        int status = 0;
        if (pid_ <= 0 || ::waitpid(pid_, &status, 0) != pid_) {
            return -1;
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    [[nodiscard]] std::string output() const {
        std::stringstream text;
        text << std::ifstream(output_).rdbuf();
        return text.str();
    }

private:
    pid_t pid_ = -1;
    std::filesystem::path output_;
};

// Waits up to `seconds` for `done`; true when it happened.
inline bool eventually(const std::function<bool()>& done, double seconds = 30) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return true;
}

class KeeperyHome : public ::testing::Test {
protected:
    TemporaryDirectory home;
    FakeModelService service;

    std::map<std::string, std::string>
    environment(const std::map<std::string, std::string>& extra = {}) const {
        std::map<std::string, std::string> values = extra;
        values.insert({{"HOME", home.path().string()},
                       {"PATH", "/usr/bin:/bin"},
                       {"OLLAMA_HOST", service.host()},
                       {"OMP_THREAD_LIMIT", "1"}});
        // The sanitizers' settings reach the child as they reach us, and so do the locale and time zone, so
        // that dates read the same on both sides.
        for (const char* name : {"LSAN_OPTIONS", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LANG",
                                 "LC_ALL", "LC_TIME", "LC_NUMERIC", "TZ"}) {
            if (const char* value = std::getenv(name)) {
                values[name] = value;
            }
        }
        return values;
    }

    ChildResult keepery(const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& extra = {}) const {
        return runChild(KEEPERY_PATH, arguments, environment(extra), "");
    }

    [[nodiscard]] std::filesystem::path library() const { return home / ".local/share/Keepery"; }

    // Writes a library described in JSON (see seed_library_main.cpp).
    void seed(const nlohmann::json& description) const {
        const auto file = home / "seed.json";
        std::ofstream(file) << description.dump();
        const ChildResult seeded =
            runChild(KEEPERY_SEED_LIBRARY_PATH, {library().string(), file.string()}, {}, "");
        ASSERT_EQ(seeded.exitStatus, 0) << seeded.err;
    }
};

} // namespace keepery::testing
