// LIRC's lircd.conf: remotes described by their protocol (header, one, zero,
// pre/post data, flags ...) with a hex value per key, or by raw durations.
// Every key is turned into the timings lircd would send for it.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <QHash>
#include <QSet>

#include <array>
#include <cmath>
#include <map>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

enum Flag : uint32_t {
    RawCodes = 1 << 0,
    Biphase = 1 << 1, // RC5, SHIFT_ENC
    Rc6 = 1 << 2,
    SpaceEnc = 1 << 3,
    SpaceFirst = 1 << 4,
    Reverse = 1 << 5,
    NoHeadRep = 1 << 6,
    NoFootRep = 1 << 7,
    ConstLength = 1 << 8,
    RepeatHeader = 1 << 9,
};

struct Param {
    int line = 0;
    std::vector<uint64_t> values;
};

struct RawKey {
    QString name;
    int line = 0;
    std::vector<uint32_t> durations;
};

struct HexKey {
    QString name;
    int line = 0;
    std::vector<uint64_t> values;
};

struct Remote {
    QString name;
    int line = 0;
    QHash<QByteArray, Param> params;
    QByteArray flagsText;
    int flagsLine = 0;
    bool raw = false;
    std::vector<HexKey> keys;
    std::vector<RawKey> rawKeys;
};

// Builds pulse/space durations; two of a kind in a row are one, and a
// signal never starts with a space.
struct Air {
    std::vector<uint32_t> d;
    uint64_t total = 0;
    void pulse(uint64_t us) { add(true, us); }
    void space(uint64_t us) { add(false, us); }
    void add(bool isPulse, uint64_t us) {
        if (us == 0 || (d.empty() && !isPulse))
            return;
        us = std::min<uint64_t>(us, MaxSignalUs + 1);
        total += us;
        if (!d.empty() && (d.size() % 2 == 1) == isPulse)
            d.back() = uint32_t(std::min<uint64_t>(d.back() + us, MaxSignalUs + 1));
        else
            d.push_back(uint32_t(us));
    }
};

class Encoder {
public:
    explicit Encoder(const Remote& r) : r_(r) {}

    // Why the remote's keys cannot be turned into timings; empty when they can.
    QString prepare() {
        for (const QByteArray& word : r_.flagsText.split('|')) {
            const QByteArray f = word.trimmed();
            if (f.isEmpty())
                continue;
            static const QHash<QByteArray, uint32_t> known{
                {"RAW_CODES", RawCodes},        {"RC5", Biphase},
                {"SHIFT_ENC", Biphase},         {"RC6", Rc6 | Biphase},
                {"SPACE_ENC", SpaceEnc},        {"SPACE_FIRST", SpaceFirst},
                {"REVERSE", Reverse},           {"NO_HEAD_REP", NoHeadRep},
                {"NO_FOOT_REP", NoFootRep},     {"CONST_LENGTH", ConstLength},
                {"REPEAT_HEADER", RepeatHeader}};
            static const QSet<QByteArray> noTimings{"RCMM",    "XMP", "GOLDSTAR",
                                                    "GRUNDIG", "BO",  "SERIAL"};
            if (noTimings.contains(f))
                return u"the %1 encoding is not supported"_s.arg(QString::fromLatin1(f));
            if (!known.contains(f))
                return u"unknown flag %1"_s.arg(Quote(f));
            flags_ |= known.value(f);
        }
        carrier_ = int(std::min<uint64_t>(one("frequency", 38000), 100000000));
        gap_ = one("gap", 0);
        repeatGap_ = one("repeat_gap", 0);
        if (r_.raw)
            return {};
        bits_ = int(std::min<uint64_t>(one("bits", 0), 1000));
        preBits_ = int(std::min<uint64_t>(one("pre_data_bits", 0), 1000));
        postBits_ = int(std::min<uint64_t>(one("post_data_bits", 0), 1000));
        if (bits_ < 1 || bits_ + preBits_ + postBits_ > 64)
            return u"%1 bits in all, not 1 to 64"_s.arg(bits_ + preBits_ + postBits_);
        if ((pair("one")[0] == 0 && pair("one")[1] == 0) ||
            (pair("zero")[0] == 0 && pair("zero")[1] == 0))
            return u"no timings for its bits (a remote for a receiver that decodes by itself)"_s;
        if (gap_ == 0)
            return u"no gap"_s;
        if (flags_ & Rc6) {
            rc6Mask_ = one("rc6_mask", 0);
            const int total = bits_ + preBits_ + postBits_;
            if (rc6Mask_ == 0 && total >= 5)
                rc6Mask_ = uint64_t(1) << (total - 5); // the trailer bit
        }
        minRepeat_ = int(std::min<uint64_t>(one("min_repeat", 0), 10));
        return {};
    }

