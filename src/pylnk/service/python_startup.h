// Preparation of a freshly loaded interpreter, in this order: sys, the
// module search path, libvxbuffer, builtins, importlib, ctypes, codecs, the
// console relay. The metadata of sys, builtins, importlib, ctypes and codecs
// is cached on the way, so that the first request finds it.
#pragma once

#include <string>

namespace pylnk {

// Throws std::runtime_error naming the step that failed; the Python error of
// that step is cleared, and the interpreter stays usable.
void prepareInterpreter(const std::u16string& location);

}  // namespace pylnk
