// Host arrays into Python objects: the driver, which decides by array type,
// recurses through cells and plain structs, and hands marker structs to
// their conversions (markers.h, table.h) and numbers to numeric_arrays.h.
// Everything here runs on the Python thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/exception_report.h"
#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

// What every conversion gives. Callers test `object` only; a failure is
// handed back unchanged through every level of recursion.
struct ConversionResult {
    // The Python object; null when the conversion failed.
    H object;
    // Array() when object is set. Otherwise the exception report structure,
    // or Array() for a type that has no Python form.
    foundation::veltradata::Array failure;
};

ConversionResult made(H object);
ConversionResult failedWith(foundation::veltradata::Array failure);

// The driver: one host array, one Python object.
ConversionResult convertToPython(foundation::veltradata::Array array);
// A Python str of the UTF-16 text.
ConversionResult convertTextToPython(const std::u16string& text);
// The marker conversion of the first marker field the struct has, or a dict.
ConversionResult convertStructToPython(foundation::veltradata::StructArray array);
// A dict of element 0: field name to converted value, in field order.
ConversionResult convertPlainStruct(foundation::veltradata::StructArray array,
                                    const std::vector<std::string>& fieldNames);
// The keyword arguments of a call from the fields "kwargKey<i>" and
// "kwargValue<i>" of element 0. On success the dict carries one reference
// more than its holder, which the caller gives back after the call (see
// ExtraReference); on a failure it has been given back already.
ConversionResult convertKeywordArguments(foundation::veltradata::Array keywords);

// --- the values of a call sent as host arrays -------------------------------

// A command's input made of a cell whose element 0 is a cell of positional
// values and element 1 a struct of keyword pairs.
struct HostCallInput {
    foundation::veltradata::TypedArray<foundation::veltradata::Array> positional;
    foundation::veltradata::StructArray keywords;
};
HostCallInput readHostCallInput(foundation::veltradata::Array input);

// Converts the positional values, in storage order, onto the end of
// `objects`. The first failed conversion stops it and its failure array is
// returned; nothing is returned when every value converted.
std::optional<foundation::veltradata::Array> convertPositionalValues(
    const foundation::veltradata::TypedArray<foundation::veltradata::Array>& values,
    std::vector<H>& objects);

// Converts the pairs "kwargKey<i>" / "kwargValue<i>" of element 0, key then
// value, and hands each pair to `take` before the next one is read. There are
// (number of fields) / 2 pairs, looked up by name: a field that fits no pair
// only counts. Failures as convertPositionalValues.
std::optional<foundation::veltradata::Array> convertKeywordPairs(
    const foundation::veltradata::StructArray& keywords,
    const std::function<void(H key, H value)>& take);

// The guarded region of a conversion: a Python failure becomes a failed
// result with the report of the pending error (which the report consumes).
template <class Body>
ConversionResult guarded(Body&& body) {
    try {
        return body();
    } catch (const pylnk_core::InternalPyException&) {
        return failedWith(reportFromInterpreter());
    }
}

// Imports a module that a conversion needs. If it cannot be imported, the
// failed result with the fixed identifier and detail.
std::optional<ConversionResult> importFailure(const std::u16string& moduleName,
                                              std::u16string identifier, std::u16string detail);

// Gives back the extra reference of a keyword dict when the scope ends,
// whichever way it ends, unless keep() was called.
class ExtraReference {
  public:
    explicit ExtraReference(python::pyArray* object) : object_(object) {}
    ~ExtraReference();
    ExtraReference(const ExtraReference&) = delete;
    ExtraReference& operator=(const ExtraReference&) = delete;
    void keep() { object_ = nullptr; }

  private:
    python::pyArray* object_;
};

}  // namespace pylnk
