// Tasmota's infrared codes (IRremoteESP8266 underneath), as its console logs
// and takes them:
//   {"Protocol":"NEC","Bits":32,"Data":"0x20DF10EF","DataLSB":"0x04FB08F7"}
//   {"IrReceived":{... "RawData":[9000,4500,...]}}  or  IRsend {...}
//   IRsend 38000,9000,4500,560,...     (0 for 38 kHz; durations from a pulse)
//   IRsend 0,+8570-4240+550-1580C-510... (the compact form: a letter repeats
//        the Nth distinct value, upper case as a pulse, lower case as a pause)
//   IRsend raw,0,8620,4260,544,411,1496,0101...  (header pulse and pause,
//        bit pulse, pause of a 0, pause of a 1, then the bits)
// "Data" holds the frame's bits in the order they are sent, the first in the
// highest place; "DataLSB" the same with each byte's bits reversed. Most of
// these protocols send each field least significant bit first, so the
// kernel's scancode is the bits read back field by field.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

uint64_t reversed(uint64_t v, int bits) {
    uint64_t r = 0;
    for (int i = 0; i < bits; ++i)
        r = r << 1 | (v >> i & 1);
    return r;
}

uint64_t reversedBytes(uint64_t v, int bits) {
    uint64_t r = 0;
    for (int at = 0; at < bits; at += 8) {
        const int n = std::min(8, bits - at);
        r |= reversed(v >> at & ((1u << n) - 1), n) << at;
    }
    return r;
}

// The frame's bits in sending order, read off field by field.
class Bits {
public:
    Bits(uint64_t data, int count) : data_(data), left_(count) {}
    uint32_t lsb(int n) { return uint32_t(reversed(msb(n), n)); }
    uint32_t msb(int n) {
        left_ -= n;
        return uint32_t(data_ >> left_ & ((uint64_t(1) << n) - 1));
    }

private:
    uint64_t data_;
    int left_;
};

// And written so.
class BitsOut {
public:
    void lsb(uint32_t v, int n) { msb(uint32_t(reversed(v, n)), n); }
    void msb(uint32_t v, int n) {
        data = data << n | (v & ((uint64_t(1) << n) - 1));
        count += n;
    }
    uint64_t data = 0;
    int count = 0;
};

struct Frame {
    QString protocol;
    int bits = 0;
    uint64_t data = 0;
};

