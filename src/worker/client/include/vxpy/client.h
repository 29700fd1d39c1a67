// Drives Python out of process: a Session spawns vxpy-worker, which loads
// libvxippylnk.so and runs a CPython interpreter. A crash inside Python ends
// the worker, never the host.
//
// Python objects are C++ values (Object), with Python's exceptions as C++
// exceptions (PythonError):
//
//   vxpy::Session python;                                  // spawns the worker
//   python.start(vxpy::Interpreter::find("python3"));      // starts CPython in it
//   vxpy::Object np = python.import("numpy");
//   foundation::veltradata::Array sums = np.attr("sum")(matrix, vxpy::kw("axis", 0)).toArray();
//
// Below that, every command of the library is available through call(), with
// the library's own replies: object addresses as 1 by 1 UINT64 arrays, text
// as char arrays, and so on.
#pragma once

#include <foundation/veltradata.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
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

namespace detail {
struct Handle;
class ObjectSpace;
}  // namespace detail

class Arg;
struct Keyword;

// A Python exception: what() is "<type>: <message>" ("<type>" alone for an
// empty message), type() the worker's C++ exception type. When it is thrown,
// no Python error is left set in the worker.
class VXPY_API PythonError : public CommandError {
  public:
    PythonError(std::string pythonType, std::string message, std::string traceback);
    // The exception class's __name__ ("ValueError").
    std::string pythonType() const;
    // Its str().
    std::string message() const;
    // As Python prints it: "Traceback (most recent call last):" and the frames
    // when there are any, chained exceptions, and the last line "<type>: <message>".
    std::string traceback() const;

  private:
    std::string pythonType_;
    std::string message_;
    std::string traceback_;
};

// A Python object in a worker, held by its address. Copies share one handle;
// when the last copy ends, the worker releases the object (without a round
// trip: before the session's next command). Once the worker that made it has
// ended (restart(), close(), the end of the Session, a crash), every use
// throws WorkerEnded and its end sends nothing. Safe to use from many threads.
//
// Every operation that fails in Python throws PythonError; a conversion that
// does not apply to the object throws Error naming its Python type.
class VXPY_API Object {
  public:
    // No object: every use but address() throws Error.
    Object() = default;

    Object attr(const std::string& name) const;
    void setAttr(const std::string& name, const Arg& value) const;
    Object item(const Arg& key) const;
    void setItem(const Arg& key, const Arg& value) const;

    // A call in one round trip. Each argument converts to Arg, or is a
    // Keyword made by kw(), given after the positional ones.
    template <class... A>
    Object operator()(const A&... args) const;
    Object call(const std::vector<Arg>& args, const std::vector<Keyword>& kwargs = {}) const;

    // str() and repr() as UTF-8 (a lone surrogate as its own three bytes).
    std::string str() const;
    std::string repr() const;
    // type(obj).__module__ + "." + type(obj).__qualname__: "builtins.float".
    std::string typeName() const;
    bool isNone() const;

    // float(obj) for an object with __float__ or __index__ (not a complex).
    double toDouble() const;
    // operator.index(obj), exact to 64 bits.
    std::int64_t toInt() const;
    // Python truth.
    bool toBool() const;
    // A str (or a subclass), as UTF-8.
    std::string toString() const;
    // An object with the buffer interface: a host array of its element type
    // and shape, in the host's element order (a 1-d buffer of n elements is
    // n by 1). A list or tuple of real numbers: a 1 by n DOUBLE array.
    foundation::veltradata::Array toArray() const;
    // The items of a list or tuple (or of a subclass).
    std::vector<Object> toList() const;

    // The object's address in its worker; 0 for no object.
    std::uint64_t address() const;

  private:
    friend class detail::ObjectSpace;
    friend class Arg;
    explicit Object(std::shared_ptr<const detail::Handle> handle);
    const detail::Handle& handle() const;

    std::shared_ptr<const detail::Handle> handle_;
};

