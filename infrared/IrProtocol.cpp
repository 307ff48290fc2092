#include "infrared/IrProtocol.h"

#include "infrared/protocols/Framing.h"

#include <QJsonObject>
#include <QStringList>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;
using namespace irproto;

namespace {

struct ProtocolInfo {
    IrProtocol protocol;
    const char* name;
    const char* display;
    int carrierHz;
    uint32_t mask;
};

constexpr std::array<ProtocolInfo, 35> Protocols{{
    {IrProtocol::Raw, "raw", "raw", 0, 0},
    {IrProtocol::Nec, "nec", "NEC", 38000, 0xFFFF},
    {IrProtocol::Necx, "necx", "NECx", 38000, 0xFFFFFF},
    {IrProtocol::Nec32, "nec32", "NEC32", 38000, 0xFFFFFFFF},
    {IrProtocol::Samsung32, "samsung32", "Samsung32", 38000, 0xFFFF},
    {IrProtocol::Sony12, "sony12", "Sony12", 40000, 0x1F007F},
    {IrProtocol::Sony15, "sony15", "Sony15", 40000, 0xFF007F},
    {IrProtocol::Sony20, "sony20", "Sony20", 40000, 0x1FFF7F},
    {IrProtocol::Rc5, "rc5", "RC5", 36000, 0x1F7F},
    {IrProtocol::Rc5x20, "rc5x_20", "RC5x", 36000, 0x1F7F3F},
    {IrProtocol::Rc6_0, "rc6_0", "RC6", 36000, 0xFFFF},
    {IrProtocol::Rc6_6a20, "rc6_6a_20", "RC6-6A-20", 36000, 0xFFFFF},
    {IrProtocol::Rc6_6a24, "rc6_6a_24", "RC6-6A-24", 36000, 0xFFFFFF},
    {IrProtocol::Rc6_6a32, "rc6_6a_32", "RC6-6A-32", 36000, 0xFFFFFFFF},
    {IrProtocol::Rc6Mce, "rc6_mce", "RC6 MCE", 36000, 0xFFFF7FFF},
    {IrProtocol::Jvc, "jvc", "JVC", 38000, 0xFFFF},
    {IrProtocol::Sharp, "sharp", "Sharp", 38000, 0x1FFF},
    {IrProtocol::Sanyo, "sanyo", "Sanyo", 38000, 0x1FFFFF},
    {IrProtocol::Aeha, "aeha", "AEHA", 37000, 0},
    {IrProtocol::Pioneer, "pioneer", "Pioneer", 40000, 0xFFFFFF},
    {IrProtocol::Proton, "proton", "Proton", 38500, 0xFFFF},
    {IrProtocol::Rca, "rca", "RCA", 58000, 0xFFF},
    {IrProtocol::Rca38, "rca38", "RCA-38", 38700, 0xFFF},
    {IrProtocol::Samsung36, "samsung36", "Samsung36", 37900, 0xFFFF0FFF},
    {IrProtocol::GiCable, "gicable", "G.I. Cable", 38700, 0xFFF},
    {IrProtocol::Denon, "denon", "Denon", 38000, 0x1FFF},
    {IrProtocol::Denon1, "denon1", "Denon{1}", 38000, 0x1FFF},
    {IrProtocol::Denon2, "denon2", "Denon{2}", 38000, 0x1FFF},
    {IrProtocol::Mitsubishi, "mitsubishi", "Mitsubishi", 32600, 0xFFFF},
    {IrProtocol::Recs80, "recs80", "RECS80", 38000, 0x073F},
    {IrProtocol::Dish, "dish", "Dish Network", 57600, 0x1F1F3F},
    {IrProtocol::DirecTv, "directv", "DirecTV", 38000, 0x0FFF},
    {IrProtocol::RcMm12, "rc_mm_12", "RC-MM-12", 36000, 0x0FFF},
    {IrProtocol::RcMm24, "rc_mm_24", "RC-MM-24", 36000, 0xFFFFFF},
    {IrProtocol::RcMm32, "rc_mm_32", "RC-MM-32", 36000, 0xFFFF7FFF},
}};

const ProtocolInfo& info(IrProtocol p) {
    return Protocols[size_t(p)];
}

constexpr std::array<const Family*, 16> Families{
    &NecFamily,    &SonyFamily,      &Rc6Family,     &Rc5Family,
    &SharpFamily,  &KaseikyoFamily,  &PioneerFamily, &ProtonFamily,
    &RcaFamily,    &Samsung36Family, &GiCableFamily, &MitsubishiFamily,
    &Recs80Family, &DishFamily,      &DirecTvFamily, &RcMmFamily,
};

// Some protocols share a frame and differ only in their carrier.
bool decodeFrame(const Durations& d, size_t at, int carrierHz, Frame* out) {
    for (const Family* f : Families) {
        *out = Frame{};
        if (f->decode(d, at, out)) {
            pioneerByCarrier(out->code, carrierHz);
            rcaByCarrier(out->code, carrierHz);
            return true;
        }
    }
    return false;
}

bool writeFrame(const IrCode& code, Writer& w) {
    for (const Family* f : Families)
        if (f->write(code, w))
            return true;
    return false;
}

void writeRepeat(const IrCode& code, Writer& w) {
    for (const Family* f : Families)
        if (f->writeRepeat(code, w))
            return;
    writeFrame(code, w);
}

bool parseHex(QStringView s, std::vector<uint8_t>* out) {
    if (s.startsWith(u"0x"_s, Qt::CaseInsensitive))
        s = s.mid(2);
    if (s.isEmpty() || s.size() % 2 != 0)
        return false;
    out->clear();
    for (qsizetype i = 0; i < s.size(); i += 2) {
        bool ok = false;
        const uint v = s.mid(i, 2).toUInt(&ok, 16);
        if (!ok)
            return false;
        out->push_back(uint8_t(v));
    }
    return true;
}

QString hexBytes(const std::vector<uint8_t>& b, bool upper) {
    QString s;
    for (uint8_t v : b)
        s += u"%1"_s.arg(v, 2, 16, QChar(u'0'));
    return upper ? s.toUpper() : s;
}

} // namespace