std::optional<IrCode> codeOf(const Frame& f, QString* why) {
    IrCode c;
    Bits b(f.data, f.bits);
    const QString p = f.protocol.toUpper();
    const auto need = [&](std::initializer_list<int> counts) {
        if (std::find(counts.begin(), counts.end(), f.bits) != counts.end())
            return true;
        *why = u"%1 with %2 bits is not a frame the protocol has"_s.arg(f.protocol).arg(f.bits);
        return false;
    };
    if (p == u"NEC" || p == u"SAMSUNG") {
        if (!need({32}))
            return std::nullopt;
        const uint32_t a = b.lsb(8), na = b.lsb(8), cmd = b.lsb(8), ncmd = b.lsb(8);
        if (p == u"SAMSUNG") {
            if (a != na || (cmd ^ ncmd) != 0xFF) {
                *why = u"not a Samsung frame (the address twice, the command and its "
                       u"complement)"_s;
                return std::nullopt;
            }
            c.protocol = IrProtocol::Samsung32;
            c.scancode = a << 8 | cmd;
        } else {
            // NEC1-f16 holds any four bytes; it names nec, necx or nec32 by them.
            IrpCode irp{u"NEC1-f16"_s, a, na, cmd};
            irp.E = ncmd;
            c = *CodeFromIrp(irp);
        }
    } else if (p == u"SONY") {
        if (!need({12, 15, 20}))
            return std::nullopt;
        const uint32_t function = b.lsb(7);
        const uint32_t device = b.lsb(f.bits == 15 ? 8 : 5);
        const uint32_t sub = f.bits == 20 ? b.lsb(8) : 0;
        c.protocol = f.bits == 12   ? IrProtocol::Sony12
                     : f.bits == 15 ? IrProtocol::Sony15
                                    : IrProtocol::Sony20;
        c.scancode = device << 16 | sub << 8 | function;
    } else if (p == u"RC5" || p == u"RC5X") {
        if (!need({12, 13}))
            return std::nullopt;
        // 13 bits start with the second start bit, the inverse of the
        // command's seventh; 12 leave it at one.
        const uint32_t high = f.bits == 13 ? !b.msb(1) : 0;
        c.toggle = b.msb(1);
        const uint32_t system = b.msb(5);
        c.protocol = IrProtocol::Rc5;
        c.scancode = system << 8 | high << 6 | b.msb(6);
    } else if (p == u"RC6") {
        if (!need({20, 24, 28, 36}))
            return std::nullopt;
        const uint32_t mode = b.msb(3);
        c.toggle = b.msb(1);
        const int rest = f.bits - 4;
        const uint32_t value = b.msb(rest);
        if ((f.bits == 20) != (mode == 0)) {
            *why = u"RC6 mode %1 with %2 bits"_s.arg(mode).arg(f.bits);
            return std::nullopt;
        }
        c.scancode = value;
        c.protocol = f.bits == 20   ? IrProtocol::Rc6_0
                     : f.bits == 24 ? IrProtocol::Rc6_6a20
                     : f.bits == 28 ? IrProtocol::Rc6_6a24
                                    : IrProtocol::Rc6_6a32;
        if (f.bits == 36 && (value >> 16) == 0x800F) {
            // The Media Center remotes keep their toggle inside the customer's data.
            c.protocol = IrProtocol::Rc6Mce;
            c.toggle = value & 0x8000;
            c.scancode = value & ~0x8000u;
        } else if (f.bits != 20) {
            c.toggle = false;
        }
    } else if (p == u"JVC") {
        if (!need({16}))
            return std::nullopt;
        const uint32_t a = b.lsb(8);
        c.protocol = IrProtocol::Jvc;
        c.scancode = a << 8 | b.lsb(8);
    } else if (p == u"SHARP") {
        if (!need({15}))
            return std::nullopt;
        const uint32_t a = b.lsb(5);
        c.protocol = IrProtocol::Sharp;
        c.scancode = a << 8 | b.lsb(8);
    } else if (p == u"PANASONIC") {
        if (!need({48}))
            return std::nullopt;
        c.protocol = IrProtocol::Aeha;
        std::vector<uint8_t> bytes;
        for (int i = 0; i < 6; ++i)
            bytes.push_back(uint8_t(b.lsb(8)));
        c.frames.push_back(bytes);
    } else {
        *why = u"the protocol \"%1\" is not one this program can send (NEC, SAMSUNG, SONY, "
               u"RC5, RC5X, RC6, JVC, SHARP, PANASONIC are)"_s.arg(f.protocol);
        return std::nullopt;
    }
    return c;
}

std::optional<Frame> frameOf(const IrCode& c) {
    BitsOut o;
    QString name;
    const uint32_t sc = c.scancode;
    switch (c.protocol) {
    case IrProtocol::Nec:
    case IrProtocol::Necx:
    case IrProtocol::Nec32:
    case IrProtocol::Samsung32: {
        uint32_t a = sc >> 8 & 0xFF, na = ~a & 0xFF, cmd = sc & 0xFF, ncmd = ~cmd & 0xFF;
        if (c.protocol == IrProtocol::Necx) {
            a = sc >> 16 & 0xFF;
            na = sc >> 8 & 0xFF;
        } else if (c.protocol == IrProtocol::Nec32) {
            na = sc >> 24;
            a = sc >> 16 & 0xFF;
            ncmd = sc >> 8 & 0xFF;
        } else if (c.protocol == IrProtocol::Samsung32) {
            na = a;
        }
        name = c.protocol == IrProtocol::Samsung32 ? u"SAMSUNG"_s : u"NEC"_s;
        for (uint32_t v : {a, na, cmd, ncmd})
            o.lsb(v, 8);
        break;
    }
    case IrProtocol::Sony12:
    case IrProtocol::Sony15:
    case IrProtocol::Sony20:
        name = u"SONY"_s;
        o.lsb(sc & 0x7F, 7);
        o.lsb(sc >> 16, c.protocol == IrProtocol::Sony15 ? 8 : 5);
        if (c.protocol == IrProtocol::Sony20)
            o.lsb(sc >> 8 & 0xFF, 8);
        break;
    case IrProtocol::Rc5:
        name = (sc & 0x40) ? u"RC5X"_s : u"RC5"_s;
        if (sc & 0x40)
            o.msb(0, 1);
        o.msb(c.toggle, 1);
        o.msb(sc >> 8, 5);
        o.msb(sc, 6);
        break;
    case IrProtocol::Rc6_0:
    case IrProtocol::Rc6_6a20:
    case IrProtocol::Rc6_6a24:
    case IrProtocol::Rc6_6a32:
    case IrProtocol::Rc6Mce: {
        const bool zero = c.protocol == IrProtocol::Rc6_0;
        const int bits = zero                                 ? 16
                         : c.protocol == IrProtocol::Rc6_6a20 ? 20
                         : c.protocol == IrProtocol::Rc6_6a24 ? 24
                                                              : 32;
        name = u"RC6"_s;
        o.msb(zero ? 0 : 6, 3);
        o.msb(zero && c.toggle, 1);
        o.msb(c.protocol == IrProtocol::Rc6Mce && c.toggle ? sc | 0x8000 : sc, bits);
        break;
    }
    case IrProtocol::Jvc:
        name = u"JVC"_s;
        o.lsb(sc >> 8, 8);
        o.lsb(sc, 8);
        break;
    case IrProtocol::Sharp:
        name = u"SHARP"_s;
        o.lsb(sc >> 8, 5);
        o.lsb(sc, 8);
        o.msb(1, 1); // expansion
        o.msb(0, 1); // check
        break;
    case IrProtocol::Aeha:
        if (c.frames.size() != 1 || c.frames[0].size() != 6 || c.frames[0][0] != 0x02 ||
            c.frames[0][1] != 0x20)
            return std::nullopt;
        name = u"PANASONIC"_s;
        for (uint8_t v : c.frames[0])
            o.lsb(v, 8);
        break;
    default:
        return std::nullopt;
    }
    return Frame{name, o.count, o.data};
}

