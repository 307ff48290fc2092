#include "infrared/climate/ClimateCodec.h"

namespace climate {

namespace {

Bytes bytesOf(const irproto::Bits& bits, bool msbFirst) {
    Bytes out(size_t((bits.count + 7) / 8));
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = msbFirst ? reverseBits(bits.bytes[i]) : bits.bytes[i];
    return out;
}

} // namespace

std::optional<std::vector<Bytes>> readSections(const IrTiming& t, std::span<const Section> sections,
                                               size_t at, size_t* end) {
    std::vector<Bytes> out;
    out.reserve(sections.size());
    const irproto::Durations& d = t.durations;
    for (const Section& s : sections) {
        irproto::Bits bits;
        // Receivers lengthen spaces and shorten pulses by a good part of a
        // short space (Broadlink captures most), so those are judged with
        // half a pulse to spare at least.
        irproto::Judge judge;
        judge.slack = s.timing.pulse / 2;
        size_t stop = irproto::twoPass(judge, [&](irproto::Judge& j) {
            bits = {};
            return irproto::readPd(d, at, s.timing, j, bits);
        });
        if (stop == 0 || bits.count != s.bits)
            return std::nullopt;
        out.push_back(bytesOf(bits, s.msbFirst));
        if (end)
            *end = stop;
        at = stop + 1;
    }
    return out;
}

void writeSections(irproto::Writer& w, std::span<const Section> sections,
                   const std::vector<Bytes>& bytes) {
    for (size_t i = 0; i < sections.size() && i < bytes.size(); ++i) {
        const Section& s = sections[i];
        Bytes b = bytes[i];
        b.resize(size_t((s.bits + 7) / 8));
        if (s.msbFirst)
            for (uint8_t& v : b)
                v = reverseBits(v);
        w.pd(s.timing, b.data(), s.bits);
        w.d.push_back(s.gapUs);
    }
}

IrTiming timingOf(irproto::Writer& w, int carrierHz) {
    IrTiming t;
    t.durations = std::move(w.d);
    t.carrierHz = carrierHz;
    return t;
}

uint8_t sumBytes(std::span<const uint8_t> b) {
    unsigned sum = 0;
    for (uint8_t v : b)
        sum += v;
    return uint8_t(sum);
}

uint8_t xorBytes(std::span<const uint8_t> b) {
    uint8_t x = 0;
    for (uint8_t v : b)
        x ^= v;
    return x;
}

uint8_t sumNibbles(std::span<const uint8_t> b) {
    unsigned sum = 0;
    for (uint8_t v : b)
        sum += (v & 0xF) + (v >> 4);
    return uint8_t(sum & 0xF);
}

uint8_t reverseBits(uint8_t v, int n) {
    uint8_t r = 0;
    for (int i = 0; i < n; ++i)
        r = uint8_t(r << 1 | ((v >> i) & 1));
    return r;
}

std::span<const Codec* const> codecs() {
    static const std::vector<const Codec*> all = {
        // -- families A --
        // -- families B --
        &Sharp, &Gree, &Midea, &Coolix, &Samsung,
    };
    return all;
}

} // namespace climate
