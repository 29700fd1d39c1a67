// Loading the CPython library named in the start request and starting it.
//
// CPython ends the process on a fatal start-up error, so everything that can
// be checked is checked first, with the library opened privately
// (RTLD_LOCAL): a library that fails a check is closed again without its
// symbols ever having been visible to the rest of the process. Only a library
// that passes is reopened with RTLD_GLOBAL, which extension modules such as
// NumPy need in order to find the C API.
#include <dlfcn.h>
#include <signal.h>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "capi.h"
#include "pylnk_core/loader.h"
#include "runtime.h"
#include "text.h"

namespace pylnk_core::loader {
namespace {

namespace fs = std::filesystem;

constexpr int kOldestMinor = 8;

struct VersionNumber {
    int major = 0;
    int minor = 0;
};

// Reads "X.Y" from the start of text. With `exact`, the text must be "X.Y" or
// "X.Y.Z" and nothing else; otherwise anything may follow "X.Y" that does not
// continue the minor number ("3.13.0rc1 (main, ...)").
std::optional<VersionNumber> parseVersion(std::string_view text, bool exact) {
    auto number = [&text](int& out) {
        std::size_t digits = 0;
        out = 0;
        while (digits < text.size() && digits < 4 && text[digits] >= '0' && text[digits] <= '9') {
            out = out * 10 + (text[digits] - '0');
            ++digits;
        }
        text.remove_prefix(digits);
        return digits > 0;
    };
    auto dot = [&text] {
        if (text.empty() || text.front() != '.') {
            return false;
        }
        text.remove_prefix(1);
        return true;
    };
    VersionNumber version;
    if (!number(version.major) || !dot() || !number(version.minor)) {
        return std::nullopt;
    }
    if (!exact) {
        if (!text.empty() && text.front() >= '0' && text.front() <= '9') {
            return std::nullopt;
        }
        return version;
    }
    int patch = 0;
    if (text.empty() || (dot() && number(patch) && text.empty())) {
        return version;
    }
    return std::nullopt;
}

// Closes the library unless the load went through.
class OpenLibrary {
  public:
    explicit OpenLibrary(void* handle) : handle_(handle) {}
    ~OpenLibrary() {
        if (handle_ != nullptr) {
            ::dlclose(handle_);
        }
    }
    OpenLibrary(const OpenLibrary&) = delete;
    OpenLibrary& operator=(const OpenLibrary&) = delete;
    void* get() const { return handle_; }

