// What a client writes on the lircd socket: each line answered as a whole
// frame echoing it, or taken as a send of a key that exists.
#include "lircd/LircdCommand.h"

#include <cstdlib>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const LircdCatalog catalog{{u"TV"_s, {{u"Power"_s, 0x4000}, {u"Vol Up"_s, 0x4001}}},
                                      {u"居間のエアコン"_s, {{u"冷房～"_s, 0}}},
                                      {u"Empty"_s, {}}};
    const QByteArrayView all(reinterpret_cast<const char*>(data), qsizetype(size));
    for (const QByteArrayView line : QByteArray::fromRawData(all.data(), all.size()).split('\n')) {
        if (line.size() > LircdMaxLine)
            continue; // the server drops the client first
        const LircdRequest r = ParseLircdCommand(line, catalog);
        if (r.kind == LircdRequest::Kind::Reply) {
            const QByteArray head = "BEGIN\n" + line.toByteArray() + '\n';
            if (!r.reply.startsWith(head) || !r.reply.endsWith("\nEND\n"))
                abort();
            const QByteArrayView rest = QByteArrayView(r.reply).sliced(head.size());
            if (!rest.startsWith("SUCCESS\n") && !rest.startsWith("ERROR\nDATA\n1\n"))
                abort();
            continue;
        }
        const bool stop = r.kind == LircdRequest::Kind::SendStop;
        if ((!stop && (!r.remote || !r.key)) || (r.key && !r.remote) || r.times < 1 ||
            r.times > LircdMaxRepeats)
            abort();
    }
    return 0;
}
