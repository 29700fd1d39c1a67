// Drives Python out of process: a Session spawns vxpy-worker, which loads
// libvxippylnk.so and runs a CPython interpreter, and sends it named commands
// with host arrays. A crash inside Python ends the worker, never the host.
//
//   namespace vd = foundation::veltradata;
//   vd::ArrayFactory f;
//   vxpy::Session python;                                  // spawns the worker
//   python.start(vxpy::Interpreter::find("python3"));      // starts CPython in it
//   auto math = python.call("pyCreateModule", {f.createCharArray(std::string("math"))});
//   auto pi = python.call("pyGetMember", {math[0], f.createCharArray(std::string("pi"))});
//   auto text = python.call("pyUnicodeGetData", python.call("pyStr", pi));
//
// Every command of the library is available through call(). Replies are the
// library's own: object addresses as 1 by 1 UINT64 arrays, text as char
// arrays, and so on.
#pragma once

#include <foundation/veltradata.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// The client's public classes are visible outside libvxpyclient.so (its
// exceptions must be caught by type in the host).
#define VXPY_API __attribute__((visibility("default")))

namespace vxpy {

// The five fields of the start request that name an interpreter.
struct VXPY_API Interpreter {
    std::string executable;  // sys.executable
    std::string library;     // the shared libpython
    std::string home;        // sys.base_prefix; empty for a virtual environment
    std::string path;        // extra module folders, ':'-separated (PYTHONPATH as the
                             // interpreter saw it when asked; usually empty)
    std::string version;     // "3.11"

    // Asks the interpreter (a name on PATH or a path, a virtual environment's
    // python too) for the fields. Throws Error when it cannot be run or has no
    // shared libpython.
    static Interpreter find(const std::string& python = "python3");
};

// How the client and the worker talk.
//  - SharedMemory (the default): requests and replies go through rings in a
//    memory segment that the two processes share, and element data of large
//    arrays is not copied at all: the worker reads the host's arrays in the
//    host's own pages, the host reads the worker's replies in the worker's.
//    Costs a few microseconds a round trip where the socket costs tens.
//  - Socket: everything goes through the socket pair, for systems without
//    memfd or futexes.
// Either way a socket pair connects the two processes, and its end tells each
// side at once that the other is gone.
enum class Transport { SharedMemory, Socket };

struct VXPY_API Options {
    // The vxpy-worker executable; empty: the one beside libvxpyclient.so.
    std::string worker;
    // The module folder (libvxippylnk.so and the libvxbuffer builds); empty:
    // the folder of libvxpyclient.so.
    std::string location;
    // Receives Python's printed text as UTF-8; empty: standard output. It runs
    // on a thread that is waiting in call(), or on the session's watcher
    // thread while no call is in flight, and must not call the session.
    std::function<void(std::string_view)> console;
    Transport transport = Transport::SharedMemory;
};

class VXPY_API Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A command's stored exception: what() is the worker's message, type() its
// C++ type name (for instance pylnk_core::InternalPyException).
class VXPY_API CommandError : public Error {
  public:
    CommandError(std::string type, const std::string& message);
    std::string type() const;

  private:
    std::string type_;
};

// The worker is gone; what() says how (exit status, or the signal's name and number).
class VXPY_API WorkerEnded : public Error {
  public:
    using Error::Error;
};

class VXPY_API Session {
  public:
    // Spawns a worker (throws Error when it cannot).
    explicit Session(Options options = {});
    // Closes; a worker that does not end within a few seconds is killed.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Starts the interpreter; returns once it runs. Throws Error when it
    // cannot be loaded (the worker stays usable: start may be called again).
    // After a successful start it returns at once.
    void start(const Interpreter& python);

    // One command; safe from many threads at once. Before a successful start
    // only _TEST_ is accepted (Error "not started ..."). Throws CommandError
    // for the command's failure, WorkerEnded once the worker is gone (until
    // restart()), Error for arguments the connection cannot carry and after close().
    std::vector<foundation::veltradata::Array> call(
        const std::string& command, const std::vector<foundation::veltradata::Array>& args,
        std::size_t nlhs = 1);

    // Ends the worker if it still runs and spawns a fresh one, not started.
    void restart();

    // Closes the interpreter (pyClose) if it was started, and waits for the
    // worker to end. Later calls throw Error.
    void close();

    // The current worker's process id.
    int pid() const;

    // True after a successful start of the current worker.
    bool started() const;

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vxpy
