// Loading and starting the interpreter.
#pragma once

#include <string>

#include "pylnk_core/types.h"

namespace pylnk_core::loader {

// Results of attemptToLoadPython. Every failure is detected before anything
// irreversible happens: the process is left as it was, and a later attempt
// with a correct request can succeed.
enum class LoadStatus : int {
    Success = 0,
    // An interpreter already runs in this process.
    AlreadyRunning = 1,
    // The interpreter of this process was closed; CPython cannot be started
    // again safely once extension modules were loaded.
    AlreadyClosed = 2,
    // The version text is not "X.Y" or "X.Y.Z".
    BadVersionRequest = 3,
    // The library cannot be loaded (missing, wrong architecture, ...).
    LibraryNotLoadable = 4,
    // The library is not a CPython library (no readable Py_GetVersion).
    NotCPython = 5,
    // The library's major.minor differs from the requested version.
    VersionMismatch = 6,
    // The library is older than 3.8.
    VersionUnsupported = 7,
    // The library lacks an entry point that the bridge needs.
    IncompleteLibrary = 8,
    // The library's interpreter was started by someone else in this process.
    InitialisedElsewhere = 9,
    // The executable is empty or not an existing file.
    ExecutableNotFound = 10,
    // The given home has no standard library for the version
    // (<home>/lib/pythonX.Y/os.py and encodings/).
    HomeWithoutStandardLibrary = 11,
    // No home is given and no standard library for the version lies around
    // the executable or the library.
    StandardLibraryNotFound = 12,
    // The interpreter reported that it is not initialised after start-up.
    InitialisationFailed = 13,
};

// Short English text of a status, for diagnostics.
const char* describeLoadStatus(int status);

// True while the interpreter started by attemptToLoadPython runs: false
// before a successful load and after pyClose.
bool isPythonLoaded();

// Loads the CPython shared library `library` and starts its interpreter on
// the calling thread, which then holds the interpreter lock with the
// interpreter's main thread state. Returns 0 (LoadStatus::Success) or the
// LoadStatus of the failure.
//   version     "3.11" or "3.11.7"; its major.minor must be the library's.
//   executable  the program name: becomes sys.executable, and a virtual
//               environment's pyvenv.cfg beside it takes effect.
//   home        the Python home; empty to let the interpreter find it from
//               the executable.
//   path        entries separated by ':', put in front of sys.path in order.
//   reserved    reserved for future use and ignored; callers pass false.
// Nothing is read from the environment: the interpreter starts with PYTHON*
// variables ignored and without the user's site-packages folder, and it
// installs no signal handlers.
int attemptToLoadPython(const std::u16string& version, const std::u16string& library,
                        const std::u16string& executable, const std::u16string& home,
                        const std::u16string& path, bool reserved);

// The process-wide table of raw calls.
python::IPythonAPI* getAPI();

// major.minor of the running interpreter ("3.11"); empty when none runs.
std::string loadedVersion();

}  // namespace pylnk_core::loader
