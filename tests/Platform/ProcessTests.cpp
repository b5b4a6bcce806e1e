#include "Platform/Process.h"

#include <gtest/gtest.h>

#include <csignal>

namespace keepery::testing {
namespace {

using namespace std::chrono_literals;
using Reason = Process::Failure::Reason;

Process::Failure::Reason failureOf(Process& process, const std::vector<std::string>& arguments,
                                   std::chrono::milliseconds timeout = 10s) {
    try {
        (void)process.run(arguments, timeout);
    } catch (const Process::Failure& failure) {
        return failure.reason();
    }
    ADD_FAILURE() << arguments.front() << " did not fail";
    return Reason::cannotStart;
}

TEST(Process, ReportsHowAProgramEndedAndPassesArgumentsVerbatimWithoutAShell) {
    auto& process = Process::system();
    EXPECT_TRUE(process.run({"true"}, 10s).succeeded());
    const auto status = process.run({"sh", "-c", "echo problem >&2; exit 7"}, 10s);
    EXPECT_FALSE(status.succeeded());
    EXPECT_EQ(status.exitStatus, 7);
    EXPECT_EQ(status.signal, 0);
    EXPECT_EQ(status.standardError, "problem\n");
    const auto killed = process.run({"sh", "-c", "kill -TERM $$"}, 10s);
    EXPECT_EQ(killed.signal, SIGTERM);
    EXPECT_FALSE(killed.succeeded());

    EXPECT_EQ(
        process.run({"printf", "%s|%s|%s", "$(touch /tmp/x); rm", "two words", "*"}, 10s).standardOutput,
        "$(touch /tmp/x); rm|two words|*");
    EXPECT_EQ(process.run({"cat"}, 10s).standardOutput, "") << "standard input is empty, not the test's own";
}

TEST(Process, CollectsMuchOutputOnBothStreamsWithoutDeadlock) {
    // Far beyond a pipe's buffer on each stream, written interleaved: a reader that drained one stream
    // before the other would hang here.
    const auto result = Process::system().run(
        {"sh", "-c",
         "i=0; while [ $i -lt 40 ]; do head -c 50000 /dev/zero; head -c 30000 /dev/zero >&2; "
         "i=$((i+1)); done"},
        60s);
    ASSERT_TRUE(result.succeeded());
    EXPECT_EQ(result.standardOutput.size(), 2'000'000u);
    EXPECT_EQ(result.standardError.size(), 1'200'000u);
}

TEST(Process, StopsAProgramAtItsTimeOutAndKeepsWhatItSaid) {
    try {
        (void)Process::system().run({"sh", "-c", "echo started >&2; exec sleep 30"}, 300ms);
        FAIL() << "sleep outlived its time-out";
    } catch (const Process::Failure& failure) {
        EXPECT_EQ(failure.reason(), Reason::timedOut);
        EXPECT_EQ(failure.program(), "sh");
        EXPECT_EQ(failure.standardError(), "started\n");
        EXPECT_STREQ(failure.what(), "sh did not finish in time and was stopped");
    }
    // A program that closed its streams but goes on running is stopped too, and so is what a program
    // started that holds the streams after the program itself has gone.
    EXPECT_EQ(failureOf(Process::system(), {"sh", "-c", "exec >&- 2>&-; sleep 30"}, 300ms), Reason::timedOut);
    const auto parent = Process::system().run({"sh", "-c", "echo out; sleep 30 &"}, 10s);
    EXPECT_TRUE(parent.succeeded());
    EXPECT_EQ(parent.standardOutput, "out\n");
}

TEST(Process, NamesAMissingProgram) {
    try {
        (void)Process::system().run({"keepery-no-such-tool", "-v"}, 10s);
        FAIL() << "a missing program ran";
    } catch (const Process::Failure& failure) {
        EXPECT_EQ(failure.reason(), Reason::missingProgram);
        EXPECT_EQ(failure.program(), "keepery-no-such-tool");
        EXPECT_STREQ(failure.what(), "keepery-no-such-tool is not installed (not found on PATH)");
    }
    EXPECT_EQ(failureOf(Process::system(), {"/nonexistent/dir/tool"}), Reason::missingProgram);
    EXPECT_EQ(failureOf(Process::system(), {"/etc/hostname"}), Reason::cannotStart);
    EXPECT_THROW((void)Process::system().run({}, 1s), std::invalid_argument);
}

} // namespace
} // namespace keepery::testing
