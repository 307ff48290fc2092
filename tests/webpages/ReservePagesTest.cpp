#include "webpages/ReservePages.h"
#include "core/ShiftJis.h"
#include "reservations/ReserveStore.h"
#include "support/FixedClock.h"
#include "support/LogLines.h"
#include "support/StoredPage.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <QDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// A form body as a browser posts it: CP932, percent-encoded.
QString form(std::initializer_list<std::pair<QString, QString>> fields) {
    QStringList parts;
    for (const auto& [k, v] : fields)
        parts << k + u'=' + QString::fromLatin1(ShiftJis::Encode(v).toPercentEncoding());
    return parts.join(u'&');
}

struct Pages {
    TempFolder t;
    FixedClock clock{QDateTime(QDate(2026, 11, 23), QTime(12, 0, 30))};
    Dispatcher dispatcher;
    int fills = 0;
    Pages() {
        t.settings.WriteIni(u"Tira", u"Testmode", u"1");
        InstallReservePages(dispatcher, {t.folder, t.settings, clock, [this] { ++fills; }});
    }
    QString post(const QString& page, const QString& body) {
        return dispatcher.DispatchPage(page, body, u"127.0.0.1"_s);
    }
    // The hidden fields of a 7:05 PM one-shot on the given day.
    QString moment(const QString& date, std::initializer_list<std::pair<QString, QString>> more) {
        return form({{u"R1"_s, u"Single"_s},
                     {u"Year"_s, date.left(4)},
                     {u"Month"_s, date.mid(5, 2)},
                     {u"Date"_s, date.mid(8, 2)}}) +
               u"&R2=AMPM&Hour=07&Min=05&AMPM=PM&"_s + form(more);
    }
    // Adding dev's func at that moment.
    QString add(const QString& date, const QString& dev, const QString& func) {
        return post(u"/add2.asp"_s,
                    moment(date, {{u"B1"_s, u"追加"_s}, {u"Dev"_s, dev}, {u"Func"_s, func}}));
    }
    QStringList lines(const QString& name) {
        return Reserve::ReadLines(t.path(u"testmode/reserve/"_s + name));
    }
};

} // namespace

// add2.asp in test mode edits testmode/reserve by row number and content, warns of a past
// moment without refusing, and refills the grid after each post.
TEST(ReservePages, EditPageAddsMovesAndDeletes) {
    Pages p;
    ExpectStoredPage(u"add1.html"_s, p.post(u"/add1.asp"_s, {})); // eleven years from this one
    QString page = p.add(u"2026/11/24"_s, u"テレビ"_s, u"電源"_s);
    p.add(u"2026/11/24"_s, u"テレビ"_s, u"ch1"_s);
    EXPECT_EQ(p.lines(u"2026_11_24 19_05"_s), (QStringList{u"テレビ|電源"_s, u"テレビ|ch1"_s}));
    EXPECT_FALSE(QDir(p.t.path(u"reserve")).exists() && !QDir(p.t.path(u"reserve")).isEmpty());
    ExpectStoredPage(u"add2.html"_s, page);
    const QString row2 = u"2\t2026/11/24\t19:05\tテレビ\tch1"_s;
    page = p.post(u"/add2.asp"_s,
                  p.moment(u"2026/11/24"_s, {{u"Reserve"_s, row2}, {u"B1"_s, u"上へ移動"_s}}));
    EXPECT_EQ(p.lines(u"2026_11_24 19_05"_s), (QStringList{u"テレビ|ch1"_s, u"テレビ|電源"_s}));
    EXPECT_TRUE(page.contains(u"<OPTION value=\"1\t2026/11/24\t19:05\tテレビ\tch1\">"_s));
    // The row now names a line that holds something else: nothing goes.
    p.post(u"/add2.asp"_s, p.moment(u"2026/11/24"_s, {{u"Reserve"_s, row2}, {u"B1"_s, u"削除"_s}}));
    EXPECT_EQ(p.lines(u"2026_11_24 19_05"_s).size(), 2);
    p.post(u"/add2.asp"_s, p.moment(u"2026/11/24"_s, {{u"Reserve"_s, u"1\t\t\tテレビ\tch1"_s},
                                                      {u"B1"_s, u"削除"_s}}));
    EXPECT_EQ(p.lines(u"2026_11_24 19_05"_s), QStringList{u"テレビ|電源"_s});
    EXPECT_EQ(p.fills, 5);

    // An earlier moment is warned of, and still added; 7:05 PM today is still to come.
    EXPECT_FALSE(p.add(u"2026/11/23"_s, u"ビデオ"_s, u"Rec"_s).contains(u"時刻が不正です"_s));
    page = p.add(u"2026/11/22"_s, u"ビデオ"_s, u"Rec"_s);
    EXPECT_TRUE(page.contains(
        u"<p><b><font size=\"2\" color=\"#FF0000\">時刻が不正です</font></b></p>\r\n"_s));
    EXPECT_EQ(p.lines(u"2026_11_22 19_05"_s), QStringList{u"ビデオ|Rec"_s});
}

