#include "support_module.h"

namespace pylnk_core::detail {

// Operations that are plain Python are kept in Python: shorter than the same
// through the C API, and the same on every version.
const char* const kSupportSource = R"PY(
import sys


def vx_name(cls):
    module = getattr(cls, '__module__', None)
    if not isinstance(module, str) or module == 'builtins':
        return 'py.' + cls.__name__
    return 'py.' + module + '.' + cls.__name__


def is_mapping(value):
    import collections.abc
    return isinstance(value, collections.abc.Mapping)


def implements_collection(cls, name):
    import collections.abc
    base = getattr(collections.abc, name, None)
    return isinstance(base, type) and issubclass(cls, base)


def first_not_instance(items, kind):
    import datetime
    cls = getattr(datetime, kind)
    for place, item in enumerate(items):
        if not isinstance(item, cls):
            return place
    return -1


def timezone_text(value):
    zone = value.tzinfo
    if zone is None:
        return ''
    # Named zones carry their key; fixed offsets only a display name.
    for attribute in ('key', 'zone'):
        text = getattr(zone, attribute, None)
        if isinstance(text, str) and text:
            return text
    text = zone.tzname(value)
    if isinstance(text, str):
        return text
    raise TypeError('cannot read the time zone of type ' + type(zone).__qualname__)


def make_datetime(year, month, day, hour, minute, second, millisecond, utc):
    import datetime
    import math
    whole = (year, month, day, hour, minute)
    for value in whole + (second, millisecond):
        if not math.isfinite(value):
            raise ValueError('date and time components must be finite numbers')
    for value in whole:
        if value != int(value):
            raise ValueError('year, month, day, hour and minute must be whole numbers')
    seconds = math.floor(second)
    micro = round((second - seconds) * 1e6 + millisecond * 1e3)
    zone = datetime.timezone.utc if utc else None
    start = datetime.datetime(int(year), int(month), int(day), int(hour), int(minute),
                              tzinfo=zone)
    return start + datetime.timedelta(seconds=seconds, microseconds=micro)


def make_timedelta(milliseconds):
    import datetime
    import math
    if not math.isfinite(milliseconds):
        raise ValueError('a duration must be a finite number of milliseconds')
    return datetime.timedelta(milliseconds=milliseconds)


def make_datetime64(texts, shape):
    import numpy
    values = numpy.array(texts, dtype='datetime64')
    if numpy.datetime_data(values.dtype)[0] == 'generic':
        values = values.astype('datetime64[ms]')
    return values.reshape(shape, order='F')


def make_timedelta64(raw, shape):
    import numpy
    milliseconds = numpy.frombuffer(raw, dtype=numpy.float64)
    finite = numpy.isfinite(milliseconds)
    values = milliseconds[finite]
    if numpy.all(values == numpy.round(values)):
        unit, scale = 'ms', 1.0
    else:
        unit, scale = 'us', 1000.0
    ticks = numpy.round(values * scale)
    if ticks.size and numpy.abs(ticks).max() >= 2.0 ** 63:
        raise OverflowError('duration out of range')
    result = numpy.full(milliseconds.shape, numpy.timedelta64('NaT'),
                        dtype='timedelta64[' + unit + ']')
    result[finite] = ticks.astype(numpy.int64)
    return result.reshape(shape, order='F')


def _failure(action, error):
    return '%s: %s: %s' % (action, type(error).__name__, error)


def resolve(name):
    """(0, object), (1, reason) for a malformed name, (2, reason) when not found."""
    parts = name.split('.')
    if not all(part.isidentifier() for part in parts):
        return 1, 'not a dotted Python name: ' + repr(name)
    import importlib
    import types
    target, used = None, 0
    for count in range(len(parts), 0, -1):
        module_name = '.'.join(parts[:count])
        try:
            target = importlib.import_module(module_name)
        except ModuleNotFoundError as error:
            missing = error.name or ''
            if module_name == missing or module_name.startswith(missing + '.'):
                continue
            return 2, _failure('importing ' + module_name, error)
        except BaseException as error:
            return 2, _failure('importing ' + module_name, error)
        used = count
        break
    if target is None:
        import builtins
        target = builtins
    for part in parts[used:]:
        try:
            target = getattr(target, part)
            continue
        except AttributeError:
            pass
        except BaseException as error:
            return 2, _failure('reading ' + part, error)
        if not isinstance(target, types.ModuleType):
            return 2, '%s has no attribute %s' % (type(target).__name__, part)
        try:
            target = importlib.import_module(target.__name__ + '.' + part)
        except BaseException as error:
            return 2, _failure('looking up ' + name, error)
    return 0, target


def prepend_path(entries):
    sys.path[0:0] = [entry for entry in entries if entry]


def stop_threads(timeout):
    threading = sys.modules.get('threading')
    if threading is None:
        return
    import time
    deadline = time.monotonic() + timeout
    # Hooks registered for interpreter exit ask executors' workers to stop;
    # they may join those workers without a limit, so they run on a helper.
    hooks = list(getattr(threading, '_threading_atexits', ()))
    if hooks:
        threading._SHUTTING_DOWN = True

        def run_hooks():
            for hook in reversed(hooks):
                try:
                    hook()
                except BaseException:
                    pass

        helper = threading.Thread(target=run_hooks, daemon=True)
        helper.start()
        helper.join(max(0.0, deadline - time.monotonic()))
    me, main = threading.current_thread(), threading.main_thread()
    for thread in threading.enumerate():
        if thread is me or thread is main or thread.daemon:
            continue
        remaining = deadline - time.monotonic()
        if remaining <= 0:
            break
        thread.join(remaining)
    # The interpreter's own wait at finalisation has no limit: the wait above
    # replaces it.
    threading._shutdown = lambda: None
)PY";

const char* const* supportSources() {
    static const char* const sources[] = {kSupportSource, kDataframeSupportSource,
                                          kDatesSupportSource, nullptr};
    return sources;
}

}  // namespace pylnk_core::detail
