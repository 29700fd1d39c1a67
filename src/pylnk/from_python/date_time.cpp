#include "from_python/date_time.h"

#include <fl/i18n.h>

#include <array>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "base/exception_report.h"
#include "base/handler_support.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;

namespace {

using Fields = std::vector<std::pair<std::string, vd::Array>>;

// A 1 by 1 struct with `names` in this order; the fields that `values` does
// not name stay as the factory left them.
vd::Array structOf(const std::vector<std::string>& names, const Fields& values) {
    vd::StructArray result = vd::ArrayFactory().createStructArray({1, 1}, names);
    for (const auto& [name, value] : values) {
        result[0][name] = value;
    }
    return result;
}

vd::Array structOf(const Fields& fields) {
    std::vector<std::string> names;
    for (const auto& field : fields) {
        names.push_back(field.first);
    }
    return structOf(names, fields);
}

// 1 by n, of the vector's own element type unless T says another.
template <class T = void, class V>
vd::Array row(const std::vector<V>& values) {
    return vd::ArrayFactory().createArray<T>({1, values.size()}, values.begin(), values.end());
}

// The year to millisecond rows of an array's or a list's components.
template <class Components>
vd::Array dateRows(const Components& dates) {
    return structOf({{"year", row(dates.years())},
                     {"month", row(dates.months())},
                     {"day", row(dates.days())},
                     {"hour", row(dates.hours())},
                     {"minute", row(dates.minutes())},
                     {"second", row(dates.seconds())},
                     {"millisecond", row(dates.milliseconds())}});
}

// The reply to an array: its components, "ndims" and "dims" (the extents,
// from which the host rebuilds its own array), then the fields of `last`.
template <class Components>
vd::Array arrayResult(const char* name, vd::Array inner, const Components& components,
                      Fields last) {
    const auto [ndims, dims] = components.shape();
    Fields outer = {
        {name, std::move(inner)}, {"ndims", uint64Value(ndims)}, {"dims", row<std::int64_t>(dims)}};
    outer.insert(outer.end(), last.begin(), last.end());
    return structOf(outer);
}

using ListTest = bool (*)(python::pyArray*, std::size_t&);

// The reply to a list: first whether every element is of the kind, else
// the place of the first that is not; then, for a list that is, the fields
// that `describe` makes of its components. A failure while the elements are
// read is answered with its report.
template <class Components, class Describe>
void answerList(python::pyArray* list, ReplyPromise* promise, ListTest test,
                const std::vector<std::string>& names, const char* placeName, Describe describe) {
    std::size_t place = 0;
    const bool valid = test(list, place);
    Fields outer = {{names[0], structOf({{"validInputList", truthValue(valid)},
                                         {placeName, uint64Value(place)}})}};
    if (valid) {
        Components components;
        try {
            components = Components(list);
        } catch (const InternalPyException&) {
            reply(promise, reportFromInterpreter());
            return;
        }
        describe(components, outer);
    }
    reply(promise, structOf(names, outer));
}

long intAttribute(python::pyArray* object, const char* name) {
    return primitive::pyIntGetData(object::pyGetMember(object, name).get());
}

using Answer = void (*)(python::pyArray*, ReplyPromise*);

template <vd::Array (*build)(python::pyArray*)>
void answerWith(python::pyArray* object, ReplyPromise* promise) {
    reply(promise, build(object));
}

// A class name and what answers for an object of that class.
struct TypeRow {
    std::string_view typeName;
    Answer answer;
};

constexpr std::array<TypeRow, 5> kDatetimeRows = {{
    {"py.datetime.datetime", &answerWith<buildDatetimeData>},
    {"py.numpy.datetime64", &answerDatetime64Scalar},
    {"py.numpy.ndarray", &answerWith<buildDatetime64Array>},
    {"py.list", &answerDatetimeList},
    {"py.tuple", &answerDatetimeList},
}};

constexpr std::array<TypeRow, 5> kTimedeltaRows = {{
    {"py.datetime.timedelta", &answerWith<buildTimedeltaData>},
    {"py.numpy.timedelta64", &answerTimedelta64Scalar},
    {"py.numpy.ndarray", &answerWith<buildTimedelta64Array>},
    {"py.list", &answerTimedeltaList},
    {"py.tuple", &answerTimedeltaList},
}};

// The first class of type(object).__mro__ that has a row decides, so that a
// subclass takes its base's row (pandas.Timestamp is a datetime). An object
// without one is a stored exception, with no Python error left set.
void answerByType(const std::string& command, std::span<const TypeRow> rows,
                  python::pyArray* object, ReplyPromise* promise) {
    H mro = object::pyGetMember(object::pyGetType(object).get(), "__mro__");
    std::string typeName = "<unnamed>";
    const unsigned long long count = sequence::pySequenceLength(mro.get());
    for (unsigned long long k = 0; k < count; ++k) {
        std::string name;
        try {
            name = type::pyTypeVXName(sequence::pyGetItem(mro.get(), k).get());
        } catch (const InternalPyException&) {
            // A class whose name cannot be read has no row.
            exception::pyErrorClear();
            continue;
        }
        if (k == 0) {
            typeName = name;
        }
        for (const TypeRow& candidate : rows) {
            if (candidate.typeName == name) {
                candidate.answer(object, promise);
                return;
            }
        }
    }
    throw std::invalid_argument(command + " cannot take an object of type " + typeName + ".");
}

}  // namespace

