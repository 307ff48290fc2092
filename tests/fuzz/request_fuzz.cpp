// The server's decision on the bytes of a request: framing, request line,
// headers, login, routing, the site it says it comes from, the host it names,
// then the file path and the byte range it names.
#include "core/ProgramFolder.h"
#include "webserver/Codecs.h"
#include "webserver/FileSender.h"
#include "webserver/HostRule.h"
#include "webserver/HttpRequest.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

struct Folder {
    Folder() : folder(dir.path()) {
        QDir(dir.path()).mkpath(u"pic"_s);
        QDir(dir.path()).mkpath(u"IRSignals"_s);
        for (const QString& name : {u"pic/up.gif"_s, u"setting.ini"_s, u"IRSignals/TV-1.bin"_s}) {
            QFile f(folder.path(name));
            if (f.open(QIODevice::WriteOnly))
                f.write("x");
        }
        root = QDir(dir.path()).canonicalPath() + u'/';
    }
    QTemporaryDir dir;
    ProgramFolder folder;
    QString root;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Folder f;
    if (size < 1)
        return 0;
    // The first byte picks the server's state.
    const bool armed = data[0] & 1;
    WebLogin state;
    state.WebAuthOn = data[0] & 2;
    state.WebUser = u"user"_s;
    state.WebPass = u"pa:ss"_s;
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data) + 1, qsizetype(size - 1));

    const Http::Decision d = Http::Decide(bytes, armed, state);
    if (d.action == Http::Action::Wait || d.action == Http::Action::Drop)
        return 0;
    if (d.length > bytes.size())
        abort();
    // Whatever the request says, the host cannot end a header line early.
    if (d.request.host.contains(u'\r') || d.request.host.contains(u'\n'))
        abort();
    Http::RedirectResponse(d.request.host);
    // A name never keeps a port; only an IPv6 literal holds colons.
    if (const QString name = HostRule::NameOf(d.request.host);
        name.contains(u':') && !name.startsWith(u'['))
        abort();
    Http::AccessDeniedResponse({}, {});
    Http::ClassifyPath(d.request.path, armed);
    Http::FromAnotherSite(d.request);
    ContentTypeLines(d.request.path);
    if (std::optional<qint64> start = RangeStart(d.request.text); start && *start < 0)
        abort();
    const QString file = ResolveFilePath(f.folder, d.request.path);
    if (!file.isEmpty() && (!file.startsWith(f.root) || file.endsWith(u"setting.ini"_s) ||
                            file.contains(u"IRSignals"_s)))
        abort();
    return 0;
}
