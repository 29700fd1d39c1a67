#include "service/python_startup.h"

#include "contracts/python_bridge.h"

#include <fl/i18n.h>

#include <stdexcept>
#include <string_view>

#include "introspection/module_metadata.h"
#include "service/console_relay.h"

namespace pylnk {

namespace {

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Every site-packages folder already on sys.path is handed to
// site.addsitedir (so its .pth files take effect), and the library's module
// folder goes first. Any failure ends the step where it stands.
void searchPathStep(const H& sys, const std::u16string& location) {
    try {
        H site = module::pyCreateModule(u"site");
        H addsitedir = object::pyGetMember(site.get(), "addsitedir");
        if (!object::pyHasMember(sys.get(), "path")) {
            return;
        }
        H path = object::pyGetMember(sys.get(), "path");
        if (!sequence::pyIsSequence(path.get())) {
            return;
        }
        // Taken once: entries that addsitedir appends are not visited.
        const unsigned long long length = sequence::pySequenceLength(path.get());
        for (unsigned long long i = 0; i < length; ++i) {
            H item = sequence::pyGetItem(path.get(), i);
            if (endsWith(object::pyGetChars(item.get()), "site-packages")) {
                object::pyInvoke(addsitedir.get(), {item}, {});
            }
        }
        H folder = primitive::pyCreateString(location);
        if (object::pyHasMember(path.get(), "insert")) {
            H insert = object::pyGetMember(path.get(), "insert");
            if (object::pyIsCallable(insert.get())) {
                object::pyInvoke(insert.get(), {primitive::pyCreateInt(0), folder}, {});
            }
        }
    } catch (...) {
        // Dropped on purpose; the preparation goes on without the step.
    }
}

// Runs one step; a failure becomes an exception that names the step.
template <class Step>
auto step(const char* what, Step&& body) -> decltype(body()) {
    try {
        return body();
    } catch (const std::exception& failure) {
        exception::pyErrorClear();
        throw std::runtime_error(std::string("Python start-up failed while ") + what + ": " +
                                 failure.what());
    }
}

H importModule(const char* what, const std::u16string& name) {
    return step(what, [&] { return module::pyCreateModule(name); });
}

// The module's metadata is cached ahead of the first request, under the
// name of its "name" field.
void warmUp(const char* what, const H& module) {
    step(what, [&] { cacheModuleMetadata(module); });
}

}  // namespace

void prepareInterpreter(const std::u16string& location) {
    H sys = importModule("importing sys", u"sys");
    warmUp("describing sys", sys);
    searchPathStep(sys, location);
    H vxbuffer = importModule("importing libvxbuffer from the module folder", u"libvxbuffer");
    H builtins =
        step("taking the builtins module", [] { return module::pyCreateBuiltinsModule(); });
    warmUp("describing the builtins module", builtins);
    H importlib = importModule("importing importlib", u"importlib");
    warmUp("describing importlib", importlib);
    H ctypes = importModule("importing ctypes", u"ctypes");
    warmUp("describing ctypes", ctypes);
    H codecs = importModule("importing codecs", u"codecs");
    warmUp("describing codecs", codecs);
    step("installing the console relay", [&] { installConsoleRelay(location); });
    // The held modules are dropped here; they stay imported.
}

}  // namespace pylnk
