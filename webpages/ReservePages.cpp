#include "webpages/ReservePages.h"

#include "core/Clock.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "remotes/Registry.h"
#include "reservations/ReserveStore.h"
#include "webpages/MenuPages.h"
#include "webserver/Codecs.h"
#include "webserver/Dispatcher.h"

#include <QDir>
#include <QLoggingCategory>
#include <QSet>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcPages, "kestrava.pages")

const QString CRLF = u"\r\n"_s;
const QString Title = u"予約の追加・編集"_s;
const QString MenuLink =
    u"<p><font size=\"2\"><a href=\"default.asp\">メニューへ戻る</a></font></p>"_s;
const QString HeadRow = u"順序"_s + WideSpaces(3) + u"日付/曜日"_s + WideSpaces(8) + u"時刻"_s +
                        WideSpaces(9) + u"機器名"_s + WideSpaces(7) + u"機能名"_s;

// A warning in red, as the page gives for a bad moment.
QString warning(const QString& text) {
    return u"<p><b><font size=\"2\" color=\"#FF0000\">"_s + text + u"</font></b></p>"_s + CRLF;
}

// A name as a string of the page's script: quotes, backslashes, tags and line
// ends cannot end the string or the script.
QString scriptString(const QString& text) {
    QString out = u"\""_s;
    for (QChar c : text) {
        if (c == u'"' || c == u'\\' || c == u'<' || c == u'>' || c.unicode() < 0x20 ||
            c.unicode() == 0x2028 || c.unicode() == 0x2029)
            out += u"\\u"_s + QString::number(c.unicode(), 16).rightJustified(4, u'0');
        else
            out += c;
    }
    return out + u'"';
}

QString fullWidth(const QString& text) {
    QString out = text;
    for (QChar& c : out) {
        if (c == u' ')
            c = QChar(0x3000);
        else if (c.unicode() > 0x20 && c.unicode() < 0x7f)
            c = QChar(c.unicode() + 0xfee0);
    }
    return out;
}

QString option(const QString& value, const QString& text) {
    return u"<OPTION value=\""_s + HtmlEscape(value) + u"\">"_s + HtmlEscape(text) +
           u"</OPTION>"_s + CRLF;
}

// The rows of one file: numbers are the lines of the file, empty ones unshown.
QString fileRows(const QString& folderPath, const QString& name) {
    const QString day = Reserve::DayText(name), time = Reserve::TimeText(name);
    const QStringList lines = Reserve::ReadLines(folderPath + u'/' + name);
    QString out;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (lines[i].isEmpty())
            continue;
        const Reserve::Operation op = Reserve::SplitLine(lines[i]);
        const QString order = QString::number(i + 1);
        out += option(QStringList{order, day, time, op.device, op.function}.join(u'\t'),
                      ReserveRowText(order, day, time, op.device, op.function));
    }
    return out;
}

struct Device {
    QString name;
    QStringList functions;
};

// The devices of the Dev select and their functions in button order.
std::vector<Device> devices(SettingsStore& settings) {
    if (IsTestMode(settings)) {
        QStringList channels;
        for (int i = 1; i <= 12; ++i)
            channels << u"ch"_s + QString::number(i);
        return {{u"テレビ"_s,
                 QStringList{u"電源"_s} + channels +
                     QStringList{u"ch+"_s, u"ch-"_s, u"TV/Video"_s, u"音量+"_s, u"音量-"_s}},
                {u"ビデオ"_s, QStringList{u"電源"_s} + channels +
                                  QStringList{u"+0"_s, u"ch+"_s, u"ch-"_s, u"Stop"_s, u"FF"_s,
                                              u"Rew"_s, u"Play"_s, u"Rec"_s}},
                {u"エアコン"_s, {u"電源"_s, u"温度+"_s, u"温度-"_s, u"風量"_s, u"暖/冷"_s}}};
    }
    std::vector<Device> out;
    for (int id = 1; id <= MaxListedRemoteId; ++id) {
        QString name = settings.Read(Key::RemoteName(id));
        if (name.isEmpty())
            continue;
        Device d{std::move(name), {}};
        for (QString& f : ReadRemoteButtons(settings, id))
            if (!f.isEmpty())
                d.functions << std::move(f);
        out.push_back(std::move(d));
    }
    return out;
}

