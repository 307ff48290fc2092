#include "webpages/ReservePages.h"
#include "core/ShiftJis.h"
#include "reservations/ReserveStore.h"
#include "support/FixedClock.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"

#include <QDebug>
#include <QDir>
#include <QUrl>
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
        QString body = form({{u"R1"_s, u"Single"_s},
                             {u"Year"_s, date.left(4)},
                             {u"Month"_s, date.mid(5, 2)},
                             {u"Date"_s, date.mid(8, 2)},
                             {u"R2"_s, u"AMPM"_s},
                             {u"Hour"_s, u"07"_s},
                             {u"Min"_s, u"05"_s},
                             {u"AMPM"_s, u"PM"_s}});
        return body + u'&' + form(more);
    }
    QStringList lines(const QString& name) {
        return Reserve::ReadLines(t.path(u"testmode/reserve/"_s + name));
    }
};

// The log lines written while it lives.
struct LogLines {
    static inline QStringList lines;
    QtMessageHandler previous;
    LogLines() {
        lines.clear();
        previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { lines << text; });
    }
    ~LogLines() { qInstallMessageHandler(previous); }
    QStringList take() { return std::exchange(lines, {}); }
};

} // namespace

TEST(ReservePages, RowTextStandsInFixedColumns) {
    const QString row = ReserveRowText(u"1"_s, u"2026/11/23"_s, u"07:05"_s, u"テレビ"_s, u"ch1"_s);
    EXPECT_EQ(row, WideSpaces(1) + u"１"_s + WideSpaces(3) + u"２０２６／１１／２３"_s +
                       WideSpaces(5) + u"０７：０５"_s + WideSpaces(7) + u"テレビ"_s +
                       WideSpaces(7) + u"ｃｈ１"_s);
    // Too long for its column: no filling behind it.
    const QString wide =
        ReserveRowText(u"12"_s, u"毎日"_s, u"07:05"_s, u"とても長い名前の録画機です"_s, u"電源"_s);
    EXPECT_TRUE(wide.endsWith(u"とても長い名前の録画機です電源"_s));
}

// add1.asp offers eleven years from this one, today selected.
TEST(ReservePages, MomentFormStartsAtThisYear) {
    Pages p;
    const QString page = p.post(u"/add1.asp"_s, {});
    EXPECT_TRUE(
        page.contains(u"name=\"Year\"><option selected>2026</option><option>2027</option>"_s));
    EXPECT_TRUE(page.contains(u"<option>2036</option></select>年"_s));
    EXPECT_FALSE(page.contains(u"2037"_s));
    EXPECT_TRUE(page.contains(u"<option selected>11</option><option>12</option></select>月"_s));
    EXPECT_TRUE(page.contains(u"<option selected>23</option>"_s));
    EXPECT_TRUE(page.contains(u"function HAP(s){"_s) && page.contains(u"function H24(s){"_s));
    EXPECT_TRUE(page.endsWith(u"</body>\r\n</html>\r\n"_s));
}

// add2.asp in test mode: adds, moves and deletes in testmode/reserve only,
// goes by the row's number and content, warns of a past moment without
// refusing, and refills the grid after each post.
TEST(ReservePages, EditPageAddsMovesAndDeletes) {
    Pages p;
    QString page =
        p.post(u"/add2.asp"_s,
               p.moment(u"2026/11/24"_s,
                        {{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"テレビ"_s}, {u"Func"_s, u"電源"_s}}));
    p.post(u"/add2.asp"_s,
           p.moment(u"2026/11/24"_s,
                    {{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"テレビ"_s}, {u"Func"_s, u"ch1"_s}}));
    EXPECT_EQ(p.lines(u"2026_11_24 19_05"_s), (QStringList{u"テレビ|電源"_s, u"テレビ|ch1"_s}));
    EXPECT_FALSE(QDir(p.t.path(u"reserve")).exists() && !QDir(p.t.path(u"reserve")).isEmpty());
    EXPECT_TRUE(page.contains(u"<p><font size=\"2\">予約日時：　2026/11/24 07:05 PM</font></p>"_s));
    EXPECT_FALSE(page.contains(u"時刻が不正です"_s));
    EXPECT_TRUE(page.contains(
        u"Funcs[2] = new Array(\"電源\",\"温度+\",\"温度-\",\"風量\",\"暖/冷\");\r\n"_s));
    EXPECT_TRUE(page.contains(u"<input type=\"hidden\" name=\"AMPM\" value=\"PM\">\r\n"_s));
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
    const std::initializer_list<std::pair<QString, QString>> rec = {
        {u"B1"_s, u"追加"_s}, {u"Dev"_s, u"ビデオ"_s}, {u"Func"_s, u"Rec"_s}};
    EXPECT_FALSE(
        p.post(u"/add2.asp"_s, p.moment(u"2026/11/23"_s, rec)).contains(u"時刻が不正です"_s));
    page = p.post(u"/add2.asp"_s, p.moment(u"2026/11/22"_s, rec));
    EXPECT_TRUE(page.contains(
        u"<p><b><font size=\"2\" color=\"#FF0000\">時刻が不正です</font></b></p>\r\n"_s));
    EXPECT_EQ(p.lines(u"2026_11_22 19_05"_s), QStringList{u"ビデオ|Rec"_s});
}

