#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

// Pioneer: NEC's frame on a 40 kHz carrier, {40k,564}(16,-8,D:8,S:8,F:8,~F:8,
// 1,^108m) with S = ~D as a rule. Many keys send two different frames, the
// second repeated while the key is held (Pioneer-2Part, ^90m each). Only the
// carrier tells it from NEC, so the NEC reader reads it and the carrier the
// signal carries decides.
namespace irproto {
namespace {

constexpr double Unit = 564;
constexpr uint32_t Period = 108000, TwoPartPeriod = 90000;
constexpr int MinHz = 39500, MaxHz = 42000;

uint32_t frameOf(const IrCode& c, size_t i) {
    if (i == 0)
        return c.scancode;
    const auto& b = c.frames[0];
    return uint32_t(b[0]) << 16 | uint32_t(b[1]) << 8 | b[2];
}

void writeOne(uint32_t sc, uint32_t period, Writer& w) {
    const size_t from = w.d.size();
    const std::array<uint8_t, 4> b{uint8_t(sc >> 16), uint8_t(sc >> 8), uint8_t(sc), uint8_t(~sc)};
    w.pd({16 * Unit, 8 * Unit, Unit, Unit, 3 * Unit, 0}, b.data(), 32);
    w.pauseTo(from, period, uint32_t(10 * Unit));
}

bool valid(const IrCode& c) {
    return c.protocol == IrProtocol::Pioneer &&
           (c.frames.empty() || (c.frames.size() == 1 && c.frames[0].size() == 3));
}

bool noFrame(const Durations&, size_t, Frame*) {
    return false;
}

bool write(const IrCode& c, Writer& w) {
    if (!valid(c))
        return false;
    if (c.frames.empty()) {
        writeOne(c.scancode, Period, w);
    } else {
        writeOne(frameOf(c, 0), TwoPartPeriod, w);
        writeOne(frameOf(c, 1), TwoPartPeriod, w);
    }
    return true;
}

// A two-part key repeats its second frame.
bool writeRepeat(const IrCode& c, Writer& w) {
    if (!valid(c) || c.frames.empty())
        return false;
    writeOne(frameOf(c, 1), TwoPartPeriod, w);
    return true;
}

// The first frame's; DecodeIR reads a two-part key as two Pioneer decodes.
std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Pioneer)
        return std::nullopt;
    const int64_t sc = c.scancode;
    return IrpCode{u"Pioneer"_s, sc >> 16, (sc >> 8) & 0xFF, sc & 0xFF};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "Pioneer"))
        return std::nullopt;
    const int64_t s = i.S < 0 ? 0xFF - i.D : i.S;
    if (!irpRange(i, 'D', i.D, 0xFF, why) || !irpRange(i, 'S', s, 0xFF, why) ||
        !irpRange(i, 'F', i.F, 0xFF, why))
        return std::nullopt;
    IrCode c;
    c.protocol = IrProtocol::Pioneer;
    c.scancode = uint32_t(i.D << 16 | s << 8 | i.F);
    return c;
}

} // namespace

void pioneerByCarrier(IrCode& c, int carrierHz) {
    if (carrierHz < MinHz || carrierHz > MaxHz)
        return;
    const uint32_t sc = c.scancode;
    if (c.protocol == IrProtocol::Nec)
        c.scancode = (sc >> 8) << 16 | (~sc >> 8 & 0xFF) << 8 | (sc & 0xFF);
    else if (c.protocol != IrProtocol::Necx)
        return;
    c.protocol = IrProtocol::Pioneer;
}

bool pioneerNext(IrCode& code, const IrCode& next) {
    if (code.protocol != IrProtocol::Pioneer || next.protocol != IrProtocol::Pioneer)
        return false;
    const uint32_t sc = next.scancode;
    if (code.frames.empty() && !code.repeats && sc != code.scancode) {
        code.frames.push_back({uint8_t(sc >> 16), uint8_t(sc >> 8), uint8_t(sc)});
        return true;
    }
    if (sc != frameOf(code, code.frames.size()))
        return false;
    code.repeats = true;
    return true;
}

const Family PioneerFamily{noFrame, write, writeRepeat, irp, fromIrp};

} // namespace irproto
