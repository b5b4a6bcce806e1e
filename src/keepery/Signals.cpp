#include "Signals.h"

#include <csignal>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace keepery {
namespace {

// SIGUSR2 only tells the waiting thread to end.
sigset_t waitedSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGUSR2);
    return set;
}

} // namespace

Signals::Signals() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    const sigset_t set = waitedSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    waiter_ = std::thread([this] { wait(); });
}

Signals::~Signals() {
    pthread_kill(waiter_.native_handle(), SIGUSR2);
    waiter_.join();
    const sigset_t set = waitedSignals();
    // A signal that came after the waiter ended is still pending; it ends the process as it would have.
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

void Signals::onSignal(std::function<void()> action) {
    std::lock_guard lock(mutex_);
    action_ = std::move(action);
}

void Signals::wait() {
    const sigset_t set = waitedSignals();
    for (;;) {
        int which = 0;
        if (sigwait(&set, &which) != 0 || which == SIGUSR2) {
            return;
        }
        // The signal is made known only while the action is held, so that a command which sees it and
        // clears its action on the way out is never ended afterwards by this same signal.
        std::lock_guard lock(mutex_);
        if (!action_) {
            ::_exit(128 + which);
        }
        int expected = 0;
        signal_.compare_exchange_strong(expected, which);
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(fd_, &one, sizeof one);
        action_();
    }
}

} // namespace keepery
