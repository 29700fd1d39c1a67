// The exception report: a Python failure, or one the library names itself,
// as an ordinary reply the host can read (a struct with "exceptionName").
#pragma once

#include <string>

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

// Built inside a catch and never thrown. Both constructors consume the
// pending Python error, so a later command finds it clear.
class PyExceptionReport {
  public:
    // From the pending Python error, for a guard that caught
    // pylnk_core::InternalPyException. The identifier is the exception's
    // class name, the message its str(); each falls back to a fixed text
    // when it cannot be read.
    PyExceptionReport();
    // A failure the library names itself ("VELTRAPyHost::..."), with a detail.
    PyExceptionReport(std::u16string identifier, std::u16string message);

    // The 1 by 1 report structure: "exceptionName", "exceptionMessage",
    // "object", "classProperties", "classMetadata", "scalarData". Retains the
    // fetched error object for the host. A Python failure while describing
    // its class passes on as InternalPyException.
    foundation::veltradata::Array toStructure() const;

  private:
    std::u16string identifier_;
    std::u16string message_;
    H errorObject_;
    foundation::veltradata::ArrayFactory factory_;
};

// The two ways guards use a report: the structure of a report from the
// pending error, and of a report with a fixed identifier.
foundation::veltradata::Array reportFromInterpreter();
foundation::veltradata::Array reportOf(std::u16string identifier, std::u16string message);

// A report describes the class of its error object as class metadata does
// ("classProperties", "classMetadata"). That description lives in
// introspection/, above this folder, so the service hands it down before the
// first command runs.
struct ClassDescription {
    foundation::veltradata::Array properties;
    foundation::veltradata::Array metadata;
};
using ClassDescriber = ClassDescription (*)(const H& name, const H& cls);
void describeReportedClassesWith(ClassDescriber describe);

}  // namespace pylnk
