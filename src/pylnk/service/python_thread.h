// The Python thread: start of the interpreter, its preparation, and the
// main loop that serves the request queue for the rest of the process.
#pragma once

#include "service/request_queue.h"

namespace pylnk {

// Body of the thread created by attemptToStartPython. Answers the start
// request with a token (or a stored exception) and, once the interpreter
// stands, serves the queue forever. The promise and prhs are the caller's
// and are not touched after the answer.
void pythonThreadMain(RequestQueue* queue, ReplyPromise& promise,
                      foundation::veltradata::Array*& prhs);

}  // namespace pylnk