QString hidden(const QString& name, const QString& value) {
    return u"<input type=\"hidden\" name=\""_s + name + u"\" value=\""_s + HtmlEscape(value) +
           u"\">"_s + CRLF;
}

} // namespace

QString ReserveRowText(const QString& order, const QString& day, const QString& time,
                       const QString& device, const QString& function) {
    QString out = WideSpaces(int(2 - order.size())) + fullWidth(order);
    const std::pair<int, QString> columns[] = {{5, day}, {20, time}, {32, device}, {42, function}};
    for (const auto& [at, field] : columns)
        out += WideSpaces(int(at - out.size())) + fullWidth(field);
    return out;
}

QString AddMomentPage(const ReservePageContext& c) {
    const QDate today = c.clock.now().date();
    auto numbers = [](int from, int to, int selected) {
        QString out;
        for (int i = from; i <= to; ++i)
            out += (i == selected ? u"<option selected>"_s : u"<option>"_s) +
                   QString::number(i).rightJustified(2, u'0') + u"</option>"_s;
        return out;
    };
    QString out = PageHead({true, true, Title, BrowserBodyTag});
    // The two functions that switch the hour list between AM/PM and 24 hours.
    out.replace(u"</head>"_s,
                u"<script type=\"text/javascript\">\r\n<!--\r\n"
                u"function HAP(s){\r\n"
                u"for(var i=0;i<12;i++){s.Hour.options[i].text=(i<10?\"0\":\"\")+i;}\r\n"
                u"for(var i=12;i<24;i++){s.Hour.options[i].text=\"\";}\r\n"
                u"s.AMPM.options[0].text=\"AM\";s.AMPM.options[1].text=\"PM\";\r\n}\r\n"
                u"function H24(s){\r\n"
                u"for(var i=0;i<24;i++){s.Hour.options[i].text=(i<10?\"0\":\"\")+i;}\r\n"
                u"s.AMPM.options[0].text=\"\";s.AMPM.options[1].text=\"\";\r\n}\r\n"
                u"//-->\r\n</script>\r\n</head>"_s);
    out += u"<p><font size=\"2\">日付・時刻を指定してください</font></p>"_s + CRLF;
    out += u"<form method=\"POST\" action=\"add2.asp\">"_s + CRLF;
    out += u"<fieldset style=\"width: 588; padding: 2\"><legend><font size=\"2\">日付の指定"
           u"</font></legend>"_s +
           CRLF + u"<table border=\"0\" width=\"400\">"_s + CRLF;
    // Eleven years from this one, this one selected.
    out += u"<tr><td><font size=\"2\"><input type=\"radio\" value=\"Single\" checked "
           u"name=\"R1\">1回だけ</font></td><td><font size=\"2\"><select size=\"1\" "
           u"name=\"Year\">"_s +
           numbers(today.year(), today.year() + 10, today.year()) +
           u"</select>年<select size=\"1\" name=\"Month\">"_s + numbers(1, 12, today.month()) +
           u"</select>月<select size=\"1\" name=\"Date\">"_s + numbers(1, 31, today.day()) +
           u"</select>日</font></td></tr>"_s + CRLF;
    out += u"<tr><td><font size=\"2\"><input type=\"radio\" value=\"Everyday\" name=\"R1\">毎日"
           u"</font></td><td></td></tr>"_s +
           CRLF;
    out += u"<tr><td><font size=\"2\"><input type=\"radio\" value=\"Everyweek\" name=\"R1\">毎週"
           u"</font></td><td><font size=\"2\">"_s;
    for (int i = 0; i < 7; ++i) {
        QString letter = Reserve::DayLetters.at(i);
        if (i == 0)
            letter = u"<font color=\"#FF0000\">"_s + letter + u"</font>"_s;
        else if (i == 6)
            letter = u"<font color=\"#0000FF\">"_s + letter + u"</font>"_s;
        out += u"<input type=\"checkbox\" name=\"D"_s + QString::number(i) + u"\" value=\"ON\">"_s +
               letter;
    }
    out += u"</font></td></tr>"_s + CRLF + u"</table>"_s + CRLF + u"</fieldset>"_s + CRLF;
    out += u"<fieldset style=\"width: 588; padding: 2\"><legend><font size=\"2\">時刻の指定"
           u"</font></legend>"_s +
           CRLF;
    out += u"<p><font size=\"2\"><input type=\"radio\" value=\"AMPM\" checked name=\"R2\" "
           u"onclick=\"HAP(this.form);\">AM/PM表示&nbsp;<input type=\"radio\" value=\"H24\" "
           u"name=\"R2\" onclick=\"H24(this.form);\">24時間表示</font></p>"_s +
           CRLF;
    out += u"<p><font size=\"2\"><select size=\"1\" name=\"Hour\">"_s + numbers(0, 12, 0);
    for (int i = 0; i < 11; ++i)
        out += u"<option></option>"_s;
    out += u"</select>時<select size=\"1\" name=\"Min\">"_s + numbers(0, 59, 0) +
           u"</select>分<select size=\"1\" name=\"AMPM\"><option>AM</option><option>PM</option>"
           u"</select></font></p>"_s +
           CRLF + u"</fieldset>"_s + CRLF;
    out +=
        u"<p><input type=\"submit\" value=\"決定\" name=\"B1\"></p>"_s + CRLF + u"</form>"_s + CRLF;
    out += MenuLink + CRLF + u"</body>"_s + CRLF + u"</html>"_s + CRLF;
    return out;
}