QString hex(uint64_t v, int bits) {
    return u"0x"_s + u"%1"_s.arg(v, (bits + 3) / 4, 16, QChar(u'0')).toUpper();
}

std::optional<uint64_t> numberOf(const QJsonValue& v) {
    if (v.isDouble() && v.toDouble() >= 0 && v.toDouble() < 9007199254740992.0)
        return uint64_t(v.toDouble());
    if (!v.isString())
        return std::nullopt;
    const QByteArray text = v.toString().toLatin1();
    if (text.startsWith("0x") || text.startsWith("0X"))
        return HexNumber(text, ~uint64_t(0));
    return Number(text, ~uint64_t(0));
}

// The compact form of v9: +N and -N, or a letter naming an earlier value.
std::optional<std::vector<uint32_t>> compact(QByteArrayView text, QString* why) {
    std::vector<uint32_t> values; // distinct, in order of first use
    std::vector<uint32_t> d;
    bool lastPulse = false;
    for (qsizetype i = 0; i < text.size();) {
        const char c = text[i];
        uint32_t us = 0;
        bool pulse;
        if (c == '+' || c == '-') {
            qsizetype j = i + 1;
            while (j < text.size() && text[j] >= '0' && text[j] <= '9')
                ++j;
            const auto n = Number(text.sliced(i + 1, j - i - 1), MaxSignalUs);
            if (!n || *n == 0) {
                *why = Quote(text.sliced(i, j - i)) + u" is not a duration in µs"_s;
                return std::nullopt;
            }
            us = uint32_t(*n);
            pulse = c == '+';
            if (std::find(values.begin(), values.end(), us) == values.end())
                values.push_back(us);
            i = j;
        } else if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) {
            const size_t n = size_t(c >= 'a' ? c - 'a' : c - 'A');
            if (n >= values.size()) {
                *why = u"'%1' names a value not given before"_s.arg(QLatin1Char(c));
                return std::nullopt;
            }
            us = values[n];
            pulse = c <= 'Z';
            ++i;
        } else if (c == ',' || IsSpace(c)) {
            ++i;
            continue;
        } else {
            *why = u"'%1' is not part of a raw code"_s.arg(QLatin1Char(c));
            return std::nullopt;
        }
        if (d.empty() && !pulse) {
            *why = u"the code starts with a pause"_s;
            return std::nullopt;
        }
        if (!d.empty() && pulse == lastPulse)
            d.back() += us;
        else if (d.size() < size_t(MaxDurations))
            d.push_back(us);
        else {
            *why = u"more than %1 durations"_s.arg(MaxDurations);
            return std::nullopt;
        }
        lastPulse = pulse;
    }
    return d;
}

int carrierOf(uint64_t given) {
    // 0 is the default of 38 kHz; small numbers are kHz.
    return given == 0     ? 38000
           : given < 1000 ? int(given * 1000)
                          : int(std::min<uint64_t>(given, 1u << 30));
}

