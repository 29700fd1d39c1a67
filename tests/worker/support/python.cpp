#include "support/python.h"

namespace vxtest {

const vxpy::Interpreter& systemPython() {
    static const vxpy::Interpreter python = vxpy::Interpreter::find("/usr/bin/python3");
    return python;
}

vd::Array Python::one(const std::string& command, const std::vector<vd::Array>& args) {
    return session_.call(command, args).at(0);
}

vd::Array Python::unicode(const std::string& text) {
    return one("pyCreateUnicode", {vd::ArrayFactory().createCharArray(text)});
}

vd::Array Python::tuple(const std::vector<vd::Array>& items) {
    vd::ArrayFactory f;
    const vd::Array result = one("pyCreateTuple", {f.createScalar(std::uint64_t{items.size()})});
    for (std::size_t i = 0; i < items.size(); ++i) {
        one("pyTupleSet", {result, f.createScalar(std::uint64_t{i}), items[i]});
    }
    return result;
}

vd::Array Python::builtin(const std::string& name) {
    return one("pyGetMember",
               {one("pyCreateBuiltinModule"), vd::ArrayFactory().createCharArray(name)});
}

vd::Array Python::invoke(const vd::Array& callable, const std::vector<vd::Array>& args) {
    return one("pyInvoke", {callable, tuple(args)});
}

vd::Array Python::globals() {
    if (globals_.isEmpty()) {
        globals_ = one("pyCreateDict");
    }
    return globals_;
}

void Python::exec(const std::string& statements) {
    invoke(builtin("exec"), {unicode(statements), globals()});
}

vd::Array Python::eval(const std::string& expression) {
    return invoke(builtin("eval"), {unicode(expression), globals()});
}

std::string Python::str(const vd::Array& object) {
    return vd::CharArray(one("pyUnicodeGetData", {one("pyStr", {object})})).toAscii();
}

std::function<void(std::string_view)> Console::sink() {
    return [this](std::string_view text) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            text_ += text;
        }
        changed_.notify_all();
    };
}

std::string Console::text() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return text_;
}

bool Console::waitFor(const std::string& needle, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout,
                             [&] { return text_.find(needle) != std::string::npos; });
}

}  // namespace vxtest