QString EditMomentPage(const ReservePageContext& c, const PageRequest& r) {
    const std::vector<Device> list = devices(c.settings);

    QString script = u"<script type=\"text/javascript\">\r\n<!--\r\n"
                     u"function DD(b){\r\n"
                     u"if(b){document.Resv.Func.length=1;document.Resv.Func.selectedIndex=0;}\r\n"
                     u"var Func = Funcs[document.Resv.Dev.selectedIndex];\r\n"
                     u"document.Resv.Func.length=Func.length+1;\r\n"
                     u"for(var i=0;i<Func.length;i++){document.Resv.Func.options[i+1].value="
                     u"Func[i];document.Resv.Func.options[i+1].text=Func[i];}\r\n}\r\n"
                     u"var Funcs = new Array();\r\n"_s;
    for (size_t n = 0; n < list.size(); ++n) {
        QStringList quoted;
        for (const QString& f : list[n].functions)
            quoted << scriptString(f);
        script += u"Funcs["_s + QString::number(n) + u"] = new Array("_s + quoted.join(u',') +
                  u");"_s + CRLF;
    }
    script += u"//-->\r\n</script>\r\n"_s;
    QString out = u"<html>"_s + CRLF + u"<head>"_s + CRLF;
    out += u"<meta http-equiv=\"Content-Language\" content=\"ja\">"
           u"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=shift_jis\">"_s +
           CRLF;
    out += u"<title>"_s + Title + u"</title>"_s + CRLF + script + u"</head>"_s + CRLF;
    out += BrowserBodyTag + CRLF;

    // The moment of the form.
    QString shownDate, datePart;
    if (r.R1 == u"Single") {
        shownDate = r.Year + u'/' + r.Month + u'/' + r.Date;
        datePart = shownDate;
    } else if (r.R1 == u"Everyday") {
        shownDate = u"毎日"_s;
        datePart = u"1111111"_s;
    } else if (r.R1 == u"Everyweek") {
        const QString* days[] = {&r.D0, &r.D1, &r.D2, &r.D3, &r.D4, &r.D5, &r.D6};
        std::array<bool, 7> mask{};
        for (int i = 0; i < 7; ++i) {
            mask[i] = *days[i] == u"ON";
            if (mask[i])
                shownDate += Reserve::DayLetters[i];
        }
        datePart = Reserve::MaskFor(mask);
    }
    const bool ampm = r.R2 == u"AMPM";
    const QString shownTime = r.Hour + u':' + r.Min + (ampm ? u' ' + r.AMPM : QString());
    // The page adds 12 and writes the sum as it stands: "12" PM gives 24.
    const QString hour = ampm && r.AMPM == u"PM" ? QString::number(Val(r.Hour) + 12) : r.Hour;
    const QString folderPath = Reserve::Folder(c.folder, c.settings);
    const QString name = Reserve::NameFor(datePart, hour + u':' + r.Min);
    const QString path = folderPath + u'/' + name;
    // A name of neither form (a form that was not ours) is never written, nor
    // a moment no clock shows ("12" PM comes to 24).
    const bool named = Reserve::IsValidName(name);
    const bool impossible = named && (hour.toInt() > 23 || r.Min.toInt() > 59);
    const bool valid = named && !impossible;

    // What was asked and not done is logged, with the asker.
    auto refused = [&](const char* reason) {
        qCWarning(lcPages).noquote() << "add2.asp from" << r.remoteAddress << "refused"
                                     << (r.B1 == u"追加" ? "an add" : "a change") << "to"
                                     << (named ? name : u"no moment"_s) << "-" << reason;
    };
    const QStringList row = r.Reserve.split(u'\t');
    const int order = row.size() >= 5 ? int(Val(row[0])) : 0;
    QString refusal;
    if (r.B1 == u"追加") {
        if (!valid) {
            refused(impossible ? "no such time" : "no such moment");
        } else if (r.Dev.isEmpty() || r.Func.isEmpty()) {
            refused("no device or function");
        } else {
            const Reserve::AddResult added = Reserve::AddLine(path, r.Dev, r.Func);
            if (added != Reserve::AddResult::Added) {
                refused(Reserve::AddRefusalReason(added));
                refusal = Reserve::AddRefusalText(added);
            }
        }
    } else if (!r.Reserve.isEmpty() &&
               (r.B1 == u"削除" || r.B1 == u"上へ移動" || r.B1 == u"下へ移動")) {
        if (!valid || order <= 0)
            refused("no such row");
        else if (!(r.B1 == u"削除"
                       ? Reserve::DeleteLineIf(path, order, Reserve::JoinLine(row[3], row[4]))
                       : Reserve::MoveLine(path, order, r.B1 == u"上へ移動")))
            refused("the row is not there or cannot move");
    }

    bool past = false;
    if (r.R1 == u"Single") {
        const QString now = c.clock.now().toString(u"yyyy/MM/dd HH:mm:ss");
        past = now >= shownDate + u' ' + hour + u':' + r.Min;
    }
    if (past || impossible)
        out += warning(u"時刻が不正です"_s);
    if (!refusal.isEmpty())
        out += warning(refusal);
    out += u"<p><font size=\"2\">予約日時："_s + QChar(0x3000) + HtmlEscape(shownDate) + u' ' +
           HtmlEscape(shownTime) + u"</font></p>"_s + CRLF;
    out += u"<a href=\"add1.asp\"><font size=\"2\">日時の変更</font></a></p>"_s + CRLF;

    out += u"<form name=\"Resv\" method=\"POST\" action=\"add2.asp\">"_s + CRLF;
    out += u"<fieldset style=\"width: 588; padding: 2\"><legend><font size=\"2\">操作の選択"
           u"</font></legend>"_s +
           CRLF + u"<table border=\"0\" width=\"59%\">"_s + CRLF;
    out += u"<tr><td><font size=\"2\">操作対象機器</font></td><td><select size=\"1\" name=\"Dev\" "
           u"onChange=\"DD(true)\">"_s +
           CRLF;
    for (const Device& d : list)
        out += u"<option value=\""_s + HtmlEscape(d.name) + u"\">"_s + HtmlEscape(d.name) +
               u"</option>"_s + CRLF;
    out += u"</select></td></tr>"_s + CRLF;
    out += u"<tr><td><font size=\"2\">操作する機能</font></td><td><select size=\"1\" "
           u"name=\"Func\">"_s +
           CRLF;
    if (!list.empty())
        for (const QString& f : list.front().functions)
            out += u"<option value=\""_s + HtmlEscape(f) + u"\">"_s + HtmlEscape(f) +
                   u"</option>"_s + CRLF;
    out += u"</select></td></tr>"_s + CRLF + u"</table>"_s + CRLF;
    out += u"<input type=\"submit\" value=\"追加\" name=\"B1\">"_s + CRLF + u"</fieldset>"_s + CRLF;

    out += u"<fieldset style=\"width: 588; height: 115; padding: 2\"><legend><font size=\"2\">"
           u"この日付・時刻に予約されている項目の実行順序</font></legend>"_s +
           CRLF;
    out += u"<table border=\"0\"><tr><td rowspan=\"4\"><SELECT size=\"6\" name=\"Reserve\">"_s +
           CRLF + option(QString(), HeadRow);
    if (valid)
        out += fileRows(folderPath, name);
    out += u"</SELECT></td><td><input type=\"submit\" value=\"上へ移動\" name=\"B1\"></td></tr>"_s +
           CRLF;
    out += u"<tr><td><input type=\"submit\" value=\"下へ移動\" name=\"B1\"></td></tr>"_s + CRLF;
    out += u"<tr><td></td></tr>"_s + CRLF;
    out += u"<tr><td><input type=\"submit\" value=\"削除\" name=\"B1\"></td></tr>"_s + CRLF;
    out += u"</table>"_s + CRLF + u"</fieldset>"_s + CRLF;

    const std::pair<const char16_t*, const QString*> fields[] = {
        {u"R1", &r.R1}, {u"Year", &r.Year}, {u"Month", &r.Month}, {u"Date", &r.Date},
        {u"R2", &r.R2}, {u"Hour", &r.Hour}, {u"Min", &r.Min},     {u"AMPM", &r.AMPM},
        {u"D0", &r.D0}, {u"D1", &r.D1},     {u"D2", &r.D2},       {u"D3", &r.D3},
        {u"D4", &r.D4}, {u"D5", &r.D5},     {u"D6", &r.D6}};
    for (const auto& [field, value] : fields)
        out += hidden(QString::fromUtf16(field), *value);
    out += u"</form>"_s + CRLF + MenuLink + CRLF + u"</body>"_s + CRLF + u"</html>"_s + CRLF;

    if (c.fillGrid)
        c.fillGrid();
    return out;
}

