// The subset of the CPython C API that the bridge uses, declared here rather
// than taken from Python.h so that one build serves every supported version.
//
// Only entry points and objects whose signatures and meaning have been stable
// since 3.8 are listed. Objects are opaque: reference counts go through
// Py_IncRef/Py_DecRef and type tests through calls, never through struct
// fields, whose layout changes between versions.
#pragma once

#include <sys/types.h>
#include <cstddef>

#include "pylnk_core/types.h"

namespace pylnk_core::capi {

using PyObject = python::pyArray;
using Py_ssize_t = ssize_t;
struct PyThreadState;

// Start symbols of the compiler (stable values since Python 2).
inline constexpr int Py_file_input = 257;
inline constexpr int Py_eval_input = 258;
// Rich comparison operator for equality.
inline constexpr int Py_EQ = 2;
// Buffer request flags.
inline constexpr int PyBUF_FORMAT = 0x0004;
inline constexpr int PyBUF_ANY_CONTIGUOUS = 0x0080 | 0x0010 | 0x0008;
// Access of a memoryview over raw memory.
inline constexpr int PyBUF_READ = 0x100;

// The buffer view filled by PyObject_GetBuffer; a public struct whose layout
// has not changed since 3.3.
struct Py_buffer {
    void* buf;
    PyObject* obj;
    Py_ssize_t len;
    Py_ssize_t itemsize;
    int readonly;
    int ndim;
    char* format;
    Py_ssize_t* shape;
    Py_ssize_t* strides;
    Py_ssize_t* suboffsets;
    void* internal;
};

struct Py_complex {
    double real;
    double imag;
};

// From this minor version on, the pending error is one exception object with
// its own get and set calls; older versions have only the (type, value,
// traceback) triple, which later ones keep as a deprecated form.
inline constexpr int kRaisedExceptionSinceMinor = 12;

// X(name, return type, parameter list, first minor version that has it).
// A minor version of 0 means "every supported version".
#define PYLNK_CAPI_FUNCTIONS(X)                                                          \
    X(Py_GetVersion, const char*, (), 0)                                                 \
    X(Py_IsInitialized, int, (), 0)                                                      \
    X(Py_InitializeEx, void, (int), 0)                                                   \
    X(Py_FinalizeEx, int, (), 0)                                                         \
    X(Py_SetProgramName, void, (const wchar_t*), 0)                                      \
    X(Py_SetPythonHome, void, (const wchar_t*), 0)                                       \
    X(PyEval_SaveThread, PyThreadState*, (), 0)                                          \
    X(PyEval_RestoreThread, void, (PyThreadState*), 0)                                   \
    X(PyGILState_Ensure, int, (), 0)                                                     \
    X(PyGILState_Release, void, (int), 0)                                                \
    X(PyGILState_Check, int, (), 0)                                                      \
    X(Py_IncRef, void, (PyObject*), 0)                                                   \
    X(Py_DecRef, void, (PyObject*), 0)                                                   \
    X(PyErr_Occurred, PyObject*, (), 0)                                                  \
    X(PyErr_Clear, void, (), 0)                                                          \
    X(PyErr_Fetch, void, (PyObject**, PyObject**, PyObject**), 0)                        \
    X(PyErr_Restore, void, (PyObject*, PyObject*, PyObject*), 0)                         \
    X(PyErr_NormalizeException, void, (PyObject**, PyObject**, PyObject**), 0)           \
    X(PyErr_GetRaisedException, PyObject*, (), kRaisedExceptionSinceMinor)               \
    X(PyErr_SetRaisedException, void, (PyObject*), kRaisedExceptionSinceMinor)           \
    X(PyErr_SetString, void, (PyObject*, const char*), 0)                                \
    X(PyErr_ExceptionMatches, int, (PyObject*), 0)                                       \
    X(PyException_SetTraceback, int, (PyObject*, PyObject*), 0)                          \
    X(PyException_GetTraceback, PyObject*, (PyObject*), 0)                               \
    X(PyImport_ImportModule, PyObject*, (const char*), 0)                                \
    X(PyImport_GetModuleDict, PyObject*, (), 0)                                          \
    X(PyModule_GetDict, PyObject*, (PyObject*), 0)                                       \
    X(PyCapsule_Import, void*, (const char*, int), 0)                                    \
    X(PyRun_StringFlags, PyObject*, (const char*, int, PyObject*, PyObject*, void*), 0)  \
    X(PySys_GetObject, PyObject*, (const char*), 0)                                      \
    X(PyObject_GetAttr, PyObject*, (PyObject*, PyObject*), 0)                            \
    X(PyObject_GetAttrString, PyObject*, (PyObject*, const char*), 0)                    \
    X(PyObject_SetAttr, int, (PyObject*, PyObject*, PyObject*), 0)                       \
    X(PyObject_Call, PyObject*, (PyObject*, PyObject*, PyObject*), 0)                    \
    X(PyObject_CallFunctionObjArgs, PyObject*, (PyObject*, ...), 0)                      \
    X(PyObject_Str, PyObject*, (PyObject*), 0)                                           \
    X(PyObject_Hash, Py_ssize_t, (PyObject*), 0)                                         \
    X(PyObject_RichCompareBool, int, (PyObject*, PyObject*, int), 0)                     \
    X(PyObject_IsInstance, int, (PyObject*, PyObject*), 0)                               \
    X(PyObject_IsSubclass, int, (PyObject*, PyObject*), 0)                               \
    X(PyObject_IsTrue, int, (PyObject*), 0)                                              \
    X(PyObject_Type, PyObject*, (PyObject*), 0)                                          \
    X(PyCallable_Check, int, (PyObject*), 0)                                             \
    X(PyObject_Dir, PyObject*, (PyObject*), 0)                                           \
    X(PyObject_Size, Py_ssize_t, (PyObject*), 0)                                         \
    X(PyObject_GetItem, PyObject*, (PyObject*, PyObject*), 0)                            \
    X(PyObject_SetItem, int, (PyObject*, PyObject*, PyObject*), 0)                       \
    X(PyObject_GetBuffer, int, (PyObject*, Py_buffer*, int), 0)                          \
    X(PyBuffer_Release, void, (Py_buffer*), 0)                                           \
    X(PyLong_FromLong, PyObject*, (long), 0)                                             \
    X(PyLong_FromLongLong, PyObject*, (long long), 0)                                    \
    X(PyLong_FromUnsignedLongLong, PyObject*, (unsigned long long), 0)                   \
    X(PyLong_FromSsize_t, PyObject*, (Py_ssize_t), 0)                                    \
    X(PyLong_AsLong, long, (PyObject*), 0)                                               \
    X(PyLong_AsLongLong, long long, (PyObject*), 0)                                      \
    X(PyLong_AsUnsignedLongLong, unsigned long long, (PyObject*), 0)                     \
    X(PyNumber_Index, PyObject*, (PyObject*), 0)                                         \
    X(PyNumber_Long, PyObject*, (PyObject*), 0)                                          \
    X(PyFloat_FromDouble, PyObject*, (double), 0)                                        \
    X(PyFloat_AsDouble, double, (PyObject*), 0)                                          \
    X(PyComplex_FromDoubles, PyObject*, (double, double), 0)                             \
    X(PyComplex_AsCComplex, Py_complex, (PyObject*), 0)                                  \
    X(PyBool_FromLong, PyObject*, (long), 0)                                             \
    X(PyUnicode_FromStringAndSize, PyObject*, (const char*, Py_ssize_t), 0)              \
    X(PyUnicode_DecodeUTF16, PyObject*, (const char*, Py_ssize_t, const char*, int*), 0) \
    X(PyUnicode_AsEncodedString, PyObject*, (PyObject*, const char*, const char*), 0)    \
    X(PyUnicode_AsUTF8AndSize, const char*, (PyObject*, Py_ssize_t*), 0)                 \
    X(PyBytes_FromStringAndSize, PyObject*, (const char*, Py_ssize_t), 0)                \
    X(PyBytes_AsStringAndSize, int, (PyObject*, char**, Py_ssize_t*), 0)                 \
    X(PyMemoryView_FromMemory, PyObject*, (char*, Py_ssize_t, int), 0)                   \
    X(PySequence_Check, int, (PyObject*), 0)                                             \
    X(PySequence_GetItem, PyObject*, (PyObject*, Py_ssize_t), 0)                         \
    X(PySequence_Tuple, PyObject*, (PyObject*), 0)                                       \
    X(PyMapping_Check, int, (PyObject*), 0)                                              \
    X(PyMapping_Items, PyObject*, (PyObject*), 0)                                        \
    X(PyTuple_New, PyObject*, (Py_ssize_t), 0)                                           \
    X(PyTuple_SetItem, int, (PyObject*, Py_ssize_t, PyObject*), 0)                       \
    X(PyList_New, PyObject*, (Py_ssize_t), 0)                                            \
    X(PyList_Append, int, (PyObject*, PyObject*), 0)                                     \
    X(PyDict_New, PyObject*, (), 0)                                                      \
    X(PyDict_SetItem, int, (PyObject*, PyObject*, PyObject*), 0)                         \
    X(PyDict_SetItemString, int, (PyObject*, const char*, PyObject*), 0)                 \
    X(PyDict_GetItemString, PyObject*, (PyObject*, const char*), 0)                      \
    X(PyDict_GetItem, PyObject*, (PyObject*, PyObject*), 0)                              \
    X(PyUnicode_InternFromString, PyObject*, (const char*), 0)

// Entry points that every supported version has under one name until a minor
// version, and under another from it on:
// X(member, return type, parameter list, older symbol, newer symbol, minor
// version of the new name).
#define PYLNK_CAPI_RENAMED_FUNCTIONS(X)                                            \
    /* An attribute read that tells "missing" without raising: 1 found, */         \
    /* 0 missing, -1 failed with an error set. */                                  \
    X(LookupAttr, int, (PyObject*, PyObject*, PyObject**), "_PyObject_LookupAttr", \
      "PyObject_GetOptionalAttr", 13)

// X(member, exported symbol, type of the symbol). Type objects and the
// singletons are the objects themselves; the exception entries are variables
// that hold a pointer to the exception class.
#define PYLNK_CAPI_OBJECTS(X)                                         \
    X(None, "_Py_NoneStruct", PyObject)                               \
    X(TypeType, "PyType_Type", PyObject)                              \
    X(BoolType, "PyBool_Type", PyObject)                              \
    X(LongType, "PyLong_Type", PyObject)                              \
    X(FloatType, "PyFloat_Type", PyObject)                            \
    X(ComplexType, "PyComplex_Type", PyObject)                        \
    X(UnicodeType, "PyUnicode_Type", PyObject)                        \
    X(BytesType, "PyBytes_Type", PyObject)                            \
    X(TupleType, "PyTuple_Type", PyObject)                            \
    X(DictType, "PyDict_Type", PyObject)                              \
    X(ModuleType, "PyModule_Type", PyObject)                          \
    X(ExcTypeError, "PyExc_TypeError", PyObject*)                     \
    X(ExcValueError, "PyExc_ValueError", PyObject*)                   \
    X(ExcIndexError, "PyExc_IndexError", PyObject*)                   \
    X(ExcRuntimeError, "PyExc_RuntimeError", PyObject*)               \
    X(ExcAttributeError, "PyExc_AttributeError", PyObject*)           \
    X(ExcOverflowError, "PyExc_OverflowError", PyObject*)             \
    X(ExcModuleNotFoundError, "PyExc_ModuleNotFoundError", PyObject*) \
    X(IgnoreEnvironmentFlag, "Py_IgnoreEnvironmentFlag", int)         \
    X(NoUserSiteDirectory, "Py_NoUserSiteDirectory", int)

// The table of entry points, filled from one library by bind().
struct Table {
#define PYLNK_CAPI_MEMBER(name, ret, params, since) ret(*name) params = nullptr;
    PYLNK_CAPI_FUNCTIONS(PYLNK_CAPI_MEMBER)
#undef PYLNK_CAPI_MEMBER
#define PYLNK_CAPI_MEMBER(name, ret, params, older, newer, since) ret(*name) params = nullptr;
    PYLNK_CAPI_RENAMED_FUNCTIONS(PYLNK_CAPI_MEMBER)
#undef PYLNK_CAPI_MEMBER
#define PYLNK_CAPI_MEMBER(member, symbol, type) type* member = nullptr;
    PYLNK_CAPI_OBJECTS(PYLNK_CAPI_MEMBER)
#undef PYLNK_CAPI_MEMBER
};

// Resolves every entry point that the given minor version of Python 3 must
// export. Returns the name of the first missing symbol, or nullptr when the
// table is complete.
const char* bind(void* libraryHandle, int minorVersion, Table& table);

}  // namespace pylnk_core::capi