    IrTiming encode(const std::vector<uint64_t>& values) const {
        Air air;
        for (size_t i = 0; i < values.size(); ++i) {
            frame(air, values[i], false);
            finish(air, gap_);
        }
        IrTiming t;
        t.carrierHz = carrier_;
        const std::vector<uint32_t> first = air.d;
        for (int k = 0; k < minRepeat_; ++k)
            air.d.insert(air.d.end(), first.begin(), first.end());
        const std::array<uint64_t, 2> rep = pair("repeat");
        if (rep[0] || rep[1]) {
            t.repeatBegin = int(air.d.size());
            Air again;
            if ((flags_ & RepeatHeader))
                header(again);
            again.pulse(rep[0]);
            again.space(rep[1]);
            again.pulse(trail());
            finish(again, repeatGap_ ? repeatGap_ : gap_, repeatGap_ != 0);
            air.d.insert(air.d.end(), again.d.begin(), again.d.end());
        } else {
            t.repeatBegin = int(air.d.size() - first.size());
        }
        t.durations = std::move(air.d);
        return t;
    }

    IrTiming raw(const std::vector<uint32_t>& durations) const {
        IrTiming t;
        t.carrierHz = carrier_;
        t.durations = durations;
        if (t.durations.size() % 2 == 1)
            t.durations.push_back(uint32_t(std::min<uint64_t>(gap_ ? gap_ : 40000, MaxSignalUs)));
        t.repeatBegin = 0;
        return t;
    }

