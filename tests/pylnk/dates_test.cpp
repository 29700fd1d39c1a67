// Dates and durations to the host: every shape Python has for them as its
// structure of components, the element order of arrays, NaT, the reports,
// and an object of no such shape.
#include <gtest/gtest.h>

#include <cmath>

#include "support/conversion.h"

using namespace vxtest;

namespace {

template <class T>
std::vector<T> valuesOf(const vd::Array& array) {
    vd::TypedArray<T> view(array);
    return std::vector<T>(view.begin(), view.end());
}
std::vector<std::int64_t> ints(const vd::Array& array) {
    return valuesOf<std::int64_t>(array);
}
std::vector<double> doubles(const vd::Array& array) {
    return valuesOf<double>(array);
}

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
    static std::string report(const vd::Array& reply) {
        return textOf(field(reply, "exceptionName")) + ": " +
               textOf(field(reply, "exceptionMessage"));
    }
};

}  // namespace

TEST_F(Dates, DatetimesAndTimedeltasAsPythonStatesThem) {
    const vd::Array naive = dates("datetime.datetime(2024, 2, 29, 10, 30, 15, 1500)");
    EXPECT_EQ(fieldNames(naive), (std::vector<std::string>{"VELTRAPyHost_pyDatetimeData",
                                                           "VELTRAPyHost_pyDatetimeTzData"}));
    EXPECT_EQ(doubles(field(naive, "VELTRAPyHost_pyDatetimeData")),
              (std::vector<double>{2024, 2, 29, 10, 30, 15, 1.5}));
    EXPECT_EQ(textOf(field(naive, "VELTRAPyHost_pyDatetimeTzData")), "");
    // The reading as the object states it, beside its zone's text.
    const vd::Array paris =
        dates("datetime.datetime(2024, 7, 1, 12, tzinfo=zoneinfo.ZoneInfo('Europe/Paris'))");
    EXPECT_EQ(doubles(field(paris, "VELTRAPyHost_pyDatetimeData"))[3], 12);
    EXPECT_EQ(textOf(field(paris, "VELTRAPyHost_pyDatetimeTzData")), "Europe/Paris");
    EXPECT_EQ(textOf(field(dates("datetime.datetime(2024, 1, 1, tzinfo=datetime.timezone("
                                 "datetime.timedelta(hours=2)))"),
                           "VELTRAPyHost_pyDatetimeTzData")),
              "UTC+02:00");
    const vd::Array stamp = dates("pandas.Timestamp('2024-02-29 10:30:15.250', tz='UTC')");
    EXPECT_EQ(doubles(field(stamp, "VELTRAPyHost_pyDatetimeData")),
              (std::vector<double>{2024, 2, 29, 10, 30, 15, 250}));
    EXPECT_EQ(report(dates("datetime.datetime(2024, 1, 1, tzinfo=Unnamed())")),
              "VELTRAPyHost::UnsupportedDatetimeTimezoneType: ");
    EXPECT_FALSE(errorOccurred());

    auto split = [](const std::string& expression) {
        return doubles(field(durations(expression), "VELTRAPyHost_pyTimeDeltaData"));
    };
    EXPECT_EQ(split("datetime.timedelta(days=1, seconds=3661)"),
              (std::vector<double>{24, 0, 3661, 0}));
    // -1 minute and -0.5 ms is -1 day + 86339 s + 999500 us in Python.
    EXPECT_EQ(split("datetime.timedelta(minutes=-1, microseconds=-500)"),
              (std::vector<double>{-24, 0, 86339, 999.5}));
    EXPECT_EQ(split("pandas.Timedelta(milliseconds=1500)"), (std::vector<double>{0, 0, 1, 500}));
}