// Whatever the fields say, every post gets a page and nothing is written outside reservations.
TEST(ReservePages, BadFormsWriteNothingAndTheListDeletesSeveralAtOnce) {
    Pages p;
    const QString bodies[] = {
        form({{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"a"_s}, {u"Func"_s, u"b"_s}}), // no moment
        p.moment(u"../../x"_s, {{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"a"_s}, {u"Func"_s, u"b"_s}}),
        p.moment(u"2026/12/01"_s, {{u"B1"_s, u"削除"_s}, {u"Reserve"_s, u"99\ta\tb\tc\td"_s}}),
        p.moment(u"2026/12/01"_s, {{u"B1"_s, u"下へ移動"_s}, {u"Reserve"_s, u"x"_s}}),
        u"R1=Single&Year=%82&Month=%FF%FF&B1=%92%C7%89%C1&Dev=%82&Func=%81"_s,
    };
    for (const QString& body : bodies)
        EXPECT_TRUE(p.post(u"/add2.asp"_s, body).endsWith(u"</html>\r\n"_s)) << body.toStdString();
    EXPECT_TRUE(p.post(u"/list.asp"_s, u"Reserve=1%09..%2F..%09x%09a%09b&B1=%8D%ED%8F%9C"_s)
                    .endsWith(u"</body></html>"_s));
    EXPECT_EQ(QDir(p.t.path(u"testmode/reserve")).entryList(QDir::Files | QDir::Hidden),
              QStringList{});
    EXPECT_EQ(QDir(p.t.root()).entryList(QDir::Files | QDir::Hidden),
              QStringList{u"setting.ini"_s});

    // list.asp: files in name order; one post deletes several rows and equal lines, and empty
    // files.
    p.fills = 0;
    p.t.writeFile(u"testmode/reserve/2026_11_24 19_05", "A|x\r\nB|y\r\nA|x\r\n");
    p.t.writeFile(u"testmode/reserve/0100100 21_30", "C|z\r\n");
    // Rows stand in fixed columns; a name too long for its column has no filling behind it.
    p.t.writeFile(u"testmode/reserve/0000001 00_00",
                  ShiftJis::Encode(u"とても長い名前の録画機です|電源\r\n"));
    ExpectStoredPage(u"list.html"_s, p.post(u"/list.asp"_s, {}));
    EXPECT_EQ(p.fills, 0);
    ExpectStoredPage(u"list-deleted.html"_s,
                     p.post(u"/list.asp"_s, form({{u"Reserve"_s, u"1\t月木\t21:30\tC\tz"_s},
                                                  {u"Reserve"_s, u"3\t2026/11/24\t19:05\tA\tx"_s},
                                                  {u"B1"_s, u"削除"_s}})));
    EXPECT_FALSE(QFile::exists(p.t.path(u"testmode/reserve/0100100 21_30")));
    EXPECT_EQ(p.fills, 1);
}

