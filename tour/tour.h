// The narrated tour: chapters drive the library the way the host does, with
// named commands and host arrays. Every command goes through call(), so the
// chapters do not care how the commands reach the library.
#pragma once

#include <foundation/veltradata.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tour {

namespace vd = foundation::veltradata;
using Address = std::uint64_t;

// Command-line options (--executable, --library, --home, --version, --location).
extern std::map<std::string, std::string> options;

// Sends one command and returns the reply arrays; a stored failure is thrown.
std::vector<vd::Array> call(const std::string& name, std::vector<vd::Array> args, size_t nlhs = 1);

void say(const std::string& text);
void chapter(const std::string& title);

// A one-line rendering of a reply, as the host would show it.
std::string shown(const vd::Array& value);
// One command whose reply is shown; a failure is shown, not thrown.
vd::Array run(const std::string& name, std::vector<vd::Array> args = {});

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
void closeDown();

}  // namespace tour