vd::Array buildDatetimeData(python::pyArray* datetime) {
    std::vector<double> values;
    for (const char* name : {"year", "month", "day", "hour", "minute", "second"}) {
        values.push_back(static_cast<double>(intAttribute(datetime, name)));
    }
    values.push_back(static_cast<double>(intAttribute(datetime, "microsecond")) / 1000.0);
    vd::Array zone = text(std::string());
    if (!object::pyIsNone(object::pyGetMember(datetime, "tzinfo").get())) {
        try {
            zone = text(object::pyDatetimeGetTimezone(datetime));
        } catch (const InternalPyException&) {
            return reportOf(u"VELTRAPyHost::UnsupportedDatetimeTimezoneType", u"");
        }
    }
    return structOf(
        {{"VELTRAPyHost_pyDatetimeData", row(values)}, {"VELTRAPyHost_pyDatetimeTzData", zone}});
}

// Python keeps a timedelta as days, seconds (0 to 86399) and microseconds;
// the seconds are not folded into minutes.
vd::Array buildTimedeltaData(python::pyArray* timedelta) {
    const std::vector<double> values = {
        static_cast<double>(intAttribute(timedelta, "days") * 24), 0.0,
        static_cast<double>(intAttribute(timedelta, "seconds")),
        static_cast<double>(intAttribute(timedelta, "microseconds")) / 1000.0};
    return structOf({{"VELTRAPyHost_pyTimeDeltaData", row(values)}});
}

// At NaT the components are zero: the arrays stay as they were made.
void answerDatetime64Scalar(python::pyArray* value, ReplyPromise* promise) {
    const primitive::Datetime64Component date(value);
    const std::vector<std::int64_t> yearToMinute = {date.year, date.month, date.day, date.hour,
                                                    date.minute};
    const std::vector<double> secondAndMillisecond = {date.second, date.millisecond};
    const vd::Array inner = structOf({{"NaT", truthValue(date.isNaT)},
                                      {"year_min", row(yearToMinute)},
                                      {"sec_ms", row(secondAndMillisecond)}});
    reply(promise, structOf({{"VELTRAPyHost_pyDatetime64ScalarData", inner}}));
}

