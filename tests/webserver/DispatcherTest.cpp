#include "webserver/Dispatcher.h"

#include <QStringList>

#include <gtest/gtest.h>

#include <vector>

using namespace Qt::StringLiterals;

namespace {

struct Call {
    QString name;
    PageRequest request;
};

// Every page answers "page:<name>" and notes what it was given.
struct Recorder {
    Recorder() {
        for (const QString& name : Dispatcher::PageNames())
            dispatcher.SetGenerator(name, [this, name](const PageRequest& r) {
                calls.push_back({name, r});
                return u"page:"_s + name;
            });
    }
    QString get(const QString& path, const QString& body = {}) {
        calls.clear();
        return dispatcher.DispatchPage(path, body, u"192.168.1.5"_s);
    }
    QStringList ran() const {
        QStringList names;
        for (const Call& c : calls)
            names << c.name;
        return names;
    }
    const PageRequest& only() const {
        EXPECT_EQ(calls.size(), 1u);
        return calls.back().request;
    }

    Dispatcher dispatcher;
    std::vector<Call> calls;
};

} // namespace

TEST(Dispatcher, RoutesBySubstringAndTheLaterMatchWins) {
    Recorder r;
    EXPECT_EQ(r.get(u"/foo/cell.asp"_s), u"page:cell.asp"_s);
    EXPECT_EQ(r.ran(), QStringList{u"cell.asp"_s});

    EXPECT_EQ(r.get(u"/CREMOTE.ASP"_s), u"page:cremote.asp"_s);
    EXPECT_EQ(r.ran(), (QStringList{u"remote.asp"_s, u"cremote.asp"_s}));

    EXPECT_EQ(r.get(u"/remote4.asp"_s), u"page:remote4.asp"_s);
    EXPECT_EQ(r.ran(), QStringList{u"remote4.asp"_s});

    EXPECT_EQ(r.get(u"/nothing.asp"_s), u""_s);
    EXPECT_EQ(r.get(u"/index.htm"_s), u""_s);
    EXPECT_TRUE(r.calls.empty());
}

TEST(Dispatcher, PathsWithoutAnExtensionReachTheDefaultPage) {
    Recorder r;
    for (const QString& path : {u"/"_s, u""_s, u"/pic"_s, u"/?x=1"_s, u"/folder/"_s}) {
        EXPECT_EQ(r.get(path), u"page:default.asp"_s) << path.toStdString();
        EXPECT_EQ(r.calls.size(), 1u);
    }
    // The dot test looks at the first of the last four characters only.
    EXPECT_EQ(r.get(u"/a.jpeg"_s), u"page:default.asp"_s);
}

TEST(Dispatcher, RemotePagesTakeDeviceParametersFromQueryOrBody) {
    Recorder r;
    r.get(u"/remote2.asp?DevID=3&Button=7"_s);
    EXPECT_EQ(r.only().DevID, u"3"_s);
    EXPECT_EQ(r.only().Button, u"7"_s);
    EXPECT_EQ(r.only().Device, u""_s);
    EXPECT_EQ(r.only().remoteAddress, u"192.168.1.5"_s);

    // A body wins over the query string.
    r.get(u"/remote1.asp?DevID=9&Button=9"_s, u"DevID=1&Button=2&Device=テレビ"_s);
    EXPECT_EQ(r.only().DevID, u"1"_s);
    EXPECT_EQ(r.only().Button, u"2"_s);
    EXPECT_EQ(r.only().Device, u"テレビ"_s);

    r.get(u"/remote6.asp"_s);
    EXPECT_EQ(r.only().DevID, u""_s);
    EXPECT_EQ(r.only().Button, u""_s);

    // cremote.asp: remote.asp runs first with nothing, cremote.asp with the values.
    r.get(u"/cremote.asp?DevID=2&Button=0&Device=ビデオ"_s);
    ASSERT_EQ(r.calls.size(), 2u);
    EXPECT_EQ(r.calls[0].request.DevID, u""_s);
    EXPECT_EQ(r.calls[1].request.DevID, u"2"_s);
    EXPECT_EQ(r.calls[1].request.Device, u"ビデオ"_s);
}

