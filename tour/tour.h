// The narrated tour: chapters drive the library the way the host does, with
// named commands and host arrays. Every command goes through call(), so the
// chapters do not care how the commands reach the library (today: a
// vxpy::Session, so Python runs in a worker process).
#pragma once

#include <foundation/veltradata.h>
#include <vxpy/client.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tour {

namespace vd = foundation::veltradata;
using Address = std::uint64_t;

// The interpreter's details (--executable, --library, --home, --version) and
// the module folder (--location), as the client found them.
extern std::map<std::string, std::string> options;

// The session every command goes through, and the interpreter it starts.
vxpy::Session& session();
const vxpy::Interpreter& interpreter();
// Sets up the session for the interpreter (--python in main).
void openSession(const std::string& python);
// While on, each line that Python prints is shown with the host's time since
// the call to stampConsole(true).
void stampConsole(bool on);
// A fresh worker with the interpreter started; every address from the old
// one is forgotten.
void restartWorker();

// Sends one command and returns the reply arrays; a stored failure is thrown.
std::vector<vd::Array> call(const std::string& name, std::vector<vd::Array> args, size_t nlhs = 1);

void say(const std::string& text);
void chapter(const std::string& title);

// A one-line rendering of a reply, as the host would show it.
std::string shown(const vd::Array& value);
// One command whose reply is shown; a failure is shown, not thrown.
vd::Array run(const std::string& name, std::vector<vd::Array> args = {});

// Reading reply structures: a field of element `index`, its text, and a
// string array as "[a, b, <missing>]".
vd::Array fieldOf(const vd::Array& s, const std::string& name, size_t index = 0);
std::string textIn(const vd::Array& s, const std::string& name, size_t index = 0);
std::string stringList(const vd::Array& strings);

vd::Array chars(const std::string& text);
vd::Array addr(Address a);
std::string narrow(const std::u16string& text);

// A command whose reply is an object address; remembered for releaseMade().
Address object(const std::string& name, std::vector<vd::Array> args);
// Remembers an address that arrived inside a structure.
Address remember(Address a);
Address unicode(const std::u16string& text);
Address tupleOf(const std::vector<Address>& items);
Address member(Address of, const std::string& name);
Address invoke(Address callable, const std::vector<Address>& args);
// str() of the object, read back through the commands.
std::u16string textOfObject(Address a);
// Runs Python statements in a namespace of the tour's own; returns nothing.
void exec(const std::string& statements);
// Evaluates an expression in that namespace.
Address eval(const std::string& expression);
// Releases every address the tour received.
void releaseMade();

// The six-field start request for the interpreter in the options.
vd::Array startRequest(const std::string& library);

// Chapters, in the order the tour runs them.
void hostArrays();
void startAndPing();
void pythonPrograms();
void buffers();
void classes();
void hostData();
void pythonData();
void objectsAsValues();
void outputDuringACall();
void crashAndRestart();
void closeDown();

}  // namespace tour