QString ProtocolName(IrProtocol protocol) {
    return QString::fromLatin1(info(protocol).name);
}

std::optional<IrProtocol> ProtocolFromName(QStringView name) {
    for (const ProtocolInfo& p : Protocols)
        if (name.compare(QLatin1StringView(p.name), Qt::CaseInsensitive) == 0)
            return p.protocol;
    return std::nullopt;
}

int ProtocolCarrierHz(IrProtocol protocol) {
    return info(protocol).carrierHz;
}

uint32_t ProtocolScancodeMask(IrProtocol protocol) {
    return info(protocol).mask;
}

std::vector<IrProtocol> KnownProtocols() {
    std::vector<IrProtocol> all;
    for (const ProtocolInfo& p : Protocols)
        if (p.protocol != IrProtocol::Raw)
            all.push_back(p.protocol);
    return all;
}

bool HasToggle(IrProtocol protocol) {
    switch (protocol) {
    case IrProtocol::Rc5:
    case IrProtocol::Rc5x20:
    case IrProtocol::Rc6_0:
    case IrProtocol::Rc6Mce:
    case IrProtocol::Recs80:
    case IrProtocol::RcMm32:
        return true;
    default:
        return false;
    }
}

IrCodeFields FieldsOf(const IrCode& c) {
    IrCodeFields f;
    const uint32_t sc = c.scancode;
    switch (c.protocol) {
    case IrProtocol::Raw:
        break;
    case IrProtocol::Nec32:
        f.address = sc >> 16;
        f.command = sc & 0xFFFF;
        break;
    case IrProtocol::Sony12:
    case IrProtocol::Sony15:
    case IrProtocol::Sony20:
        f.address = sc >> 16;
        f.command = sc & 0x7F;
        if (c.protocol == IrProtocol::Sony20)
            f.subdevice = (sc >> 8) & 0xFF;
        break;
    case IrProtocol::Rc5:
        f.address = (sc >> 8) & 0x1F;
        f.command = sc & 0x7F;
        break;
    case IrProtocol::Rc5x20:
        f.address = (sc >> 16) & 0x1F;
        f.command = (sc >> 8) & 0x7F;
        f.extra = sc & 0x3F;
        break;
    case IrProtocol::Samsung36:
        f.address = sc >> 16;
        f.command = sc & 0xFF;
        f.extra = (sc >> 8) & 0xF;
        break;
    case IrProtocol::Dish:
    case IrProtocol::RcMm24:
    case IrProtocol::RcMm32:
        f.address = sc >> (c.protocol == IrProtocol::RcMm32 ? 24 : 16);
        f.subdevice = (sc >> (c.protocol == IrProtocol::RcMm32 ? 16 : 8)) & 0xFF;
        f.command = sc & 0xFF;
        if (c.protocol == IrProtocol::RcMm32)
            f.extra = (sc >> 8) & 0x7F;
        break;
    case IrProtocol::Aeha:
        if (!c.frames.empty() && c.frames[0].size() >= 2)
            f.maker = uint16_t(c.frames[0][0] | c.frames[0][1] << 8);
        break;
    default:
        f.address = sc >> 8;
        f.command = sc & 0xFF;
        break;
    }
    return f;
}

