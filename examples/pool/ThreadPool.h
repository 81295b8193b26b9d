#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

/// Threads that run tasks from one queue. An exception of a task is thrown by its future, on the waiting
/// thread: a `ZBase::Message` with all its levels, since the exception object itself is kept.
class ThreadPool {
public:
    explicit ThreadPool(int threads) {
        for (int i = 0; i != threads; ++i) {
            mThreads.emplace_back([this](const std::stop_token& stop) { Run(stop); });
        }
    }

    template <class Work>
    auto Ask(Work work) {
        std::packaged_task<decltype(work())()> task(std::move(work));
        auto result = task.get_future();
        const std::lock_guard lock(mLock);
        mQueue.push_back([task = std::make_shared<decltype(task)>(std::move(task))] { (*task)(); });
        mIsThere.notify_one();
        return result;
    }

private:
    void Run(const std::stop_token& stop) {
        for (;;) {
            std::unique_lock lock(mLock);
            if (!mIsThere.wait(lock, stop, [this] { return !mQueue.empty(); })) return;
            const std::function<void()> work = std::move(mQueue.front());
            mQueue.pop_front();
            lock.unlock();
            work();
        }
    }

    std::mutex mLock;
    std::condition_variable_any mIsThere;
    std::deque<std::function<void()>> mQueue;
    std::vector<std::jthread> mThreads;  // destroyed first
};
