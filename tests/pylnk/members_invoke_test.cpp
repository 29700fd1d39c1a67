// Members and keys by text or by address, calls with and without keyword
// arguments, and which failures leave the Python error set.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "support/session.h"

using namespace vxtest;

namespace {

struct Members : SessionTest {
    Members()
        : SessionTest(
              "class Point:\n"
              "    __slots__ = ('width', 'y')\n"
              "    def __init__(self): self.width, self.y = 1, 2\n"
              "point = Point()\n"
              "table = {'alpha': 10, 3: 'three'}") {}
};

}  // namespace

TEST_F(Members, NamesAsTextAndAsAddressesAgree) {
    const Address point = eval("point");
    const Address widthName = unicode(u"width");
    for (const bool present : {true, false}) {
        const std::string name = present ? "width" : "nothere";
        const Address asObject = unicode(std::u16string(name.begin(), name.end()));
        EXPECT_EQ(truthOf(call("pyHasMember", {addressArray(point), chars(name)})), present);
        EXPECT_EQ(truthOf(call("pyHasMember", {addressArray(point), addressArray(asObject)})),
                  present);
    }
    EXPECT_EQ(strOf(addressOf(call("pyGetMember", {addressArray(point), chars("y")}))), "2");
    EXPECT_EQ(strOf(addressOf(call("pyGetMember", {addressArray(point), addressArray(widthName)}))),
              "1");

    EXPECT_EQ(
        textOf(call("pySetMember", {addressArray(point), chars("width"), addressArray(eval("5"))})),
        "success");
    call("pySetMember",
         {addressArray(point), addressArray(unicode(u"y")), addressArray(eval("6"))});
    EXPECT_EQ(strOf(eval("(point.width, point.y)")), "(5, 6)");

    // The host's name object is not released (nor kept) by the commands. The
    // interpreter's attribute cache may hold one reference of its own, so
    // the count is compared over repeated use.
    const Address value = eval("7");
    const long long settled = refcount(widthName);
    for (int i = 0; i < 20; ++i) {
        call("pyHasMember", {addressArray(point), addressArray(widthName)});
        release(addressOf(call("pyGetMember", {addressArray(point), addressArray(widthName)})));
        call("pySetMember", {addressArray(point), addressArray(widthName), addressArray(value)});
    }
    EXPECT_EQ(refcount(widthName), settled);
}

TEST_F(Members, FailuresLeaveErrorSetObjectUnchanged) {
    EXPECT_FALSE(errorOccurred());
    // A missing attribute; __slots__ refuse a new one.
    for (const auto& [command, args] :
         {std::pair{"pyGetMember", std::vector<vd::Array>{chars("missing")}},
          std::pair{"pySetMember", std::vector<vd::Array>{chars("z"), addressArray(eval("0"))}}}) {
        EXPECT_THROW(callOn(command, "point", args), std::exception) << command;
        EXPECT_TRUE(errorOccurred()) << command;
        call("pyErrorClear");
    }
    EXPECT_EQ(strOf(eval("(point.width, point.y, hasattr(point, 'z'))")), "(1, 2, False)");

    // A name that is neither text nor UINT64 fails in the typed read.
    EXPECT_THROW(callOn("pyGetMember", "point", {f.createScalar(1.0)}), std::exception);
    EXPECT_EQ(textOf(call("Ping")), "success");
}

TEST_F(Members, KeysByTextOrByObject) {
    EXPECT_EQ(strOf(addressOf(callOn("pyGetKey", "table", {chars("alpha")}))), "10");
    EXPECT_EQ(strOf(addressOf(callOn("pyGetKey", "table", {addressArray(eval("3"))}))), "three");
    EXPECT_THROW(callOn("pyGetKey", "table", {chars("3")}), std::exception);  // '3' != 3
    call("pyErrorClear");

    EXPECT_EQ(textOf(callOn("pySetKey", "table",
                            {addressArray(eval("(1, 2)")), addressArray(eval("'pair'"))})),
              "success");
    EXPECT_EQ(strOf(eval("table[(1, 2)]")), "pair");
    // Keys for pySetKey are addresses only.
    EXPECT_THROW(callOn("pySetKey", "table", {chars("beta"), addressArray(eval("1"))}),
                 std::exception);
    EXPECT_EQ(strOf(eval("'beta' in table")), "False");
}

TEST_F(Members, InvokeWithAndWithoutKeywords) {
    exec("def show(*args, **kwargs): return repr((args, sorted(kwargs.items())))");
    const Address show = eval("show");
    const Address args = tupleOf({eval("1"), unicode(u"two")});
    EXPECT_EQ(strOf(addressOf(call("pyInvoke", {addressArray(show), addressArray(args)}))),
              "((1, 'two'), [])");
    const Address kwargs = eval("{'sep': '-'}");
    EXPECT_EQ(strOf(addressOf(call(
                  "pyInvoke", {addressArray(show), addressArray(args), addressArray(kwargs)}))),
              "((1, 'two'), [('sep', '-')])");

    // A call that raises leaves the error set for the host.
    EXPECT_THROW(invoke(eval("int"), {unicode(u"not a number")}), std::exception);
    EXPECT_TRUE(errorOccurred());
    const Address fetched = addressOf(call("pyErrorFetch"));
    EXPECT_EQ(strOf(addressOf(call("pySequenceGet", {addressArray(fetched), uint64Array(0)}))),
              "<class 'ValueError'>");
    call("pyErrorClear");
    // With no error set, pyErrorFetch still answers with an object.
    EXPECT_EQ(strOf(addressOf(call("pyErrorFetch"))), "(None, None, None)");
}

TEST_F(Members, InvokeIntClearsErrorsInvokeUIntKeepsReadError) {
    EXPECT_EQ(show(callOn("pyInvokeInt", "'-12'")), "INT64 1x1: -12");
    EXPECT_EQ(show(callOn("pyInvokeUInt", "7.9")), "UINT64 1x1: 7");
    EXPECT_THROW(callOn("pyInvokeInt", "'twelve'"), std::exception);
    EXPECT_FALSE(errorOccurred());

    // int(-3) works; reading it unsigned fails by the second rule: a reply of
    // zero, with the error left for the host.
    EXPECT_EQ(show(callOn("pyInvokeUInt", "-3")), "UINT64 1x1: 0");
    EXPECT_TRUE(errorOccurred());
    call("pyErrorClear");
}

TEST_F(Members, RequestsRunInPushOrder) {
    // Requests queued from several threads while the Python thread is busy.
    exec("import time\norder = []\ndef mark(i): order.append(i)");
    const Address sleep = fetch("time.sleep");
    const Address mark = eval("mark");
    std::vector<Address> argTuples;
    for (int i = 0; i < 6; ++i) {
        argTuples.push_back(tupleOf({eval(std::to_string(i))}));
    }
    auto slow = std::async(std::launch::async, [&] { invoke(sleep, {eval("0.5")}); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::vector<std::future<vd::Array>> queued;
    for (Address args : argTuples) {
        queued.push_back(std::async(std::launch::async, [&, args] {
            return call("pyInvoke", {addressArray(mark), addressArray(args)});
        }));
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    slow.get();
    for (auto& q : queued) {
        q.get();
    }
    EXPECT_EQ(strOf(eval("order")), "[0, 1, 2, 3, 4, 5]");
}
