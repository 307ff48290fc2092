#include "webserver/Dispatcher.h"

#include <QStringList>

#include <gtest/gtest.h>

#include <vector>

using namespace Qt::StringLiterals;

namespace {

// Every page answers "page:<name>" and notes what it was given.
struct Recorder {
    Recorder() {
        for (const QString& name : Dispatcher::PageNames())
            dispatcher.SetGenerator(name, [this, name](const PageRequest& r) {
                ran << name;
                requests.push_back(r);
                return u"page:"_s + name;
            });
    }
    QString get(const QString& path, const QString& body = {}) {
        ran.clear();
        requests.clear();
        return dispatcher.DispatchPage(path, body, u"192.168.1.5"_s);
    }
    const PageRequest& last() const { return requests.back(); }

    Dispatcher dispatcher;
    QStringList ran;
    std::vector<PageRequest> requests;
};

} // namespace

TEST(Dispatcher, RoutesBySubstringAndTheLaterMatchWins) {
    Recorder r;
    EXPECT_EQ(r.get(u"/foo/cell.asp"_s), u"page:cell.asp"_s);
    EXPECT_EQ(r.get(u"/CREMOTE.ASP"_s), u"page:cremote.asp"_s);
    EXPECT_EQ(r.ran, (QStringList{u"remote.asp"_s, u"cremote.asp"_s}));
    EXPECT_EQ(r.get(u"/%63ell.asp"_s), u"page:cell.asp"_s);
    for (const QString& path : {u"/nothing.asp"_s, u"/index.htm"_s, u"/add2.asp"_s})
        EXPECT_EQ(r.get(path), u""_s) << path.toStdString(); // add2.asp wants a form
    EXPECT_TRUE(r.ran.isEmpty());
    // Without a dot in the last four characters the path is a folder.
    for (const QString& path : {u"/"_s, u""_s, u"/pic?x=1"_s, u"/a.jpeg"_s})
        EXPECT_EQ(r.get(path), u"page:default.asp"_s) << path.toStdString();
    EXPECT_EQ(Dispatcher().DispatchPage(u"/default.asp"_s, {}, {}), u""_s);
}

TEST(Dispatcher, ParametersComeFromTheBodyElseTheQuery) {
    Recorder r;
    r.get(u"/remote2.asp?DevID=3&Button=7"_s);
    EXPECT_EQ(QStringList({r.last().DevID, r.last().Button, r.last().Device}),
              QStringList({u"3"_s, u"7"_s, u""_s}));
    EXPECT_EQ(r.last().remoteAddress, u"192.168.1.5"_s);
    r.get(u"/remote1.asp?DevID=9"_s, u"DevID=1&Device=テレビ"_s);
    EXPECT_EQ(r.last().DevID, u"1"_s);
    EXPECT_EQ(r.last().Device, u"テレビ"_s);
    r.get(u"/cremote.asp?DevID=2"_s);
    EXPECT_EQ(r.requests[0].DevID, u""_s); // remote.asp takes none
    EXPECT_EQ(r.requests[1].DevID, u"2"_s);

    // A query without "%" is not decoded; with one, raw double-byte text stays.
    r.get(u"/remote1.asp?Device=a+b"_s);
    EXPECT_EQ(r.last().Device, u"a+b"_s);
    r.get(u"/remote1.asp?Device=テレビ&Button=%31+"_s);
    EXPECT_EQ(r.last().Device, u"テレビ"_s);
    EXPECT_EQ(r.last().Button, u"1 "_s);
    // A body is always decoded and loses one CR LF, then one CR.
    r.get(u"/remote3.asp"_s, u"Device=%83G%83A%83R%83%93&Button=a+b\r\r\n"_s);
    EXPECT_EQ(r.last().Device, u"エアコン"_s);
    EXPECT_EQ(r.last().Button, u"a b"_s);
    r.get(u"/remote3.asp"_s, u"Button=5\r\n\r\n"_s);
    EXPECT_EQ(r.last().Button, u"5\r\n"_s);
}

TEST(Dispatcher, ReservationForms) {
    Recorder r;
    r.get(u"/add2.asp"_s, u"R1=V1&Year=2026&Month=11&Date=21&R2=V2&Hour=8&Min=05&AMPM=PM&"
                          u"Dev=テレビ&Func=電源&Reserve=r.txt&D0=ON&D6=ON&B1=登録"_s);
    const PageRequest& q = r.last();
    EXPECT_EQ(
        QStringList({q.R1, q.Year, q.Month, q.Date, q.R2, q.Hour, q.Min, q.AMPM, q.B1, q.Dev,
                     q.Func, q.Reserve, q.D0, q.D1, q.D6}),
        QStringList({u"V1"_s, u"2026"_s, u"11"_s, u"21"_s, u"V2"_s, u"8"_s, u"05"_s, u"PM"_s,
                     u"登録"_s, u"テレビ"_s, u"電源"_s, u"r.txt"_s, u"ON"_s, u""_s, u"ON"_s}));

    r.get(u"/list.asp"_s, u"Reserve=a.txt&Reserve=b.txt&B1=削除"_s);
    EXPECT_EQ(r.last().ReserveList, u"a.txt|b.txt|"_s);
    EXPECT_EQ(r.last().B1, u"削除"_s);
    r.get(u"/list.asp"_s, u"B1=x&Reserve=a.txt&Reserve=b.txt"_s); // no "&" at the end
    EXPECT_EQ(r.last().ReserveList, u"a.txt|b.txt|"_s);
    r.get(u"/list.asp"_s);
    EXPECT_EQ(r.ran, QStringList{u"list.asp"_s});
    EXPECT_EQ(r.last().ReserveList, u""_s);
}

TEST(Dispatcher, ExtractParamIsAPlainSubstringSearch) {
    const QString text = u"XDevID=9&DevID=3&Button=&Device=a=b"_s;
    EXPECT_EQ(ExtractParam(text, u"DevID"_s), u"9"_s); // the first match, tail or not
    EXPECT_EQ(ExtractParam(text, u"Button"_s), u""_s);
    EXPECT_EQ(ExtractParam(text, u"Device"_s), u"a=b"_s);
    EXPECT_EQ(ExtractParam(text, u"Func"_s), u""_s);
}

TEST(Dispatcher, ANestedRequestLeavesTheOuterParametersAlone) {
    // A generator that waits may see another request dispatched meanwhile.
    Recorder r;
    r.dispatcher.SetGenerator(u"remote.asp"_s, [&r](const PageRequest&) {
        return r.dispatcher.DispatchPage(u"/remote5.asp"_s, u"DevID=5"_s, {});
    });
    EXPECT_EQ(r.get(u"/cremote.asp?DevID=1"_s), u"page:cremote.asp"_s);
    EXPECT_EQ(r.ran, (QStringList{u"remote5.asp"_s, u"cremote.asp"_s}));
    EXPECT_EQ(r.last().DevID, u"1"_s);
}
