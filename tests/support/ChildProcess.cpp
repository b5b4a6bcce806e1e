#include "support/ChildProcess.h"

#include "support/TemporaryDirectory.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace keepery::testing {
namespace {

// Pointers to `strings` with a null after the last, as exec takes them.
std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (std::string& s : strings) {
        out.push_back(s.data());
    }
    out.push_back(nullptr);
    return out;
}

// Waits for `pid`: its exit code, or -1 when it did not exit normally.
int exitStatusOf(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

pid_t spawn(const std::string& program, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment, posix_spawn_file_actions_t& actions) {
    std::vector<std::string> argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<std::string> envp;
    for (const auto& [key, value] : environment) {
        envp.push_back(key + "=" + value);
    }
    pid_t pid = 0;
    const int spawned =
        posix_spawn(&pid, program.c_str(), &actions, nullptr, pointers(argv).data(), pointers(envp).data());
    posix_spawn_file_actions_destroy(&actions);
    return spawned == 0 ? pid : -1;
}

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
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT, 0600);
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
    pid_ = spawn(program, arguments, environment, actions);
    close(in[0]);
    close(out[1]);
    input_ = fdopen(in[1], "w");
    output_ = fdopen(out[0], "r");
    if (pid_ < 0) {
        finish();
        throw std::runtime_error("cannot start " + program);
    }
}

void LineChild::send(const std::string& text) {
    if (input_ != nullptr) {
        std::fwrite(text.data(), 1, text.size(), input_);
        std::fflush(input_);
    }
}

std::string LineChild::readLine() {
    std::string line;
    for (int c = 0; output_ != nullptr && (c = std::getc(output_)) != EOF && c != '\n';) {
        line += static_cast<char>(c);
    }
    return line;
}

int LineChild::finish() {
    for (std::FILE* stream : {std::exchange(input_, nullptr), std::exchange(output_, nullptr)}) {
        if (stream != nullptr) {
            std::fclose(stream);
        }
    }
    return pid_ < 0 ? -1 : exitStatusOf(std::exchange(pid_, -1));
}

} // namespace keepery::testing
