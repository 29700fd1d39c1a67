// Object handles of the bridge.
//
// A Python object is seen only as an opaque `python::pyArray*`; its numeric
// value is the object's address. Two forms are used in signatures:
//   * borrowed, `python::pyArray*`: the caller keeps its reference, and no
//     operation keeps the pointer beyond the call unless it says so;
//   * holder, `boost::shared_ptr<python::pyArray>` with PyArrayReleaser as
//     deleter: owns one strong reference, dropped when the last copy goes.
// Every holder that an operation returns is a strong reference of its own,
// also when the operation merely looks an object up. Holders are created and
// destroyed on the thread that runs the interpreter.
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>

namespace python {

// Opaque Python object. Never dereferenced.
struct pyArray;

// Raw calls into the running interpreter, one process-wide instance
// (pylnk_core::loader::getAPI()).
class IPythonAPI {
  public:
    virtual ~IPythonAPI() = default;

    // Imports a capsule by its dotted name ("package.module.attribute") and
    // returns the pointer it holds. On failure: nullptr, with the Python error
    // set (none can be set when no interpreter is running).
    virtual void* importCapsule(const std::u16string& dottedName) = 0;
};

}  // namespace python

namespace pylnk_core::api {

// Deleter of holders: drops one strong reference. Does nothing once the
// interpreter has been closed, so holders that outlive it are harmless.
struct PyArrayReleaser {
    void operator()(python::pyArray* object) const noexcept;
};

using PyHolder = boost::shared_ptr<python::pyArray>;

// An owned reference without a shared count, for an object used only within
// one scope: unlike a holder, making one allocates nothing. A holder takes it
// over where it must be shared.
using PyOwned = std::unique_ptr<python::pyArray, PyArrayReleaser>;

// Makes a holder that takes over a reference the caller already owns. If the
// holder cannot be allocated, the reference is dropped before the exception
// leaves. A null object gives an empty holder.
PyHolder adoptReference(python::pyArray* newReference);

// Adds a strong reference to a borrowed object and returns its holder: the way
// to hold an object known only by its address.
PyHolder holdReference(python::pyArray* borrowed);

// Makes the calling thread fit to call straight into Python for the life of
// the scope (takes the interpreter lock and a thread state as needed).
// Scopes nest. Throws InternalPyException when no interpreter is running.
class APIAccessor {
  public:
    APIAccessor();
    ~APIAccessor();
    APIAccessor(const APIAccessor&) = delete;
    APIAccessor& operator=(const APIAccessor&) = delete;

    python::IPythonAPI* operator->() const;

  private:
    int state_;
};

}  // namespace pylnk_core::api