QString ReserveListPage(const ReservePageContext& c, const PageRequest& r) {
    const QString folderPath = Reserve::Folder(c.folder, c.settings);
    if (r.B1 == u"削除" && !r.ReserveList.isEmpty()) {
        const QStringList values = r.ReserveList.split(u'|', Qt::SkipEmptyParts);
        // Equal lines of a file go together, so a second row of one is no miss.
        QSet<QString> done;
        qsizetype missed = 0;
        for (const QString& value : values) {
            const QStringList f = value.split(u'\t');
            const QString name = f.size() < 5 ? QString() : Reserve::NameFromTexts(f[1], f[2]);
            const QString line = f.size() < 5 ? QString() : Reserve::JoinLine(f[3], f[4]);
            if (!Reserve::IsValidName(name)) {
                ++missed;
                continue;
            }
            if (done.contains(name + u'/' + line))
                continue;
            done.insert(name + u'/' + line);
            if (!Reserve::DeleteByContent(folderPath + u'/' + name, line))
                ++missed;
        }
        // One line for the post, however many rows it named.
        if (missed > 0)
            qCWarning(lcPages).noquote()
                << "list.asp from" << r.remoteAddress << "refused" << missed << "of"
                << values.size() << "deletions - no such row";
        if (c.fillGrid)
            c.fillGrid();
    }
    QString out = PageHead({true, false, u"予約済みリスト"_s, BrowserBodyTag});
    out += u"<form method=\"POST\" action=\"list.asp\"><fieldset style=\"width: 588; padding: 2\">"
           u"<legend><font size=\"2\">予約済みリスト</font></legend><SELECT size=\"6\" "
           u"name=\"Reserve\" multiple>"_s +
           option(QString(), HeadRow);
    for (const QString& name : Reserve::ListNames(folderPath))
        out += fileRows(folderPath, name);
    out += u"</SELECT><input type=\"submit\" value=\"削除\" name=\"B1\"></fieldset></p><p>"_s +
           QChar(0x3000) + u"</p></form>"_s + MenuLink + u"</body></html>"_s;
    return out;
}

void InstallReservePages(Dispatcher& dispatcher, ReservePageContext context) {
    auto c = std::make_shared<ReservePageContext>(std::move(context));
    dispatcher.SetGenerator(u"add1.asp"_s, [c](const PageRequest&) { return AddMomentPage(*c); });
    dispatcher.SetGenerator(u"add2.asp"_s,
                            [c](const PageRequest& r) { return EditMomentPage(*c, r); });
    dispatcher.SetGenerator(u"list.asp"_s,
                            [c](const PageRequest& r) { return ReserveListPage(*c, r); });
}
