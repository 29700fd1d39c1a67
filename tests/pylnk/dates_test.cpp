// Dates and durations to the host: every shape Python has for them as its
// structure of components, the element order of arrays, NaT and the reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "support/session.h"

using namespace vxtest;

namespace {

using Strings = std::vector<std::string>;

const char* const kDatetime = "VELTRAPyHost_pyDatetimeData";
const char* const kZone = "VELTRAPyHost_pyDatetimeTzData";
const char* const kDateArray = "VELTRAPyHost_pyDatetime64ArrayData";
const char* const kSpanArray = "VELTRAPyHost_pyTimedelta64Array";
const Strings kComponents{"year", "month", "day", "hour", "minute", "second", "millisecond"};

class Dates : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec(
            "import datetime, zoneinfo, numpy, pandas\n"
            "class Unnamed(datetime.tzinfo):\n"
            "    def utcoffset(self, value): return datetime.timedelta(0)\n"
            "    def tzname(self, value): raise RuntimeError('no name')\n");
    }
    static vd::Array dates(const std::string& expression) {
        return call("pyDatetimeGetData", {addressArray(eval(expression))});
    }
    static vd::Array durations(const std::string& expression) {
        return call("pyTimeDeltaGetData", {addressArray(eval(expression))});
    }
};

}  // namespace

TEST_F(Dates, DatetimesAndTimedeltasAsPythonStatesThem) {
    // The reading as the object states it, beside its zone's text.
    const std::pair<const char*, const char*> datetimes[] = {
        {"datetime.datetime(2024, 2, 29, 10, 30, 15, 1500)",
         "DOUBLE 1x7: 2024 2 29 10 30 15 1.5 | CHAR 1x0:"},
        {"datetime.datetime(2024, 7, 1, 12, tzinfo=zoneinfo.ZoneInfo('Europe/Paris'))",
         "DOUBLE 1x7: 2024 7 1 12 0 0 0 | CHAR 1x12: Europe/Paris"},
        {"datetime.datetime(2024, 1, 1, tzinfo=datetime.timezone(datetime.timedelta(hours=2)))",
         "DOUBLE 1x7: 2024 1 1 0 0 0 0 | CHAR 1x9: UTC+02:00"},
        {"pandas.Timestamp('2024-02-29 10:30:15.250', tz='UTC')",
         "DOUBLE 1x7: 2024 2 29 10 30 15 250 | CHAR 1x3: UTC"},
    };
    for (const auto& [expression, expected] : datetimes) {
        const vd::Array reply = dates(expression);
        EXPECT_EQ(fieldNames(reply), (Strings{kDatetime, kZone})) << expression;
        EXPECT_EQ(shown(reply, {kDatetime, kZone}), expected) << expression;
    }
    EXPECT_EQ(reportOf(dates("datetime.datetime(2024, 1, 1, tzinfo=Unnamed())")),
              "VELTRAPyHost::UnsupportedDatetimeTimezoneType: ");
    // An object of no such shape: a stored exception, and no Python error.
    EXPECT_THAT(failureOf<std::invalid_argument>([] { dates("3"); }),
                ::testing::HasSubstr("py.int"));
    EXPECT_THROW(durations("datetime.datetime(2024, 1, 1)"), std::invalid_argument);
    EXPECT_FALSE(errorOccurred());

    // -1 minute and -0.5 ms is -1 day + 86339 s + 999500 us in Python.
    const std::pair<const char*, const char*> timedeltas[] = {
        {"datetime.timedelta(days=1, seconds=3661)", "DOUBLE 1x4: 24 0 3661 0"},
        {"datetime.timedelta(minutes=-1, microseconds=-500)", "DOUBLE 1x4: -24 0 86339 999.5"},
        {"pandas.Timedelta(milliseconds=1500)", "DOUBLE 1x4: 0 0 1 500"},
    };
    for (const auto& [expression, expected] : timedeltas) {
        EXPECT_EQ(show(field(durations(expression), "VELTRAPyHost_pyTimeDeltaData")), expected)
            << expression;
    }
}

