#include "service/dispatcher.h"

#include <fl/filesystem.h>

#include <mutex>
#include <optional>
#include <stdexcept>

#include "base/handler_support.h"
#include "contracts/python_bridge.h"
#include "introspection/metadata_caches.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

void changeCurrentWorkingFolder(ReplyPromise* promise, size_t nrhs, vd::Array* prhs) {
    // The folder must be a char array. Anything else is answered with a
    // stored exception instead of bringing the Python thread down.
    if (nrhs == 0 || prhs == nullptr || prhs[0].getType() != vd::ArrayType::CHAR) {
        throw std::invalid_argument(
            "ChangeCurrentWorkingFolder expects a char array holding the folder.");
    }
    // A folder that cannot be entered still answers "success": the host
    // checks the folder itself.
    fl::filesystem::change_current_path(vd::CharArray(prhs[0]).toUTF16());
    reply(promise, successCharArray());
}

}  // namespace

void dispatch(HandlerTable& table, const std::string& name, size_t nlhs, ReplyPromise* promise,
              size_t nrhs, vd::Array* prhs) {
    static std::once_flag built;
    std::call_once(built, [&table] { buildHandlerTable(table); });

    std::exception_ptr failure = failureOf([&] {
        if (name == "Ping") {
            reply(promise, successCharArray());
            return;
        }
        if (name == "ChangeCurrentWorkingFolder") {
            changeCurrentWorkingFolder(promise, nrhs, prhs);
            return;
        }
        if (name == "ClearMetadataMap") {
            moduleMetadataCache().clear();
            classMetadataCache().clear();
            reply(promise, successCharArray());
            return;
        }
        auto found = table.find(name);
        if (found == table.end()) {
            throw std::invalid_argument("Unknown command '" + name + "'.");
        }
        const CommandRow& row = *found->second.row;
        if (nrhs < row.arguments || (row.arguments > 0 && !prhs)) {
            throw std::invalid_argument(name + " expects " + std::to_string(row.arguments) +
                                        " argument(s), got " + std::to_string(nrhs) + ".");
        }
        // An error left set by an earlier command waits aside while this one
        // runs, and is back afterwards unless this command raised its own.
        std::optional<exception::PendingErrorAside> aside;
        if (row.pendingError == CommandRow::PendingError::SetAside) {
            aside.emplace();
        }
        found->second.handler->execute(name, nlhs, promise, nrhs, prhs);
    });
    if (!failure) {
        return;
    }
    try {
        replyWithFailure(promise, std::move(failure));
    } catch (const std::future_error&) {
        // The handler had answered before it threw: the answer stands.
    }
}

}  // namespace pylnk
