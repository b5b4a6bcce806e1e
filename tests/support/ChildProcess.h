#pragma once

#include <cstdio>
#include <map>
#include <spawn.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace keepery::testing {

// What a finished child process left behind.
struct ChildResult {
    int exitStatus = -1; // the exit code, or -1 when it did not exit normally
    std::string out;
    std::string err;
};

// Starts `program` with `arguments` and exactly `environment`, its standard streams arranged by `actions`,
// which it destroys. Returns its pid, or -1 when it cannot be started.
pid_t spawn(const std::string& program, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment, posix_spawn_file_actions_t& actions);

// Runs `program` with `arguments`, exactly `environment` and `input` on its standard input, and waits for
// it. Output of any size is collected without deadlock.
ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment, const std::string& input);

// A child process spoken to line by line through its standard input and output (standard error is
// discarded). The destructor closes its input and waits for it.
class LineChild {
public:
    LineChild(const std::string& program, const std::map<std::string, std::string>& environment,
              const std::vector<std::string>& arguments = {});
    ~LineChild() { finish(); }
    LineChild(const LineChild&) = delete;
    LineChild& operator=(const LineChild&) = delete;

    void send(const std::string& text);
    // The next line of output without its line feed; empty once the output has ended.
    std::string readLine();
    // Closes the child's input and returns its exit status (-1 when it did not exit normally).
    int finish();
    // The process id while it runs, else -1.
    [[nodiscard]] int pid() const { return pid_; }

private:
    int pid_ = -1;
    std::FILE* input_ = nullptr;
    std::FILE* output_ = nullptr;
};

} // namespace keepery::testing