TEST_F(Dates, NumpyScalarsOfEveryUnitBefore1970AndBeyondYear9999) {
    auto date = [](const std::string& expression) {
        const vd::Array inner = field(dates(expression), "VELTRAPyHost_pyDatetime64ScalarData");
        EXPECT_EQ(fieldNames(inner), (std::vector<std::string>{"NaT", "year_min", "sec_ms"}));
        std::vector<double> all;
        for (std::int64_t part : ints(field(inner, "year_min"))) {
            all.push_back(static_cast<double>(part));
        }
        for (double part : doubles(field(inner, "sec_ms"))) {
            all.push_back(part);
        }
        all.push_back(logicalsOf(field(inner, "NaT"))[0] ? 1 : 0);
        return all;
    };
    using V = std::vector<double>;
    EXPECT_EQ(date("numpy.datetime64('2024-02-29T10:30:15.250')"),
              (V{2024, 2, 29, 10, 30, 15, 250, 0}));
    EXPECT_EQ(date("numpy.datetime64('1969-12-31T23:59:59.999999999')"),
              (V{1969, 12, 31, 23, 59, 59, 999.999999, 0}));
    EXPECT_EQ(date("numpy.datetime64('-0044-03-15T12', 'h')"), (V{-44, 3, 15, 12, 0, 0, 0, 0}));
    EXPECT_EQ(date("numpy.datetime64('12345-06-07', 'W')"), (V{12345, 6, 7, 0, 0, 0, 0, 0}));
    EXPECT_EQ(date("numpy.datetime64(-1, 'M')"), (V{1969, 12, 1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(date("numpy.datetime64(-1, 'fs')"),
              (V{1969, 12, 31, 23, 59, 59, 999.999999999999, 0}));
    EXPECT_EQ(date("numpy.datetime64(3, '10m')"), (V{1970, 1, 1, 0, 30, 0, 0, 0}));
    EXPECT_EQ(date("numpy.datetime64('NaT', 'ns')"), (V{0, 0, 0, 0, 0, 0, 0, 1}));
    // The scalar's year has 32 bits; the default road leaves the error set.
    EXPECT_THROW(dates("numpy.datetime64(2**40, 'Y')"), std::exception);
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");

    auto duration = [](const std::string& expression) {
        const vd::Array inner = field(durations(expression), "VELTRAPyHost_pyTimedelta64Scalar");
        EXPECT_EQ(fieldNames(inner), (std::vector<std::string>{"hour_min_sec", "ms", "NaT_msInt"}));
        return inner;
    };
    const vd::Array whole = duration("numpy.timedelta64(-5400500, 'ms')");
    EXPECT_EQ(ints(field(whole, "hour_min_sec")), (std::vector<std::int64_t>{-1, -30, 0}));
    EXPECT_EQ(ints(field(whole, "ms")), (std::vector<std::int64_t>{-500}));
    EXPECT_EQ(logicalsOf(field(whole, "NaT_msInt")), (std::vector<bool>{false, true}));
    const vd::Array fine = duration("numpy.timedelta64(-3723001500, 'us')");
    EXPECT_EQ(ints(field(fine, "hour_min_sec")), (std::vector<std::int64_t>{-1, -2, -3}));
    EXPECT_EQ(doubles(field(fine, "ms")), (std::vector<double>{-1.5}));
    EXPECT_EQ(logicalsOf(field(fine, "NaT_msInt")), (std::vector<bool>{false, false}));
    EXPECT_EQ(ints(field(duration("numpy.timedelta64(1, 'Y')"), "hour_min_sec")),
              (std::vector<std::int64_t>{8765, 49, 12}));
    const vd::Array nat = duration("numpy.timedelta64('NaT', 'us')");
    EXPECT_EQ(ints(field(nat, "hour_min_sec")), (std::vector<std::int64_t>{0, 0, 0}));
    EXPECT_EQ(logicalsOf(field(nat, "NaT_msInt")), (std::vector<bool>{true, false}));
}

// NumPy element (i, j, ...) is host element (i, j, ...), the host's own
// column-major order, and the shape goes back as the host sends it.
TEST_F(Dates, ArraysInTheHostsElementOrderWithNaTWhereItIs) {
    // Element (i, j, k) is i hours, j minutes and k seconds past 2000-01-01.
    exec(
        "cube = numpy.empty((2, 3, 4), 'M8[ms]')\n"
        "for i, j, k in numpy.ndindex(cube.shape):\n"
        "    cube[i, j, k] = numpy.datetime64('2000-01-01') + "
        "numpy.timedelta64(3600 * i + 60 * j + k, 's')\n"
        "cube[1, 2, 3] = 'NaT'\n");
    const vd::Array reply = dates("cube");
    EXPECT_EQ(fieldNames(reply), (std::vector<std::string>{"VELTRAPyHost_pyDatetime64ArrayData",
                                                           "ndims", "dims", "NaT_indices"}));
    EXPECT_EQ(valuesOf<std::uint64_t>(field(reply, "ndims")), (std::vector<std::uint64_t>{3}));
    EXPECT_EQ(ints(field(reply, "dims")), (std::vector<std::int64_t>{2, 3, 4}));
    const vd::Array inner = field(reply, "VELTRAPyHost_pyDatetime64ArrayData");
    EXPECT_EQ(fieldNames(inner), (std::vector<std::string>{"year", "month", "day", "hour", "minute",
                                                           "second", "millisecond"}));
    EXPECT_EQ(field(inner, "hour").getDimensions(), (std::vector<size_t>{1, 24}));
    std::vector<std::int64_t> hours(24), minutes(24);
    std::vector<double> seconds(24);
    std::vector<bool> nat(24);
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 3; ++j) {
            for (int k = 0; k < 4; ++k) {
                const int at = i + 2 * j + 6 * k;
                nat[at] = i == 1 && j == 2 && k == 3;
                // Every component is zero at NaT.
                hours[at] = nat[at] ? 0 : i;
                minutes[at] = nat[at] ? 0 : j;
                seconds[at] = nat[at] ? 0 : k;
            }
        }
    }
    EXPECT_EQ(ints(field(inner, "hour")), hours);
    EXPECT_EQ(ints(field(inner, "minute")), minutes);
    EXPECT_EQ(doubles(field(inner, "second")), seconds);
    EXPECT_EQ(logicalsOf(field(reply, "NaT_indices")), nat);
    EXPECT_EQ(ints(field(inner, "year"))[23], 0);

    const vd::Array whole =
        durations("numpy.array([[1, -2, 3], [-60000, 3600000, -2**63]], 'm8[ms]')");
    EXPECT_EQ(fieldNames(whole), (std::vector<std::string>{"VELTRAPyHost_pyTimedelta64Array",
                                                           "ndims", "dims", "isMsInt"}));
    EXPECT_TRUE(logicalsOf(field(whole, "isMsInt"))[0]);
    const vd::Array split = field(whole, "VELTRAPyHost_pyTimedelta64Array");
    EXPECT_EQ(fieldNames(split), (std::vector<std::string>{"hour", "minute", "second",
                                                           "millisecond", "NaT", "isMsInt"}));
    EXPECT_EQ(ints(field(split, "millisecond")), (std::vector<std::int64_t>{1, 0, -2, 0, 3, 0}));
    EXPECT_EQ(ints(field(split, "minute")), (std::vector<std::int64_t>{0, -1, 0, 0, 0, 0}));
    EXPECT_EQ(ints(field(split, "hour")), (std::vector<std::int64_t>{0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(logicalsOf(field(split, "NaT")),
              (std::vector<bool>{false, false, false, false, false, true}));
    EXPECT_TRUE(field(split, "isMsInt").isEmpty()) << "the flag travels outside";
    const vd::Array fine = durations("numpy.array([1500, -250], 'm8[us]')");
    EXPECT_FALSE(logicalsOf(field(fine, "isMsInt"))[0]);
    EXPECT_EQ(doubles(field(field(fine, "VELTRAPyHost_pyTimedelta64Array"), "millisecond")),
              (std::vector<double>{1.5, -0.25}));

    EXPECT_EQ(report(dates("numpy.zeros(3)")),
              "VELTRAPyHost::NumPyTypeNotSuitableForConversion: datetime");
    EXPECT_EQ(report(durations("numpy.array(['2024-01-01'], 'M8[D]')")),
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
        const vd::Array array = field(dates("a"), "VELTRAPyHost_pyDatetime64ArrayData");
        const vd::Array list = field(dates("l"), "VELTRAPyHost_pyDatetimeListData");
        for (const std::string part : {"year", "month", "day", "hour", "minute"}) {
            EXPECT_EQ(ints(field(array, part)), ints(field(list, part))) << unit << " " << part;
        }
        for (const std::string part : {"second", "millisecond"}) {
            EXPECT_EQ(doubles(field(array, part)), doubles(field(list, part)))
                << unit << " " << part;
        }
    }
    // Every component carries the sign: the sum is the duration.
    auto microseconds = [](std::int64_t hours, std::int64_t minutes, std::int64_t seconds,
                           double milliseconds) {
        return ((hours * 60 + minutes) * 60 + seconds) * 1000000 +
               std::llround(milliseconds * 1000);
    };
    for (const std::string unit : {"D", "s", "ms", "us"}) {
        exec("a, l = both(rng.integers(-10**15, 10**15, 500).view('m8[us]').astype('m8[" + unit +
             "]'))");
        const vd::Array reply = durations("a");
        const vd::Array array = field(reply, "VELTRAPyHost_pyTimedelta64Array");
        const vd::Array list = field(durations("l"), "VELTRAPyHost_pyTimedeltaListData");
        const bool whole = logicalsOf(field(reply, "isMsInt"))[0];
        const std::vector<std::int64_t> h = ints(field(array, "hour"));
        const std::vector<std::int64_t> m = ints(field(array, "minute"));
        const std::vector<std::int64_t> s = ints(field(array, "second"));
        const vd::Array ms = field(array, "millisecond");
        const std::vector<std::int64_t> lh = ints(field(list, "hour"));
        const std::vector<std::int64_t> ls = ints(field(list, "second"));
        const std::vector<double> lms = doubles(field(list, "millisecond"));
        ASSERT_EQ(h.size(), 500u);
        for (size_t k = 0; k < h.size(); ++k) {
            const double milliseconds = whole ? static_cast<double>(ints(ms)[k]) : doubles(ms)[k];
            ASSERT_EQ(microseconds(h[k], m[k], s[k], milliseconds),
                      microseconds(lh[k], 0, ls[k], lms[k]))
                << unit << " element " << k;
        }
    }
}

// What the host sends into Python comes back in the same places.
TEST_F(Dates, HostArraysComeBackInTheirOwnOrder) {
    vd::ArrayFactory f;
    vd::TypedArray<vd::VELTRAString> texts = f.createArray<vd::VELTRAString>({1, 6});
    const char* sent[] = {"2024-01-01", "2024-01-02", "NaT",
                          "2024-01-04", "2024-01-05", "1900-01-06"};
    for (size_t k = 0; k < 6; ++k) {
        texts[k] = std::string(sent[k]);
    }
    const std::vector<std::uint64_t> dims = {2, 3};
    const vd::Array marker = structOf(
        {{"VX_PylnkSP_DatetimeArray",
          structOf({{"datetimeStr", texts},
                    {"ndims", f.createScalar(std::uint64_t{2})},
                    {"dims", f.createArray<std::uint64_t>({1, 2}, dims.begin(), dims.end())}})}});
    exec("def same(x):\n    return x\n");
    const Address made = addressOf(field(invokeFastInput(eval("same"), {marker}), "object"));
    const vd::Array reply = call("pyDatetimeGetData", {addressArray(made)});
    EXPECT_EQ(ints(field(reply, "dims")), (std::vector<std::int64_t>{2, 3}));
    const vd::Array inner = field(reply, "VELTRAPyHost_pyDatetime64ArrayData");
    EXPECT_EQ(ints(field(inner, "day")), (std::vector<std::int64_t>{1, 2, 0, 4, 5, 6}));
    EXPECT_EQ(ints(field(inner, "year"))[5], 1900);
    EXPECT_EQ(logicalsOf(field(reply, "NaT_indices")),
              (std::vector<bool>{false, false, true, false, false, false}));
    release(made);
}

TEST_F(Dates, ListsAndTuplesTheirZonesAndTheFirstElementThatIsNone) {
    exec(
        "paris = zoneinfo.ZoneInfo('Europe/Paris')\n"
        "zoned = [datetime.datetime(2024, 1, 1, 8, tzinfo=paris),\n"
        "         pandas.Timestamp('2024-07-01 09:00:00.0015', tz=paris)]\n");
    const Address list = eval("zoned");
    const long long before = refcount(list);
    const vd::Array reply = call("pyDatetimeGetData", {addressArray(list)});
    EXPECT_EQ(refcount(list), before);
    const vd::Array convertible = field(reply, "VELTRAPyHost_pyDatetimeListConvertible");
    EXPECT_TRUE(logicalsOf(field(convertible, "validInputList"))[0]);
    const vd::Array data = field(reply, "VELTRAPyHost_pyDatetimeListData");
    EXPECT_EQ(fieldNames(data), (std::vector<std::string>{"year", "month", "day", "hour", "minute",
                                                          "second", "millisecond"}));
    EXPECT_EQ(ints(field(data, "hour")), (std::vector<std::int64_t>{8, 9}));
    EXPECT_EQ(doubles(field(data, "millisecond")), (std::vector<double>{0, 1.5}));
    const vd::Array zone = field(reply, "VELTRAPyHost_pyDatetimeTzData");
    EXPECT_TRUE(logicalsOf(field(zone, "validSingleTimeZone"))[0]);
    EXPECT_EQ(textOf(field(zone, "TimeZoneData")), "Europe/Paris");

    const vd::Array mixed = dates("(datetime.datetime(2024, 1, 1), zoned[0])");
    EXPECT_FALSE(
        logicalsOf(field(field(mixed, "VELTRAPyHost_pyDatetimeTzData"), "validSingleTimeZone"))[0]);
    EXPECT_EQ(textOf(field(field(mixed, "VELTRAPyHost_pyDatetimeTzData"), "TimeZoneData")), "");

    const vd::Array bad = dates("zoned + [3, zoned[0]]");
    const vd::Array refused = field(bad, "VELTRAPyHost_pyDatetimeListConvertible");
    EXPECT_FALSE(logicalsOf(field(refused, "validInputList"))[0]);
    EXPECT_EQ(valuesOf<std::uint64_t>(field(refused, "nonDatetimeLoc")),
              (std::vector<std::uint64_t>{2}));
    EXPECT_TRUE(field(bad, "VELTRAPyHost_pyDatetimeListData").isEmpty());

    const vd::Array empty = dates("[]");
    EXPECT_EQ(field(field(empty, "VELTRAPyHost_pyDatetimeListData"), "year").getDimensions(),
              (std::vector<size_t>{1, 0}));
    EXPECT_EQ(report(dates("[datetime.datetime(2024, 1, 1, tzinfo=Unnamed())]")),
              "RuntimeError: no name");
    EXPECT_FALSE(errorOccurred());

    exec("class Spans(list): pass\n");
    const vd::Array spans =
        durations("Spans([datetime.timedelta(hours=-1, seconds=1), pandas.Timedelta(1, 'ms')])");
    const vd::Array split = field(spans, "VELTRAPyHost_pyTimedeltaListData");
    EXPECT_EQ(fieldNames(split), (std::vector<std::string>{"hour", "second", "millisecond"}));
    EXPECT_EQ(ints(field(split, "hour")), (std::vector<std::int64_t>{-24, 0}));
    EXPECT_EQ(ints(field(split, "second")), (std::vector<std::int64_t>{82801, 0}));
    EXPECT_EQ(doubles(field(split, "millisecond")), (std::vector<double>{0, 1}));
    const vd::Array odd = durations("(datetime.timedelta(1), 'a')");
    EXPECT_EQ(valuesOf<std::uint64_t>(
                  field(field(odd, "VELTRAPyHost_pyTimedeltaListConvertible"), "nonTimedeltaLoc")),
              (std::vector<std::uint64_t>{1}));
}

TEST_F(Dates, AnObjectOfNoSuchShapeIsAStoredExceptionWithNoPythonError) {
    try {
        dates("3");
        FAIL() << "no reply expected";
    } catch (const std::invalid_argument& failure) {
        EXPECT_NE(std::string(failure.what()).find("py.int"), std::string::npos) << failure.what();
    }
    EXPECT_THROW(durations("datetime.datetime(2024, 1, 1)"), std::invalid_argument);
    EXPECT_FALSE(errorOccurred());
}