IrCode DecodeSignal(const IrTiming& timing) {
    const Durations& d = timing.durations;
    Frame first;
    if (d.empty() || !decodeFrame(d, 0, timing.carrierHz, &first) || first.repeatOnly)
        return {};
    IrCode code = first.code;
    size_t at = first.end; // a pause, or the end
    size_t cycle = 0;      // aeha: the frame of the message a repeat is at
    while (at + 1 < d.size()) {
        const size_t start = at + 1;
        Frame next;
        size_t end = 0;
        if (code.protocol == IrProtocol::Jvc && decodeJvcRepeat(d, start, code.scancode, &end)) {
            code.repeats = true;
            at = end;
            continue;
        }
        if (!decodeFrame(d, start, timing.carrierHz, &next))
            return {};
        if (next.repeatOnly) {
            const bool nec =
                code.protocol == IrProtocol::Nec || code.protocol == IrProtocol::Necx ||
                code.protocol == IrProtocol::Nec32 || code.protocol == IrProtocol::Sanyo ||
                code.protocol == IrProtocol::GiCable;
            if (!nec && code.protocol != IrProtocol::Aeha)
                return {};
            code.repeats = true;
        } else if (code.protocol == IrProtocol::Pioneer) {
            if (!pioneerNext(code, next.code))
                return {};
        } else if (code.protocol == next.code.protocol && code.protocol != IrProtocol::Aeha &&
                   code.scancode == next.code.scancode) {
            code.repeats = true;
        } else if (code.protocol == IrProtocol::Aeha && next.code.protocol == IrProtocol::Aeha) {
            // An air conditioner's message of several frames, perhaps sent
            // again whole.
            const auto& frame = next.code.frames[0];
            if (code.repeats) {
                if (frame != code.frames[cycle++ % code.frames.size()])
                    return {};
            } else if (frame == code.frames[0]) {
                code.repeats = true;
                cycle = 1;
            } else {
                code.frames.push_back(frame);
            }
        } else {
            return {};
        }
        at = next.end;
    }
    return code;
}

std::optional<IrTiming> EncodeSignal(const IrCode& code) {
    if (code.protocol == IrProtocol::Raw)
        return std::nullopt;
    if (code.protocol == IrProtocol::Aeha) {
        if (code.frames.empty())
            return std::nullopt;
        for (const auto& f : code.frames)
            if (f.empty() || f.size() > MaxFrameBytes)
                return std::nullopt;
    } else if ((code.scancode & ~ProtocolScancodeMask(code.protocol)) != 0) {
        return std::nullopt;
    }
    Writer w;
    writeFrame(code, w);
    if (w.d.empty())
        return std::nullopt;
    IrTiming t;
    t.carrierHz = ProtocolCarrierHz(code.protocol);
    if (code.repeats) {
        t.repeatBegin = int(w.d.size());
        writeRepeat(code, w);
    }
    t.durations = std::move(w.d);
    return t;
}

std::optional<IrpCode> IrpOf(const IrCode& code) {
    for (const Family* f : Families)
        if (auto i = f->irp(code))
            return i;
    return std::nullopt;
}

std::optional<IrCode> CodeFromIrp(const IrpCode& irp, QString* why) {
    QString reason;
    for (const Family* f : Families) {
        if (auto c = f->fromIrp(irp, &reason))
            return c;
        if (!reason.isEmpty()) {
            if (why)
                *why = reason;
            return std::nullopt;
        }
    }
    if (why)
        *why = u"unknown IRP protocol '%1' (known: %2)"_s.arg(irp.protocol,
                                                              IrpProtocolNames().join(u", "_s));
    return std::nullopt;
}

QString IrpSpec(const IrpCode& irp) {
    QStringList parts{QString::number(irp.D)};
    if (irp.S >= 0)
        parts << QString::number(irp.S);
    parts << QString::number(irp.F);
    if (irp.E >= 0)
        parts << u"E=%1"_s.arg(irp.E);
    if (irp.M >= 0)
        parts << u"M=%1"_s.arg(irp.M);
    if (irp.N >= 0)
        parts << u"N=%1"_s.arg(irp.N);
    if (irp.X >= 0)
        parts << u"X=%1"_s.arg(irp.X);
    return irp.protocol + u':' + parts.join(u',');
}