// IRsend FREQ,durations... or FREQ,+compact or raw,FREQ,timings...,bits.
std::optional<IrTiming> rawCommand(QByteArrayView text, QString* why) {
    std::vector<QByteArrayView> f = Fields(text, ',');
    const bool table = !f.empty() && f[0].compare("raw", Qt::CaseInsensitive) == 0;
    if (table)
        f.erase(f.begin());
    if (f.size() < 2) {
        *why = u"no durations"_s;
        return std::nullopt;
    }
    const auto freq = Number(f[0], ~uint64_t(0));
    if (!freq) {
        *why = Quote(f[0]) + u" is not a carrier frequency"_s;
        return std::nullopt;
    }
    IrTiming t;
    t.carrierHz = carrierOf(*freq);
    if (table) {
        if (f.size() != 7) {
            *why = u"raw takes FREQ, the header's pulse and pause, a bit's pulse, the pauses of "
                   u"a 0 and a 1, and the bits"_s;
            return std::nullopt;
        }
        uint32_t us[5];
        for (int i = 0; i < 5; ++i) {
            const auto n = Number(f[size_t(i) + 1], MaxSignalUs);
            if (!n || *n == 0) {
                *why = Quote(f[size_t(i) + 1]) + u" is not a duration in µs"_s;
                return std::nullopt;
            }
            us[i] = uint32_t(*n);
        }
        QByteArrayView bits = f[6];
        if (bits.size() > MaxDurations / 2 - 2 || bits.isEmpty() ||
            !std::all_of(bits.begin(), bits.end(), [](char c) { return c == '0' || c == '1'; })) {
            *why = u"the bits are not a string of 0 and 1"_s;
            return std::nullopt;
        }
        t.durations = {us[0], us[1]};
        for (char c : bits) {
            t.durations.push_back(us[2]);
            t.durations.push_back(c == '1' ? us[4] : us[3]);
        }
        t.durations.push_back(us[2]);
        return t;
    }
    if (f[1].startsWith('+')) {
        QByteArray joined;
        for (size_t i = 1; i < f.size(); ++i)
            joined += f[i];
        auto d = compact(joined, why);
        if (!d)
            return std::nullopt;
        t.durations = std::move(*d);
        return t;
    }
    for (size_t i = 1; i < f.size(); ++i) {
        const auto n = Number(f[i], MaxSignalUs);
        if (!n || *n == 0) {
            *why = Quote(f[i]) + u" is not a duration in µs"_s;
            return std::nullopt;
        }
        if (t.durations.size() >= size_t(MaxDurations)) {
            *why = u"more than %1 durations"_s.arg(MaxDurations);
            return std::nullopt;
        }
        t.durations.push_back(uint32_t(*n));
    }
    return t;
}

// "RawData": a list of µs from a pulse, or the compact form as text.
std::optional<NamedSignal> fromRaw(const QJsonValue& raw, QString* why) {
    NamedSignal code;
    if (raw.isArray()) {
        const QJsonArray a = raw.toArray();
        if (a.size() > MaxDurations) {
            *why = u"more than %1 durations"_s.arg(MaxDurations);
            return std::nullopt;
        }
        for (const QJsonValue& v : a) {
            const double us = std::abs(v.toDouble());
            if (!v.isDouble() || us < 1 || us > MaxSignalUs) {
                *why = u"\"RawData\" holds something that is not a duration in µs"_s;
                return std::nullopt;
            }
            code.timing.durations.push_back(uint32_t(std::lround(us)));
        }
    } else if (raw.isString()) {
        auto d = compact(raw.toString().toLatin1(), why);
        if (!d)
            return std::nullopt;
        code.timing.durations = std::move(*d);
    } else {
        *why = u"\"RawData\" is not a list of durations"_s;
        return std::nullopt;
    }
    code.timing.carrierHz = DefaultCarrierHz;
    return code;
}