  private:
    void* handle_;
};

bool holdsStandardLibrary(const fs::path& prefix, const std::string& versionFolder) {
    std::error_code ignored;
    for (const char* lib : {"lib", "lib64"}) {
        fs::path folder = prefix / lib / versionFolder;
        if (fs::is_regular_file(folder / "os.py", ignored) &&
            fs::is_directory(folder / "encodings", ignored)) {
            return true;
        }
    }
    return false;
}

// Without a home the interpreter looks for its standard library upwards from
// its executable and falls back on the prefix it was built for, which is
// where its library lies. Searched upwards from: the executable, the
// executable with links resolved (a virtual environment's link to its base
// interpreter), and the library.
bool standardLibraryNearby(const fs::path& executable, const fs::path& library,
                           const std::string& versionFolder) {
    std::error_code ignored;
    std::vector<fs::path> starts = {fs::absolute(executable, ignored).parent_path(),
                                    fs::weakly_canonical(executable, ignored).parent_path(),
                                    fs::weakly_canonical(library, ignored).parent_path()};
    for (const fs::path& start : starts) {
        for (fs::path folder = start; !folder.empty(); folder = folder.parent_path()) {
            if (holdsStandardLibrary(folder, versionFolder)) {
                return true;
            }
            if (folder == folder.root_path()) {
                break;
            }
        }
    }
    return false;
}

std::vector<std::string> splitSearchPath(const std::string& path) {
    std::vector<std::string> entries;
    boost::algorithm::split(entries, path, boost::algorithm::is_any_of(":"));
    std::erase(entries, std::string());
    return entries;
}

void prependSearchPath(const std::vector<std::string>& entries) {
    using namespace detail;
    if (entries.empty()) {
        return;
    }
    try {
        const capi::Table& t = py();
        Ref list = checked(t.PyList_New(0));
        for (const std::string& entry : entries) {
            Ref text = newString(entry);
            checked(t.PyList_Append(list.get(), text.get()));
        }
        callSupport("prepend_path", {list.get()});
    } catch (const InternalPyException&) {
        // Only an undecodable entry or a lack of memory get here; the
        // interpreter runs, so the start stands without the entries.
        rawTable().PyErr_Clear();
    }
}

// Importing Python's signal module takes over SIGINT when its disposition is
// the default one, even in an interpreter started without signal handlers.
// Importing it once here, and putting the process's disposition back, keeps
// SIGINT with the worker when Python code imports the module later.
void importSignalModuleKeepingSigint() {
    struct sigaction previous {};
    if (::sigaction(SIGINT, nullptr, &previous) != 0) {
        return;
    }
    try {
        detail::importModule("_signal");
    } catch (const InternalPyException&) {
        detail::rawTable().PyErr_Clear();
    }
    ::sigaction(SIGINT, &previous, nullptr);
}

struct Settings {
    // The interpreter keeps pointers to these for its whole life.
    std::wstring programName;
    std::wstring home;
    std::string version;
};

// Never destroyed: the interpreter keeps pointers into the settings for as
// long as it runs, which may be into the process's exit handlers.
Settings& settings() {
    static auto* instance = new Settings;
    return *instance;
}

std::mutex& loadMutex() {
    static auto* instance = new std::mutex;
    return *instance;
}

LoadStatus load(const std::u16string& version, const std::u16string& library,
                const std::u16string& executable, const std::u16string& home,
                const std::u16string& path) {
    switch (detail::phase()) {
        case detail::Phase::Running:
            return LoadStatus::AlreadyRunning;
        case detail::Phase::Closed:
            return LoadStatus::AlreadyClosed;
        case detail::Phase::NotLoaded:
            break;
    }
    std::optional<VersionNumber> requested = parseVersion(detail::toUtf8(version), true);
    if (!requested) {
        return LoadStatus::BadVersionRequest;
    }
    const std::string libraryPath = detail::toUtf8(library);
    if (libraryPath.empty()) {
        return LoadStatus::LibraryNotLoadable;
    }
    OpenLibrary candidate(::dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (candidate.get() == nullptr) {
        return LoadStatus::LibraryNotLoadable;
    }
    using VersionFunction = const char* (*)();
    VersionFunction getVersion = nullptr;
    if (void* address = ::dlsym(candidate.get(), "Py_GetVersion")) {
        std::memcpy(&getVersion, &address, sizeof address);
    }
    // Py_GetVersion only formats constants, so it is safe before start-up.
    std::optional<VersionNumber> found;
    if (getVersion != nullptr) {
        const char* text = getVersion();
        found = text != nullptr ? parseVersion(text, false) : std::nullopt;
    }
    if (!found) {
        return LoadStatus::NotCPython;
    }
    if (found->major != requested->major || found->minor != requested->minor) {
        return LoadStatus::VersionMismatch;
    }
    if (found->major != 3 || found->minor < kOldestMinor) {
        return LoadStatus::VersionUnsupported;
    }
    capi::Table table;
    if (capi::bind(candidate.get(), found->minor, table) != nullptr) {
        return LoadStatus::IncompleteLibrary;
    }
    if (table.Py_IsInitialized() != 0) {
        return LoadStatus::InitialisedElsewhere;
    }
    const fs::path executablePath(detail::toUtf8(executable));
    std::error_code ignored;
    if (executablePath.empty() || !fs::is_regular_file(executablePath, ignored)) {
        return LoadStatus::ExecutableNotFound;
    }
    const std::string versionFolder = "python3." + std::to_string(found->minor);
    const std::string homePath = detail::toUtf8(home);
    if (!homePath.empty() && !holdsStandardLibrary(homePath, versionFolder)) {
        return LoadStatus::HomeWithoutStandardLibrary;
    }
    if (homePath.empty() && !standardLibraryNearby(executablePath, libraryPath, versionFolder)) {
        return LoadStatus::StandardLibraryNotFound;
    }

    // Every check passed: make the library's symbols global and start.
    void* global = ::dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (global == nullptr) {
        return LoadStatus::LibraryNotLoadable;
    }
    Settings& kept = settings();
    kept.programName = detail::toWide(executable);
    kept.home = detail::toWide(home);
    *table.IgnoreEnvironmentFlag = 1;
    *table.NoUserSiteDirectory = 1;
    table.Py_SetProgramName(kept.programName.c_str());
    if (!kept.home.empty()) {
        table.Py_SetPythonHome(kept.home.c_str());
    }
    table.Py_InitializeEx(0);
    if (table.Py_IsInitialized() == 0) {
        return LoadStatus::InitialisationFailed;
    }
    detail::enterRunning({table, global, found->minor});
    importSignalModuleKeepingSigint();
    kept.version = "3." + std::to_string(found->minor);
    prependSearchPath(splitSearchPath(detail::toUtf8(path)));
    return LoadStatus::Success;
}

}  // namespace

const char* describeLoadStatus(int status) {
    switch (static_cast<LoadStatus>(status)) {
        case LoadStatus::Success:
            return "the interpreter is running";
        case LoadStatus::AlreadyRunning:
            return "an interpreter already runs in this process";
        case LoadStatus::AlreadyClosed:
            return "the interpreter of this process was closed and cannot start again";
        case LoadStatus::BadVersionRequest:
            return "the requested version is not of the form X.Y or X.Y.Z";
        case LoadStatus::LibraryNotLoadable:
            return "the library cannot be loaded";
        case LoadStatus::NotCPython:
            return "the library is not a CPython library";
        case LoadStatus::VersionMismatch:
            return "the library's version differs from the requested one";
        case LoadStatus::VersionUnsupported:
            return "the library's version is older than 3.8";
        case LoadStatus::IncompleteLibrary:
            return "the library lacks an entry point that the bridge needs";
        case LoadStatus::InitialisedElsewhere:
            return "the library's interpreter was started by someone else";
        case LoadStatus::ExecutableNotFound:
            return "the executable is not an existing file";
        case LoadStatus::HomeWithoutStandardLibrary:
            return "the home folder holds no standard library for this version";
        case LoadStatus::StandardLibraryNotFound:
            return "no standard library for this version was found";
        case LoadStatus::InitialisationFailed:
            return "the interpreter did not start";
    }
    return "unknown status";
}

bool isPythonLoaded() {
    return detail::running();
}

int attemptToLoadPython(const std::u16string& version, const std::u16string& library,
                        const std::u16string& executable, const std::u16string& home,
                        const std::u16string& path, bool /*reserved*/) {
    std::lock_guard lock(loadMutex());
    return static_cast<int>(load(version, library, executable, home, path));
}

std::string loadedVersion() {
    std::lock_guard lock(loadMutex());
    return detail::running() ? settings().version : std::string();
}

}  // namespace pylnk_core::loader