QJsonValue IrpJson(const IrCode& code) {
    const auto irp = IrpOf(code);
    if (!irp)
        return QJsonValue();
    auto value = [](int64_t v) { return v < 0 ? QJsonValue() : QJsonValue(qint64(v)); };
    QJsonObject o{{u"protocol"_s, irp->protocol},
                  {u"D"_s, value(irp->D)},
                  {u"S"_s, value(irp->S)},
                  {u"F"_s, value(irp->F)}};
    if (irp->E >= 0)
        o[u"E"_s] = qint64(irp->E);
    if (irp->M >= 0)
        o[u"M"_s] = qint64(irp->M);
    if (irp->N >= 0)
        o[u"N"_s] = qint64(irp->N);
    if (irp->X >= 0)
        o[u"X"_s] = qint64(irp->X);
    return o;
}

QStringList IrpProtocolNames() {
    return {u"NEC1"_s,       u"NEC2"_s,   u"NEC1-f16"_s,     u"NECx1"_s,    u"JVC"_s,
            u"Aiwa"_s,       u"Sony12"_s, u"Sony15"_s,       u"Sony20"_s,   u"RC5"_s,
            u"RC5x"_s,       u"RC6"_s,    u"RC6-6-20"_s,     u"RC6-6-24"_s, u"RC6-6-32"_s,
            u"MCE"_s,        u"Sharp"_s,  u"Panasonic"_s,    u"Denon-K"_s,  u"JVC-48"_s,
            u"SharpDVD"_s,   u"Teac-K"_s, u"Mitsubishi-K"_s, u"Fujitsu"_s,  u"Kaseikyo"_s,
            u"Pioneer"_s,    u"Proton"_s, u"RCA"_s,          u"RCA-38"_s,   u"Samsung36"_s,
            u"G.I. Cable"_s, u"NEC42"_s,  u"Denon"_s,        u"Denon{1}"_s, u"Denon{2}"_s,
            u"Mitsubishi"_s, u"RECS80"_s, u"Dish_Network"_s, u"DirecTV"_s,  u"Nokia12"_s,
            u"Nokia"_s,      u"Nokia32"_s};
}

namespace {

// PROTOCOL:D,S,F in the IR databases' convention: D,F for protocols without
// S, a fourth value as E, and any of them by name (F=12).
std::optional<IrCode> parseIrpSpec(QStringView name, QStringView value, QString* why) {
    IrpCode irp;
    irp.protocol = name.toString();
    const QList<QStringView> parts = value.split(u',');
    std::vector<int64_t> positional;
    for (QStringView part : parts) {
        part = part.trimmed();
        const qsizetype eq = part.indexOf(u'=');
        bool ok = false;
        const int64_t v = (eq < 0 ? part : part.mid(eq + 1)).trimmed().toLongLong(&ok, 0);
        if (!ok || v < -1) {
            if (why)
                *why = u"'%1' is not a number"_s.arg(part);
            return std::nullopt;
        }
        if (eq < 0) {
            positional.push_back(v);
            continue;
        }
        const QStringView key = part.left(eq).trimmed();
        int64_t* slot = key == u"D"   ? &irp.D
                        : key == u"S" ? &irp.S
                        : key == u"F" ? &irp.F
                        : key == u"E" ? &irp.E
                        : key == u"M" ? &irp.M
                        : key == u"N" ? &irp.N
                        : key == u"X" ? &irp.X
                                      : nullptr;
        if (!slot) {
            if (why)
                *why = u"'%1' is not one of D, S, F, E, M, N, X"_s.arg(key);
            return std::nullopt;
        }
        *slot = v;
    }
    switch (positional.size()) {
    case 0:
        break;
    case 2:
        irp.D = positional[0];
        irp.F = positional[1];
        break;
    case 3:
    case 4:
        irp.D = positional[0];
        irp.S = positional[1];
        irp.F = positional[2];
        if (positional.size() == 4)
            irp.E = positional[3];
        break;
    default:
        if (why)
            *why = u"give D,F or D,S,F"_s;
        return std::nullopt;
    }
    return CodeFromIrp(irp, why);
}

} // namespace

QString CodeSpec(const IrCode& code) {
    const QString name = ProtocolName(code.protocol);
    if (code.protocol == IrProtocol::Raw)
        return name;
    if (code.protocol == IrProtocol::Aeha) {
        QStringList frames;
        for (const auto& f : code.frames)
            frames << u"0x"_s + hexBytes(f, false);
        return name + u':' + frames.join(u',');
    }
    const int digits = ProtocolScancodeMask(code.protocol) > 0xFFFF ? 6 : 4;
    const int width = ProtocolScancodeMask(code.protocol) > 0xFFFFFF ? 8 : digits;
    QString spec = name + u":0x"_s + u"%1"_s.arg(code.scancode, width, 16, QChar(u'0'));
    if (code.protocol == IrProtocol::Pioneer && !code.frames.empty())
        spec += u"+0x"_s + hexBytes(code.frames[0], false);
    return spec;
}

