// Flipper Zero's .ir files: "Filetype: IR signals file" (or "IR library
// file"), "Version: 1", then entries parted by "#" lines: a name and either
// raw durations in µs with their carrier, or a protocol with address and
// command as little-endian bytes.
#include "infrared/formats/FlipperProtocols.h"
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <QHash>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

struct Entry {
    int line = 0;
    QHash<QByteArray, std::pair<int, QByteArray>> fields; // key: line, value
};

std::optional<uint32_t> littleEndian(QByteArrayView text) {
    const std::vector<QByteArrayView> bytes = Words(text);
    if (bytes.empty() || bytes.size() > 4)
        return std::nullopt;
    uint32_t v = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::optional<uint64_t> b = bytes[i].size() == 2 ? HexNumber(bytes[i], 0xFF) : std::nullopt;
        if (!b)
            return std::nullopt;
        v |= uint32_t(*b) << (8 * i);
    }
    return v;
}

QString littleEndianText(uint32_t v) {
    return u"%1 %2 %3 %4"_s.arg(v & 0xFF, 2, 16, QChar(u'0'))
        .arg((v >> 8) & 0xFF, 2, 16, QChar(u'0'))
        .arg((v >> 16) & 0xFF, 2, 16, QChar(u'0'))
        .arg(v >> 24, 2, 16, QChar(u'0'))
        .toUpper();
}

// Flipper ends a capture at a silence far shorter than this; a longer
// duration is a damaged number, not a signal.
constexpr uint64_t MaxDurationUs = 1000000;

// The entry's signal, or why it cannot be had; damaged is set when a raw
// entry's numbers are not what the format allows, which refuses the file.
std::optional<NamedSignal> signalOf(const Entry& e, QString* why, int* whyLine, bool* damaged) {
    *whyLine = e.line;
    auto field = [&](const char* key) -> std::optional<QByteArray> {
        auto it = e.fields.find(key);
        if (it == e.fields.end())
            return std::nullopt;
        return it->second;
    };
    auto lineOf = [&](const char* key) { return e.fields.value(key).first; };
    NamedSignal s;
    s.name = QString::fromUtf8(field("name").value_or(QByteArray()));
    const QByteArray type = field("type").value_or(QByteArray());
    if (type == "raw") {
        const std::optional<QByteArray> freq = field("frequency"), data = field("data");
        if (!freq || !data) {
            *why = u"a raw entry needs frequency and data"_s;
            return std::nullopt;
        }
        *damaged = true;
        std::optional<uint64_t> hz = Number(*freq, MaxCarrierHz);
        if (!hz || *hz < uint64_t(MinCarrierHz)) {
            *whyLine = lineOf("frequency");
            *why = Quote(*freq) +
                   u" is not a carrier of %1 to %2 Hz"_s.arg(MinCarrierHz).arg(MaxCarrierHz);
            return std::nullopt;
        }
        s.timing.carrierHz = int(*hz);
        for (QByteArrayView w : Words(*data)) {
            std::optional<uint64_t> us = Number(w, MaxDurationUs);
            if (!us || *us == 0) {
                *whyLine = lineOf("data");
                *why = Quote(w) + u" is not a duration of 1 to %1 µs"_s.arg(MaxDurationUs);
                return std::nullopt;
            }
            if (s.timing.durations.size() >= size_t(MaxDurations)) {
                *whyLine = lineOf("data");
                *why = u"more than %1 durations"_s.arg(MaxDurations);
                return std::nullopt;
            }
            s.timing.durations.push_back(uint32_t(*us));
        }
        *damaged = false;
        *whyLine = lineOf("data");
    } else if (type == "parsed") {
        const std::optional<QByteArray> protocol = field("protocol"), address = field("address"),
                                        command = field("command");
        if (!protocol || !address || !command) {
            *why = u"a parsed entry needs protocol, address and command"_s;
            return std::nullopt;
        }
        const std::optional<uint32_t> a = littleEndian(*address), c = littleEndian(*command);
        if (!a || !c) {
            *whyLine = lineOf(a ? "command" : "address");
            *why = Quote(a ? *command : *address) + u" is not up to four hex bytes"_s;
            return std::nullopt;
        }
        *whyLine = lineOf("protocol");
        if (!FlipperParsedSignal(QString::fromUtf8(*protocol), *a, *c, &s, why))
            return std::nullopt;
    } else {
        *why = type.isEmpty() ? u"an entry without a type"_s
                              : u"type %1 (not raw or parsed)"_s.arg(Quote(type));
        return std::nullopt;
    }
    *why = TimingProblem(s.timing);
    if (!why->isEmpty())
        return std::nullopt;
    return s;
}

} // namespace

