// irdb's CSV files: functionname,protocol,device,subdevice,function, a key a
// row, in the IRP convention (DecodeIR's and IrScrutinizer's protocol names,
// D, S and F); a subdevice of -1 or nothing means the protocol's default.
// Names with a comma come in double quotes. The collection keeps a device's
// file as codes/MAKER/KIND/D,S.csv; the remote is named after MAKER and KIND
// when the file sits so.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

// One CSV line's fields; quotes as RFC 4180 has them. Nothing when a quote
// is left open.
std::optional<QStringList> csvFields(QByteArrayView line) {
    QStringList fields;
    QByteArray field;
    bool quoted = false, wasQuoted = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted) {
            if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
                field += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                field += c;
            }
        } else if (c == '"' && field.trimmed().isEmpty() && !wasQuoted) {
            quoted = wasQuoted = true;
            field.clear();
        } else if (c == ',') {
            fields << QString::fromUtf8(wasQuoted ? field : field.trimmed());
            field.clear();
            wasQuoted = false;
        } else {
            field += c;
        }
    }
    if (quoted)
        return std::nullopt;
    fields << QString::fromUtf8(wasQuoted ? field : field.trimmed());
    return fields;
}

std::optional<int64_t> parameter(const QString& text, bool optional) {
    if (optional && (text.isEmpty() || text == u"-1"))
        return -1;
    bool ok = false;
    const qlonglong v = text.toLongLong(&ok);
    if (!ok || v < 0 || v > 0xFFFFFFFFLL)
        return std::nullopt;
    return v;
}

bool isHeader(const QStringList& f) {
    return f.size() == 5 && f[1].compare(u"protocol", Qt::CaseInsensitive) == 0;
}

QString csvField(const QString& text) {
    if (!text.contains(u',') && !text.contains(u'"'))
        return text;
    return u'"' + QString(text).replace(u"\""_s, u"\"\""_s) + u'"';
}

} // namespace

bool LooksLikeIrdbCsv(QByteArrayView firstLine) {
    const std::optional<QStringList> f = csvFields(firstLine);
    if (!f || f->size() != 5)
        return false;
    if (isHeader(*f))
        return true;
    // A headless row: a name, a protocol, then D, S, F.
    return !(*f)[1].isEmpty() && !(*f)[1].front().isDigit() && parameter((*f)[2], false) &&
           parameter((*f)[3], true) && parameter((*f)[4], false);
}

IrCodeRead ReadIrdbCsv(QByteArrayView bytes, const QString& fileName) {
    IrCodeRead read;
    read.format = IrFormat::IrdbCsv;
    const QStringList parts = QFileInfo(fileName).absoluteFilePath().split(u'/');
    const QString group = parts.size() >= 4 && parts[parts.size() - 4] == u"codes"
                              ? parts[parts.size() - 3] + u' ' + parts[parts.size() - 2]
                              : QString();
    for (const Line& line : SplitLines(bytes)) {
        if (line.text.isEmpty())
            continue;
        if (int(read.codes.size()) >= MaxCodesPerFile) {
            read.error = At(fileName, line.number, u"more than %1 codes"_s.arg(MaxCodesPerFile));
            read.codes.clear();
            return read;
        }
        const std::optional<QStringList> f = csvFields(line.text);
        if (f && isHeader(*f))
            continue;
        const QString name = f && !f->isEmpty() ? f->front() : QString();
        auto refuse = [&](const QString& why) {
            read.refused << At(fileName, line.number,
                               (name.isEmpty() ? u"a row"_s : name) + u": "_s + why);
        };
        if (!f || f->size() != 5) {
            refuse(f ? u"%1 fields, not functionname,protocol,device,subdevice,function"_s.arg(
                           f->size())
                     : u"a quote is not closed"_s);
            continue;
        }
        IrpCode irp;
        irp.protocol = (*f)[1];
        const auto d = parameter((*f)[2], false), s = parameter((*f)[3], true),
                   fn = parameter((*f)[4], false);
        if (!d || !s || !fn) {
            refuse(u"device, subdevice and function are not whole numbers"_s);
            continue;
        }
        irp.D = *d;
        irp.S = *s;
        irp.F = *fn;
        QString why;
        const std::optional<IrCode> code = CodeFromIrp(irp, &why);
        const std::optional<IrTiming> timing = code ? EncodeSignal(*code) : std::nullopt;
        if (!timing) {
            if (why.startsWith(u"unknown IRP protocol"_s))
                why = u"the protocol '%1' is not one this program can send"_s.arg(irp.protocol);
            refuse(why.isEmpty() ? u"cannot be sent"_s : why);
            continue;
        }
        NamedSignal signal;
        signal.name = name;
        signal.group = group;
        signal.code = *code;
        signal.timing = *timing;
        read.codes.push_back(std::move(signal));
    }
    return read;
}

QByteArray WriteIrdbCsv(const std::vector<NamedSignal>& codes, QString* error) {
    QString out = u"functionname,protocol,device,subdevice,function\n"_s;
    for (const NamedSignal& c : codes) {
        const std::optional<IrpCode> irp =
            IrpOf(c.code.decoded() ? c.code : DecodeSignal(c.timing));
        if (!irp || irp->E >= 0 || irp->M >= 0 || irp->N >= 0) {
            *error = c.name + u": not a code irdb's columns can hold (no protocol with D, S, F)"_s;
            return {};
        }
        out += u"%1,%2,%3,%4,%5\n"_s.arg(csvField(c.name), csvField(irp->protocol))
                   .arg(irp->D)
                   .arg(irp->S)
                   .arg(irp->F);
    }
    return out.toUtf8();
}
