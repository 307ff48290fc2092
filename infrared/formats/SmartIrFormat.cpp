// SmartIR's device files (Home Assistant): one device, its codes under
// "commands", nested by what they do: "off", "cool" > "auto" > "24",
// "sources" > "HDMI 1". "supportedController" and "commandsEncoding" say how
// each code is written: Broadlink packets in base64 or hex, Pronto hex, or
// "Raw" durations (ESPHome's signed list, LOOKin's space-separated one;
// Xiaomi's Raw is that maker's own compressed form). A list of codes is sent
// one after another. Each code becomes a key named by its path, "cool_auto_24".
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

// The pause put between the codes of a list that give none of their own.
constexpr uint32_t SequenceGapUs = 100000;

enum class Encoding { Broadlink, Pronto, SignedList, SpacedList };

struct Reader {
    Encoding encoding;
    const IrFormatOptions& options;
    IrCodeRead& read;

    std::optional<NamedSignal> one(const QJsonValue& value, QString* why) const {
        QString error;
        std::optional<NamedSignal> code;
        if (value.isArray()) {
            // A list of numbers is a raw list in any encoding.
            QByteArray text = "[";
            for (const QJsonValue& v : value.toArray())
                text += QByteArray::number(v.toDouble()) + ',';
            text += ']';
            code = ReadRawList(text, {}, &error);
        } else if (!value.isString()) {
            *why = u"not a code"_s;
            return std::nullopt;
        } else {
            QByteArray text = value.toString().toUtf8();
            if (text.trimmed().isEmpty()) {
                *why = u"an empty code"_s;
                return std::nullopt;
            }
            switch (encoding) {
            case Encoding::Broadlink:
                code = ReadBroadlink(text, {}, options.broadlinkUnitUs, &error);
                break;
            case Encoding::Pronto:
                code = ReadPronto(text, {}, &error);
                break;
            case Encoding::SpacedList:
                text = text.simplified().replace(' ', ',');
                [[fallthrough]];
            case Encoding::SignedList:
                code = ReadRawList(text, {}, &error);
                break;
            }
        }
        // The readers name a file and line; here the key is the place.
        static const QRegularExpression place(u"^:(\\d+:)? "_s);
        if (!code)
            *why = error.remove(place);
        return code;
    }

    // A code, or a list of them sent one after another.
    std::optional<NamedSignal> code(const QJsonValue& value, QString* why) const {
        const QJsonArray parts = value.toArray();
        if (!value.isArray() || parts.isEmpty() || !parts.first().isString())
            return one(value, why);
        NamedSignal all;
        for (qsizetype i = 0; i < parts.size(); ++i) {
            std::optional<NamedSignal> part = one(parts[i], why);
            if (!part) {
                *why = u"code %1 of the list: %2"_s.arg(i + 1).arg(*why);
                return std::nullopt;
            }
            auto& d = all.timing.durations;
            if (d.size() % 2)
                d.push_back(SequenceGapUs);
            d.insert(d.end(), part->timing.durations.begin(), part->timing.durations.end());
            if (all.timing.carrierHz == 0)
                all.timing.carrierHz = part->timing.carrierHz;
        }
        if (QString problem = TimingProblem(all.timing); !problem.isEmpty()) {
            *why = problem;
            return std::nullopt;
        }
        return all;
    }

    void walk(const QJsonObject& object, const QString& path) const {
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (int(read.codes.size()) >= MaxCodesPerFile) {
                read.error = u"more than %1 codes"_s.arg(MaxCodesPerFile);
                return;
            }
            const QString name = path.isEmpty() ? it.key() : path + u'_' + it.key();
            // Remarks people leave beside the codes ("_comment", "$comment").
            if ((it.key().startsWith(u'_') || it.key().startsWith(u'$')) && !it->isObject())
                continue;
            if (it->isObject()) {
                walk(it->toObject(), name);
                continue;
            }
            if (it->isNull()) {
                read.refused << name + u": no code in the file"_s;
                continue;
            }
            QString why;
            std::optional<NamedSignal> code = this->code(*it, &why);
            if (!code) {
                read.refused << name + u": "_s + why;
                continue;
            }
            code->name = name;
            read.codes.push_back(std::move(*code));
        }
    }
};

} // namespace

bool IsSmartIrDevice(const QJsonObject& o) {
    return o.value(u"commands"_s).isObject() &&
           (o.contains(u"commandsEncoding"_s) || o.contains(u"supportedController"_s));
}

IrCodeRead ReadSmartIr(QByteArrayView bytes, const QString& fileName,
                       const IrFormatOptions& options) {
    IrCodeRead read;
    read.format = IrFormat::SmartIr;
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes.toByteArray(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        const int line = int(bytes.first(std::clamp<qsizetype>(parseError.offset, 0, bytes.size()))
                                 .count('\n')) +
                         1;
        read.error = At(fileName, line, parseError.errorString());
        return read;
    }
    const QJsonObject o = doc.object();
    if (!IsSmartIrDevice(o)) {
        read.error = At(fileName, 0, u"not a SmartIR device file (no \"commands\")"_s);
        return read;
    }
    const QString controller = o.value(u"supportedController"_s).toString();
    const QString encodingName = o.value(u"commandsEncoding"_s).toString();
    const auto is = [](const QString& a, QStringView b) {
        return a.compare(b, Qt::CaseInsensitive) == 0;
    };
    std::optional<Encoding> encoding;
    if (is(encodingName, u"Pronto"))
        encoding = Encoding::Pronto;
    else if ((is(encodingName, u"Base64") || is(encodingName, u"Hex")) &&
             (controller.isEmpty() || is(controller, u"Broadlink")))
        encoding = Encoding::Broadlink;
    else if (is(encodingName, u"Raw") && is(controller, u"ESPHome"))
        encoding = Encoding::SignedList;
    else if (is(encodingName, u"Raw") && is(controller, u"LOOKin"))
        encoding = Encoding::SpacedList;
    if (!encoding) {
        read.error = At(fileName, 0,
                        u"SmartIR codes encoded as \"%1\" for the \"%2\" controller cannot be "
                        u"read (only Broadlink Base64 or Hex, Pronto, and the Raw lists of "
                        u"ESPHome and LOOKin can)"_s.arg(encodingName, controller));
        return read;
    }
    // The remote is named after the device: its maker and first model.
    const QString model = o.value(u"supportedModels"_s).toArray().first().toString();
    const QString group =
        (o.value(u"manufacturer"_s).toString() + u' ' + model).simplified().left(40);
    Reader{*encoding, options, read}.walk(o.value(u"commands"_s).toObject(), {});
    for (QString& refused : read.refused)
        refused = fileName + u": "_s + refused;
    for (NamedSignal& code : read.codes)
        code.group = group;
    if (!read.ok())
        read.error = At(fileName, 0, read.error);
    return read;
}
