#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// The subcommands of `keepery`. Each returns the process's exit status and writes its answer to standard
// output, its progress and complaints to standard error. A failure the user should read is thrown as
// CommandFailure and printed as "keepery: <text>" by main.
namespace keepery {
class Signals;
}

namespace keepery::Commands {

struct CommandFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The process's signal handling, made first thing in main; the long commands stop between captures on it.
void useSignals(Signals& signals);

// Processing: whether a command that keeps something runs the pipeline to the end before it returns.
enum class Processing : bool { skip, run };

int import(const std::vector<std::filesystem::path>& paths, Processing processing);

struct KeepOptions {
    std::filesystem::path image;
    std::optional<std::string> app;
    std::optional<std::string> title;
    std::optional<std::string> url;
    Processing processing = Processing::run;
};
int keep(const KeepOptions& options);

struct CaptureOptions {
    enum class Target { choice, active, pointer, window };
    Target target = Target::choice;
    std::optional<std::string> windowID;
    bool list = false;
    Processing processing = Processing::run;
};
int capture(const CaptureOptions& options);

int work();

struct WatchOptions {
    std::vector<std::filesystem::path> folders;
    std::vector<std::filesystem::path> screens;
    // Every this many seconds the pipeline runs again, so that retries happen.
    int workInterval = 60;
};
int watch(const WatchOptions& options);

struct StatusOptions {
    bool json = false;
    // Removes the files interrupted keeps left behind (no capture names them, older than an hour) first.
    bool clean = false;
};
int status(const StatusOptions& options);
int modelsPull();
int showConfig();
int setConfig(const std::string& key, const std::string& value);
int mcpConfig();

struct SearchOptions {
    std::string query;
    std::int64_t limit = 8;
    bool json = false;
};
int search(const SearchOptions& options);

struct RecentOptions {
    std::optional<std::string> collection;
    std::optional<std::string> kind;
    std::int64_t limit = 10;
    bool json = false;
};
int recent(const RecentOptions& options);
int show(const std::string& id, bool json);
int collections(bool json);

int note(const std::string& id, const std::string& text);
int tag(const std::string& id, const std::vector<std::string>& tags, bool remove);
int favorite(const std::string& id, bool on);
int move(const std::string& id, const std::optional<std::string>& collection);
int rename(const std::string& collection, const std::string& name, const std::optional<std::string>& emoji);
int remove(const std::string& id);

} // namespace keepery::Commands
