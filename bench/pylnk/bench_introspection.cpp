// Class metadata of large library classes, and module metadata of the five
// modules that start-up describes, each against a pure-Python walk that does
// the same work (the same dir, __mro__ lookups, inspect predicates and
// getfullargspec), and a fast call with a cached class against Ping.
#include <benchmark/benchmark.h>

#include <set>

#include "baselines.h"

using namespace vxtest;

namespace {

// What buildClassMetadata asks of Python, written in Python.
const char* const kPythonWalk = R"PY(
import collections.abc, inspect, operator
_PREDICATES = (('isclass', None), ('isfunction', 'm'), ('ismethod', 'm'), ('isbuiltin', 'm'),
               ('ismethoddescriptor', 'm'), ('isdatadescriptor', 'p'),
               ('isgetsetdescriptor', 'p'), ('ismemberdescriptor', 'p'))
_OPERATORS = sorted(('__add__', '__eq__', '__ge__', '__gt__', '__le__', '__lt__', '__mod__',
                     '__mul__', '__ne__', '__neg__', '__pos__', '__pow__', '__sub__',
                     '__truediv__'))
_COLLECTIONS = ('Callable', 'Sequence', 'MutableSequence', 'Mapping', 'MutableMapping')

def _text(value):
    return value if isinstance(value, str) else ''

def _signature(function, static):
    spec = None
    if inspect.isfunction(function):
        try:
            spec = inspect.getfullargspec(function)
        except Exception:
            spec = None
    if spec is None:
        return (static, True, False, [], [])
    names = [_text(name) for name in spec.args]
    types = []
    for name in names:
        annotation = spec.annotations.get(name)
        if annotation is None:
            types.append(set())
        elif isinstance(annotation, str):
            types.append({piece.replace(' ', '') for piece in annotation.split('|')})
        else:
            types.append({_text(getattr(annotation, '__name__', ''))})
    defaults = len(spec.defaults) if spec.defaults else 0
    return (static, static or spec.varargs is not None,
            spec.varkw is not None or bool(spec.kwonlyargs), names, types, defaults)

def _lookup(cls, name):
    for klass in cls.__mro__:
        try:
            return klass.__dict__[name]
        except KeyError:
            pass
    try:
        return cls.__dict__[name]
    except KeyError:
        pass
    return getattr(cls, name)

def walk(cls):
    facts = (cls.__name__, _text(cls.__module__), _text(cls.__doc__),
             [base.__module__ + '.' + base.__name__ for base in cls.__bases__],
             [issubclass(cls, getattr(collections.abc, name)) for name in _COLLECTIONS])
    operators = []
    for name in _OPERATORS:
        if hasattr(operator, name) and hasattr(cls, name):
            function = getattr(operator, name)
            operators.append((name, function, _text(function.__doc__),
                              _signature(function, False)))
    properties, methods = [], []
    for name in dir(cls):
        try:
            raw = _lookup(cls, name)
        except Exception:
            continue
        kind = None
        for predicate, outcome in _PREDICATES:
            if getattr(inspect, predicate)(raw):
                kind = outcome
                break
        if kind == 'p':
            if type(raw) is property:
                properties.append((name, raw.fget is not None, raw.fset is not None))
            else:
                properties.append((name, True, True))
        elif kind == 'm':
            try:
                bound = getattr(cls, name)
            except Exception:
                bound = raw
            static = isinstance(raw, (staticmethod, classmethod)) or (
                (inspect.ismethoddescriptor(bound) or inspect.isbuiltin(bound))
                and getattr(bound, '__self__', None) is not None)
            methods.append((name, bound, _text(bound.__doc__), _signature(bound, static)))
    return facts, operators, properties, methods

def _arg_types(value):
    signature = _signature(value, False)
    return signature[4] if len(signature) > 4 else []

def walk_module(module):
    import types
    entries = []
    for key, value in list(vars(module).items()):
        if key in ('__name__', '__doc__') or isinstance(value, types.ModuleType):
            continue
        doc = _text(getattr(value, '__doc__', None))
        if inspect.isclass(value):
            if key == value.__name__ and getattr(module, '__name__', None) == value.__module__:
                entries.append(walk(value))
                continue
            entries.append((key, doc, _arg_types(value), _text(value.__module__),
                            [base.__module__ + '.' + base.__name__ for base in value.__bases__]))
        else:
            entries.append((key, doc, callable(value), _arg_types(value)))
    return entries
)PY";

// The modules start-up describes, in its order.
const char* const kWarmedModules[] = {"sys", "builtins", "importlib", "ctypes", "codecs"};

std::string instanceOf(int which) {
    return which == 0 ? "__import__('pandas').DataFrame({'a': [1.0]})"
                      : "__import__('numpy').zeros(3)";
}

