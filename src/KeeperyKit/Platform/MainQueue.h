#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace keepery {

// A front end's main thread, as a queue of jobs it runs in its loop. The front end owns its queue and
// drains it; the engine posts its change announcements there and waits for them, so the front end's
// callback always runs on its own main thread. Any thread may post; only the main thread drains. A front
// end without a loop makes no queue (see Library::Services).
class MainQueue {
public:
    // The calling thread becomes the main thread.
    MainQueue();

    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

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
    const std::thread::id main_;
};

} // namespace keepery