TEST(Dispatcher, DecodingOfQueryPathAndBody) {
    Recorder r;
    // No "%" in the query: nothing is decoded, "+" stays.
    r.get(u"/remote1.asp?DevID=1&Device=a+b"_s);
    EXPECT_EQ(r.only().Device, u"a+b"_s);

    // With "%": raw double-byte text is kept, the rest decoded.
    r.get(u"/remote1.asp?Device=テレビ&Button=%31+"_s);
    EXPECT_EQ(r.only().Device, u"テレビ"_s);
    EXPECT_EQ(r.only().Button, u"1 "_s);

    // An escaped page name is found after decoding.
    EXPECT_EQ(r.get(u"/%63ell.asp"_s), u"page:cell.asp"_s);

    // A body is always decoded and loses one CR LF, then one CR.
    r.get(u"/remote3.asp"_s, u"Device=%83G%83A%83R%83%93&Button=5\r\n"_s);
    EXPECT_EQ(r.only().Device, u"エアコン"_s);
    EXPECT_EQ(r.only().Button, u"5"_s);
    r.get(u"/remote3.asp"_s, u"Button=a+b\r\r\n"_s);
    EXPECT_EQ(r.only().Button, u"a b"_s);
    r.get(u"/remote3.asp"_s, u"Button=5\r\n\r\n"_s);
    EXPECT_EQ(r.only().Button, u"5\r\n"_s);
}

TEST(Dispatcher, Add2RunsOnlyWithParametersAndTakesTheWholeForm) {
    Recorder r;
    EXPECT_EQ(r.get(u"/add2.asp"_s), u""_s);
    EXPECT_TRUE(r.calls.empty());

    r.get(u"/add2.asp"_s, u"R1=V1&Year=2026&Month=11&Date=21&R2=V2&Hour=8&Min=05&AMPM=PM&Dev="
                          u"テレビ&Func=電源&Reserve=r.txt&D0=ON&D3=ON&D6=ON&B1=登録"_s);
    const PageRequest& q = r.only();
    EXPECT_EQ(QStringList({q.R1, q.Year, q.Month, q.Date, q.R2, q.Hour, q.Min, q.AMPM, q.B1, q.Dev,
                           q.Func, q.Reserve}),
              QStringList({u"V1"_s, u"2026"_s, u"11"_s, u"21"_s, u"V2"_s, u"8"_s, u"05"_s, u"PM"_s,
                           u"登録"_s, u"テレビ"_s, u"電源"_s, u"r.txt"_s}));
    EXPECT_EQ(QStringList({q.D0, q.D1, q.D2, q.D3, q.D4, q.D5, q.D6}),
              QStringList({u"ON"_s, u""_s, u""_s, u"ON"_s, u""_s, u""_s, u"ON"_s}));

    // A query counts as well when there is no body.
    r.get(u"/add2.asp?Year=2027"_s);
    EXPECT_EQ(r.only().Year, u"2027"_s);
}

TEST(Dispatcher, ListGathersEveryReserveValue) {
    Recorder r;
    r.get(u"/list.asp"_s, u"Reserve=a.txt&Reserve=b.txt&B1=削除"_s);
    EXPECT_EQ(r.only().ReserveList, u"a.txt|b.txt|"_s);
    EXPECT_EQ(r.only().B1, u"削除"_s);

    // The last value without "&" behind it runs to the end.
    r.get(u"/list.asp"_s, u"B1=x&Reserve=a.txt&Reserve=b.txt"_s);
    EXPECT_EQ(r.only().ReserveList, u"a.txt|b.txt|"_s);
    r.get(u"/list.asp"_s, u"Reserve="_s);
    EXPECT_EQ(r.only().ReserveList, u"|"_s);

    r.get(u"/list.asp"_s);
    EXPECT_EQ(r.only().ReserveList, u""_s);
    EXPECT_EQ(r.only().B1, u""_s);
}

TEST(Dispatcher, ExtractParamIsAPlainSubstringSearch) {
    const QString text = u"XDevID=9&DevID=3&Button=&Device=a=b"_s;
    EXPECT_EQ(ExtractParam(text, u"DevID"_s), u"9"_s); // the first match, tail or not
    EXPECT_EQ(ExtractParam(text, u"Button"_s), u""_s);
    EXPECT_EQ(ExtractParam(text, u"Device"_s), u"a=b"_s);
    EXPECT_EQ(ExtractParam(text, u"Func"_s), u""_s);
    EXPECT_EQ(ExtractParam(u""_s, u"Func"_s), u""_s);
}

TEST(Dispatcher, PagesWithoutGeneratorAreEmptyAndNestedRequestsKeepTheirValues) {
    Dispatcher bare;
    EXPECT_EQ(bare.DispatchPage(u"/default.asp"_s, {}, {}), u""_s);

    // A generator that waits may see another request dispatched meanwhile.
    Recorder r;
    r.dispatcher.SetGenerator(u"remote.asp"_s, [&r](const PageRequest&) {
        r.dispatcher.DispatchPage(u"/remote5.asp"_s, u"DevID=5"_s, {});
        return u"inner"_s;
    });
    EXPECT_EQ(r.get(u"/cremote.asp?DevID=1"_s), u"page:cremote.asp"_s);
    ASSERT_EQ(r.calls.size(), 2u);
    EXPECT_EQ(r.calls[0].request.DevID, u"5"_s);
    EXPECT_EQ(r.calls[1].request.DevID, u"1"_s);
}