// The addresses a metadata structure retained, for the host to release.
void collectRetained(const vd::Array& metadata, std::set<Address>& addresses) {
    addresses.insert(addressOf(field(metadata, "objectAddress")));
    for (const char* list : {"methods", "operators"}) {
        const vd::Array row = field(metadata, list);
        for (size_t i = 0; i < row.getNumberOfElements(); ++i) {
            addresses.insert(addressOf(field(row, "objectAddress", i)));
        }
    }
}

void BM_ClassMetadata(benchmark::State& state) {
    const Address object = eval(instanceOf(static_cast<int>(state.range(0))));
    std::vector<vd::Array> replies;
    for (auto _ : state) {
        replies.push_back(call("pyGetClassMetaData", {addressArray(object)}));
    }
    std::set<Address> addresses;
    for (const vd::Array& metadata : replies) {
        collectRetained(metadata, addresses);
    }
    for (Address a : addresses) {
        release(a);
    }
    release(object);
}

// Every address a module structure retained: the module, its entries, and
// its classes with their members.
void collectModuleRetained(const vd::Array& metadata, std::set<Address>& addresses) {
    addresses.insert(addressOf(field(metadata, "objectAddress")));
    for (const char* list : {"packageFunctions", "getterFunctions"}) {
        const vd::Array row = field(metadata, list);
        for (size_t i = 0; i < row.getNumberOfElements(); ++i) {
            addresses.insert(addressOf(field(row, "objectAddress", i)));
        }
    }
    const vd::Array classes = field(metadata, "classes");
    for (size_t i = 0; i < classes.getNumberOfElements(); ++i) {
        vd::StructArray one = vd::ArrayFactory().createStructArray({1, 1}, fieldNames(classes));
        for (const std::string& name : fieldNames(classes)) {
            one[0][name] = field(classes, name, i);
        }
        collectRetained(one, addresses);
    }
}

// What start-up's warm-up costs: the five modules described anew, one after
// the other, with the cache emptied first (Range 5: all five; else one).
void BM_ModuleMetadata(benchmark::State& state) {
    const auto which = static_cast<size_t>(state.range(0));
    std::vector<Address> modules;
    for (size_t i = 0; i < 5; ++i) {
        if (which == 5 || which == i) {
            modules.push_back(fetch(kWarmedModules[i]));
        }
    }
    std::vector<vd::Array> replies;
    for (auto _ : state) {
        call("ClearMetadataMap");
        for (Address module : modules) {
            replies.push_back(call("pyGetModuleMetaData", {addressArray(module)}));
        }
    }
    std::set<Address> addresses;
    for (const vd::Array& metadata : replies) {
        collectModuleRetained(metadata, addresses);
    }
    for (Address a : addresses) {
        release(a);
    }
    state.SetLabel(which == 5 ? "all five" : kWarmedModules[which]);
}

// The same walks in Python.
void BM_PythonModuleWalk(benchmark::State& state) {
    exec(kPythonWalk);
    const auto which = static_cast<size_t>(state.range(0));
    const Address walk = eval("walk_module");
    std::vector<Address> argTuples;
    for (size_t i = 0; i < 5; ++i) {
        if (which == 5 || which == i) {
            argTuples.push_back(tupleOf({fetch(kWarmedModules[i])}));
        }
    }
    std::vector<vd::Array> results;
    for (auto _ : state) {
        for (Address args : argTuples) {
            results.push_back(call("pyInvoke", {addressArray(walk), addressArray(args)}));
        }
    }
    for (const vd::Array& result : results) {
        call("Release", {result});
    }
    state.SetLabel(which == 5 ? "all five" : kWarmedModules[which]);
}

void BM_PythonWalk(benchmark::State& state) {
    exec(kPythonWalk);
    const Address walk = eval("walk");
    const Address cls = eval("type(" + instanceOf(static_cast<int>(state.range(0))) + ")");
    const Address args = tupleOf({cls});
    std::vector<vd::Array> results;
    for (auto _ : state) {
        results.push_back(call("pyInvoke", {addressArray(walk), addressArray(args)}));
    }
    for (const vd::Array& result : results) {
        call("Release", {result});
    }
}

void BM_Ping(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("Ping"));
    }
}

// The class of the result (float) is in the cache after the first call.
void BM_InvokeFastOfAFloatFunction(benchmark::State& state) {
    exec("def half(): return 0.5");
    const Address half = eval("half");
    const Address noArgs = tupleOf({});
    call("pyInvokeFast", {addressArray(half), addressArray(noArgs)});
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("pyInvokeFast", {addressArray(half), addressArray(noArgs)}));
    }
}

// Arguments: 0 pandas.DataFrame, 1 numpy.ndarray.
BENCHMARK(BM_ClassMetadata)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PythonWalk)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ModuleMetadata)->DenseRange(0, 5)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PythonModuleWalk)->DenseRange(0, 5)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Ping)->UseRealTime();
BENCHMARK(BM_InvokeFastOfAFloatFunction)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    return vxbench::runWithPython(argc, argv);
}