namespace detail {
template <class T>
inline constexpr bool isCharacter =
    std::is_same_v<std::remove_cv_t<T>, char> || std::is_same_v<std::remove_cv_t<T>, wchar_t> ||
    std::is_same_v<std::remove_cv_t<T>, char8_t> || std::is_same_v<std::remove_cv_t<T>, char16_t> ||
    std::is_same_v<std::remove_cv_t<T>, char32_t>;
}  // namespace detail

// What a C++ value becomes in Python: bool a bool, any other integer an int
// (exact), float and double a float, text (UTF-8) a str, nullptr None, a host
// array what the library's conversion makes of it (a matrix is a buffer
// object over the array's data), an Object itself.
//
// Characters, pointers other than text and enumerations do not convert: 'a' could mean 97 or "a",
// and a pointer or an enumeration would otherwise become a bool.
class VXPY_API Arg {
  public:
    Arg(bool value);
    template <std::signed_integral T>
    requires(!detail::isCharacter<T>) Arg(T value)
        : array_(foundation::veltradata::ArrayFactory().createScalar(std::int64_t{value})) {}
    template <std::unsigned_integral T>
    requires(!std::is_same_v<T, bool> && !detail::isCharacter<T>) Arg(T value)
        : array_(foundation::veltradata::ArrayFactory().createScalar(std::uint64_t{value})) {}
    template <std::floating_point T>
    Arg(T value)
        : array_(foundation::veltradata::ArrayFactory().createScalar(static_cast<double>(value))) {}
    Arg(const char* text);
    Arg(std::string_view text);
    Arg(const std::string& text);
    Arg(std::nullptr_t);
    Arg(foundation::veltradata::Array value);
    Arg(Object object);

    template <class T>
    requires detail::isCharacter<T> Arg(T)
    = delete;
    template <class T>
    requires(!std::is_same_v<std::remove_cv_t<T>, char>) Arg(T*)
    = delete;
    template <class T>
    requires std::is_enum_v<T> Arg(T)
    = delete;

    // The host array that stands for the value in a command.
    const foundation::veltradata::Array& array() const { return array_; }
    // The Object given, or no object.
    const Object& object() const { return object_; }

  private:
    foundation::veltradata::Array array_;
    Object object_;
};

// A keyword argument: kw("axis", 0).
struct VXPY_API Keyword {
    std::string name;
    Arg value;
};

VXPY_API Keyword kw(std::string name, Arg value);

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

    // The module, imported (import module). PythonError when the import fails.
    Object import(const std::string& module);
    // An expression evaluated, and statements run, in the namespace of
    // __main__ (PythonError when they raise).
    Object eval(const std::string& expression);
    void exec(const std::string& code);
    // The __main__ module.
    Object main();
    // The Python code that the worker runs for this session raises
    // KeyboardInterrupt, a pure-Python loop and a time.sleep alike; the call
    // that waits for it throws PythonError. The worker lives on. With nothing
    // running (and before a start, and after close()) it does nothing, now
    // or later.
    void interrupt();

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

namespace detail {

template <class... A>
constexpr bool keywordsLast() {
    // The last entry keeps the array from being empty.
    const bool isKeyword[] = {std::is_same_v<A, Keyword>..., false};
    for (std::size_t i = 1; i < sizeof...(A); ++i) {
        if (isKeyword[i - 1] && !isKeyword[i]) {
            return false;
        }
    }
    return true;
}

inline void sortArgument(std::vector<Arg>& positional, std::vector<Keyword>&, const Arg& arg) {
    positional.push_back(arg);
}
inline void sortArgument(std::vector<Arg>&, std::vector<Keyword>& keywords,
                         const Keyword& keyword) {
    keywords.push_back(keyword);
}

}  // namespace detail

template <class... A>
Object Object::operator()(const A&... args) const {
    static_assert(detail::keywordsLast<A...>(),
                  "keyword arguments (vxpy::kw) come after the positional ones");
    std::vector<Arg> positional;
    std::vector<Keyword> keywords;
    positional.reserve(sizeof...(A));
    (detail::sortArgument(positional, keywords, args), ...);
    return call(positional, keywords);
}

}  // namespace vxpy