// A name that breaks a row, a full moment, an hour past 23 and missing rows are refused with a red
// line and a log line naming the client.
TEST(ReservePages, RefusalsAreShownAndLoggedAndValuesEscapedEverywhere) {
    Pages p;
    LogLines log;
    auto red = [](const QString& text) {
        return u"<p><b><font size=\"2\" color=\"#FF0000\">"_s + text + u"</font></b></p>\r\n"_s;
    };
    QString page = p.add(u"2026/11/24"_s, u"テレビ\tx"_s, u"電源"_s);
    EXPECT_TRUE(page.contains(red(u"機器名または機能名が不正です"_s) + u"<p><font size"_s));
    EXPECT_FALSE(QFile::exists(p.t.path(u"testmode/reserve/2026_11_24 19_05")));

    const QByteArray full(Reserve::MaxFileBytes - 4, 'x');
    p.t.writeFile(u"testmode/reserve/2026_11_24 19_05", full);
    page = p.add(u"2026/11/24"_s, u"テレビ"_s, u"電源"_s);
    EXPECT_TRUE(page.contains(red(u"この日付・時刻にはこれ以上予約できません"_s)));
    EXPECT_EQ(p.t.readFile(u"testmode/reserve/2026_11_24 19_05"), full);

    // "12" PM, as add1.asp offers it before the radio is touched.
    QString body = p.moment(
        u"2026/11/24"_s, {{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"テレビ"_s}, {u"Func"_s, u"電源"_s}});
    page = p.post(u"/add2.asp"_s, body.replace(u"Hour=07"_s, u"Hour=12"_s));
    EXPECT_EQ(page.count(u"時刻が不正です"_s), 1);
    EXPECT_EQ(QDir(p.t.path(u"testmode/reserve")).entryList(QDir::Files),
              QStringList{u"2026_11_24 19_05"_s});

    p.post(u"/list.asp"_s, form({{u"Reserve"_s, u"1\t月木\t21:30\tC\tz"_s},
                                 {u"Reserve"_s, u"1\t..\tx"_s},
                                 {u"B1"_s, u"削除"_s}}));
    const QStringList lines = log.take();
    ASSERT_EQ(lines.filter(u"refused"_s).size(), 4) << lines.join(u'\n').toStdString();
    for (const QString& line : lines.filter(u"refused"_s))
        EXPECT_TRUE(line.contains(u"from 127.0.0.1 refused"_s)) << line.toStdString();
    EXPECT_TRUE(lines.filter(u"refused"_s).last().contains(u"2 of 2"_s));

    // What a request or a file brings is escaped wherever it lands in a page.
    page = p.add(u"2026/11/25"_s, u"<script>x</script>"_s, u"a\"b'"_s);
    EXPECT_EQ(p.lines(u"2026_11_25 19_05"_s), QStringList{u"<script>x</script>|a\"b'"_s});
    for (const QString& pg : {page, p.post(u"/list.asp"_s, {})}) {
        EXPECT_FALSE(pg.contains(u"<script>x"_s));
        EXPECT_TRUE(pg.contains(u"\t&lt;script&gt;x&lt;/script&gt;\ta&quot;b&#39;\">"_s));
    }
    page = p.post(u"/add2.asp"_s, form({{u"R1"_s, u"\"><b>"_s}, {u"Year"_s, u"<i>"_s}}));
    EXPECT_FALSE(page.contains(u"<b>"_s) || page.contains(u"<i>"_s));
    EXPECT_TRUE(page.contains(u"name=\"R1\" value=\"&quot;&gt;&lt;b&gt;\">"_s));

    // Names from the settings, in the options and in the script's strings.
    p.t.settings.WriteIni(u"Tira", u"Testmode", u"0");
    p.t.settings.WriteIni(u"Remote-1", u"Device", u"TV&<i>");
    p.t.settings.WriteIni(u"Remote-1", u"Design", u"1");
    p.t.settings.WriteIni(u"Remote-1", u"Button-0", u"a\"</script>\\");
    page = p.post(u"/add2.asp"_s, form({{u"B1"_s, u"決定"_s}}));
    EXPECT_TRUE(page.contains(u"<option value=\"TV&amp;&lt;i&gt;\">TV&amp;&lt;i&gt;</option>"_s));
    EXPECT_TRUE(page.contains(u"<option value=\"a&quot;&lt;/script&gt;\\\">"_s));
    EXPECT_TRUE(
        page.contains(u"Funcs[0] = new Array(\"a\\u0022\\u003c/script\\u003e\\u005c\");"_s));
}
