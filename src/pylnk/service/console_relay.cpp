#include "service/console_relay.h"

#include "contracts/python_bridge.h"

#include <cmddistributor/run_options.h>
#include <fl/i18n.h>
#include <interprocess/feval/server/detail.h>
#include <zrt/zrt.h>

#include <boost/make_shared.hpp>
#include <cstring>
#include <utility>

namespace pylnk {

namespace vd = foundation::veltradata;

std::string relayLibraryName(const std::string& location) {
    static const std::pair<const char*, const char*> byArchitecture[] = {
        {"win64", "libvxippylnk.dll"},
        {"lnxgen64", "libvxippylnk.so"},
        {"osxi64", "libvxippylnk.dylib"},
        {"osxa64", "libvxippylnk.dylib"},
    };
    for (const auto& [code, file] : byArchitecture) {
        if (location.find(code) != std::string::npos) {
            return file;
        }
    }
    return {};
}

std::string relayScript(const std::string& libraryName) {
    // Indentation unit of three spaces.
    return "import sys\n"
           "import ctypes\n"
           "import codecs\n"
           "class QorPrinter():\n"
           "   def __init__(self):\n"
           "      self.library = ctypes.cdll.LoadLibrary('" +
           libraryName +
           "')\n"
           "      self.library.cPrintf.argtypes = (ctypes.c_long, ctypes.c_char_p)\n"
           "      self.library.uPrintf.argtypes = (ctypes.c_long, ctypes.c_char_p)\n"
           "      self.preferredencoding = 'utf16'\n"
           "   def write(self,buff):\n"
           "      if isinstance(buff, bytes):\n"
           "         self.library.cPrintf(len(buff), buff)\n"
           "      else:\n"
           "         data = codecs.encode(buff, self.preferredencoding, 'replace')\n"
           "         self.library.uPrintf(len(data), data)\n"
           "   def flush(self):\n"
           "      pass\n"
           "   def isatty(self):\n"
           "      return False\n"
           "sys.stdout = QorPrinter()\n"
           "sys.stderr = QorPrinter()\n";
}

void installConsoleRelay(const std::u16string& location) {
    H builtins = module::pyCreateBuiltinsModule();
    fl::i18n::converter<fl::i18n::codecvt_ustring_to_string> narrow(
        fl::i18n::codecvt_ustring_to_string("", true));
    const std::string libraryName = relayLibraryName(narrow.convert(location));
    if (libraryName.empty()) {
        return;
    }
    const std::string script = relayScript(libraryName);
    H compile = object::pyGetMember(builtins.get(), "compile");
    H code = object::pyInvoke(
        compile.get(),
        {primitive::pyCreateString(script), primitive::pyCreateString(std::string("stdout")),
         primitive::pyCreateString(std::string("exec"))},
        {});
    H eval = object::pyGetMember(builtins.get(), "eval");
    object::pyInvoke(eval.get(), {code, mapping::pyCreateDict()}, {});
}

namespace {

// One print request to the host: fprintf("%s", text), waited for. Every
// failure is swallowed, so a broken console never fails a Python command.
void printOnHost(const std::u16string& text) {
    try {
        auto errors = boost::make_shared<NullStreambuf>();
        cmddistributor::RunOptions options =
            interprocess::feval::server::detail::runOptionsFactory();
        options.setErrStream(errors, cmddistributor::RunOptions::getDefaultSinkTraits());
        std::shared_ptr<zrt::ZRT> engine = interprocess::feval::server::detail::getZrt();
        auto id = zrt::ZRT::createRequestID();
        vd::ArrayFactory factory;
        std::vector<vd::Array> args{factory.createScalar("%s"), factory.createScalar(text)};
        engine->feval("fprintf", args, 0, options, false, id).get();
    } catch (...) {
    }
}

}  // namespace

}  // namespace pylnk

extern "C" void cPrintf(long count, const char* bytes) {
    std::string narrow = count > 0 && bytes != nullptr ? std::string(bytes, count) : std::string();
    std::u16string text;
    try {
        text = fl::i18n::to_ustring(narrow);
    } catch (...) {
        return;
    }
    pylnk::printOnHost(text);
}

extern "C" void uPrintf(long count, const char* bytes) {
    std::u16string units;
    if (count >= 2 && bytes != nullptr) {
        units.resize(static_cast<size_t>(count) / 2);
        std::memcpy(units.data(), bytes, units.size() * sizeof(char16_t));
    }
    std::u16string text;
    if (!units.empty() && units.front() == 0xFEFF) {
        text = units.substr(1);
    } else if (!units.empty() && units.front() == 0xFFFE) {
        // A byte-swapped stream is not printed: the text stays empty.
    } else {
        text = std::move(units);
    }
    pylnk::printOnHost(text);
}