    // What the key is, worked out from the remote's numbers alone (not from
    // the timings): for the NEC family, Sony, RC5 and RC6 remotes; raw for
    // the rest.
    IrCode codeOf(uint64_t value) const {
        IrCode code;
        const int total = bits_ + preBits_ + postBits_;
        const auto mask = [](int n) { return n >= 64 ? ~uint64_t(0) : (uint64_t(1) << n) - 1; };
        const auto shl = [](uint64_t x, int n) { return n >= 64 ? 0 : x << n; };
        const uint64_t v = shl(one("pre_data", 0) & mask(preBits_), bits_ + postBits_) |
                           shl(value & mask(bits_), postBits_) |
                           (one("post_data", 0) & mask(postBits_));
        const auto near = [&](const char* key, double pulse, double space) {
            const auto p = pair(key);
            return std::abs(double(p[0]) - pulse) <= 0.25 * pulse &&
                   std::abs(double(p[1]) - space) <= 0.25 * space;
        };
        // Bit i as sent (0 = first).
        const auto sent = [&](int i) { return uint32_t(v >> (total - 1 - i)) & 1; };
        const auto lsbFirst = [&](int from, int n) {
            uint32_t x = 0;
            for (int i = 0; i < n; ++i)
                x |= sent(from + i) << i;
            return x;
        };
        const auto set = [&](IrProtocol p, uint32_t scancode) {
            code.protocol = p;
            code.scancode = scancode;
        };
        if (flags_ & (Reverse | SpaceFirst))
            return code;
        const bool pulseDistance =
            !(flags_ & Biphase) && near("zero", 560, 560) && near("one", 560, 1690) && total == 32;
        if (pulseDistance && near("header", 9000, 4500)) {
            const uint32_t a0 = lsbFirst(0, 8), a1 = lsbFirst(8, 8), c0 = lsbFirst(16, 8),
                           c1 = lsbFirst(24, 8);
            if ((c0 ^ c1) != 0xFF)
                set(IrProtocol::Nec32, a1 << 24 | a0 << 16 | c1 << 8 | c0);
            else if ((a0 ^ a1) != 0xFF)
                set(IrProtocol::Necx, a0 << 16 | a1 << 8 | c0);
            else
                set(IrProtocol::Nec, a0 << 8 | c0);
        } else if (pulseDistance && near("header", 4500, 4500)) {
            const uint32_t a0 = lsbFirst(0, 8), a1 = lsbFirst(8, 8), c0 = lsbFirst(16, 8),
                           c1 = lsbFirst(24, 8);
            if (a0 == a1 && (c0 ^ c1) == 0xFF)
                set(IrProtocol::Samsung32, a0 << 8 | c0);
        } else if (!(flags_ & Biphase) && near("header", 2400, 600) && near("one", 1200, 600) &&
                   near("zero", 600, 600)) {
            const uint32_t command = lsbFirst(0, 7);
            if (total == 12)
                set(IrProtocol::Sony12, lsbFirst(7, 5) << 16 | command);
            else if (total == 15)
                set(IrProtocol::Sony15, lsbFirst(7, 8) << 16 | command);
            else if (total == 20)
                set(IrProtocol::Sony20, lsbFirst(7, 5) << 16 | lsbFirst(12, 8) << 8 | command);
        } else if ((flags_ & Biphase) && !(flags_ & Rc6) && near("one", 889, 889) &&
                   near("zero", 889, 889) && one("plead", 0) > 600 && total == 13) {
            // The second start bit, cleared, is the seventh command bit.
            const uint32_t s2 = sent(0);
            set(IrProtocol::Rc5, uint32_t(v >> 6 & 0x1F) << 8 | uint32_t(v & 0x3F) | (!s2) << 6);
        } else if ((flags_ & Rc6) && total >= 21 && near("header", 2667, 889) &&
                   near("one", 444, 444) && near("zero", 444, 444)) {
            // lircd writes RC6 bits inverted: a one is sent as space, pulse.
            const uint64_t w = ~v & mask(total);
            const uint32_t mode = uint32_t(w >> (total - 4)) & 7;
            const uint32_t data = uint32_t(w & mask(total - 5));
            if (w >> (total - 1) != 1)
                return code;
            if (mode == 0 && total == 21)
                set(IrProtocol::Rc6_0, data);
            else if (mode == 6 && total == 25)
                set(IrProtocol::Rc6_6a20, data);
            else if (mode == 6 && total == 29)
                set(IrProtocol::Rc6_6a24, data);
            else if (mode == 6 && total == 37)
                set((data >> 16) == 0x800F ? IrProtocol::Rc6Mce : IrProtocol::Rc6_6a32,
                    (data >> 16) == 0x800F ? data & ~0x8000u : data);
        }
        return code;
    }

private:
    uint64_t one(const char* key, uint64_t fallback) const {
        auto it = r_.params.find(key);
        return it == r_.params.end() || it->values.empty() ? fallback : it->values[0];
    }
    std::array<uint64_t, 2> pair(const char* key) const {
        auto it = r_.params.find(key);
        if (it == r_.params.end() || it->values.size() < 2)
            return {0, 0};
        return {it->values[0], it->values[1]};
    }

