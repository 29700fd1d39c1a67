// The console relay: sys.stdout and sys.stderr become objects that hand
// every write to cPrintf (bytes) or uPrintf (UTF-16 text) of this library,
// which print it on the host's console through the engine interface.
#pragma once

#include <streambuf>
#include <string>

#include "service/feval_dispatcher.h"

namespace pylnk {

// Accepts and drops everything: the error stream of each print request.
class NullStreambuf : public std::basic_streambuf<char16_t> {
  protected:
    int_type overflow(int_type c) override { return c; }
};

// File name under which the running library is loaded, chosen by the
// architecture code in the module folder; empty when none occurs there.
std::string relayLibraryName(const std::string& location);

// The Python source of the relay for that library file name.
std::string relayScript(const std::string& libraryName);

// Compiles and runs the relay script. With a module folder that names no
// architecture, Python's own streams stay in place.
void installConsoleRelay(const std::u16string& location);

}  // namespace pylnk

extern "C" {
// count bytes of narrow (UTF-8) text.
VX_EXPORT void cPrintf(long count, const char* bytes);
// count bytes of UTF-16, with or without a byte order mark.
VX_EXPORT void uPrintf(long count, const char* bytes);
}
