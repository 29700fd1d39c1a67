#include "service/request_queue.h"

namespace pylnk {

void RequestQueue::push(const FevalRequest& request) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        requests.push_back(request);
    }
    ready.notify_one();
}

FevalRequest RequestQueue::pop() {
    std::unique_lock<std::mutex> lock(mutex);
    ready.wait(lock, [this] { return !requests.empty(); });
    FevalRequest request = std::move(requests.front());
    requests.pop_front();
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
