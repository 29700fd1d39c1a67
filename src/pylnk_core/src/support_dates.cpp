#include "support_module.h"

namespace pylnk_core::detail {

// Dates and durations taken apart for the host (date_components.cpp): whole
// NumPy arrays at once, in 64-bit integer arithmetic with floor division, so
// that no element costs a call of its own and no tick is lost to rounding.
const char* const kDatesSupportSource = R"PY(
_NAT = -2 ** 63
_INT64_MAX = 2 ** 63 - 1
# Seconds in one unit of a duration. Years and months have no fixed length:
# they count their mean length, as NumPy does when it casts them.
_SECONDS = {'Y': 31556952, 'M': 2629746, 'W': 604800, 'D': 86400, 'h': 3600, 'm': 60,
            's': 1, 'generic': 1}
_TICKS_PER_SECOND = {'ms': 10 ** 3, 'us': 10 ** 6, 'ns': 10 ** 9, 'ps': 10 ** 12,
                     'fs': 10 ** 15, 'as': 10 ** 18}


def _out_of_range(what):
    return OverflowError(what + ' out of the range of 64-bit components')


def _ticks(values, kind):
    """(shape, NaT mask, ticks, unit), flat in column-major order, with the
    ticks of NaT zeroed and a multiplier ([10ms]) folded into the ticks;
    None for an object whose dtype is not of that kind."""
    import numpy
    dtype = getattr(values, 'dtype', None)
    if not isinstance(dtype, numpy.dtype) or dtype.kind != kind:
        return None
    values = numpy.asarray(values)
    flat = values.ravel(order='F')
    if not flat.dtype.isnative:
        flat = flat.astype(flat.dtype.newbyteorder('='))
    ticks = flat.view(numpy.int64)
    nat = ticks == _NAT
    ticks = numpy.where(nat, 0, ticks)
    unit, count = numpy.datetime_data(values.dtype)
    if count != 1:
        if ticks.size and int(numpy.abs(ticks).max()) > _INT64_MAX // count:
            raise _out_of_range('%s[%d%s]' % (values.dtype.name.split('[')[0], count, unit))
        ticks = ticks * count
    return values.shape, nat, ticks, unit


def _civil(era, day_of_era):
    """Proleptic Gregorian year, month and day of the day `day_of_era` in the
    400-year cycle `era`, counted from 1970-01-01; floor arithmetic, so that
    days before 1970 and years beyond 1..9999 come out right."""
    import numpy
    # Shift the origin to 0000-03-01, 719468 days before 1970-01-01, where
    # leap days fall at the end of the year; 719468 is 4 cycles and 135080.
    day_of_era = day_of_era + 135080
    wrap = day_of_era >= 146097
    era = era + 4 + wrap
    doe = day_of_era - 146097 * wrap
    yoe = (doe - doe // 1460 + doe // 36524 - doe // 146096) // 365
    doy = doe - (365 * yoe + yoe // 4 - yoe // 100)
    mp = (5 * doy + 2) // 153
    day = doy - (153 * mp + 2) // 5 + 1
    month = numpy.where(mp < 10, mp + 3, mp - 9)
    year = yoe + era * 400 + (month <= 2)
    return year, month, day


def _milliseconds(fraction, per_second):
    """The milliseconds of a fraction of a second in ticks. Below a
    femtosecond a double cannot tell the last tick of a second from the next
    second: those stay just below 1000."""
    import numpy
    return numpy.minimum(fraction / (per_second // 1000), numpy.nextafter(1000.0, 0.0))


def split_datetime64(values):
    """Calendar components of a datetime64 array, column-major, zero at NaT:
    (shape, NaT mask, year, month, day, hour, minute as int64, second and
    millisecond as float64); None for another dtype."""
    import numpy
    found = _ticks(values, 'M')
    if found is None:
        return None
    shape, nat, ticks, unit = found
    zero = numpy.zeros_like(ticks)
    hour = minute = second = zero
    millisecond = numpy.zeros(ticks.shape)
    if unit == 'Y':
        if ticks.size and int(ticks.max()) > _INT64_MAX - 1970:
            raise _out_of_range('year')
        year, month, day = ticks + 1970, zero + 1, zero + 1
    elif unit == 'M':
        year, month, day = ticks // 12 + 1970, ticks % 12 + 1, zero + 1
    else:
        if unit == 'W':
            # 400 years are whole weeks: weeks fold into cycles without a
            # count of days that could leave 64 bits.
            era, weeks = numpy.divmod(ticks, 20871)
            days_of_era = weeks * 7
        else:
            if unit in _TICKS_PER_SECOND:
                per_second = _TICKS_PER_SECOND[unit]
                seconds, fraction = numpy.divmod(ticks, per_second)
                millisecond = _milliseconds(fraction, per_second)
                days, of_day = numpy.divmod(seconds, 86400)
            elif unit in ('h', 'm', 's'):
                days, rest = numpy.divmod(ticks, 86400 // _SECONDS[unit])
                of_day = rest * _SECONDS[unit]
            else:
                days, of_day = ticks, zero
            hour, rest = numpy.divmod(of_day, 3600)
            minute, whole = numpy.divmod(rest, 60)
            second = whole.astype(numpy.float64)
            era, days_of_era = numpy.divmod(days, 146097)
        year, month, day = _civil(era, days_of_era)
    parts = [year, month, day, hour, minute, second, millisecond]
    parts = [numpy.where(nat, 0, part) for part in parts]
    return (shape, nat) + tuple(numpy.ascontiguousarray(p) for p in parts)


def split_timedelta64(values):
    """Hours, minutes, seconds and milliseconds of a timedelta64 array,
    column-major, zero at NaT: (shape, NaT mask, hours, minutes, seconds as
    int64, milliseconds, whole). Every component carries the sign of the
    duration, so h*3600000 + m*60000 + s*1000 + ms is the duration in
    milliseconds. The milliseconds are int64 and `whole` True for the unit ms
    and coarser, float64 and False for finer units. None for another dtype."""
    import numpy
    found = _ticks(values, 'm')
    if found is None:
        return None
    shape, nat, ticks, unit = found
    if unit == 'generic' and numpy.any(ticks):
        raise ValueError('a timedelta64 without a unit has no length')
    size = numpy.abs(ticks)
    if unit in _TICKS_PER_SECOND:
        per_second = _TICKS_PER_SECOND[unit]
        seconds, fraction = numpy.divmod(size, per_second)
        hours, rest = numpy.divmod(seconds, 3600)
        whole = unit == 'ms'
        milliseconds = fraction if whole else _milliseconds(fraction, per_second)
    else:
        # size * length / 3600 hours, in parts that stay within 64 bits
        # whenever the hours themselves do.
        length = _SECONDS[unit]
        if size.size and length > 3600 and int(size.max()) > _INT64_MAX * 3600 // length:
            raise _out_of_range('timedelta64[%s]' % unit)
        per_hour, extra = divmod(length, 3600)
        high, low = numpy.divmod(size, 3600)
        hours = size * per_hour + high * extra + low * extra // 3600
        rest = low * extra % 3600
        whole = True
        milliseconds = numpy.zeros_like(size)
    minutes, seconds = numpy.divmod(rest, 60)
    negative = ticks < 0
    parts = []
    for part in (hours, minutes, seconds, milliseconds):
        # 0 - x, not -x: no negative zero among the floats.
        part = numpy.where(negative, 0 - part, part)
        parts.append(numpy.ascontiguousarray(numpy.where(nat, 0, part)))
    return (shape, nat) + tuple(parts) + (whole,)


def split_datetime_list(items):
    """Components of a sequence of datetimes, in its order: year, month, day,
    hour, minute (array 'q'), second, millisecond (array 'd'), the zone text
    of the first element, and whether every element has that zone."""
    import array
    whole = [array.array('q') for _ in range(5)]
    second, millisecond = array.array('d'), array.array('d')
    zone, text, same = None, '', True
    for place, item in enumerate(items):
        for column, value in zip(whole, (item.year, item.month, item.day, item.hour,
                                         item.minute)):
            column.append(value)
        second.append(item.second)
        millisecond.append(item.microsecond / 1000.0)
        if place == 0:
            zone, text = item.tzinfo, timezone_text(item)
        elif same and item.tzinfo is not zone:
            same = timezone_text(item) == text
    return tuple(whole) + (second, millisecond, text, same)


def split_timedelta_list(items):
    """Hours (days * 24), seconds (array 'q') and milliseconds (array 'd') of
    a sequence of timedeltas, in its order."""
    import array
    return (array.array('q', [24 * item.days for item in items]),
            array.array('q', [item.seconds for item in items]),
            array.array('d', [item.microseconds / 1000.0 for item in items]))
)PY";

}  // namespace pylnk_core::detail