TEST_F(Dates, NumpyScalarsOfEveryUnitAndRange) {
    const std::pair<const char*, const char*> datetimes[] = {
        {"numpy.datetime64('2024-02-29T10:30:15.250')",
         "INT64 1x5: 2024 2 29 10 30 | DOUBLE 1x2: 15 250 | LOGICAL 1x1: 0"},
        {"numpy.datetime64('1969-12-31T23:59:59.999999999')",
         "INT64 1x5: 1969 12 31 23 59 | DOUBLE 1x2: 59 999.999999 | LOGICAL 1x1: 0"},
        {"numpy.datetime64('-0044-03-15T12', 'h')",
         "INT64 1x5: -44 3 15 12 0 | DOUBLE 1x2: 0 0 | LOGICAL 1x1: 0"},
        {"numpy.datetime64('12345-06-07', 'W')",
         "INT64 1x5: 12345 6 7 0 0 | DOUBLE 1x2: 0 0 | LOGICAL 1x1: 0"},
        {"numpy.datetime64(-1, 'M')",
         "INT64 1x5: 1969 12 1 0 0 | DOUBLE 1x2: 0 0 | LOGICAL 1x1: 0"},
        {"numpy.datetime64(-1, 'fs')",
         "INT64 1x5: 1969 12 31 23 59 | DOUBLE 1x2: 59 999.999999999999 | LOGICAL 1x1: 0"},
        {"numpy.datetime64(3, '10m')",
         "INT64 1x5: 1970 1 1 0 30 | DOUBLE 1x2: 0 0 | LOGICAL 1x1: 0"},
        {"numpy.datetime64('NaT', 'ns')",
         "INT64 1x5: 0 0 0 0 0 | DOUBLE 1x2: 0 0 | LOGICAL 1x1: 1"},
    };
    for (const auto& [expression, expected] : datetimes) {
        const vd::Array inner = field(dates(expression), "VELTRAPyHost_pyDatetime64ScalarData");
        EXPECT_EQ(fieldNames(inner), (Strings{"NaT", "year_min", "sec_ms"})) << expression;
        EXPECT_EQ(shown(inner, {"year_min", "sec_ms", "NaT"}), expected) << expression;
    }
    // The scalar's year has 32 bits; the default road leaves the error set.
    EXPECT_THROW(dates("numpy.datetime64(2**40, 'Y')"), std::exception);
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");

    const std::pair<const char*, const char*> timedeltas[] = {
        {"numpy.timedelta64(-5400500, 'ms')",
         "INT64 1x3: -1 -30 0 | INT64 1x1: -500 | LOGICAL 1x2: 0 1"},
        {"numpy.timedelta64(-3723001500, 'us')",
         "INT64 1x3: -1 -2 -3 | DOUBLE 1x1: -1.5 | LOGICAL 1x2: 0 0"},
        {"numpy.timedelta64(1, 'Y')", "INT64 1x3: 8765 49 12 | INT64 1x1: 0 | LOGICAL 1x2: 0 1"},
        {"numpy.timedelta64('NaT', 'us')", "INT64 1x3: 0 0 0 | DOUBLE 1x1: 0 | LOGICAL 1x2: 1 0"},
    };
    for (const auto& [expression, expected] : timedeltas) {
        const vd::Array inner = field(durations(expression), "VELTRAPyHost_pyTimedelta64Scalar");
        EXPECT_EQ(fieldNames(inner), (Strings{"hour_min_sec", "ms", "NaT_msInt"})) << expression;
        EXPECT_EQ(shown(inner, fieldNames(inner)), expected) << expression;
    }
}

