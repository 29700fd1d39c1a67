#include "base/exception_report.h"

#include "base/object_registry.h"
#include "base/shared_arrays.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;

namespace {

// The last four are the fields of an object result, so the host reads the
// report's object as it reads any object.
const std::vector<std::string>& reportFields() {
    static const auto* fields =
        new std::vector<std::string>{"exceptionName",   "exceptionMessage", "object",
                                     "classProperties", "classMetadata",    "scalarData"};
    return *fields;
}

ClassDescriber& reportedClassDescriber() {
    static ClassDescriber describe = nullptr;
    return describe;
}

}  // namespace

void describeReportedClassesWith(ClassDescriber describe) {
    reportedClassDescriber() = describe;
}

PyExceptionReport::PyExceptionReport() {
    errorObject_ = exception::pyErrorFetch();
    // The fetched triple holds the error; the interpreter is not asked
    // anything more while the error is still set.
    exception::pyErrorClear();
    const H errorValue = sequence::pyGetItem(errorObject_.get(), 1);
    exception::pyErrorClear();
    try {
        H cls = object::pyGetClass(errorValue.get());
        identifier_ = object::get_ustring(object::pyGetMember(cls.get(), "__name__").get());
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        identifier_ = u"VELTRAPyHost::UnknownException";
    }
    try {
        message_ = object::get_ustring(object::pyStr(errorValue.get()).get());
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        message_ = u"VELTRAPyHost::UnprintableException";
    }
}

PyExceptionReport::PyExceptionReport(std::u16string identifier, std::u16string message)
    : identifier_(std::move(identifier)), message_(std::move(message)) {
    errorObject_ = exception::pyErrorFetch();
    exception::pyErrorClear();
}

vd::Array PyExceptionReport::toStructure() const {
    vd::StructArray report = factory_.createStructArray({1, 1}, reportFields());
    report[0]["exceptionName"] = factory_.createCharArray(identifier_);
    report[0]["exceptionMessage"] = factory_.createCharArray(message_);
    report[0]["object"] = factory_.createScalar(objectRegistryRetain(errorObject_));
    vd::Array classProperties = sharedEmptyText();
    vd::Array classMetadata = sharedEmptyText();
    vd::Array scalarData = sharedEmptyText();
    H cls = object::pyGetClass(errorObject_.get());
    if (object::pyHasMember(cls.get(), "__name__") && reportedClassDescriber()) {
        H name = object::pyGetMember(cls.get(), "__name__");
        ClassDescription described = reportedClassDescriber()(name, cls);
        classProperties = std::move(described.properties);
        classMetadata = std::move(described.metadata);
    }
    report[0]["classProperties"] = classProperties;
    report[0]["classMetadata"] = classMetadata;
    report[0]["scalarData"] = scalarData;
    return report;
}

vd::Array reportFromInterpreter() {
    return PyExceptionReport().toStructure();
}

vd::Array reportOf(std::u16string identifier, std::u16string message) {
    return PyExceptionReport(std::move(identifier), std::move(message)).toStructure();
}

}  // namespace pylnk
