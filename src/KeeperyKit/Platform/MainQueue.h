#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace keepery {

// The front end's main thread, as a queue of jobs it runs in its loop. The engine posts its change
// announcements here and waits for them, so a front end's callback always runs on its own main thread.
// Any thread may post; only the bound main thread drains.
class MainQueue {
public:
    // The one queue of the process. Until a thread binds to it, the first thread that asks is not special:
    // jobs wait for whichever thread drains.
    static MainQueue& shared();

    // Makes the calling thread the main thread.
    void bindToCurrentThread();

    [[nodiscard]] bool isMainThread() const;

    // Runs `job` on the main thread and returns once it has run. On the main thread itself the job runs
    // at once (waiting for the loop would wait for ourselves). An exception thrown by the job is rethrown
    // here.
    void runAndWait(const std::function<void()>& job);

    // Runs the jobs posted so far, in order, on the calling thread; returns how many ran.
    std::size_t drain();

    // Waits up to `timeout` for at least one job, then drains; returns how many ran.
    std::size_t drainFor(std::chrono::milliseconds timeout);

private:
    struct Job {
        std::function<void()> work;
        std::exception_ptr failure;
        bool done = false;
    };

    mutable std::mutex mutex_;
    std::condition_variable posted_;
    std::condition_variable finished_;
    std::deque<Job*> jobs_;
    std::thread::id main_;
};

} // namespace keepery
