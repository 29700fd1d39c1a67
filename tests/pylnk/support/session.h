// Drives the library the way the worker's command server does: through
// feval_dispatcher, with host arrays.
#pragma once

#include <foundation/veltradata.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vxtest {

namespace vd = foundation::veltradata;

// One command; returns the first reply array. Rethrows a stored exception.
vd::Array call(const std::string& name, std::vector<vd::Array> args = {});

// Narrow text of a char array or of a 1x1 string array.
std::string textOf(const vd::Array& value);

// --- reading reply structures ----------------------------------------------

// The value of a field of element `index` of a struct array.
vd::Array field(const vd::Array& structArray, const std::string& name, size_t index = 0);
// Field names in their declared order.
std::vector<std::string> fieldNames(const vd::Array& structArray);
// Elements of a string array in storage order; a missing one is nullopt.
std::vector<std::optional<std::string>> stringsOf(const vd::Array& strings);
// Elements of a logical array in storage order.
std::vector<bool> logicalsOf(const vd::Array& logicals);

// What the host learns of an interpreter by asking it (never the library).
struct PythonInstall {
    std::string executable;
    std::string library;
    std::string home;
    std::string version;  // "3.11"
};

// Asks the interpreter for its details; nothing when it cannot be run.
std::optional<PythonInstall> describePython(const std::string& executable);

// Debian's interpreter, the one with NumPy and pandas.
const PythonInstall& systemPython();

// The six-field start request.
vd::Array startRequest(const PythonInstall& python, const std::string& location);

// The library's own module folder (where libvxbuffer is built).
std::string moduleFolder();

// Starts the system interpreter and expects the success token.
void startSystemPython();

// --- Python through the commands -------------------------------------------

using Address = std::uint64_t;

vd::Array addressArray(Address address);
Address addressOf(const vd::Array& reply);
bool truthOf(const vd::Array& reply);
vd::Array uint64Array(std::uint64_t value);
vd::Array chars(const std::string& text);

Address unicode(const std::u16string& text);
Address tupleOf(const std::vector<Address>& items);
void release(Address object);
Address invoke(Address callable, const std::vector<Address>& args);
Address fetch(const std::string& dotted);
// Evaluates an expression / runs statements in one namespace shared by the
// whole test process.
Address eval(const std::string& expression);
void exec(const std::string& statements);
// str() of an object, read back through the commands.
std::string strOf(Address object);
// sys.getrefcount of the object, read through the library itself.
long long refcount(Address object);
bool errorOccurred();

}  // namespace vxtest
