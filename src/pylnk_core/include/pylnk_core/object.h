// Operations on any Python object.
//
// Failure rule of every operation in the bridge unless one says otherwise: a
// Python failure throws InternalPyException and leaves the Python error set.
// Predicates (pyIs..., pyHasMember) never throw and never leave an error set:
// an object of another kind, or any failure while testing, answers false.
// All operations run on the thread that runs the interpreter.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pylnk_core/types.h"

namespace pylnk_core::api::object {

// getattr(object, name). Raises for a missing attribute.
PyHolder pyGetMember(python::pyArray* object, const char* name);
PyHolder pyGetMember(python::pyArray* object, python::pyArray* name);

// hasattr(object, name): false, with no error set, when the attribute is
// missing or when looking it up raises anything at all.
bool pyHasMember(python::pyArray* object, const char* name);
bool pyHasMember(python::pyArray* object, python::pyArray* name);

// setattr(object, name, value). The object takes its own reference to value.
void pySetMember(python::pyArray* object, python::pyArray* name, python::pyArray* value);

// object.__class__
PyHolder pyGetClass(python::pyArray* object);
// pyGetMember of a name and pyGetClass, for an object used only in the
// caller's scope (the hot path of every call's result).
PyOwned pyGetMemberOwned(python::pyArray* object, const char* name);
PyOwned pyGetClassOwned(python::pyArray* object);
// type(object)
PyHolder pyGetType(python::pyArray* object);
// dir(object): a list of strings.
PyHolder pyDir(python::pyArray* object);
// str(object)
PyHolder pyStr(python::pyArray* object);
// hash(object) as a Python int. Raises for an unhashable object.
PyHolder pyGetHash(python::pyArray* object);
// object == other, as a truth value. Raises when the comparison raises.
bool pyEqual(python::pyArray* object, python::pyArray* other);

// isinstance(object, type); false when type is neither a class nor a tuple.
bool pyIsInstance(python::pyArray* object, python::pyArray* type);
// isinstance(object, type)
bool pyIsType(python::pyArray* object);
// callable(object)
bool pyIsCallable(python::pyArray* object);
// object is None
bool pyIsNone(python::pyArray* object);
// type(object) is builtins.<name>: the exact type, subclasses do not count
// (a bool is not an "int"). A name that builtins does not hold, such as
// "unicode" or "long", answers false.
bool pyIsBuiltin(python::pyArray* object, const char* name);

// bool(inspect.<predicate>(object)). Raises when inspect has no such function
// or when it raises.
bool pyInspect(PyHolder object, const char* predicate);

// callable(*args, **keywords). Either vector may be empty; each keyword pair
// is (name, value) and the name must be a str.
PyHolder pyInvoke(python::pyArray* callable, const std::vector<PyHolder>& args,
                  const std::vector<std::pair<PyHolder, PyHolder>>& keywords);
// callable(*argsTuple, **keywordDict). argsTuple may be null (no positional
// arguments) or any sequence; keywordDict may be null and otherwise must be
// a dict.
PyHolder pyInvoke(python::pyArray* callable, python::pyArray* argsTuple,
                  python::pyArray* keywordDict);
PyOwned pyInvokeOwned(python::pyArray* callable, python::pyArray* argsTuple,
                      python::pyArray* keywordDict);

// UTF-8 text of a str. The pointer stays valid while the object lives; never
// null on success. Raises for an object that is no str.
const char* pyGetChars(python::pyArray* object);
// Text of a str as UTF-16. Raises for an object that is no str.
std::u16string get_ustring(python::pyArray* object);
// The bytes of a bytes object, embedded zero bytes included.
std::string get_stdstring(python::pyArray* object);
// The same bytes in place, for a caller that copies them once into storage of
// its own. Valid while the object lives (a bytes object never changes).
std::string_view get_bytesview(python::pyArray* object);

// The time zone text of a datetime.datetime: the zone's key for a named zone
// ("Europe/Paris"), otherwise what tzname() gives ("UTC", "UTC+02:00").
// Empty for a naive datetime. Raises for a tzinfo that gives no text.
std::string pyDatetimeGetTimezone(python::pyArray* datetime);

// pyTypeVXName of type(object), e.g. "py.int", "py.datetime.datetime".
std::string pyGetVXClassName(python::pyArray* object);

// operator.eq(*args, **keywords): the object that == gives (a bool for plain
// values, an array for NumPy arrays). Raises unless exactly two positional
// arguments and no keywords are given.
PyHolder pyIsEqualOperator(std::vector<PyHolder>& args,
                           std::vector<std::pair<PyHolder, PyHolder>>& keywords);
// bool(numpy.array_equal(*args, **keywords)); keywords such as equal_nan are
// passed on. Raises when NumPy cannot be imported.
bool pyIsEqualNumpyArray(std::vector<PyHolder>& args,
                         std::vector<std::pair<PyHolder, PyHolder>>& keywords);

}  // namespace pylnk_core::api::object
