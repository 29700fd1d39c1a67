// The Python that the client keeps in each worker, beside the library's
// commands: what those cannot do in one round trip, or not at all.
#pragma once

#include <cstddef>

namespace vxpy::detail {

// The objects that the helpers' source exports, in its order. They live as
// long as the worker.
enum class Helper : std::size_t {
    Main,      // the __main__ module
    MainDict,  // its namespace, for eval and exec
    None,
    True,
    False,
    Eval,
    Exec,
    Repr,
    Bool,
    SetAttr,
    GetItem,
    SetItem,
    TypeName,
    ToFloat,
    ToInt64,
    ArraySource,
    ListSource,
    DescribeError,
    Noop,
};
inline constexpr std::size_t kHelperCount = static_cast<std::size_t>(Helper::Noop) + 1;

// The class of the helpers' refusals: a conversion that does not apply.
inline constexpr const char* kCannotConvert = "VxpyCannotConvert";

// Run by exec in a namespace of its own; leaves `exports`: the objects of
// Helper in its order, then the Python thread's kernel thread id as a float.
extern const char* const kHelperSource;

}  // namespace vxpy::detail