void answerTimedelta64Scalar(python::pyArray* value, ReplyPromise* promise) {
    const primitive::Timedelta64Component duration(value);
    const bool msInt = duration.isMsInt();
    const std::vector<std::int64_t> hourMinSec = {duration.hours, duration.minutes,
                                                  duration.seconds};
    const std::vector<bool> natAndMsInt = {duration.isNaT, msInt};
    const vd::Array ms = msInt ? row(std::vector<std::int64_t>{duration.milliseconds_int})
                               : row(std::vector<double>{duration.milliseconds});
    const vd::Array inner =
        structOf({{"hour_min_sec", row(hourMinSec)}, {"ms", ms}, {"NaT_msInt", row(natAndMsInt)}});
    reply(promise, structOf({{"VELTRAPyHost_pyTimedelta64Scalar", inner}}));
}

vd::Array buildDatetime64Array(python::pyArray* array) {
    const primitive::Datetime64ArrayComponents dates(array);
    if (!dates.isValid()) {
        return reportOf(u"VELTRAPyHost::NumPyTypeNotSuitableForConversion", u"datetime");
    }
    return arrayResult("VELTRAPyHost_pyDatetime64ArrayData", dateRows(dates), dates,
                       {{"NaT_indices", row(dates.natIndices())}});
}

// The inner "isMsInt" is never written: the flag travels in the outer one.
vd::Array buildTimedelta64Array(python::pyArray* array) {
    const primitive::Timedelta64ArrayComponents durations(array);
    if (!durations.isValid()) {
        return reportOf(u"VELTRAPyHost::NumPyTypeNotSuitableForConversion", u"duration");
    }
    const bool msInt = durations.isMsInt();
    const vd::Array inner = structOf(
        {"hour", "minute", "second", "millisecond", "NaT", "isMsInt"},
        {{"hour", row(durations.hours())},
         {"minute", row(durations.minutes())},
         {"second", row(durations.seconds())},
         {"millisecond", msInt ? row(durations.milliseconds_int()) : row(durations.milliseconds())},
         {"NaT", row(durations.natIndices())}});
    return arrayResult("VELTRAPyHost_pyTimedelta64Array", inner, durations,
                       {{"isMsInt", truthValue(msInt)}});
}

void answerDatetimeList(python::pyArray* list, ReplyPromise* promise) {
    answerList<primitive::DatetimeListComponent>(
        list, promise, &type::pyEachObjTypeOfListIsDatetime,
        {"VELTRAPyHost_pyDatetimeListConvertible", "VELTRAPyHost_pyDatetimeListData",
         "VELTRAPyHost_pyDatetimeTzData"},
        "nonDatetimeLoc", [](const primitive::DatetimeListComponent& dates, Fields& outer) {
            outer.emplace_back("VELTRAPyHost_pyDatetimeListData", dateRows(dates));
            const bool single = dates.areTimeZoneElementsOfListSame();
            outer.emplace_back(
                "VELTRAPyHost_pyDatetimeTzData",
                structOf({{"validSingleTimeZone", truthValue(single)},
                          {"TimeZoneData", text(fl::i18n::to_string(dates.timezone()))}}));
        });
}

void answerTimedeltaList(python::pyArray* list, ReplyPromise* promise) {
    answerList<primitive::TimedeltaListComponent>(
        list, promise, &type::pyEachObjTypeOfListIsTimeDelta,
        {"VELTRAPyHost_pyTimedeltaListConvertible", "VELTRAPyHost_pyTimedeltaListData"},
        "nonTimedeltaLoc", [](const primitive::TimedeltaListComponent& durations, Fields& outer) {
            outer.emplace_back("VELTRAPyHost_pyTimedeltaListData",
                               structOf({{"hour", row(durations.hours())},
                                         {"second", row(durations.seconds())},
                                         {"millisecond", row(durations.milliseconds())}}));
        });
}

VX_COMMAND(pyDatetimeGetDataHandler, "pyDatetimeGetData", 1) {
    answerByType(name, kDatetimeRows, addressArg(prhs, 0), promise);
}

VX_COMMAND(pyTimeDeltaGetDataHandler, "pyTimeDeltaGetData", 1) {
    answerByType(name, kTimedeltaRows, addressArg(prhs, 0), promise);
}

}  // namespace pylnk