IrCodeRead ReadFlipper(QByteArrayView bytes, const QString& fileName) {
    IrCodeRead read;
    read.format = IrFormat::Flipper;
    auto fail = [&](int line, const QString& what) {
        read.error = At(fileName, line, what);
        read.codes.clear();
        return read;
    };
    bool sawType = false, sawVersion = false;
    std::vector<Entry> entries;
    const std::vector<Line> lines = SplitLines(bytes);
    for (const Line& line : lines) {
        if (line.text.isEmpty() || line.text.startsWith('#'))
            continue;
        const qsizetype colon = line.text.indexOf(':');
        if (colon <= 0)
            return fail(line.number, Quote(line.text) + u" is not 'key: value'"_s);
        const QByteArray key = line.text.first(colon).trimmed().toByteArray();
        const QByteArray value = line.text.sliced(colon + 1).trimmed().toByteArray();
        if (!sawType) {
            if (key != "Filetype" || (value != "IR signals file" && value != "IR library file"))
                return fail(line.number,
                            u"not a Flipper IR file (no 'Filetype: IR signals file')"_s);
            sawType = true;
            continue;
        }
        if (!sawVersion) {
            if (key != "Version" || value != "1")
                return fail(line.number, u"only version 1 of the Flipper IR file is known"_s);
            sawVersion = true;
            continue;
        }
        if (key == "name") {
            if (int(entries.size()) >= MaxCodesPerFile)
                return fail(line.number, u"more than %1 signals"_s.arg(MaxCodesPerFile));
            entries.push_back({line.number, {}});
        } else if (entries.empty()) {
            return fail(line.number, Quote(key) + u" before the first name"_s);
        }
        if (entries.back().fields.contains(key))
            return fail(line.number, Quote(key) + u" twice in one entry"_s);
        entries.back().fields.insert(key, {line.number, value});
    }
    if (!sawVersion)
        return fail(0, u"not a Flipper IR file (no header)"_s);
    for (const Entry& e : entries) {
        QString why;
        int whyLine = 0;
        bool damaged = false;
        std::optional<NamedSignal> s = signalOf(e, &why, &whyLine, &damaged);
        if (damaged)
            return fail(whyLine, QString::fromUtf8(e.fields.value("name").second) + u": "_s + why);
        if (s)
            read.codes.push_back(std::move(*s));
        else
            read.refused << At(fileName, whyLine,
                               QString::fromUtf8(e.fields.value("name").second) + u": "_s + why);
    }
    return read;
}

QByteArray WriteFlipper(const std::vector<NamedSignal>& codes, QString* error) {
    QString out = u"Filetype: IR signals file\nVersion: 1\n"_s;
    for (const NamedSignal& c : codes) {
        QString name = c.name;
        for (QChar& ch : name)
            if (!ch.isPrint())
                ch = u' ';
        out += u"#\nname: "_s + (name.trimmed().isEmpty() ? u"signal"_s : name.trimmed()) + u'\n';
        QString protocol;
        uint32_t address = 0, command = 0;
        if (FlipperParsedOf(c, &protocol, &address, &command)) {
            out += u"type: parsed\nprotocol: %1\naddress: %2\ncommand: %3\n"_s.arg(
                protocol, littleEndianText(address), littleEndianText(command));
            continue;
        }
        // Flipper sends the durations once, and all of them again while the
        // key is held; the pause at the end is its own.
        const IrTiming& t = c.timing;
        std::vector<uint32_t> d = t.durations;
        if (d.size() % 2 == 0)
            d.pop_back();
        if (d.empty()) {
            *error = c.name + u": no durations"_s;
            return {};
        }
        QStringList data;
        for (uint32_t us : d) {
            if (us > MaxDurationUs) {
                *error = c.name + u": a duration over %1 µs, which no Flipper file holds"_s.arg(
                                      MaxDurationUs);
                return {};
            }
            data << QString::number(us);
        }
        out += u"type: raw\nfrequency: %1\nduty_cycle: 0.330000\ndata: %2\n"_s
                   .arg(t.carrierHz > 0 ? t.carrierHz : DefaultCarrierHz)
                   .arg(data.join(u' '));
    }
    return out.toUtf8();
}
