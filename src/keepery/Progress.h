#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace keepery {

// A progress bar on standard error: the count, the rate and the time left, redrawn in place when standard
// error is a terminal; plain lines otherwise, so that a log or a pipe gets one line per step and no control
// characters. One thread at a time.
class Progress {
public:
    enum class Unit { items, bytes };

    // `total` may be 0 when it is not known yet (a pull learns it from the service).
    Progress(std::string label, std::int64_t total, Unit unit = Unit::items);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Shows `done` of the total with a short text beside it (a file name, the stages).
    void update(std::int64_t done, std::string_view detail = {});
    void setTotal(std::int64_t total);
    // Prints a line of its own above the bar.
    void note(std::string_view line);
    // Prints a line of its own only when standard error is not a terminal: a log names every step done,
    // where a person watching a terminal has the bar.
    void logLine(std::string_view line);
    // Ends the bar's line; later updates start a new one.
    void finish();

    [[nodiscard]] static bool standardErrorIsTerminal();

private:
    void draw(bool force);
    [[nodiscard]] std::string amount(std::int64_t value) const;

    std::string label_;
    std::int64_t total_;
    Unit unit_;
    bool terminal_;
    std::int64_t done_ = 0;
    std::string detail_;
    std::string lastPlain_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastDraw_{};
};

} // namespace keepery
