// show: a signal file or a file of codes as durations, mode2 text or JSON.
#include "infrared/Climate.h"
#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"
#include "infrared/SignalStore.h"
#include "infrared/formats/IrFormats.h"
#include "tools/kestrava-ir/Tool.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <vector>

using namespace Qt::StringLiterals;

namespace irtool {
namespace {

QJsonArray jsonDurations(const std::vector<uint32_t>& durations) {
    QJsonArray a;
    for (size_t i = 0; i < durations.size(); ++i)
        a.append(i % 2 ? -qint64(durations[i]) : qint64(durations[i]));
    return a;
}

// Home Assistant's signed form: positive µs with the carrier on, negative off.
QJsonObject codeJson(const IrTiming& t, const IrCode& code) {
    QJsonObject o;
    o[u"protocol"_s] = ProtocolName(code.protocol);
    if (code.decoded() && code.protocol != IrProtocol::Aeha)
        o[u"scancode"_s] = CodeSpec(code).section(u':', 1); // "0x0408", as ir-ctl -S takes it
    o[u"spec"_s] = CodeSpec(code);
    o[u"irp"_s] = IrpJson(code);
    o[u"carrier"_s] = t.carrierHz;
    std::vector<uint32_t> first = t.durations;
    if (t.repeats())
        first.resize(size_t(t.repeatBegin));
    o[u"timings"_s] = jsonDurations(first);
    o[u"repeat"_s] = jsonDurations(
        t.repeats() ? std::vector<uint32_t>(t.durations.begin() + t.repeatBegin, t.durations.end())
                    : std::vector<uint32_t>{});
    const IrCodeFields f = FieldsOf(code);
    auto put = [&](const char* key, std::optional<uint32_t> v) {
        if (v)
            o[QLatin1StringView(key)] = qint64(*v);
    };
    put("address", f.address);
    put("command", f.command);
    put("subdevice", f.subdevice);
    put("extra", f.extra);
    if (HasToggle(code.protocol))
        o[u"toggle"_s] = code.toggle ? 1 : 0;
    if (f.maker) {
        o[u"maker"_s] = u"0x"_s + u"%1"_s.arg(*f.maker, 4, 16, QChar(u'0'));
        QJsonArray frames;
        for (const auto& frame : code.frames) {
            QJsonArray bytes;
            for (uint8_t b : frame)
                bytes.append(int(b));
            frames.append(bytes);
        }
        o[u"bytes"_s] = code.frames.size() == 1 ? frames[0] : QJsonValue(frames);
    }
    return o;
}

void showTiming(const IrTiming& t, const IrCode& code, ShowAs as, const QString& name) {
    if (as == ShowAs::Json) {
        QJsonObject o = codeJson(t, code);
        if (const auto heard = DecodeClimate(t))
            o[u"climate"_s] = ClimateJson(*heard);
        if (!name.isNull())
            o[u"name"_s] = name;
        print(QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact)) + u'\n');
        return;
    }
    if (!name.isNull())
        print(u"# key "_s + name + u'\n');
    int carrier = t.carrierHz > 0 ? t.carrierHz : DefaultCarrierHz;
    if (as == ShowAs::Mode2) {
        print(u"carrier "_s + QString::number(carrier) + u'\n');
        for (size_t i = 0; i < t.durations.size(); ++i)
            print((i % 2 ? u"space "_s : u"pulse "_s) + QString::number(t.durations[i]) + u'\n');
        return;
    }
    print(u"# carrier "_s + QString::number(carrier) + u" Hz"_s +
          (t.carrierHz > 0 ? u""_s : u" (not stored; assumed)"_s) + u", "_s +
          QString::number(t.durations.size()) + u" durations"_s +
          (t.repeatBegin >= 0 ? u", repeat from "_s + QString::number(t.repeatBegin) : u""_s) +
          u'\n');
    if (code.decoded())
        print(u"# protocol "_s + CodeDisplay(code) + u" ("_s + CodeSpec(code) + u")\n"_s);
    print(u"# send with: ir-ctl -c "_s + QString::number(carrier) + u" -s FILE\n"_s);
    print(IrCtlText(t.frame()) + u'\n');
    if (t.repeatBegin >= 0)
        print(u"# repeating part\n"_s + IrCtlText(t.repeatFrame()) + u'\n');
}

} // namespace

// A signal file, or any file of codes: each of its keys in turn.
int show(const QString& path, ShowAs as) {
    QByteArray head;
    if (isStdio(path)) {
        const auto bytes = readStdin(MaxCodeFileBytes);
        if (!bytes) {
            complain(u"standard input: more than a file of codes may have"_s);
            return 1;
        }
        head = *bytes;
    } else if (QFile file(path); file.open(QIODevice::ReadOnly)) {
        head = file.read(MaxCodeFileBytes);
    }
    const std::optional<IrFormat> format = DetectIrFormat(head);
    if (!format || *format == IrFormat::Bin || QFileInfo(path).isDir()) {
        QByteArray bytes;
        if (isStdio(path)) {
            const ParsedSignal parsed = ParseSignalFile(head.left(SignalFileSize));
            if (!parsed.error.isEmpty()) {
                complain(u"standard input: not a usable signal: "_s + parsed.error);
                return 1;
            }
            bytes = parsed.blob;
        } else if (!readSignal(path, &bytes)) {
            return 1;
        }
        auto blob = IrBlob::decode(bytes);
        if (!blob)
            return 1;
        const IrTiming t = TimingFromBlob(*blob);
        showTiming(t, DecodeSignal(t), as, QString());
        return 0;
    }
    const IrCodeRead read =
        isStdio(path) ? ReadIrCodes(head, u"standard input"_s) : ReadIrCodePath(path);
    for (const QString& note : read.refused)
        complain(u"left out: "_s + note);
    if (!read.ok()) {
        complain(read.error);
        return 1;
    }
    for (const NamedSignal& c : read.codes) {
        const QString name = c.group.isEmpty() ? c.name : c.group + u": "_s + c.name;
        showTiming(c.timing, c.code.decoded() ? c.code : DecodeSignal(c.timing), as,
                   read.codes.size() > 1 || !c.name.isEmpty() ? name : QString());
    }
    return 0;
}

} // namespace irtool
