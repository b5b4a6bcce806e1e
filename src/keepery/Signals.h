#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

namespace keepery {

// SIGINT and SIGTERM as events instead of deaths, so that a long command stops between captures and loses
// nothing. While the object lives the two signals are blocked in every thread made after it (make it first
// in main, before any library or image decoder starts a thread) and one thread waits for them: it sets the
// flag, makes `fd` readable and runs the stop action; without an action it ends the process at once, as
// the signal would have. The destructor ends that thread and unblocks the signals.
class Signals {
public:
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    // Runs on the waiting thread when a signal arrives (for example Library::stop). Replace it with an empty
    // action before what it refers to goes; with none, a signal ends the process with status 128 + signal.
    void onSignal(std::function<void()> action);

    [[nodiscard]] bool requested() const { return signal_.load() != 0; }
    // The signal that came, 0 when none did.
    [[nodiscard]] int signal() const { return signal_.load(); }
    // An eventfd that becomes readable when a signal has come, for poll().
    [[nodiscard]] int fd() const { return fd_; }

private:
    void wait();

    std::atomic<int> signal_{0};
    int fd_ = -1;
    std::mutex mutex_;
    std::function<void()> action_;
    std::thread waiter_;
};

} // namespace keepery
