// The page dispatcher: which pages a path names, the parameters cut out of
// its query or body for them, and whether the request acts.
#include "core/ShiftJis.h"
#include "webserver/Dispatcher.h"

#include <QStringList>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Dispatcher dispatcher = [] {
        Dispatcher d;
        for (const QString& name : Dispatcher::PageNames())
            d.SetGenerator(name, [](const PageRequest& r) {
                return r.DevID + r.Button + r.Device + r.ReserveList + r.D6;
            });
        return d;
    }();
    // Path, then a NUL, then the body.
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype nul = bytes.indexOf('\0');
    const QString path = ShiftJis::Decode(nul < 0 ? bytes : bytes.first(nul));
    const QString body = nul < 0 ? QString() : ShiftJis::Decode(bytes.sliced(nul + 1));
    dispatcher.DispatchPage(path, body, QStringLiteral("192.168.0.2"));
    // Whatever else the path says, one that names hibern.asp acts.
    if (!Dispatcher::Acts(path, body) && !path.contains(u'%') &&
        path.section(u'?', 0, 0).toLower().contains(QStringLiteral("hibern.asp")))
        abort();
    return 0;
}
