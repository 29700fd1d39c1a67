#include "service/request_queue.h"

#include "service/hand_off_waits.h"

namespace pylnk {

void RequestQueue::push(const FevalRequest& request) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        requests.push_back(request);
        queued.store(requests.size(), std::memory_order_release);
    }
    // Always signalled: when the Python thread is not asleep on it, the
    // signal finds no waiter and costs no more than a load.
    ready.notify_one();
}

FevalRequest RequestQueue::pop() {
    requestWait().wait([this] { return queued.load(std::memory_order_acquire) > 0; },
                       [this] {
                           std::unique_lock<std::mutex> lock(mutex);
                           ready.wait(lock, [this] { return !requests.empty(); });
                       });
    // The Python thread is the only one that takes requests: the one that
    // came is still there.
    std::lock_guard<std::mutex> lock(mutex);
    FevalRequest request = std::move(requests.front());
    requests.pop_front();
    queued.store(requests.size(), std::memory_order_relaxed);
    return request;
}

RequestQueue* requestQueue() {
    // A function-local static is initialised exactly once even when the
    // first calls come from several threads at the same moment.
    static RequestQueue* const queue = new RequestQueue;
    return queue;
}

std::mutex& requestPushMutex() {
    static auto* mutex = new std::mutex;  // never destroyed, like the queue
    return *mutex;
}

}  // namespace pylnk
