// fake-model-service: the fake model service as a program, for end-to-end tests and benchmarks.
// Usage: fake-model-service [--script FILE]
// It prints the port it listens on (127.0.0.1) alone on the first line of standard output and serves until
// its standard input ends or the process that started it exits. FILE is a script as
// FakeModelService::applyScript reads it.
#include "support/FakeModelService.h"

#include <csignal>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 1 && (argc != 3 || std::string(argv[1]) != "--script")) {
        std::cerr << "usage: fake-model-service [--script FILE]\n";
        return 2;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGTERM); // never outlive the test that started it
    std::signal(SIGPIPE, SIG_IGN);
    try {
        keepery::testing::FakeModelService service;
        if (argc == 3) {
            std::ifstream file(argv[2]);
            if (!file) {
                throw std::runtime_error(std::string("cannot read ") + argv[2]);
            }
            service.applyScript(std::string(std::istreambuf_iterator<char>(file), {}));
        }
        std::cout << service.port() << std::endl;
        char buffer[256];
        while (::read(STDIN_FILENO, buffer, sizeof buffer) > 0) {
        }
    } catch (const std::exception& error) {
        std::cerr << "fake-model-service: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
