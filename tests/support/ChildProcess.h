#pragma once

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

// Runs `program` with `arguments`, the given environment (replacing the parent's) and `input` on its
// standard input, then waits for it. Output of any size is collected without deadlock.
ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment, const std::string& input);

// A child process spoken to line by line: requests written to its standard input, replies read from its
// standard output. Standard error is discarded. The destructor closes its input and waits for it.
class LineChild {
public:
    LineChild(const std::string& program, const std::map<std::string, std::string>& environment,
              const std::vector<std::string>& arguments = {});
    ~LineChild();
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
    int input_ = -1;
    int output_ = -1;
    std::string buffered_;
};

} // namespace keepery::testing