// NumPy element (i, j, ...) is host element (i, j, ...), the host's own
// column-major order, and the shape goes back as the host sends it.
TEST_F(Dates, ArraysInHostOrderWithNaTMarked) {
    // Element (i, j, k) is i hours, j minutes and k seconds past 2000-01-01.
    exec(
        "cube = numpy.empty((2, 3, 4), 'M8[ms]')\n"
        "for i, j, k in numpy.ndindex(cube.shape):\n"
        "    cube[i, j, k] = numpy.datetime64('2000-01-01') + "
        "numpy.timedelta64(3600 * i + 60 * j + k, 's')\n"
        "cube[1, 2, 3] = 'NaT'\n");
    const vd::Array reply = dates("cube");
    EXPECT_EQ(fieldNames(reply), (Strings{kDateArray, "ndims", "dims", "NaT_indices"}));
    EXPECT_EQ(shown(reply, {"ndims", "dims"}), "UINT64 1x1: 3 | INT64 1x3: 2 3 4");
    const vd::Array inner = field(reply, kDateArray);
    EXPECT_EQ(fieldNames(inner), kComponents);
    // year, hour, minute, second, NaT: every component is zero at NaT.
    std::string expected[5];
    for (int at = 0; at < 24; ++at) {
        const int i = at % 2, j = at / 2 % 3, k = at / 6;
        const bool isNat = i == 1 && j == 2 && k == 3;
        const int values[] = {2000, i, j, k, 1};
        for (int c = 0; c < 5; ++c) {
            expected[c] += " " + std::to_string(isNat == (c == 4) ? values[c] : 0);
        }
    }
    EXPECT_EQ(shown(inner, {"year", "hour", "minute", "second"}) + " | " +
                  show(field(reply, "NaT_indices")),
              "INT64 1x24:" + expected[0] + " | INT64 1x24:" + expected[1] + " | INT64 1x24:" +
                  expected[2] + " | DOUBLE 1x24:" + expected[3] + " | LOGICAL 1x24:" + expected[4]);

    const vd::Array whole =
        durations("numpy.array([[1, -2, 3], [-60000, 3600000, -2**63]], 'm8[ms]')");
    EXPECT_EQ(fieldNames(whole), (Strings{kSpanArray, "ndims", "dims", "isMsInt"}));
    EXPECT_EQ(show(field(whole, "isMsInt")), "LOGICAL 1x1: 1");
    const vd::Array split = field(whole, kSpanArray);
    EXPECT_EQ(fieldNames(split),
              (Strings{"hour", "minute", "second", "millisecond", "NaT", "isMsInt"}));
    EXPECT_EQ(shown(split, {"hour", "minute", "millisecond", "NaT"}),
              "INT64 1x6: 0 0 0 1 0 0 | INT64 1x6: 0 -1 0 0 0 0 | INT64 1x6: 1 0 -2 0 3 0 | "
              "LOGICAL 1x6: 0 0 0 0 0 1");
    EXPECT_TRUE(field(split, "isMsInt").isEmpty()) << "the flag travels outside";
    const vd::Array fine = durations("numpy.array([1500, -250], 'm8[us]')");
    EXPECT_EQ(show(field(fine, "isMsInt")), "LOGICAL 1x1: 0");
    EXPECT_EQ(show(field(field(fine, kSpanArray), "millisecond")), "DOUBLE 1x2: 1.5 -0.25");

    EXPECT_EQ(reportOf(dates("numpy.zeros(3)")),
              "VELTRAPyHost::NumPyTypeNotSuitableForConversion: datetime");
    EXPECT_EQ(reportOf(durations("numpy.array(['2024-01-01'], 'M8[D]')")),
              "VELTRAPyHost::NumPyTypeNotSuitableForConversion: duration");
    EXPECT_FALSE(errorOccurred());
}

// The arrays' integer arithmetic against Python's own datetime and
// timedelta, which the lists are read from: random values of several units,
// before 1970 and after, give the same dates and the same durations.
TEST_F(Dates, ArraysAgreeWithPythonsOwnDatetimesAndTimedeltas) {
    exec(
        "rng = numpy.random.default_rng(7)\n"
        "low, high = numpy.array(['0001-01-01', '9999-12-31'], 'M8[us]').view('i8')\n"
        "def both(a):\n"
        "    return a, a.astype(a.dtype.kind + '8[us]').astype(object).tolist()\n");
    for (const std::string unit : {"D", "h", "s", "ms", "us"}) {
        exec("a, l = both(rng.integers(low, high, 500).view('M8[us]').astype('M8[" + unit + "]'))");
        const vd::Array array = field(dates("a"), kDateArray);
        const vd::Array list = field(dates("l"), "VELTRAPyHost_pyDatetimeListData");
        for (const std::string& part : kComponents) {
            EXPECT_EQ(show(field(array, part)), show(field(list, part))) << unit << " " << part;
        }
    }
    // Every component carries the sign: the sum is the duration.
    auto microseconds = [](std::int64_t hours, std::int64_t minutes, std::int64_t seconds,
                           double milliseconds) {
        return ((hours * 60 + minutes) * 60 + seconds) * 1000000 +
               std::llround(milliseconds * 1000);
    };
    using Ints = std::vector<std::int64_t>;
    for (const std::string unit : {"D", "s", "ms", "us"}) {
        exec("a, l = both(rng.integers(-10**15, 10**15, 500).view('m8[us]').astype('m8[" + unit +
             "]'))");
        const vd::Array reply = durations("a");
        const vd::Array array = field(reply, kSpanArray);
        const vd::Array list = field(durations("l"), "VELTRAPyHost_pyTimedeltaListData");
        const bool whole = valueOf<bool>(field(reply, "isMsInt"));
        const Ints h = valuesOf<std::int64_t>(field(array, "hour"));
        const Ints m = valuesOf<std::int64_t>(field(array, "minute"));
        const Ints s = valuesOf<std::int64_t>(field(array, "second"));
        const vd::Array ms = field(array, "millisecond");
        const Ints lh = valuesOf<std::int64_t>(field(list, "hour"));
        const Ints ls = valuesOf<std::int64_t>(field(list, "second"));
        const std::vector<double> lms = valuesOf<double>(field(list, "millisecond"));
        ASSERT_EQ(h.size(), 500u);
        for (size_t k = 0; k < h.size(); ++k) {
            const double milliseconds = whole ? static_cast<double>(valuesOf<std::int64_t>(ms)[k])
                                              : valuesOf<double>(ms)[k];
            ASSERT_EQ(microseconds(h[k], m[k], s[k], milliseconds),
                      microseconds(lh[k], 0, ls[k], lms[k]))
                << unit << " element " << k;
        }
    }
}