// Whatever the fields say, nothing is written but reservations in their
// folder, and every post gets a page.
TEST(ReservePages, BadFormsGetAPageAndWriteNothingElse) {
    Pages p;
    const QString longText(5000, u'x');
    const QString bodies[] = {
        form({{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"a"_s}, {u"Func"_s, u"b"_s}}), // no moment
        p.moment(u"../../x"_s, {{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"a"_s}, {u"Func"_s, u"b"_s}}),
        p.moment(u"2026/12/01"_s,
                 {{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"a|b"_s}, {u"Func"_s, u"c"_s}}),
        p.moment(u"2026/12/01"_s,
                 {{u"B1"_s, u"追加"_s}, {u"Dev"_s, longText}, {u"Func"_s, u"c"_s}}),
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
}

// list.asp: every file in name order, numbers within the file; one post
// deletes several rows, equal lines with them, and a file left empty goes.
TEST(ReservePages, ListShowsAllAndDeletesSeveralAtOnce) {
    Pages p;
    p.t.writeFile(u"testmode/reserve/2026_11_24 19_05", "A|x\r\nB|y\r\nA|x\r\n");
    p.t.writeFile(u"testmode/reserve/0100100 21_30", "C|z\r\n");
    const QString head =
        u"<html><head><meta http-equiv=\"Content-Language\" content=\"ja\">"
        u"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=shift_jis\">"
        u"<title>予約済みリスト</title></head><body vlink=\"#0000FF\" bgcolor=\"#DDDDDD\">"
        u"<form method=\"POST\" action=\"list.asp\"><fieldset style=\"width: 588; padding: 2\">"
        u"<legend><font size=\"2\">予約済みリスト</font></legend><SELECT size=\"6\" "
        u"name=\"Reserve\" multiple><OPTION value=\"\">順序　　　日付/曜日　　　　　　　　時刻"
        u"　　　　　　　　　機器名　　　　　　　機能名</OPTION>\r\n"_s;
    auto row = [](const QString& n, const QString& d, const QString& t, const QString& dev,
                  const QString& f) {
        return u"<OPTION value=\""_s + QStringList{n, d, t, dev, f}.join(u'\t') + u"\">"_s +
               ReserveRowText(n, d, t, dev, f) + u"</OPTION>\r\n"_s;
    };
    const QString tail =
        u"</SELECT><input type=\"submit\" value=\"削除\" name=\"B1\"></fieldset></p><p>　</p>"
        u"</form><p><font size=\"2\"><a href=\"default.asp\">メニューへ戻る</a></font></p>"
        u"</body></html>"_s;
    EXPECT_EQ(p.post(u"/list.asp"_s, {}),
              head + row(u"1"_s, u"月木"_s, u"21:30"_s, u"C"_s, u"z"_s) +
                  row(u"1"_s, u"2026/11/24"_s, u"19:05"_s, u"A"_s, u"x"_s) +
                  row(u"2"_s, u"2026/11/24"_s, u"19:05"_s, u"B"_s, u"y"_s) +
                  row(u"3"_s, u"2026/11/24"_s, u"19:05"_s, u"A"_s, u"x"_s) + tail);
    EXPECT_EQ(p.fills, 0);
    const QString page =
        p.post(u"/list.asp"_s, form({{u"Reserve"_s, u"1\t月木\t21:30\tC\tz"_s},
                                     {u"Reserve"_s, u"3\t2026/11/24\t19:05\tA\tx"_s},
                                     {u"B1"_s, u"削除"_s}}));
    EXPECT_EQ(page, head + row(u"1"_s, u"2026/11/24"_s, u"19:05"_s, u"B"_s, u"y"_s) + tail);
    EXPECT_FALSE(QFile::exists(p.t.path(u"testmode/reserve/0100100 21_30")));
    EXPECT_EQ(p.fills, 1);
}

// What a request or a file brings is escaped wherever it lands in a page;
// ordinary names stay as they are (the tests above).
TEST(ReservePages, ValuesAreEscapedInEveryPlace) {
    Pages p;
    const std::initializer_list<std::pair<QString, QString>> add = {
        {u"B1"_s, u"追加"_s}, {u"Dev"_s, u"<script>x</script>"_s}, {u"Func"_s, u"a\"b'"_s}};
    QString page = p.post(u"/add2.asp"_s, p.moment(u"2026/11/24"_s, add));
    EXPECT_EQ(p.lines(u"2026_11_24 19_05"_s), QStringList{u"<script>x</script>|a\"b'"_s});
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

// Adds the store would regret are refused with a red line and a log line
// naming the client: a name that breaks a row, a full moment, an hour past
// 23; so are deletions of rows that are not there. Nothing is written.
TEST(ReservePages, RefusalsAreShownAndLogged) {
    Pages p;
    LogLines log;
    auto red = [](const QString& text) {
        return u"<p><b><font size=\"2\" color=\"#FF0000\">"_s + text + u"</font></b></p>\r\n"_s;
    };
    QString page = p.post(u"/add2.asp"_s, p.moment(u"2026/11/24"_s, {{u"B1"_s, u"追加"_s},
                                                                     {u"Dev"_s, u"テレビ\tx"_s},
                                                                     {u"Func"_s, u"電源"_s}}));
    EXPECT_TRUE(page.contains(red(u"機器名または機能名が不正です"_s) + u"<p><font size"_s));
    EXPECT_FALSE(QFile::exists(p.t.path(u"testmode/reserve/2026_11_24 19_05")));

    const QByteArray full(Reserve::MaxFileBytes - 4, 'x');
    p.t.writeFile(u"testmode/reserve/2026_11_24 19_05", full);
    page =
        p.post(u"/add2.asp"_s,
               p.moment(u"2026/11/24"_s,
                        {{u"B1"_s, u"追加"_s}, {u"Dev"_s, u"テレビ"_s}, {u"Func"_s, u"電源"_s}}));
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
}
