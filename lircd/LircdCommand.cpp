#include "lircd/LircdCommand.h"

#include "core/ShiftJis.h"

using namespace Qt::StringLiterals;

namespace {

QList<QByteArrayView> Words(QByteArrayView line) {
    QList<QByteArrayView> words;
    qsizetype i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
            ++i;
        const qsizetype from = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t')
            ++i;
        if (i > from)
            words.append(line.sliced(from, i - from));
    }
    return words;
}

bool Same(QByteArrayView a, const char* b) {
    return QByteArrayView(b).compare(a, Qt::CaseInsensitive) == 0;
}

QByteArray Quoted(QByteArrayView word) {
    return '"' + word.toByteArray() + '"';
}

// A name as a client wrote it: ours exactly (after the trip through the
// registry's code page), else ours in any case, else the form with "_".
template <typename T> const T* Find(const std::vector<T>& items, QByteArrayView word) {
    const QString wanted = ShiftJis::RoundTrip(QString::fromUtf8(word));
    for (const T& item : items)
        if (item.name == wanted)
            return &item;
    for (const T& item : items)
        if (item.name.compare(wanted, Qt::CaseInsensitive) == 0)
            return &item;
    for (const T& item : items)
        if (LircdName(item.name).compare(word, Qt::CaseInsensitive) == 0)
            return &item;
    return nullptr;
}

QByteArray CodeText(quint64 code) {
    return QByteArray::number(code, 16).rightJustified(16, '0');
}

} // namespace

QByteArray LircdName(QStringView name) {
    QString out = name.toString();
    for (QChar& c : out)
        if (c.isSpace())
            c = u'_';
    return out.toUtf8();
}

QByteArray LircdSuccess(QByteArrayView line, const QList<QByteArray>& data) {
    QByteArray out = "BEGIN\n" + line.toByteArray() + "\nSUCCESS\n";
    if (!data.isEmpty()) {
        out += "DATA\n" + QByteArray::number(data.size()) + '\n';
        for (const QByteArray& d : data)
            out += d + '\n';
    }
    return out + "END\n";
}

QByteArray LircdError(QByteArrayView line, QByteArrayView message) {
    return "BEGIN\n" + line.toByteArray() + "\nERROR\nDATA\n1\n" + message.toByteArray() +
           "\nEND\n";
}

QByteArray LircdKeyLine(quint64 code, int repeat, QStringView key, QStringView remote) {
    return CodeText(code) + ' ' +
           QByteArray::number(qBound(0, repeat, 0xff), 16).rightJustified(2, '0') + ' ' +
           LircdName(key) + ' ' + LircdName(remote) + '\n';
}

LircdRequest ParseLircdCommand(QByteArrayView line, const LircdCatalog& catalog) {
    LircdRequest r;
    const auto fail = [&](const QByteArray& message) {
        r.kind = LircdRequest::Kind::Reply;
        r.reply = LircdError(line, message);
        return r;
    };
    QByteArrayView text = line;
    if (text.endsWith('\r')) // a client with DOS line ends
        text.chop(1);
    const QList<QByteArrayView> words = Words(text);
    if (words.isEmpty())
        return fail("bad send packet");
    const QByteArrayView directive = words[0];
    const bool list = Same(directive, "LIST"), once = Same(directive, "SEND_ONCE"),
               start = Same(directive, "SEND_START"), stop = Same(directive, "SEND_STOP");
    if (Same(directive, "VERSION")) {
        r.reply = LircdSuccess(line, {QByteArrayLiteral(KESTRAVA_VERSION)});
        return r;
    }
    if (Same(directive, "SIMULATE"))
        return fail("SIMULATE command is disabled");
    if (Same(directive, "SET_TRANSMITTERS"))
        return fail("hardware does not support multiple transmitters");
    if (!list && !once && !start && !stop)
        return fail("unknown directive: " + Quoted(directive));

    // Checked in lircd's order: the remote, the key, the count, what is left over.
    if (words.size() > 1) {
        r.remote = Find(catalog, words[1]);
        if (!r.remote)
            return fail("unknown remote: " + Quoted(words[1]));
    }
    if (words.size() > 2) {
        r.key = Find(r.remote->keys, words[2]);
        if (!r.key)
            return fail("unknown command: " + Quoted(words[2]));
    }
    qsizetype used = 3;
    if (once && words.size() > 3) {
        bool ok = false;
        const QByteArray count = words[3].toByteArray();
        const qlonglong n = count.toLongLong(&ok, 10);
        if (!ok || n < 0)
            return fail("bad send packet (reps/eol)");
        if (n > LircdMaxRepeats)
            return fail("too many repeats: " + Quoted(count) + " > " +
                        Quoted(QByteArray::number(LircdMaxRepeats)));
        r.times = int(std::max<qlonglong>(n, 1));
        used = 4;
    }
    if (words.size() > used)
        return fail("bad send packet (trailing ws)");
    if ((once || start) && !r.remote)
        return fail("remote missing");
    if ((once || start) && !r.key)
        return fail("code missing");

    if (once || start || stop) {
        r.kind = once    ? LircdRequest::Kind::SendOnce
                 : start ? LircdRequest::Kind::SendStart
                         : LircdRequest::Kind::SendStop;
        return r;
    }
    QList<QByteArray> data;
    if (r.key) {
        data.append(CodeText(r.key->code) + ' ' + LircdName(r.key->name));
    } else if (r.remote) {
        for (const LircdKey& k : r.remote->keys)
            data.append(CodeText(k.code) + ' ' + LircdName(k.name));
    } else {
        for (const LircdRemote& remote : catalog)
            data.append(LircdName(remote.name));
    }
    r.reply = LircdSuccess(line, data);
    return r;
}
