#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <sstream>

#include "process.h"
#include "vxpy/client.h"

namespace vxpy {

namespace {

// Prints a marker, then the five fields one per line. The library is the
// shared libpython that the interpreter itself was built with, and only
// when it exists.
constexpr const char* kQuestion = R"(import os, sys, sysconfig
get = sysconfig.get_config_var
library = ''
if get('Py_ENABLE_SHARED'):
    name = get('INSTSONAME') or get('LDLIBRARY') or ''
    for folder in (get('LIBDIR') or '', os.path.join(sys.base_prefix, 'lib')):
        candidate = os.path.join(folder, name)
        if name and os.path.isfile(candidate):
            library = candidate
            break
extra = [p for p in os.environ.get('PYTHONPATH', '').split(os.pathsep) if p]
print('--vxpy--')
print(sys.executable)
print(library)
print('' if sys.prefix != sys.base_prefix else sys.base_prefix)
print(os.pathsep.join(os.path.abspath(p) for p in extra))
print('%d.%d' % sys.version_info[:2])
)";

// Runs the interpreter with the question; its standard output, or Error.
std::string ask(const std::string& python) {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        throw Error("cannot ask '" + python + "': no pipe");
    }
    pid_t pid;
    try {
        detail::SpawnOptions options;
        options.standardOutput = out[1];
        options.quietErrors = true;
        options.searchPath = true;
        pid = detail::spawn({python, "-c", kQuestion}, options);
    } catch (const Error&) {
        ::close(out[0]);
        ::close(out[1]);
        throw Error("no Python interpreter '" + python +
                    "' can be run (not on PATH, or not a program)");
    }
    ::close(out[1]);
    std::string answer;
    std::array<char, 4096> chunk{};
    for (;;) {
        const ssize_t n = ::read(out[0], chunk.data(), chunk.size());
        if (n > 0) {
            answer.append(chunk.data(), static_cast<std::size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    ::close(out[0]);
    const std::string end = detail::reap(pid, std::chrono::seconds(30));
    if (end != "exited with status 0") {
        throw Error("'" + python +
                    "' is not a working Python interpreter: asked for its details, it " + end);
    }
    return answer;
}

}  // namespace

Interpreter Interpreter::find(const std::string& python) {
    const std::string answer = ask(python);
    const std::size_t marker = answer.rfind("--vxpy--\n");
    if (marker == std::string::npos) {
        throw Error("'" + python + "' did not answer like a Python 3 interpreter");
    }
    std::istringstream lines(answer.substr(marker + 9));
    Interpreter found;
    if (!std::getline(lines, found.executable) || !std::getline(lines, found.library) ||
        !std::getline(lines, found.home) || !std::getline(lines, found.path) ||
        !std::getline(lines, found.version) || found.executable.empty()) {
        throw Error("'" + python + "' gave an incomplete answer about itself");
    }
    if (found.library.empty()) {
        throw Error("'" + python + "' (Python " + found.version + " at " + found.executable +
                    ") has no shared libpython; use an interpreter built with a shared library");
    }
    return found;
}

}  // namespace vxpy
