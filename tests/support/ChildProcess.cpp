#include "support/ChildProcess.h"

#include "support/TemporaryDirectory.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace keepery::testing {

pid_t spawn(const std::string& program, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment, posix_spawn_file_actions_t& actions) {
    std::vector<std::string> argvStrings{program};
    argvStrings.insert(argvStrings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& s : argvStrings) {
        argv.push_back(s.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> envStrings;
    for (const auto& [key, value] : environment) {
        envStrings.push_back(key + "=" + value);
    }
    std::vector<char*> envp;
    for (auto& s : envStrings) {
        envp.push_back(s.data());
    }
    envp.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return spawned == 0 ? pid : -1;
}

namespace {

// Waits for `pid`: its exit code, or -1 when it did not exit normally.
int exitStatusOf(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment, const std::string& input) {
    // Files rather than pipes: the child reads and writes at its own pace and nothing can deadlock.
    const TemporaryDirectory files;
    const std::string in = (files / "in").string(), out = (files / "out").string(),
                      err = (files / "err").string();
    std::ofstream(in, std::ios::binary) << input;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    const pid_t pid = spawn(program, arguments, environment, actions);
    if (pid < 0) {
        throw std::runtime_error("cannot start " + program);
    }
    const int status = exitStatusOf(pid);
    const auto contents = [](const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    return {status, contents(out), contents(err)};
}

LineChild::LineChild(const std::string& program, const std::map<std::string, std::string>& environment,
                     const std::vector<std::string>& arguments) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const pid_t pid = spawn(program, arguments, environment, actions);
    close(in[0]);
    close(out[1]);
    if (pid < 0) {
        close(in[1]);
        close(out[0]);
        throw std::runtime_error("cannot start " + program);
    }
    pid_ = pid;
    input_ = in[1];
    output_ = out[0];
}

LineChild::~LineChild() {
    finish();
}

void LineChild::send(const std::string& text) {
    std::size_t written = 0;
    while (input_ >= 0 && written < text.size()) {
        const ssize_t n = write(input_, text.data() + written, text.size() - written);
        if (n <= 0 && errno != EINTR) {
            return;
        }
        written += n > 0 ? static_cast<std::size_t>(n) : 0;
    }
}

std::string LineChild::readLine() {
    while (buffered_.find('\n') == std::string::npos) {
        char buffer[65536];
        const ssize_t n = read(output_, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return std::exchange(buffered_, std::string());
        }
        buffered_.append(buffer, static_cast<std::size_t>(n));
    }
    const std::size_t end = buffered_.find('\n');
    std::string line = buffered_.substr(0, end);
    buffered_.erase(0, end + 1);
    return line;
}

int LineChild::finish() {
    if (pid_ < 0) {
        return -1;
    }
    close(input_);
    close(output_);
    input_ = output_ = -1;
    return exitStatusOf(std::exchange(pid_, -1));
}

} // namespace keepery::testing
