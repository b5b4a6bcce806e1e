// keepery: the command-line front end of a Keepery library on Linux. It fills the library (import, keep,
// capture, watch), keeps it processing (work, watch), shows it (status, search, recent, show, collections)
// and edits it, through the engine's public operations only.
#include "Commands.h"
#include "Library/ToolTexts.h"
#include "Platform/ReadingEnvironment.h"
#include "Platform/SystemInfo.h"
#include "Signals.h"
#include "WindowCapture.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

using namespace keepery;
namespace fs = std::filesystem;

namespace {

// Required positional arguments are checked after parsing, so that a wrong flag is named before a missing
// argument.
using Required = std::vector<std::pair<CLI::App*, CLI::Option*>>;

void checkRequired(const Required& required) {
    for (const auto& [command, option] : required) {
        if (command->parsed() && option->count() == 0) {
            throw CLI::RequiredError(option->get_name());
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    ReadingEnvironment::ensureSingleThreaded(argv);
    // Output piped into `head` must not kill a command half-way through keeping something.
    std::signal(SIGPIPE, SIG_IGN);
    Signals signals;
    Commands::useSignals(signals);

    CLI::App app{
        "Keepery keeps the windows, photos and videos you choose, reads and describes them with local "
        "models, files them into collections and finds them again."};
    app.name("keepery");
    app.require_subcommand(1);
    app.set_version_flag("--version", SystemInfo::version());
    app.fallthrough(false);

    std::function<int()> run;
    Required required;
    bool json = false;
    auto jsonFlag = [&json](CLI::App* command) {
        command->add_flag("--json", json, "Write JSON for scripts");
    };

    // import
    std::vector<fs::path> importPaths;
    bool noProcess = false;
    auto* importCommand =
        app.add_subcommand("import", "Import photos and videos from files and folders (recursively)");
    required.emplace_back(importCommand, importCommand->add_option("PATH", importPaths, "Files or folders"));
    importCommand->add_flag("--no-process", noProcess, "Keep them without reading and describing them now");
    importCommand->callback([&] {
        run = [&] {
            return Commands::import(importPaths,
                                    noProcess ? Commands::Processing::skip : Commands::Processing::run);
        };
    });

    // keep
    Commands::KeepOptions keepOptions;
    auto* keep =
        app.add_subcommand("keep", "Keep an image file made by any screenshot tool as a screen capture");
    required.emplace_back(keep,
                          keep->add_option("IMAGE", keepOptions.image, "The picture (PNG, JPEG, WebP ...)"));
    keep->add_option("--app", keepOptions.app, "The application it shows");
    keep->add_option("--title", keepOptions.title, "The window's title");
    keep->add_option("--url", keepOptions.url, "The address of the page it shows");
    keep->add_flag("--no-process", noProcess, "Keep it without reading and describing it now");
    keep->callback([&] {
        keepOptions.processing = noProcess ? Commands::Processing::skip : Commands::Processing::run;
        run = [&] { return Commands::keep(keepOptions); };
    });

    // capture
    Commands::CaptureOptions captureOptions;
    bool active = false;
    bool pointer = false;
    auto* capture = app.add_subcommand("capture", "Capture a window of the running X11 session");
    auto* activeFlag = capture->add_flag("--active", active, "The active window");
    auto* pointerFlag = capture->add_flag("--pointer", pointer, "The window under the pointer");
    auto* windowOption = capture->add_option("--window", captureOptions.windowID, "The window with this id");
    auto* listFlag = capture->add_flag("--list", captureOptions.list, "List the windows and capture nothing");
    activeFlag->excludes(pointerFlag)->excludes(windowOption)->excludes(listFlag);
    pointerFlag->excludes(windowOption)->excludes(listFlag);
    windowOption->excludes(listFlag);
    capture->add_flag("--no-process", noProcess, "Keep it without reading and describing it now");
    capture->callback([&] {
        using Target = Commands::CaptureOptions::Target;
        captureOptions.target = active                    ? Target::active
                                : pointer                 ? Target::pointer
                                : captureOptions.windowID ? Target::window
                                                          : Target::choice;
        captureOptions.processing = noProcess ? Commands::Processing::skip : Commands::Processing::run;
        run = [&] { return Commands::capture(captureOptions); };
    });

    // work
    app.add_subcommand("work", "Read, describe and file every capture that is due, then show what is left")
        ->callback([&] { run = [] { return Commands::work(); }; });

    // watch
    Commands::WatchOptions watchOptions;
    auto* watch = app.add_subcommand(
        "watch", "Keep new files from folders as they appear, and keep processing (runs until stopped)");
    watch->add_option("FOLDER", watchOptions.folders, "Folders whose new photos and videos are imported");
    watch->add_option("--screens", watchOptions.screens, "Folders whose new pictures are screen captures");
    watch->add_option("--work-interval", watchOptions.workInterval, "Seconds between runs of the pipeline")
        ->check(CLI::Range(1, 60));
    watch->callback([&] { run = [&] { return Commands::watch(watchOptions); }; });

    // status
    Commands::StatusOptions statusOptions;
    auto* status = app.add_subcommand(
        "status", "The library, its processing, the model service and files interrupted keeps left behind");
    jsonFlag(status);
    status->add_flag("--clean", statusOptions.clean,
                     "Remove the files interrupted keeps left behind (no capture names them, older than an "
                     "hour), then show the status");
    status->callback([&] {
        run = [&] {
            statusOptions.json = json;
            return Commands::status(statusOptions);
        };
    });

    // models
    auto* models = app.add_subcommand("models", "The models the library uses");
    models->require_subcommand(1);
    models->add_subcommand("pull", "Download the configured vision and embedding models")->callback([&] {
        run = [] { return Commands::modelsPull(); };
    });

    // config
    std::string configKey;
    std::string configValue;
    auto* config = app.add_subcommand("config", "Show the settings in force, or set one");
    config->add_option("KEY", configKey, "The setting (vision-model)")
        ->check(CLI::IsMember({"vision-model"}));
    config->add_option("VALUE", configValue, "Its new value");
    config->callback([&] {
        if (configKey.empty()) {
            run = [] { return Commands::showConfig(); };
        } else if (configValue.empty()) {
            throw CLI::RequiredError("VALUE");
        } else {
            run = [&] { return Commands::setConfig(configKey, configValue); };
        }
    });

    // search, recent, show, collections
    Commands::SearchOptions searchOptions;
    std::vector<std::string> queryWords;
    auto* search = app.add_subcommand("search", "Find captures by meaning and by words");
    required.emplace_back(search, search->add_option("QUERY", queryWords, "What to look for"));
    search->add_option("--limit", searchOptions.limit, "At most this many")
        ->check(CLI::Range(std::int64_t{1}, ToolTexts::mostSearchResults));
    jsonFlag(search);
    search->callback([&] {
        std::string query;
        for (const std::string& word : queryWords) {
            query += (query.empty() ? "" : " ") + word;
        }
        searchOptions.query = query;
        searchOptions.json = json;
        run = [&] { return Commands::search(searchOptions); };
    });

    Commands::RecentOptions recentOptions;
    auto* recent = app.add_subcommand("recent", "What was kept most recently, newest first");
    recent->add_option("--collection", recentOptions.collection, "Only this collection (name or id)");
    recent->add_option("--kind", recentOptions.kind, "Only this kind: " + CaptureKind::rawValueList());
    recent->add_option("--limit", recentOptions.limit, "At most this many")
        ->check(CLI::Range(std::int64_t{1}, ToolTexts::mostRecent));
    jsonFlag(recent);
    recent->callback([&] {
        recentOptions.json = json;
        run = [&] { return Commands::recent(recentOptions); };
    });

    std::string id;
    auto* show = app.add_subcommand("show", "One capture in full");
    required.emplace_back(show, show->add_option("ID", id, "The capture's id"));
    jsonFlag(show);
    show->callback([&] { run = [&] { return Commands::show(id, json); }; });

    auto* collections = app.add_subcommand("collections", "The collections and how many captures each holds");
    jsonFlag(collections);
    collections->callback([&] { run = [&] { return Commands::collections(json); }; });

    // Edits
    std::string text;
    auto* note = app.add_subcommand("note", "Write a note on a capture (an empty note clears it)");
    required.emplace_back(note, note->add_option("ID", id, "The capture's id"));
    required.emplace_back(note, note->add_option("TEXT", text, "The note"));
    note->callback([&] { run = [&] { return Commands::note(id, text); }; });

    std::vector<std::string> tags;
    bool removeTags = false;
    auto* tag = app.add_subcommand("tag", "Add tags to a capture");
    required.emplace_back(tag, tag->add_option("ID", id, "The capture's id"));
    required.emplace_back(tag, tag->add_option("TAG", tags, "Tags"));
    tag->add_flag("--remove", removeTags, "Remove these tags instead");
    tag->callback([&] { run = [&] { return Commands::tag(id, tags, removeTags); }; });

    bool off = false;
    auto* favorite = app.add_subcommand("favorite", "Mark a capture as a favourite");
    required.emplace_back(favorite, favorite->add_option("ID", id, "The capture's id"));
    favorite->add_flag("--off", off, "Unmark it");
    favorite->callback([&] { run = [&] { return Commands::favorite(id, !off); }; });

    std::optional<std::string> collection;
    bool unsorted = false;
    auto* move = app.add_subcommand("move", "File a capture in a collection, or in none");
    required.emplace_back(move, move->add_option("ID", id, "The capture's id"));
    auto* collectionOption = move->add_option("COLLECTION", collection, "The collection (name or id)");
    auto* unsortedFlag = move->add_flag("--unsorted", unsorted, "Take it out of its collection");
    collectionOption->excludes(unsortedFlag);
    move->callback([&] {
        if (!collection && !unsorted) {
            throw CLI::RequiredError("COLLECTION or --unsorted");
        }
        run = [&] { return Commands::move(id, collection); };
    });

    std::string name;
    std::optional<std::string> emoji;
    auto* rename = app.add_subcommand("rename", "Rename a collection");
    required.emplace_back(rename, rename->add_option("COLLECTION", id, "The collection (name or id)"));
    required.emplace_back(rename, rename->add_option("NAME", name, "Its new name"));
    rename->add_option("EMOJI", emoji, "Its new emoji");
    rename->callback([&] { run = [&] { return Commands::rename(id, name, emoji); }; });

    auto* remove = app.add_subcommand("delete", "Delete a capture and its files");
    required.emplace_back(remove, remove->add_option("ID", id, "The capture's id"));
    remove->callback([&] { run = [&] { return Commands::remove(id); }; });

    app.add_subcommand("mcp-config", "Print the assistant's configuration for keepery-mcp")->callback([&] {
        run = [] { return Commands::mcpConfig(); };
    });

    try {
        app.parse(argc, argv);
        checkRequired(required);
    } catch (const CLI::Success& done) {
        return app.exit(done);
    } catch (const CLI::ParseError& failure) {
        app.exit(failure);
        return 2;
    }

    try {
        return run();
    } catch (const Commands::CommandFailure& failure) {
        std::cerr << "keepery: " << failure.what() << "\n";
    } catch (const WindowCapture::Failure& failure) {
        std::cerr << "keepery: cannot capture: " << failure.what() << "\n";
    } catch (const std::exception& failure) {
        std::cerr << "keepery: " << failure.what() << "\n";
    }
    return 1;
}
