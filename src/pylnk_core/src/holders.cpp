// Holders, the raw call table and the exception classes.
#include "pylnk_core/errors.h"
#include "pylnk_core/loader.h"
#include "pylnk_core/types.h"
#include "runtime.h"
#include "text.h"

namespace pylnk_core {

InternalPyException::InternalPyException(const char* message) : Exception(message) {}
InternalPyException::InternalPyException(const std::string& message) : Exception(message) {}
InternalPyException::~InternalPyException() = default;

namespace fetch {
BadPythonName::BadPythonName(const std::string& message) : Exception(message) {}
BadPythonName::~BadPythonName() = default;
SearchFailure::SearchFailure(const std::string& message) : Exception(message) {}
SearchFailure::~SearchFailure() = default;
}  // namespace fetch

namespace api {

void PyArrayReleaser::operator()(python::pyArray* object) const noexcept {
    if (object != nullptr && detail::running()) {
        detail::rawTable().Py_DecRef(object);
    }
}

PyHolder adoptReference(python::pyArray* newReference) {
    if (newReference == nullptr) {
        return PyHolder();
    }
    // shared_ptr runs the deleter itself if its control block cannot be made.
    return PyHolder(newReference, PyArrayReleaser());
}

PyHolder holdReference(python::pyArray* borrowed) {
    if (borrowed == nullptr) {
        return PyHolder();
    }
    detail::py().Py_IncRef(borrowed);
    return adoptReference(borrowed);
}

APIAccessor::APIAccessor() : state_(detail::py().PyGILState_Ensure()) {}

APIAccessor::~APIAccessor() {
    if (detail::running()) {
        detail::rawTable().PyGILState_Release(state_);
    }
}

python::IPythonAPI* APIAccessor::operator->() const {
    return loader::getAPI();
}

}  // namespace api

namespace {

class PythonAPI final : public python::IPythonAPI {
  public:
    void* importCapsule(const std::u16string& dottedName) override {
        if (!detail::running()) {
            return nullptr;
        }
        return detail::rawTable().PyCapsule_Import(detail::toUtf8(dottedName).c_str(), 0);
    }
};

}  // namespace

python::IPythonAPI* loader::getAPI() {
    static auto* instance = new PythonAPI;  // never destroyed, as the state
    return instance;
}

}  // namespace pylnk_core
