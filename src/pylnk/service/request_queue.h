// The one queue between the callers of feval_dispatcher and the Python thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>

#include "base/py_handler_base.h"
#include "service/handler_table.h"

namespace pylnk {

struct FevalRequest {
    std::string name;
    size_t nlhs = 0;
    ReplyPromise* promise = nullptr;  // lives in the frame of the blocked caller
    size_t nrhs = 0;
    foundation::veltradata::Array* prhs = nullptr;  // the caller's arrays, read in place
};

struct RequestQueue {
    HandlerTable handlers;
    std::deque<FevalRequest> requests;
    std::mutex mutex;
    std::condition_variable ready;
    // The length of `requests`, written under the mutex, so that the Python
    // thread can watch for a request without taking the mutex.
    std::atomic<size_t> queued{0};

    // Appends a copy at the back and wakes the Python thread (after unlocking).
    void push(const FevalRequest& request);
    // Takes the request at the front; waits for one if there is none, first
    // spinning briefly (hand_off_waits.h), then asleep on the condition variable.
    FevalRequest pop();
};

// Created on the first call, never destroyed. Safe when first calls race.
RequestQueue* requestQueue();

// Held by callers around building and pushing a request; taken before the
// queue's own mutex.
std::mutex& requestPushMutex();

}  // namespace pylnk
