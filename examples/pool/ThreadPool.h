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

/// Threads that take work from one queue. What a piece of work throws comes out of its future, on the thread
/// that asks: a `ZBase::Message` with all its levels, since an exception is kept as the object that it is.
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
    std::vector<std::jthread> mThreads;  // the first to go
};
