// Dates and durations taken apart into the components the host assembles
// its own from: a date into year to millisecond, a duration into hours to
// milliseconds, never into ticks.
//
// Each object is built from a Python object and reads it once: the whole
// decomposition is one call into Python, done with NumPy's vector arithmetic
// for arrays, and the accessors only hand out what it gave. Construction
// follows the default failure rule (InternalPyException, the Python error
// left set).
//
// NumPy values of every unit decompose, from years to attoseconds, before
// 1970 (floor arithmetic) and beyond years 1 to 9999. Arrays are read in
// column-major order: element k of every accessor, and of natIndices, is the
// k-th element of the array walked with its first index fastest, as the
// host stores its own arrays. The components of a NaT are zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "pylnk_core/types.h"

namespace pylnk_core::api::primitive {

// Components of a numpy.datetime64. The second is whole; the milliseconds
// carry the rest of the second, with a fraction for units finer than ms.
// Raises TypeError for anything but a datetime64 and OverflowError for a
// year beyond 32 bits.
class Datetime64Component {
  public:
    explicit Datetime64Component(python::pyArray* value);

    std::int32_t year = 0;
    std::int32_t month = 0;
    std::int32_t day = 0;
    std::int32_t hour = 0;
    std::int32_t minute = 0;
    double second = 0;
    double millisecond = 0;
    bool isNaT = false;
};

// Components of a numpy.timedelta64. Every component carries the sign of
// the duration, so that hours*3600000 + minutes*60000 + seconds*1000 +
// milliseconds is the duration in milliseconds. A year counts 365.2425 days
// and a month a twelfth of that, as NumPy casts them. Raises TypeError for
// anything but a timedelta64, ValueError for a value without a unit (only
// NaT has no need of one) and OverflowError when the hours leave 64 bits.
class Timedelta64Component {
  public:
    explicit Timedelta64Component(python::pyArray* value);

    std::int64_t hours = 0;
    std::int64_t minutes = 0;
    std::int64_t seconds = 0;
    std::int64_t milliseconds_int = 0;
    double milliseconds = 0;
    bool isNaT = false;

    // True when the milliseconds are whole (the unit is ms or coarser):
    // milliseconds_int holds them, else milliseconds does.
    bool isMsInt() const { return msInt_; }

  private:
    bool msInt_ = true;
};

// Year to millisecond, one entry per date, as the array and list classes
// below hand them out: by reference, living as long as the object.
class DateComponentRows {
  public:
    const std::vector<std::int64_t>& years() const { return years_; }
    const std::vector<std::int64_t>& months() const { return months_; }
    const std::vector<std::int64_t>& days() const { return days_; }
    const std::vector<std::int64_t>& hours() const { return hours_; }
    const std::vector<std::int64_t>& minutes() const { return minutes_; }
    const std::vector<double>& seconds() const { return seconds_; }
    const std::vector<double>& milliseconds() const { return milliseconds_; }

  protected:
    // The seven rows from items first to first + 6 of a sequence of buffers.
    void readRows(python::pyArray* buffers, std::size_t first);

    std::vector<std::int64_t> years_, months_, days_, hours_, minutes_;
    std::vector<double> seconds_, milliseconds_;
};

// What the two array classes below know of the array itself.
class ArrayComponentsLayout {
  public:
    bool isValid() const { return valid_; }
    std::size_t numel() const { return nat_.size(); }
    // The number of dimensions and their extents (none for a 0-d array).
    std::pair<std::size_t, std::vector<std::size_t>> shape() const { return {dims_.size(), dims_}; }
    const std::vector<bool>& natIndices() const { return nat_; }

  protected:
    // Reads the shape and NaT mask, items 0 and 1 of the support code's
    // answer; false, and the object left invalid, for None (another dtype).
    bool readLayout(python::pyArray* answer);

  private:
    bool valid_ = false;
    std::vector<std::size_t> dims_;
    std::vector<bool> nat_;
};

// The components of a NumPy array of datetime64, as Datetime64Component
// gives them for one value.
class Datetime64ArrayComponents : public ArrayComponentsLayout, public DateComponentRows {
  public:
    // isValid is false, and every vector empty, for an object whose dtype
    // is not datetime64 (NumPy's own dtypes only).
    explicit Datetime64ArrayComponents(python::pyArray* array);
};

// The components of a NumPy array of timedelta64, as Timedelta64Component
// gives them for one value. Only the millisecond vector that isMsInt names
// is filled; the other is empty.
class Timedelta64ArrayComponents : public ArrayComponentsLayout {
  public:
    // isValid is false, and every vector empty, for an object whose dtype
    // is not timedelta64.
    explicit Timedelta64ArrayComponents(python::pyArray* array);

    bool isMsInt() const { return msInt_; }
    const std::vector<std::int64_t>& hours() const { return hours_; }
    const std::vector<std::int64_t>& minutes() const { return minutes_; }
    const std::vector<std::int64_t>& seconds() const { return seconds_; }
    const std::vector<double>& milliseconds() const { return milliseconds_; }
    const std::vector<std::int64_t>& milliseconds_int() const { return millisecondsInt_; }

  private:
    bool msInt_ = true;
    std::vector<std::int64_t> hours_, minutes_, seconds_, millisecondsInt_;
    std::vector<double> milliseconds_;
};

// The components of a list or tuple of datetime.datetime (subclasses
// count), in its order, each read as the object states it (no conversion
// between zones): the second whole, the milliseconds microsecond / 1000.
// Raises for an element that is no datetime or whose time zone gives no text.
class DatetimeListComponent : public DateComponentRows {
  public:
    DatetimeListComponent() = default;
    explicit DatetimeListComponent(python::pyArray* list);
    DatetimeListComponent(DatetimeListComponent&&) noexcept = default;
    DatetimeListComponent& operator=(DatetimeListComponent&&) noexcept = default;
    ~DatetimeListComponent() = default;

    // The zone text of the first element, as object::pyDatetimeGetTimezone
    // gives it (empty for a naive one or an empty list).
    const std::u16string& timezone() const { return timezone_; }
    // Every element has the first one's zone: the same tzinfo, or one with
    // the same text. Naive elements share the empty zone.
    bool areTimeZoneElementsOfListSame() const { return sameZone_; }

  private:
    std::u16string timezone_;
    bool sameZone_ = true;
};

// The components of a list or tuple of datetime.timedelta, in its order,
// split as Python normalises a timedelta: hours are days * 24, seconds the
// attribute seconds (0 to 86399, never folded into minutes), milliseconds
// microseconds / 1000.
class TimedeltaListComponent {
  public:
    TimedeltaListComponent() = default;
    explicit TimedeltaListComponent(python::pyArray* list);
    TimedeltaListComponent(TimedeltaListComponent&&) noexcept = default;
    TimedeltaListComponent& operator=(TimedeltaListComponent&&) noexcept = default;
    ~TimedeltaListComponent() = default;

    const std::vector<std::int64_t>& hours() const { return hours_; }
    const std::vector<std::int64_t>& seconds() const { return seconds_; }
    const std::vector<double>& milliseconds() const { return milliseconds_; }

  private:
    std::vector<std::int64_t> hours_, seconds_;
    std::vector<double> milliseconds_;
};

}  // namespace pylnk_core::api::primitive