std::optional<IrCode> ParseCodeSpec(QStringView text, QString* why) {
    auto fail = [&](const QString& reason) -> std::optional<IrCode> {
        if (why)
            *why = reason;
        return std::nullopt;
    };
    auto unknown = [&] {
        QStringList ours;
        for (IrProtocol p : KnownProtocols())
            ours << ProtocolName(p);
        return fail(u"unknown protocol '%1' (one of %2; or of the IR databases' %3)"_s.arg(
            text.left(text.indexOf(u':')).trimmed(), ours.join(u", "_s),
            IrpProtocolNames().join(u", "_s)));
    };
    const qsizetype colon = text.indexOf(u':');
    if (colon < 0)
        return fail(u"not PROTOCOL:SCANCODE"_s);
    QStringView value = text.mid(colon + 1).trimmed();
    const auto protocol = ProtocolFromName(text.left(colon).trimmed());
    // Our names take one scancode (aeha its frames); the IR databases' names
    // their parameters.
    if (!protocol || (*protocol != IrProtocol::Aeha && value.contains(u','))) {
        QString reason;
        if (auto c = parseIrpSpec(text.left(colon).trimmed(), value, &reason))
            return c;
        // A name neither we nor the databases know is told as such, whatever its value.
        const bool known =
            protocol || (IrpProtocolNames().contains(text.left(colon).trimmed().toString(),
                                                     Qt::CaseInsensitive) &&
                         !reason.startsWith(u"unknown IRP"_s));
        return known ? fail(reason) : unknown();
    }
    if (*protocol == IrProtocol::Raw)
        return unknown();
    IrCode code;
    code.protocol = *protocol;
    if (code.protocol == IrProtocol::Aeha) {
        for (QStringView part : value.split(u',')) {
            std::vector<uint8_t> bytes;
            if (!parseHex(part.trimmed(), &bytes) || bytes.size() < 3 ||
                bytes.size() > MaxFrameBytes)
                return fail(
                    u"aeha takes the frame's bytes in hex (3 to %1 bytes)"_s.arg(MaxFrameBytes));
            code.frames.push_back(std::move(bytes));
        }
        return code;
    }
    QStringView second;
    if (code.protocol == IrProtocol::Pioneer && value.contains(u'+')) {
        second = value.mid(value.indexOf(u'+') + 1).trimmed();
        value = value.left(value.indexOf(u'+')).trimmed();
        std::vector<uint8_t> bytes;
        if (!parseHex(second, &bytes) || bytes.size() != 3)
            return fail(u"pioneer's second frame is 0xDDSSFF"_s);
        code.frames.push_back(std::move(bytes));
    }
    bool ok = false;
    const qulonglong v = value.startsWith(u"0x"_s, Qt::CaseInsensitive)
                             ? value.mid(2).toULongLong(&ok, 16)
                             : value.toULongLong(&ok, 10);
    if (!ok)
        return fail(u"scancode '%1' is not a number (decimal, or hex after 0x)"_s.arg(value));
    if (v > ProtocolScancodeMask(code.protocol) ||
        (v & ~qulonglong(ProtocolScancodeMask(code.protocol))) != 0)
        return fail(u"scancode '%1' does not fit %2 (at most 0x%3)"_s.arg(
            value, ProtocolName(code.protocol),
            QString::number(ProtocolScancodeMask(code.protocol), 16)));
    code.scancode = uint32_t(v);
    return code;
}

QString CodeDisplay(const IrCode& code) {
    const QString name = QString::fromLatin1(info(code.protocol).display);
    if (code.protocol == IrProtocol::Raw)
        return name;
    if (code.protocol == IrProtocol::Aeha) {
        QStringList frames;
        for (const auto& f : code.frames) {
            std::vector<uint8_t> rest(f.begin() + std::min<size_t>(2, f.size()), f.end());
            frames << hexBytes(rest, true);
        }
        const auto maker = FieldsOf(code).maker.value_or(0);
        return name + u' ' + u"%1"_s.arg(maker, 4, 16, QChar(u'0')).toUpper() + u' ' +
               frames.join(u' ');
    }
    return CodeSpec(code).mid(ProtocolName(code.protocol).size() + 1).prepend(name + u' ');
}
