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


def _divmod(values, divisor):
    """numpy.divmod by a positive number, floored, in a fraction of its
    time: NumPy divides by a scalar quickly but takes remainders slowly."""
    quotient = values // divisor
    return quotient, values - quotient * divisor


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
    ticks = numpy.array(flat.view(numpy.int64))
    nat = ticks == _NAT
    ticks[nat] = 0
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
    month = mp + 3 - 12 * (mp >= 10)
    year = yoe + era * 400 + (month <= 2)
    return year, month, day


def _milliseconds(fraction, per_second):
    """The milliseconds of a fraction of a second in ticks. At femto- and
    attoseconds a double cannot tell the last ticks of a second from the next
    second: those stay just below 1000."""
    import numpy
    return numpy.minimum(fraction / (per_second // 1000), numpy.nextafter(1000.0, 0.0))


# Arrays are taken apart a slice at a time: the many intermediate arrays of
# a slice stay in the processor's cache, which makes the whole several times
# faster than steps over whole arrays.
_SLICE = 1 << 15


def _in_slices(found, parts_of, kinds):
    """(shape, NaT mask) and one whole array for each letter of kinds ('q'
    int64, 'd' float64), filled slice by slice from parts_of(ticks, unit),
    zero at NaT."""
    import numpy
    shape, nat, ticks, unit = found
    columns = [numpy.zeros(ticks.size, numpy.int64 if kind == 'q' else numpy.float64)
               for kind in kinds]
    for start in range(0, ticks.size, _SLICE):
        at = slice(start, start + _SLICE)
        for column, values in zip(columns, parts_of(ticks[at], unit)):
            column[at] = values
    if nat.any():
        for column in columns:
            column[nat] = 0
    return (shape, nat) + tuple(columns)


def _date_parts(ticks, unit):
    """Year, month, day, hour, minute, second and millisecond of the ticks."""
    if unit == 'Y':
        if ticks.size and int(ticks.max()) > _INT64_MAX - 1970:
            raise _out_of_range('year')
        return ticks + 1970, 1, 1, 0, 0, 0, 0
    if unit == 'M':
        years, months = _divmod(ticks, 12)
        return years + 1970, months + 1, 1, 0, 0, 0, 0
    hour = minute = second = millisecond = 0
    if unit == 'W':
        # 400 years are whole weeks: weeks fold into cycles without a count
        # of days that could leave 64 bits.
        era, weeks = _divmod(ticks, 20871)
        days_of_era = weeks * 7
    else:
        if unit in _TICKS_PER_SECOND:
            per_second = _TICKS_PER_SECOND[unit]
            seconds, fraction = _divmod(ticks, per_second)
            millisecond = _milliseconds(fraction, per_second)
            days, of_day = _divmod(seconds, 86400)
        elif unit in ('h', 'm', 's'):
            days, rest = _divmod(ticks, 86400 // _SECONDS[unit])
            of_day = rest * _SECONDS[unit]
        else:
            days, of_day = ticks, 0
        hour, rest = _divmod(of_day, 3600)
        minute, second = _divmod(rest, 60)
        era, days_of_era = _divmod(days, 146097)
    year, month, day = _civil(era, days_of_era)
    return year, month, day, hour, minute, second, millisecond


def split_datetime64(values):
    """Calendar components of a datetime64 array, column-major, zero at NaT:
    (shape, NaT mask, year, month, day, hour, minute as int64, second and
    millisecond as float64); None for another dtype."""
    found = _ticks(values, 'M')
    if found is None:
        return None
    return _in_slices(found, _date_parts, 'qqqqqdd')


def _duration_parts(ticks, unit):
    """Hours, minutes, seconds and milliseconds of the ticks, each with the
    sign of the duration."""
    import numpy
    if unit == 'generic' and numpy.any(ticks):
        raise ValueError('a timedelta64 without a unit has no length')
    size = numpy.abs(ticks)
    if unit in _TICKS_PER_SECOND:
        per_second = _TICKS_PER_SECOND[unit]
        seconds, fraction = _divmod(size, per_second)
        hours, rest = _divmod(seconds, 3600)
        milliseconds = fraction if unit == 'ms' else _milliseconds(fraction, per_second)
    else:
        # size * length / 3600 hours, in parts that stay within 64 bits
        # whenever the hours themselves do.
        length = _SECONDS[unit]
        if size.size and length > 3600 and int(size.max()) > _INT64_MAX * 3600 // length:
            raise _out_of_range('timedelta64[%s]' % unit)
        per_hour, extra = divmod(length, 3600)
        high, low = _divmod(size, 3600)
        hours = size * per_hour + high * extra + low * extra // 3600
        rest = _divmod(low * extra, 3600)[1]
        milliseconds = 0
    minutes, seconds = _divmod(rest, 60)
    sign = numpy.sign(ticks)
    # Adding 0 leaves no negative zero among the floats.
    return tuple(part * sign + 0 for part in (hours, minutes, seconds, milliseconds))


def split_timedelta64(values):
    """Hours, minutes, seconds and milliseconds of a timedelta64 array,
    column-major, zero at NaT: (shape, NaT mask, hours, minutes, seconds as
    int64, milliseconds, whole). Every component carries the sign of the
    duration, so h*3600000 + m*60000 + s*1000 + ms is the duration in
    milliseconds. The milliseconds are int64 and `whole` True for the unit ms
    and coarser, float64 and False for finer units. None for another dtype."""
    found = _ticks(values, 'm')
    if found is None:
        return None
    whole = found[3] not in _TICKS_PER_SECOND or found[3] == 'ms'
    return _in_slices(found, _duration_parts, 'qqq' + ('q' if whole else 'd')) + (whole,)


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