    // Space-encoded bits end on a pulse; files made for lircd's receiver
    // often leave it out, which would leave the last bit unreadable.
    uint64_t trail() const {
        const bool spaceEncoded = !(flags_ & Biphase) && pair("one")[0] == pair("zero")[0];
        return one("ptrail", spaceEncoded ? pair("zero")[0] : 0);
    }

    void header(Air& air) const {
        const auto h = pair("header");
        air.pulse(h[0]);
        air.space(h[1]);
    }

    void bits(Air& air, uint64_t value, int count, int offset) const {
        const auto p1 = pair("one"), p0 = pair("zero");
        for (int i = 0; i < count; ++i) {
            const int at = (flags_ & Reverse) ? i : count - 1 - i;
            const bool bit = (value >> at) & 1;
            const std::array<uint64_t, 2>& p = bit ? p1 : p0;
            const uint64_t scale = (rc6Mask_ >> (offset + at)) & 1 ? 2 : 1;
            if (flags_ & Biphase) {
                // Biphase: a one is space then pulse, a zero pulse then space.
                if (bit) {
                    air.space(p[1] * scale);
                    air.pulse(p[0] * scale);
                } else {
                    air.pulse(p[0] * scale);
                    air.space(p[1] * scale);
                }
            } else if (flags_ & SpaceFirst) {
                air.space(p[1]);
                air.pulse(p[0]);
            } else {
                air.pulse(p[0]);
                air.space(p[1]);
            }
        }
    }

    void frame(Air& air, uint64_t code, bool repeat) const {
        if (!(repeat && (flags_ & NoHeadRep)))
            header(air);
        air.pulse(one("plead", 0));
        const auto mask = [](int n) { return n >= 64 ? ~uint64_t(0) : (uint64_t(1) << n) - 1; };
        bits(air, one("pre_data", 0) & mask(preBits_), preBits_, bits_ + postBits_);
        const auto pre = pair("pre");
        air.pulse(pre[0]);
        air.space(pre[1]);
        bits(air, code & mask(bits_), bits_, postBits_);
        const auto post = pair("post");
        air.pulse(post[0]);
        air.space(post[1]);
        bits(air, one("post_data", 0) & mask(postBits_), postBits_, 0);
        air.pulse(trail());
        if (!(repeat && (flags_ & NoFootRep))) {
            const auto foot = pair("foot");
            air.space(foot[0]);
            air.pulse(foot[1]);
        }
    }

    // The pause after a frame: with CONST_LENGTH the gap is the frame's whole
    // length, pause included.
    void finish(Air& air, uint64_t gap, bool plain = false) const {
        const uint64_t frameUs = air.total;
        uint64_t pause = gap;
        if ((flags_ & ConstLength) && !plain)
            pause = gap > frameUs ? gap - frameUs : gap;
        if (air.d.size() % 2 == 1)
            air.space(pause);
        else if (!air.d.empty())
            air.d.back() += uint32_t(std::min<uint64_t>(pause, MaxSignalUs));
        air.total = 0;
    }

    const Remote& r_;
    uint32_t flags_ = 0;
    int carrier_ = 38000, bits_ = 0, preBits_ = 0, postBits_ = 0, minRepeat_ = 0;
    uint64_t gap_ = 0, repeatGap_ = 0, rc6Mask_ = 0;
};

const QSet<QByteArray> PairParams{"header", "one",    "zero", "two", "three",
                                  "foot",   "repeat", "pre",  "post"};

} // namespace

