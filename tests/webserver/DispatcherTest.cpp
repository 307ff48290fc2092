#include "webserver/Dispatcher.h"

#include <QStringList>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Every page answers "page:<name>" and notes what it was given.
struct Recorder {
    Recorder() {
        for (const QString& name : Dispatcher::PageNames())
            dispatcher.SetGenerator(name, [this, name](const PageRequest& r) {
                ran << name;
                last = r;
                return u"page:"_s + name;
            });
    }
    QString get(const QString& path, const QString& body = {}) {
        ran.clear();
        return dispatcher.DispatchPage(path, body, u"192.168.1.5"_s);
    }

    Dispatcher dispatcher;
    QStringList ran;
    PageRequest last;
};

} // namespace

TEST(Dispatcher, RoutesBySubstringTheLaterMatchWinning) {
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

    // A generator that waits may see another request dispatched meanwhile: the outer's stay.
    r.dispatcher.SetGenerator(u"remote.asp"_s, [&r](const PageRequest&) {
        return r.dispatcher.DispatchPage(u"/remote5.asp"_s, u"DevID=5"_s, {});
    });
    EXPECT_EQ(r.get(u"/cremote.asp?DevID=1"_s), u"page:cremote.asp"_s);
    EXPECT_EQ(r.ran, (QStringList{u"remote5.asp"_s, u"cremote.asp"_s}));
    EXPECT_EQ(r.last.DevID, u"1"_s);
}
