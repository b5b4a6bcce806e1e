#include "Platform/MainQueue.h"

namespace keepery {

MainQueue::MainQueue() : main_(std::this_thread::get_id()) {}

bool MainQueue::isMainThread() const {
    return main_ == std::this_thread::get_id();
}

void MainQueue::runAndWait(const std::function<void()>& job) {
    if (isMainThread()) {
        job();
        return;
    }
    Job entry{job, nullptr, false};
    std::unique_lock lock(mutex_);
    jobs_.push_back(&entry);
    posted_.notify_all();
    finished_.wait(lock, [&] { return entry.done; });
    if (entry.failure) {
        std::rethrow_exception(entry.failure);
    }
}

std::size_t MainQueue::drain() {
    std::size_t ran = 0;
    std::unique_lock lock(mutex_);
    while (!jobs_.empty()) {
        Job* job = jobs_.front();
        jobs_.pop_front();
        lock.unlock();
        try {
            job->work();
        } catch (...) {
            job->failure = std::current_exception();
        }
        lock.lock();
        job->done = true;
        finished_.notify_all();
        ++ran;
    }
    return ran;
}

std::size_t MainQueue::drainFor(std::chrono::milliseconds timeout) {
    {
        std::unique_lock lock(mutex_);
        posted_.wait_for(lock, timeout, [&] { return !jobs_.empty(); });
    }
    return drain();
}

} // namespace keepery
