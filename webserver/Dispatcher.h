#pragma once

#include <QString>

#include <functional>
#include <map>

// Everything a generator may need from one request, cut out of the parameter
// text before any generator runs (a generator may wait with events running,
// and another request may be handled meanwhile).
struct PageRequest {
    QString remoteAddress;
    // remote1.asp to remote6.asp, cremote.asp
    QString DevID, Button, Device;
    // add2.asp
    QString R1, Year, Month, Date, R2, Hour, Min, AMPM, B1, Dev, Func, Reserve;
    QString D0, D1, D2, D3, D4, D5, D6;
    // list.asp: every Reserve value, each followed by "|"
    QString ReserveList;
};

using PageGenerator = std::function<QString(const PageRequest&)>;

// The virtual pages. Names are tested in a fixed order as substrings of the
// lower-case path, and every match runs its generator: a later match wins
// (cremote.asp also contains remote.asp).
class Dispatcher {
public:
    // The names in the order they are tested.
    static const QStringList& PageNames();

    // Sets the generator of one page name ("default.asp", "remote4.asp", ...).
    // A name without a generator gives an empty page.
    void SetGenerator(const QString& name, PageGenerator generator);

    // path: the request path with its query; postBody: the request body ("" for
    // a GET). Returns the page text; a path that names no page gives "".
    QString DispatchPage(const QString& path, const QString& postBody,
                         const QString& remoteAddress);

    // Whether the request would do something beyond showing a page: press a
    // key, change reservations, put the machine to sleep. Read as DispatchPage
    // reads it.
    static bool Acts(const QString& path, const QString& postBody);

private:
    std::map<QString, PageGenerator> generators_;
};

// The value of key K in text T: behind the first "K=" up to the next "&" or the
// end; "" when K= does not occur. No further decoding.
QString ExtractParam(const QString& text, const QString& key);
