#include "Progress.h"

#include "Platform/Text.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace keepery {
namespace {

int terminalWidth() {
    winsize size{};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 20) {
        return size.ws_col;
    }
    return 80;
}

std::string clock(double seconds) {
    const auto whole = static_cast<std::int64_t>(std::max(0.0, seconds) + 0.5);
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(whole / 3600),
                      static_cast<long long>(whole / 60 % 60), static_cast<long long>(whole % 60));
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(whole / 60),
                      static_cast<long long>(whole % 60));
    }
    return text;
}

void write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

} // namespace

Progress::Progress(std::string label, std::int64_t total, Unit unit)
    : label_(std::move(label)), total_(total), unit_(unit), terminal_(standardErrorIsTerminal()),
      start_(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
    finish();
}

bool Progress::standardErrorIsTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

std::string Progress::amount(std::int64_t value) const {
    if (unit_ == Unit::items) {
        return std::to_string(value);
    }
    char text[32];
    const double megabytes = static_cast<double>(value) / 1e6;
    if (megabytes >= 1000) {
        std::snprintf(text, sizeof text, "%.2f GB", megabytes / 1000);
    } else {
        std::snprintf(text, sizeof text, "%.1f MB", megabytes);
    }
    return text;
}

void Progress::setTotal(std::int64_t total) {
    total_ = total;
}

void Progress::update(std::int64_t done, std::string_view detail) {
    done_ = done;
    detail_ = std::string(detail);
    draw(false);
}

void Progress::note(std::string_view line) {
    if (terminal_ && drawn_) {
        write("\r\033[K");
    }
    write(std::string(line) + "\n");
    if (terminal_ && drawn_) {
        draw(true);
    }
}

void Progress::logLine(std::string_view line) {
    if (!terminal_) {
        write(std::string(line) + "\n");
    }
}

void Progress::finish() {
    if (terminal_ && drawn_) {
        draw(true);
        write("\n");
    }
    drawn_ = false;
}

void Progress::draw(bool force) {
    const auto now = std::chrono::steady_clock::now();
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    const double rate = elapsed > 0 ? static_cast<double>(done_) / elapsed : 0;
    std::string counts = amount(done_);
    if (total_ > 0) {
        counts += "/" + amount(total_);
    }

    if (!terminal_) {
        // One line per change of what is shown; the rate and time left would only make every line differ.
        std::string line = label_ + " " + counts;
        if (!detail_.empty()) {
            line += "  " + detail_;
        }
        if (line != lastPlain_) {
            write(line + "\n");
            lastPlain_ = std::move(line);
        }
        return;
    }

    // A terminal is redrawn at most ten times a second, and always for the last state.
    const bool complete = total_ > 0 && done_ >= total_;
    if (!force && !complete && drawn_ && now - lastDraw_ < std::chrono::milliseconds(100)) {
        return;
    }
    lastDraw_ = now;
    std::string figures = counts;
    if (elapsed >= 0.5 && done_ > 0) {
        char text[32];
        if (unit_ == Unit::items) {
            std::snprintf(text, sizeof text, "  %.1f/s", rate);
        } else {
            std::snprintf(text, sizeof text, "  %.1f MB/s", rate / 1e6);
        }
        figures += text;
        if (total_ > done_ && rate > 0) {
            figures += "  " + clock(static_cast<double>(total_ - done_) / rate) + " left";
        }
    }
    const int width = terminalWidth();
    const int barWidth = std::clamp(width / 4, 10, 30);
    std::string bar;
    if (total_ > 0) {
        const auto filled =
            static_cast<int>(static_cast<double>(barWidth) *
                             std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_)));
        bar = "[" + std::string(static_cast<std::size_t>(filled), '#') +
              std::string(static_cast<std::size_t>(barWidth - filled), '-') + "] ";
    }
    std::string line = label_ + " " + bar + figures;
    const std::int64_t room = width - 1 - static_cast<std::int64_t>(Text::characterCount(line)) - 2;
    if (!detail_.empty() && room > 3) {
        line += "  " + (static_cast<std::int64_t>(Text::characterCount(detail_)) > room
                            ? Text::cut(detail_, static_cast<std::size_t>(room - 1))
                            : detail_);
    }
    write("\r\033[K" + line);
    drawn_ = true;
}

} // namespace keepery