IrCodeRead ReadLircd(QByteArrayView bytes, const QString& fileName) {
    IrCodeRead read;
    read.format = IrFormat::Lircd;
    enum { Top, InRemote, InCodes, InRawCodes } state = Top;
    std::vector<Remote> remotes;
    int keyCount = 0;
    int lastLine = 0;
    auto fail = [&](int line, const QString& what) {
        read.error = At(fileName, line, what);
        read.codes.clear();
        return read;
    };
    for (const Line& line : SplitLines(bytes)) {
        if (!line.text.isEmpty())
            lastLine = line.number;
        QByteArrayView text = line.text;
        if (text.startsWith('#'))
            continue;
        if (qsizetype hash = text.indexOf(" #"); hash >= 0)
            text = text.first(hash);
        if (qsizetype hash = text.indexOf("\t#"); hash >= 0)
            text = text.first(hash);
        const std::vector<QByteArrayView> w = Words(text);
        if (w.empty())
            continue;
        const bool begin = w[0] == "begin" && w.size() == 2;
        const bool end = w[0] == "end" && w.size() == 2;
        switch (state) {
        case Top:
            if (begin && w[1] == "remote") {
                remotes.emplace_back();
                remotes.back().line = line.number;
                state = InRemote;
            } else {
                return fail(line.number, Quote(text) + u" outside a remote"_s);
            }
            break;
        case InRemote: {
            Remote& r = remotes.back();
            if (begin && w[1] == "codes") {
                state = InCodes;
            } else if (begin && w[1] == "raw_codes") {
                state = InRawCodes;
                r.raw = true;
            } else if (begin) {
                return fail(line.number, u"'begin %1' inside a remote"_s.arg(QString::fromUtf8(
                                             w[1].first(std::min<qsizetype>(w[1].size(), 40)))));
            } else if (end && w[1] == "remote") {
                state = Top;
            } else if (end) {
                return fail(line.number, Quote(text) + u" inside a remote"_s);
            } else if (w[0] == "name") {
                r.name = QString::fromUtf8(text.sliced(4).trimmed());
            } else if (w[0] == "flags") {
                r.flagsLine = line.number;
                QByteArray all;
                for (size_t i = 1; i < w.size(); ++i)
                    all += w[i].toByteArray();
                r.flagsText = all;
            } else if (w[0] == "driver" || w[0] == "serial_mode" || w[0] == "manual_sort") {
                // Nothing the timings need.
            } else {
                Param p;
                p.line = line.number;
                for (size_t i = 1; i < w.size(); ++i) {
                    std::optional<uint64_t> v = w[i].startsWith("0x") || w[i].startsWith("0X")
                                                    ? HexNumber(w[i], ~uint64_t(0))
                                                    : Number(w[i], ~uint64_t(0) / 10);
                    if (!v)
                        return fail(line.number, Quote(w[i]) + u" is not a number"_s);
                    p.values.push_back(*v);
                }
                const bool timing = PairParams.contains(w[0].toByteArray()) || w[0] == "ptrail" ||
                                    w[0] == "plead" || w[0] == "gap" || w[0] == "repeat_gap";
                for (uint64_t v : p.values)
                    if (timing && v > MaxSignalUs)
                        return fail(line.number, u"a duration of %1 µs"_s.arg(v));
                if (PairParams.contains(w[0].toByteArray()) && p.values.size() != 2)
                    return fail(line.number, Quote(w[0]) + u" takes a pulse and a space"_s);
                r.params.insert(w[0].toByteArray(), p);
            }
            break;
        }
        case InCodes: {
            if (end && w[1] == "codes") {
                state = InRemote;
                break;
            }
            if (begin || end)
                return fail(line.number, Quote(text) + u" inside the codes"_s);
            HexKey key{QString::fromUtf8(w[0]), line.number, {}};
            for (size_t i = 1; i < w.size(); ++i) {
                std::optional<uint64_t> v = HexNumber(w[i], ~uint64_t(0));
                if (!v)
                    return fail(line.number, Quote(w[i]) + u" is not a hex code"_s);
                key.values.push_back(*v);
            }
            if (key.values.empty() || key.values.size() > 16)
                return fail(line.number, u"a key takes one code (or a few in a row)"_s);
            if (++keyCount > MaxCodesPerFile)
                return fail(line.number, u"more than %1 keys"_s.arg(MaxCodesPerFile));
            remotes.back().keys.push_back(std::move(key));
            break;
        }
        case InRawCodes: {
            Remote& r = remotes.back();
            if (end && w[1] == "raw_codes") {
                state = InRemote;
                break;
            }
            if (begin || end)
                return fail(line.number, Quote(text) + u" inside the raw codes"_s);
            size_t i = 0;
            if (w[0] == "name") {
                if (w.size() < 2)
                    return fail(line.number, u"a key without a name"_s);
                if (++keyCount > MaxCodesPerFile)
                    return fail(line.number, u"more than %1 keys"_s.arg(MaxCodesPerFile));
                r.rawKeys.push_back({QString::fromUtf8(w[1]), line.number, {}});
                i = 2;
            }
            for (; i < w.size(); ++i) {
                if (r.rawKeys.empty())
                    return fail(line.number, u"durations before the first 'name'"_s);
                std::optional<uint64_t> v = Number(w[i], MaxSignalUs);
                if (!v)
                    return fail(line.number, Quote(w[i]) + u" is not a duration in µs"_s);
                auto& d = r.rawKeys.back().durations;
                if (d.size() >= size_t(MaxDurations))
                    return fail(line.number, u"more than %1 durations"_s.arg(MaxDurations));
                d.push_back(uint32_t(*v));
            }
            break;
        }
        }
    }
    if (state != Top)
        return fail(lastLine, u"the file ends inside a remote"_s);

    for (const Remote& r : remotes) {
        Encoder enc(r);
        const QString why = enc.prepare();
        const QString remoteName = r.name.isEmpty() ? u"(unnamed)"_s : r.name;
        if (!why.isEmpty()) {
            const size_t n = r.keys.size() + r.rawKeys.size();
            read.refused << At(fileName,
                               r.flagsLine && why.contains(u"flag"_s) ? r.flagsLine : r.line,
                               u"remote %1 (%2 keys): %3"_s.arg(remoteName).arg(n).arg(why));
            continue;
        }
        auto keep = [&](const QString& name, int line, IrTiming timing, IrCode code = {}) {
            const QString problem = TimingProblem(timing);
            if (!problem.isEmpty()) {
                read.refused << At(fileName, line,
                                   u"remote %1, key %2: %3"_s.arg(remoteName, name, problem));
                return;
            }
            NamedSignal s;
            s.name = name;
            s.group = r.name;
            s.timing = std::move(timing);
            s.code = code;
            read.codes.push_back(std::move(s));
        };
        for (const HexKey& k : r.keys)
            keep(k.name, k.line, enc.encode(k.values),
                 k.values.size() == 1 ? enc.codeOf(k.values[0]) : IrCode());
        for (const RawKey& k : r.rawKeys)
            keep(k.name, k.line, enc.raw(k.durations));
    }
    return read;
}

