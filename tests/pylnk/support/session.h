// Drives the library the way the worker's command server does: through
// feval_dispatcher, with host arrays.
#pragma once

#include <foundation/veltradata.h>

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "failure_of.h"

namespace vxtest {

namespace vd = foundation::veltradata;

// One command; returns the first reply array. Rethrows a stored exception.
vd::Array call(const std::string& name, std::vector<vd::Array> args = {});
// A command on the object of a Python expression, then any further arguments.
vd::Array callOn(const std::string& name, const std::string& expression,
                 std::vector<vd::Array> more = {});

// Narrow text of a char array or of a 1x1 string array.
std::string textOf(const vd::Array& value);

// --- reading reply structures ----------------------------------------------

// The value of a field of element `index` of a struct array.
vd::Array field(const vd::Array& structArray, const std::string& name, size_t index = 0);
// Field names in their declared order.
std::vector<std::string> fieldNames(const vd::Array& structArray);
// Elements of a string array in storage order; a missing one is nullopt.
std::vector<std::optional<std::string>> stringsOf(const vd::Array& strings);
// The "name" of each element of a struct row, and the place of one.
std::vector<std::string> namesOf(const vd::Array& row);
std::optional<size_t> entryNamed(const vd::Array& row, const std::string& name);
// The "objectAddress" of each element of a struct row.
std::vector<std::uint64_t> addressesOf(const vd::Array& row);
// "<exceptionName>: <exceptionMessage>" of a report structure.
std::string reportOf(const vd::Array& reply);

// Elements of a typed array in storage order, and the first of them.
template <class T>
std::vector<T> valuesOf(const vd::Array& array) {
    const vd::TypedArray<T> view(array);
    return std::vector<T>(view.begin(), view.end());
}
template <class T>
T valueOf(const vd::Array& array) {
    return vd::TypedArray<T>(array)[0];
}

// An array as "TYPE 2x3: 1 2 3 4 5 6" in storage order: numbers in their
// shortest exact form, truth values as 1 and 0, a char array as its text, a
// missing string as <missing>. Elements of other types are not shown.
std::string show(const vd::Array& array);

// The named fields of element `index` of a struct array, each shown, one
// after the other: "DOUBLE 1x1: 2 | CHAR 1x1: a".
std::string shown(const vd::Array& structArray, const std::vector<std::string>& names,
                  size_t index = 0);

// A 1 by n row of these values; of strings, with nullptr for a missing one.
template <class T>
vd::Array row(const std::vector<T>& values) {
    return vd::ArrayFactory().createArray<T>({1, values.size()}, values.begin(), values.end());
}
vd::Array stringRow(const std::vector<const char*>& items);

// A shell command's exit status (as pclose gives it) and standard output.
struct CommandRun {
    int status;
    std::string output;
};
CommandRun runCommand(const std::string& command);

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
// The value of an integer expression; its address is released again.
long long integer(const std::string& expression);
// sys.getrefcount(<expression>) counted in Python, so that the count holds
// no registry reference.
long long pythonRefcount(const std::string& expression);
std::vector<long long> pythonRefcounts(const std::vector<std::string>& expressions);
bool errorOccurred();

// A test on the system interpreter, with these statements run first.
class SessionTest : public ::testing::Test {
  protected:
    explicit SessionTest(std::string statements = "") : statements_(std::move(statements)) {}
    void SetUp() override {
        startSystemPython();
        if (!statements_.empty()) {
            exec(statements_);
        }
    }
    vd::ArrayFactory f;

  private:
    std::string statements_;
};

}  // namespace vxtest