TEST_F(Dates, ListsTuplesZonesAndFirstNone) {
    exec(
        "paris = zoneinfo.ZoneInfo('Europe/Paris')\n"
        "zoned = [datetime.datetime(2024, 1, 1, 8, tzinfo=paris),\n"
        "         pandas.Timestamp('2024-07-01 09:00:00.0015', tz=paris)]\n");
    const Address list = eval("zoned");
    const long long before = refcount(list);
    const vd::Array reply = call("pyDatetimeGetData", {addressArray(list)});
    EXPECT_EQ(refcount(list), before);
    const char* const convertible = "VELTRAPyHost_pyDatetimeListConvertible";
    EXPECT_EQ(show(field(field(reply, convertible), "validInputList")), "LOGICAL 1x1: 1");
    const vd::Array data = field(reply, "VELTRAPyHost_pyDatetimeListData");
    EXPECT_EQ(fieldNames(data), kComponents);
    EXPECT_EQ(shown(data, {"hour", "millisecond"}), "INT64 1x2: 8 9 | DOUBLE 1x2: 0 1.5");
    const Strings zone{"validSingleTimeZone", "TimeZoneData"};
    EXPECT_EQ(shown(field(reply, kZone), zone), "LOGICAL 1x1: 1 | CHAR 1x12: Europe/Paris");
    EXPECT_EQ(shown(field(dates("(datetime.datetime(2024, 1, 1), zoned[0])"), kZone), zone),
              "LOGICAL 1x1: 0 | CHAR 1x0:");

    const vd::Array bad = dates("zoned + [3, zoned[0]]");
    EXPECT_EQ(shown(field(bad, convertible), {"validInputList", "nonDatetimeLoc"}),
              "LOGICAL 1x1: 0 | UINT64 1x1: 2");
    EXPECT_TRUE(field(bad, "VELTRAPyHost_pyDatetimeListData").isEmpty());
    EXPECT_EQ(show(field(field(dates("[]"), "VELTRAPyHost_pyDatetimeListData"), "year")),
              "INT64 1x0:");
    EXPECT_EQ(reportOf(dates("[datetime.datetime(2024, 1, 1, tzinfo=Unnamed())]")),
              "RuntimeError: no name");
    EXPECT_FALSE(errorOccurred());

    exec("class Spans(list): pass\n");
    const vd::Array split = field(
        durations("Spans([datetime.timedelta(hours=-1, seconds=1), pandas.Timedelta(1, 'ms')])"),
        "VELTRAPyHost_pyTimedeltaListData");
    EXPECT_EQ(fieldNames(split), (Strings{"hour", "second", "millisecond"}));
    EXPECT_EQ(shown(split, fieldNames(split)),
              "INT64 1x2: -24 0 | INT64 1x2: 82801 0 | DOUBLE 1x2: 0 1");
    const vd::Array odd = durations("(datetime.timedelta(1), 'a')");
    EXPECT_EQ(show(field(field(odd, "VELTRAPyHost_pyTimedeltaListConvertible"), "nonTimedeltaLoc")),
              "UINT64 1x1: 1");
}
