#include "webserver/Dispatcher.h"

#include "webserver/Codecs.h"

#include <QStringList>

#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// Decoded parameter text loses one trailing CR LF, then one trailing CR, which
// some phones send behind a form body.
QString decodeParams(const QString& text) {
    QString s = DecodeQuery(text);
    if (s.endsWith(u"\r\n"))
        s.chop(2);
    if (s.endsWith(u'\r'))
        s.chop(1);
    return s;
}

// Every Reserve value, each followed by "|". A last value without "&" behind
// it runs to the end of the text.
QString gatherReserves(const QString& params) {
    QString list;
    QStringView work(params);
    const QString key = u"Reserve="_s;
    for (qsizetype p = work.indexOf(key); p >= 0; p = work.indexOf(key)) {
        const qsizetype start = p + key.size();
        const qsizetype amp = work.indexOf(u'&', p);
        const qsizetype end = amp < 0 ? work.size() : amp;
        list += work.sliced(start, end - start).toString();
        list += u'|';
        if (amp < 0)
            break;
        work = work.sliced(amp + 1);
    }
    return list;
}

bool isRemotePage(const QString& name) {
    return name.startsWith(u"remote") && name != u"remote.asp";
}

} // namespace

QString ExtractParam(const QString& text, const QString& key) {
    const QString marker = key + u'=';
    const qsizetype p = text.indexOf(marker);
    if (p < 0)
        return {};
    const qsizetype start = p + marker.size();
    const qsizetype amp = text.indexOf(u'&', p);
    return text.mid(start, amp < 0 ? -1 : amp - start);
}

const QStringList& Dispatcher::PageNames() {
    static const QStringList names = {
        u"default.asp"_s, u"confirm.asp"_s, u"hibern.asp"_s,  u"add1.asp"_s,    u"add2.asp"_s,
        u"list.asp"_s,    u"remote.asp"_s,  u"remote1.asp"_s, u"remote2.asp"_s, u"remote3.asp"_s,
        u"remote4.asp"_s, u"remote5.asp"_s, u"remote6.asp"_s, u"cell.asp"_s,    u"cremote.asp"_s,
    };
    return names;
}

void Dispatcher::SetGenerator(const QString& name, PageGenerator generator) {
    generators_[name] = std::move(generator);
}

namespace {

// The lower-case page path and the parameter text of one request.
struct Parsed {
    QString lower;
    QString params;
};

Parsed parse(const QString& requestPath, const QString& postBody) {
    QString path = requestPath;
    if (path.contains(u'%'))
        path = DecodeQuery(path);

    // The parameter text: a body wins over a query string.
    const qsizetype question = path.indexOf(u'?');
    Parsed p;
    if (question < 0 || !postBody.isEmpty()) {
        if (!postBody.isEmpty())
            p.params = decodeParams(postBody);
    } else {
        p.params = path.mid(question + 1);
        if (p.params.contains(u'%'))
            p.params = decodeParams(p.params);
    }

    if (question >= 0)
        path.truncate(question);
    // A path without an extension in its last four characters is a folder.
    if (path.right(4).left(1) != u".")
        path += u"/default.asp";
    p.lower = path.toLower();
    return p;
}

PageRequest extract(const QString& name, const QString& params, const QString& remoteAddress) {
    PageRequest r;
    r.remoteAddress = remoteAddress;
    if (params.isEmpty())
        return r;
    if (name == u"add2.asp") {
        r.R1 = ExtractParam(params, u"R1"_s);
        r.Year = ExtractParam(params, u"Year"_s);
        r.Month = ExtractParam(params, u"Month"_s);
        r.Date = ExtractParam(params, u"Date"_s);
        r.R2 = ExtractParam(params, u"R2"_s);
        r.Hour = ExtractParam(params, u"Hour"_s);
        r.Min = ExtractParam(params, u"Min"_s);
        r.AMPM = ExtractParam(params, u"AMPM"_s);
        r.B1 = ExtractParam(params, u"B1"_s);
        r.Dev = ExtractParam(params, u"Dev"_s);
        r.Func = ExtractParam(params, u"Func"_s);
        r.Reserve = ExtractParam(params, u"Reserve"_s);
        r.D0 = ExtractParam(params, u"D0"_s);
        r.D1 = ExtractParam(params, u"D1"_s);
        r.D2 = ExtractParam(params, u"D2"_s);
        r.D3 = ExtractParam(params, u"D3"_s);
        r.D4 = ExtractParam(params, u"D4"_s);
        r.D5 = ExtractParam(params, u"D5"_s);
        r.D6 = ExtractParam(params, u"D6"_s);
    } else if (name == u"list.asp") {
        r.B1 = ExtractParam(params, u"B1"_s);
        r.ReserveList = gatherReserves(params);
    } else if (isRemotePage(name) || name == u"cremote.asp") {
        r.DevID = ExtractParam(params, u"DevID"_s);
        r.Device = ExtractParam(params, u"Device"_s);
        r.Button = ExtractParam(params, u"Button"_s);
    }
    return r;
}

} // namespace

QString Dispatcher::DispatchPage(const QString& requestPath, const QString& postBody,
                                 const QString& remoteAddress) {
    const Parsed p = parse(requestPath, postBody);

    // Cut every parameter out before the first generator runs: a generator may
    // wait with events running, and another request may be dispatched then.
    std::vector<std::pair<QString, PageRequest>> matches;
    for (const QString& name : PageNames())
        if (p.lower.contains(name))
            matches.emplace_back(name, extract(name, p.params, remoteAddress));

    QString page;
    for (const auto& [name, request] : matches) {
        // add2.asp acts on a form; without one it is an empty page.
        if (name == u"add2.asp" && p.params.isEmpty()) {
            page.clear();
            continue;
        }
        auto it = generators_.find(name);
        // A copy, so that a generator may replace generators while it runs.
        PageGenerator generator = it != generators_.end() ? it->second : PageGenerator();
        page = generator ? generator(request) : QString();
    }
    return page;
}

bool Dispatcher::Acts(const QString& requestPath, const QString& postBody) {
    const Parsed p = parse(requestPath, postBody);
    for (const QString& name : PageNames()) {
        if (!p.lower.contains(name))
            continue;
        const PageRequest r = extract(name, p.params, {});
        if (name == u"hibern.asp" || (name == u"add2.asp" && !p.params.isEmpty()) ||
            (name == u"list.asp" && (!r.B1.isEmpty() || !r.ReserveList.isEmpty())) ||
            !r.Button.isEmpty())
            return true;
    }
    return false;
}