namespace {

uint32_t reversed(uint32_t byte) {
    uint32_t r = 0;
    for (int i = 0; i < 8; ++i)
        r |= ((byte >> i) & 1) << (7 - i);
    return r;
}

// The four bytes of an NEC frame, each sent least significant bit first, as
// lircd writes them: one number, most significant bit first.
std::optional<uint32_t> necValue(const IrCode& code) {
    const uint32_t sc = code.scancode;
    std::array<uint32_t, 4> b{};
    switch (code.protocol) {
    case IrProtocol::Nec:
        b = {sc >> 8, ~sc >> 8, sc, ~sc};
        break;
    case IrProtocol::Necx:
        b = {sc >> 16, sc >> 8, sc, ~sc};
        break;
    case IrProtocol::Nec32:
        b = {sc >> 16, sc >> 24, sc, sc >> 8};
        break;
    default:
        return std::nullopt;
    }
    uint32_t v = 0;
    for (uint32_t x : b)
        v = v << 8 | reversed(x & 0xFF);
    return v;
}

} // namespace

QByteArray WriteLircd(const std::vector<NamedSignal>& codes, QString* error) {
    // One raw remote per group and carrier; lircd sends each key's first
    // frame, and again while the key is held.
    std::map<std::pair<QString, int>, std::vector<const NamedSignal*>> remotes;
    for (const NamedSignal& c : codes)
        remotes[{c.group.isEmpty() ? u"kestrava"_s : c.group, c.timing.carrierHz}].push_back(&c);
    auto token = [](QString s) {
        for (QChar& ch : s)
            if (ch.isSpace() || !ch.isPrint() || ch == u'#')
                ch = u'_';
        return s.isEmpty() ? u"_"_s : s;
    };
    QString out = u"# Written by Kestrava: NEC remotes by their codes, the others as raw "
                  u"timings in µs.\n"_s;
    QSet<QString> remoteNames;
    for (const auto& [key, list] : remotes) {
        QString name = token(key.first);
        if (key.second != 0 && remoteNames.contains(name))
            name += u"_"_s + QString::number(key.second);
        remoteNames.insert(name);
        // A remote whose keys all decode as NEC is written as lircd's NEC
        // remote: one 32-bit code per key, in the order the bits are sent.
        std::vector<uint32_t> necValues;
        for (const NamedSignal* c : list) {
            const IrCode code = c->code.decoded() ? c->code : DecodeSignal(c->timing);
            if (const std::optional<uint32_t> v = necValue(code))
                necValues.push_back(*v);
        }
        if (necValues.size() == list.size()) {
            out += u"\nbegin remote\n  name  %1\n  bits  32\n  flags SPACE_ENC|CONST_LENGTH\n"
                   u"  eps   30\n  aeps  100\n  header  9000 4500\n  one      563 1687\n"
                   u"  zero     563  563\n  ptrail   563\n  repeat  9000 2250\n"
                   u"  gap   108000\n  frequency 38000\n\n  begin codes\n"_s.arg(name);
            QSet<QString> keyNames;
            for (size_t i = 0; i < list.size(); ++i) {
                QString keyName = token(list[i]->name);
                for (int n = 2; keyNames.contains(keyName); ++n)
                    keyName = token(list[i]->name) + u"_"_s + QString::number(n);
                keyNames.insert(keyName);
                out += u"    %1 0x%2\n"_s.arg(keyName, -24).arg(necValues[i], 8, 16, QChar(u'0'));
            }
            out += u"  end codes\nend remote\n"_s;
            continue;
        }
        uint32_t gap = 0;
        for (const NamedSignal* c : list)
            gap = std::max(gap, c->timing.frame().size() < c->timing.durations.size()
                                    ? c->timing.durations[c->timing.frame().size()]
                                    : c->timing.gapUs());
        out +=
            u"\nbegin remote\n  name  %1\n  flags RAW_CODES\n  eps   30\n  aeps  100\n"_s.arg(name);
        if (key.second > 0)
            out += u"  frequency %1\n"_s.arg(key.second);
        out += u"  gap   %1\n\n  begin raw_codes\n"_s.arg(gap);
        QSet<QString> keyNames;
        for (const NamedSignal* c : list) {
            QString keyName = token(c->name);
            for (int n = 2; keyNames.contains(keyName); ++n)
                keyName = token(c->name) + u"_"_s + QString::number(n);
            keyNames.insert(keyName);
            out += u"\n    name %1\n"_s.arg(keyName);
            const std::vector<uint32_t> f = c->timing.frame();
            for (size_t i = 0; i < f.size(); i += 6) {
                out += u"     "_s;
                for (size_t j = i; j < std::min(f.size(), i + 6); ++j)
                    out += u" %1"_s.arg(f[j], 7);
                out += u'\n';
            }
        }
        out += u"\n  end raw_codes\nend remote\n"_s;
    }
    if (remotes.empty()) {
        *error = u"no codes to write"_s;
        return {};
    }
    return out.toUtf8();
}
