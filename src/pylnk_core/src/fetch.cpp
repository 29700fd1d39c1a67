#include "pylnk_core/fetch.h"
#include "runtime.h"
#include "text.h"

namespace pylnk_core::fetch {

using namespace detail;

api::PyHolder fetch(const std::u16string& name) {
    const std::string utf8 = toUtf8(name);
    // An unpaired surrogate is lost in UTF-8; such a name is no identifier.
    if (boost::locale::conv::utf_to_utf<char16_t>(utf8) != name) {
        throw BadPythonName("not a dotted Python name: it holds an unpaired surrogate");
    }
    int status = 0;
    std::string reason;
    try {
        const capi::Table& t = py();
        Ref text = newString(utf8);
        Ref answer = callSupport("resolve", {text.get()});
        Ref code = checked(t.PySequence_GetItem(answer.get(), 0));
        Ref payload = checked(t.PySequence_GetItem(answer.get(), 1));
        status = static_cast<int>(t.PyLong_AsLong(code.get()));
        if (status == 0) {
            return hold(std::move(payload));
        }
        reason = utf8Of(payload.get());
    } catch (const InternalPyException& failure) {
        clearErrorIfRunning();
        throw SearchFailure(failure.what());
    }
    if (status == 1) {
        throw BadPythonName(reason);
    }
    throw SearchFailure(reason);
}

}  // namespace pylnk_core::fetch