std::optional<NamedSignal> fromJson(const QJsonObject& given, QString* why) {
    QJsonObject o = given;
    for (const QString& wrapper : {u"IrReceived"_s, u"IRsend"_s, u"IrSend"_s, u"IRSend"_s})
        if (o.value(wrapper).isObject())
            o = o.value(wrapper).toObject();
    NamedSignal code;
    const QJsonValue raw = o.value(u"RawData"_s);
    const QString protocol = o.value(u"Protocol"_s).toString();
    const bool known = !protocol.isEmpty() && protocol.compare(u"UNKNOWN", Qt::CaseInsensitive);
    if (known && (o.contains(u"Data"_s) || o.contains(u"DataLSB"_s))) {
        const auto bits = numberOf(o.value(u"Bits"_s));
        if (!bits || *bits == 0 || *bits > 64) {
            *why = u"\"Bits\" is not a number of 1 to 64"_s;
            return std::nullopt;
        }
        std::optional<uint64_t> data = numberOf(o.value(u"Data"_s));
        if (!o.contains(u"Data"_s))
            if (const auto lsb = numberOf(o.value(u"DataLSB"_s)))
                data = reversedBytes(*lsb, int(*bits));
        if (!data || (*bits < 64 && *data >> *bits)) {
            *why = u"\"Data\" is not a number of %1 bits"_s.arg(*bits);
            return std::nullopt;
        }
        std::optional<IrCode> c = codeOf({protocol, int(*bits), *data}, why);
        if (!c && !raw.isUndefined())
            return fromRaw(raw, why); // a protocol we do not send, captured
        if (!c)
            return std::nullopt;
        c->repeats = o.value(u"Repeat"_s).toDouble() > 0;
        const std::optional<IrTiming> t = EncodeSignal(*c);
        if (!t) {
            *why = u"%1 %2 cannot be sent"_s.arg(protocol, hex(*data, int(*bits)));
            return std::nullopt;
        }
        code.code = *c;
        code.timing = *t;
        return code;
    }
    if (raw.isUndefined()) {
        *why = known ? u"no \"Data\""_s : u"no \"Protocol\" with \"Data\", and no \"RawData\""_s;
        return std::nullopt;
    }
    return fromRaw(raw, why);
}

} // namespace

bool IsTasmotaCode(const QJsonObject& o) {
    for (const QString& wrapper : {u"IrReceived"_s, u"IRsend"_s, u"IrSend"_s, u"IRSend"_s})
        if (o.value(wrapper).isObject())
            return true;
    return o.contains(u"Protocol"_s) &&
           (o.contains(u"Data"_s) || o.contains(u"DataLSB"_s) || o.contains(u"RawData"_s));
}

std::optional<NamedSignal> ReadTasmota(QByteArrayView bytes, const QString& fileName,
                                       QString* error) {
    QByteArray text = bytes.trimmed().toByteArray();
    auto fail = [&](const QString& what) {
        *error = At(fileName, 0, what);
        return std::nullopt;
    };
    // The console's command, or what it logged.
    const int space = int(text.indexOf(' '));
    if (text.size() >= 6 && text.first(6).compare("IRsend", Qt::CaseInsensitive) == 0 &&
        space > 0) {
        text = text.sliced(space + 1).trimmed();
    }
    std::optional<NamedSignal> code;
    QString why;
    if (text.startsWith('{')) {
        // The compact raw data is logged unquoted: [+8570-4240C...]
        static const QRegularExpression unquoted(uR"("RawData":\s*\[([+-][^\]]*)\])"_s);
        QString json = QString::fromUtf8(text);
        json.replace(unquoted, uR"("RawData":"\1")"_s);
        QJsonParseError parseError;
        const QJsonDocument doc = QJsonDocument::fromJson(json.toUtf8(), &parseError);
        if (parseError.error != QJsonParseError::NoError)
            return fail(parseError.errorString());
        code = fromJson(doc.object(), &why);
    } else {
        const auto t = rawCommand(text, &why);
        if (t) {
            code = NamedSignal{};
            code->timing = *t;
        }
    }
    if (!code)
        return fail(why);
    if (QString problem = TimingProblem(code->timing); !problem.isEmpty())
        return fail(problem);
    return code;
}

QByteArray WriteTasmota(const NamedSignal& code, QString* error) {
    const IrCode c = code.code.decoded() ? code.code : DecodeSignal(code.timing);
    if (const std::optional<Frame> f = frameOf(c)) {
        // In the order Tasmota logs them (a JSON object would sort them).
        return u"IRsend {\"Protocol\":\"%1\",\"Bits\":%2,\"Data\":\"%3\",\"DataLSB\":\"%4\","
               u"\"Repeat\":0}\n"_s.arg(f->protocol)
                   .arg(f->bits)
                   .arg(hex(f->data, f->bits), hex(reversedBytes(f->data, f->bits), f->bits))
                   .toUtf8();
    }
    if (code.timing.durations.empty()) {
        *error = u"no durations"_s;
        return {};
    }
    QByteArray out =
        "IRsend " +
        QByteArray::number(code.timing.carrierHz > 0 ? code.timing.carrierHz : DefaultCarrierHz);
    for (uint32_t us : code.timing.durations)
        out += ',' + QByteArray::number(us);
    return out + '\n';
}
