#include "zrt/zrt.h"

#include <atomic>
#include <exception>
#include <mutex>

#include "fl/i18n.h"
#include "zrt/console.h"

namespace zrt {
namespace {

namespace vd = foundation::veltradata;

// Reads a text argument: a 1 by 1 string that is not missing, or a char row
// vector (an empty char array of any shape is empty text).
std::u16string readText(const vd::Array& arg, const char* what) {
    const auto dims = arg.getDimensions();
    switch (arg.getType()) {
        case vd::ArrayType::VELTRA_STRING: {
            if (arg.getNumberOfElements() != 1) {
                throw EngineError(std::string("fprintf: the ") + what +
                                  " must be a single string, not a string array");
            }
            const vd::VELTRAString& element = *vd::TypedArray<vd::VELTRAString>(arg).begin();
            if (!element) {
                throw EngineError(std::string("fprintf: the ") + what + " is a missing string");
            }
            return *element;
        }
        case vd::ArrayType::CHAR:
            if (!arg.isEmpty() && (dims.size() != 2 || dims[0] != 1)) {
                throw EngineError(std::string("fprintf: the ") + what +
                                  " must be a char row vector");
            }
            return vd::CharArray(arg).toUTF16();
        default:
            throw EngineError(std::string("fprintf: the ") + what +
                              " must be text, not an array of type " + vd::toString(arg.getType()));
    }
}

void runFprintf(const std::vector<vd::Array>& args, std::size_t nlhs) {
    if (nlhs != 0) {
        throw EngineError("fprintf: too many output arguments (" + std::to_string(nlhs) +
                          " requested, none given)");
    }
    if (args.size() != 2) {
        throw EngineError("fprintf: expected a format and one text, got " +
                          std::to_string(args.size()) + " arguments");
    }
    if (readText(args[0], "format") != u"%s") {
        throw EngineError("fprintf: unsupported format '" +
                          fl::i18n::to_string(readText(args[0], "format")) +
                          "'; only \"%s\" is supported");
    }
    writeConsole(readText(args[1], "text"));
}

// Callers may share one stream through copies of their options.
std::mutex& errStreamMutex() {
    static auto* mutex = new std::mutex;  // never destroyed, as the console's
    return *mutex;
}

void reportError(const cmddistributor::RunOptions& options, const std::string& message) {
    const auto& stream = options.errStream();
    if (!stream) {
        return;
    }
    const std::u16string text = fl::i18n::to_ustring("Error: " + message + "\n");
    std::lock_guard lock(errStreamMutex());
    stream->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    if (options.errSinkTraits().flushEachWrite) {
        stream->pubsync();
    }
}

}  // namespace

foundation::msg_svc::exchange::IDType ZRT::createRequestID() {
    static std::atomic<foundation::msg_svc::exchange::IDType> next{1};
    return next.fetch_add(1, std::memory_order_relaxed);
}

Future<ZRT::Outputs> ZRT::feval(const std::string& name, const std::vector<vd::Array>& args,
                                std::size_t nlhs, cmddistributor::RunOptions options, bool,
                                foundation::msg_svc::exchange::IDType) {
    std::promise<Outputs> promise;
    try {
        if (name != "fprintf") {
            throw EngineError("unknown function '" + name + "'");
        }
        runFprintf(args, nlhs);
        promise.set_value(Outputs{});
    } catch (const std::exception& error) {
        const std::exception_ptr failure = std::current_exception();
        // A failing error stream must not keep the caller from its answer.
        try {
            reportError(options, error.what());
        } catch (...) {
        }
        promise.set_exception(failure);
    } catch (...) {
        promise.set_exception(std::current_exception());
    }
    return Future<Outputs>(promise.get_future());
}

}  // namespace zrt
