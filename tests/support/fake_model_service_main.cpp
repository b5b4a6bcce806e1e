// fake-model-service: the test stand-in for the local model service as a program, for end-to-end tests of
// the executables. Usage: fake-model-service [--port N] [--script FILE]
// It listens on 127.0.0.1 (port N, or one the system chooses), prints the port alone on the first line of
// standard output, and serves until it gets SIGINT or SIGTERM, its standard input (a pipe) ends, or the
// process that started it exits. FILE is a JSON script as FakeModelService::applyScript reads it, for
// example {"embeddings": [{"text": "task: search result | query: ramen", "vector": [1, 0, 0]}]}.
#include "support/FakeModelService.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

int usage() {
    std::cerr << "usage: fake-model-service [--port N] [--script FILE]\n";
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    int port = 0;
    std::string script;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--port" && i + 1 < argc) {
            port = std::stoi(argv[++i]);
        } else if (argument == "--script" && i + 1 < argc) {
            script = argv[++i];
        } else {
            return usage();
        }
    }

    // Never outlive the test that started it.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    try {
        keepery::testing::FakeModelService service(port);
        if (!script.empty()) {
            std::ifstream file(script);
            if (!file) {
                std::cerr << "fake-model-service: cannot read " << script << "\n";
                return 1;
            }
            std::ostringstream text;
            text << file.rdbuf();
            service.applyScript(text.str());
        }
        std::cout << service.port() << std::endl;

        struct stat input {};
        if (::fstat(STDIN_FILENO, &input) == 0 && S_ISFIFO(input.st_mode)) {
            std::thread([] {
                char buffer[256];
                while (::read(STDIN_FILENO, buffer, sizeof buffer) > 0) {
                }
                ::kill(::getpid(), SIGTERM);
            }).detach();
        }
        int received = 0;
        sigwait(&signals, &received);
    } catch (const std::exception& error) {
        std::cerr << "fake-model-service: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
