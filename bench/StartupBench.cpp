// Start-up latency of keepery-mcp: time from starting the process to reading its reply to `initialize`,
// on an existing library. Prints the median and the spread over repeated runs.
#include "BenchHarness.h"
#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 50;
    keepery::testing::TemporaryDirectory home;
    const std::map<std::string, std::string> environment{{"HOME", home.path().string()},
                                                         {"PATH", "/usr/bin:/bin"}};
    const std::string initialize = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\",\"params\":"
                                   "{\"protocolVersion\":\"2025-06-18\",\"capabilities\":{},\"clientInfo\":"
                                   "{\"name\":\"bench\",\"version\":\"1\"}}}\n";
    {
        keepery::testing::LineChild first(KEEPERY_MCP_PATH, environment); // creates the library
        first.send(initialize);
        if (first.readLine().empty()) {
            std::fprintf(stderr, "keepery-mcp did not answer\n");
            return 1;
        }
    }
    keepery::bench::Samples millis;
    for (int i = 0; i < runs; ++i) {
        const keepery::bench::Stopwatch watch;
        keepery::testing::LineChild child(KEEPERY_MCP_PATH, environment);
        child.send(initialize);
        const std::string reply = child.readLine();
        const double elapsed = watch.milliseconds();
        child.finish();
        if (reply.find("\"protocolVersion\"") == std::string::npos) {
            std::fprintf(stderr, "unexpected reply: %s\n", reply.c_str());
            return 1;
        }
        millis.add(elapsed);
    }
    std::printf("start-up to initialize reply, existing library, %d runs: median %.2f ms, p90 %.2f ms, "
                "min %.2f ms (target: under 20 ms)\n",
                runs, millis.median(), millis.quantile(0.9), millis.minimum());
    std::printf("reproduce: make bench, or build/release/bench/StartupBench %d\n", runs);
    return 0;
}
