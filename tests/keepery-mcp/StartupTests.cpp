#include "Store/Database.h"
#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>

using namespace keepery;

namespace {

class Startup : public ::testing::Test {
protected:
    keepery::testing::TemporaryDirectory home;

    keepery::testing::ChildResult run(const std::string& input,
                                      std::map<std::string, std::string> extra = {}) {
        std::map<std::string, std::string> environment{
            {"HOME", home.path().string()}, {"PATH", "/usr/bin:/bin"}, {"OLLAMA_HOST", "127.0.0.1:9"}};
        environment.merge(extra);
        return keepery::testing::runChild(KEEPERY_MCP_PATH, {}, environment, input);
    }

    std::filesystem::path library() const { return home / ".local/share/Keepery"; }
};

constexpr const char* ping = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}";
constexpr const char* pong = "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{}}\n";

} // namespace

TEST_F(Startup, EmptyInputCreatesTheLibraryAndExitsQuietly) {
    const auto result = run("");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(std::filesystem::exists(library() / "library.sqlite"));
    EXPECT_TRUE(std::filesystem::is_directory(library() / "thumbs"));
}

TEST_F(Startup, TheDataHomeDecidesWhereTheLibraryLives) {
    const auto elsewhere = home / "data";
    EXPECT_EQ(run("", {{"XDG_DATA_HOME", elsewhere.string()}}).exitStatus, 0);
    EXPECT_TRUE(std::filesystem::exists(elsewhere / "Keepery" / "library.sqlite"));
    EXPECT_FALSE(std::filesystem::exists(library()));
}

TEST_F(Startup, EachRequestLineGetsOneReplyLineInOrder) {
    const std::string input = std::string(ping) + "\n" + " \t \n\n" + "  " + ping + "  \r\n" +
                              "{\"method\":\"notifications/initialized\"}\n" + "garbage\n" +
                              "{\"id\":2,\"method\":\"ping\"}"; // the last line has no line feed
    const auto result = run(input);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(
        result.out,
        std::string(pong) + pong +
            "{\"error\":{\"code\":-32700,\"message\":\"Parse error\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n"
            "{\"id\":2,\"jsonrpc\":\"2.0\",\"result\":{}}\n");
    EXPECT_EQ(result.err, "");
}

// A file where the library directory should be, a database file that is not one, and a table the first
// migration creates already there (so that the migration's multi-line statement fails): each ends the
// program with one line on standard error that names the failing statement.
TEST_F(Startup, ALibraryThatCannotBeOpenedEndsWithOneLineOnStandardError) {
    const std::vector<std::pair<std::function<void()>, std::string>> cases{
        {[&] {
             std::filesystem::create_directories(home / ".local/share");
             std::ofstream(library()) << "a file where the library directory should be";
         },
         ""},
        {[&] {
             std::filesystem::create_directories(library());
             std::ofstream(library() / "library.sqlite") << std::string(4096, 'x');
         },
         "SQLite: file is not a database \u2014 PRAGMA journal_mode = WAL\n"},
        {[&] {
             std::filesystem::create_directories(library());
             Database((library() / "library.sqlite").string()).run("CREATE TABLE captures (x)");
         },
         "SQLite: table captures already exists \u2014  CREATE TABLE captures (     id TEXT "},
    };
    for (const auto& [prepare, reason] : cases) {
        std::filesystem::remove_all(home / ".local");
        prepare();
        const auto result = run(std::string(ping) + "\n");
        EXPECT_EQ(result.exitStatus, 1) << reason;
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(result.err.starts_with("keepery-mcp: cannot open the library at " + library().string() +
                                           ": " + reason))
            << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    }
}

TEST_F(Startup, HostileLinesAreAnsweredAndTheLoopGoesOn) {
    using namespace std::string_literals;
    const std::string parseError =
        "{\"error\":{\"code\":-32700,\"message\":\"Parse error\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n";
    // Deep enough to overflow the stack of a release build that echoed it.
    const std::string deepID =
        "{\"id\":" + std::string(200'000, '[') + std::string(200'000, ']') + ",\"method\":\"ping\"}";
    const std::string input = deepID + "\n" + ping + "\0x\n"s + "{\"method\":\"ping\"}\0\n"s + ping + "\n";
    const auto result = run(input);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, parseError + parseError + parseError + pong);
    EXPECT_EQ(result.err, "");
}
