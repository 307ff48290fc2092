#include "infrared/IrProtocol.h"
#include "infrared/SignalStore.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <random>

using namespace Qt::StringLiterals;

void PrintTo(const IrCode& c, std::ostream* os) {
    *os << CodeSpec(c).toStdString() << (c.toggle ? " toggle" : "")
        << (c.repeats ? " repeats" : "");
}

namespace {

IrCode code(QStringView spec, bool repeats = false, bool toggle = false) {
    auto c = ParseCodeSpec(spec);
    EXPECT_TRUE(c) << spec.toString().toStdString();
    c->repeats = repeats;
    c->toggle = toggle;
    return *c;
}

// Every protocol, with scancodes at the edges of their fields.
const QStringList Specs{u"nec:0x0408"_s,
                        u"nec:0xff00"_s,
                        u"necx:0x12a55e"_s,
                        u"nec32:0x12345678"_s,
                        u"samsung32:0x0707"_s,
                        u"sony12:0x010015"_s,
                        u"sony12:0x1f007f"_s,
                        u"sony15:0xa50012"_s,
                        u"sony20:0x1f5a7f"_s,
                        u"rc5:0x1e3c"_s,
                        u"rc5:0x0001"_s,
                        u"rc5:0x1f7f"_s,
                        u"rc5x_20:0x1e7c3f"_s,
                        u"rc5x_20:0x000100"_s,
                        u"rc6_0:0x800c"_s,
                        u"rc6_0:0xffff"_s,
                        u"rc6_6a_20:0x012345"_s,
                        u"rc6_6a_24:0xfedcba"_s,
                        u"rc6_6a_32:0x12345678"_s,
                        u"rc6_mce:0x800f0410"_s,
                        u"jvc:0x1234"_s,
                        u"sharp:0x1ea5"_s,
                        u"sanyo:0x1fff12"_s,
                        u"aeha:0x022080003dbc"_s,
                        u"aeha:0x0220e00400ff,0x2340c0a18f"_s};

// What a signal file gives back: 8 µs steps and a table of durations.
IrTiming throughFile(const IrTiming& t) {
    auto blob = BlobFromTiming(t);
    EXPECT_TRUE(blob);
    return TimingFromBlob(*IrBlob::decode(blob->encode()));
}

// Each duration off by up to spread of itself, or of cap µs when longer.
IrTiming jitter(IrTiming t, double spread, double scale, uint32_t seed, double cap = 1e9) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> f(-spread, spread);
    for (uint32_t& d : t.durations)
        d = uint32_t((d + f(gen) * std::min<double>(d, cap)) * scale);
    return t;
}

bool biphase(IrProtocol p) {
    return ProtocolName(p).startsWith(u"rc"_s);
}

} // namespace

// Every protocol's code goes through a signal file and comes back the same,
// with the protocol's carrier, its text form and its repeats.
TEST(IrProtocol, EncodedCodesDecodeToThemselves) {
    for (const QString& spec : Specs)
        for (bool repeats : {false, true})
            for (bool toggle : {false, true}) {
                SCOPED_TRACE(spec.toStdString() + (repeats ? " repeats" : "") +
                             (toggle ? " toggle" : ""));
                IrCode c = code(spec, repeats, toggle);
                const bool toggles =
                    c.protocol == IrProtocol::Rc5 || c.protocol == IrProtocol::Rc5x20 ||
                    c.protocol == IrProtocol::Rc6_0 || c.protocol == IrProtocol::Rc6Mce;
                if (toggle && !toggles)
                    continue;
                auto t = EncodeSignal(c);
                ASSERT_TRUE(t);
                EXPECT_EQ(t->carrierHz, ProtocolCarrierHz(c.protocol));
                EXPECT_EQ(t->durations.size() % 2, 0u); // ends with its pause
                EXPECT_EQ(t->repeats(), repeats);
                const IrTiming back = throughFile(*t);
                EXPECT_EQ(DecodeSignal(back), c);
                EXPECT_EQ(back.carrierHz, t->carrierHz);
                EXPECT_EQ(CodeSpec(c), spec);
            }
}

// Captures from cheap receivers: each duration off by up to ±25 %, or ±15 %
// with a receiver clock 8 % off, and AEHA's unit anywhere from 350 to 500 µs.
// Bi-phase codes (RC5, RC6) merge half-bits into longer durations; they are off
// by up to ±15 % of two units (beyond that a half-bit reads as a whole), ±10 %
// with the clock off.
TEST(IrProtocol, JitteredCapturesStillDecode) {
    for (const QString& spec : Specs) {
        const IrCode c = code(spec);
        const IrTiming clean = *EncodeSignal(c);
        for (uint32_t seed = 1; seed <= 20; ++seed)
            for (double scale : {0.92, 1.0, 1.08}) {
                SCOPED_TRACE(spec.toStdString() + " seed " + std::to_string(seed) + " scale " +
                             std::to_string(scale));
                const bool bi = biphase(c.protocol);
                const double spread = scale == 1.0 ? (bi ? 0.15 : 0.25) : (bi ? 0.1 : 0.15);
                const double cap = bi ? 2 * (c.protocol <= IrProtocol::Rc5x20 ? 889 : 444) : 1e9;
                EXPECT_EQ(DecodeSignal(jitter(clean, spread, scale, seed, cap)), c);
            }
    }
    const IrCode kaseikyo = code(u"aeha:0x022080003dbc"_s);
    for (double unit : {350.0, 500.0})
        EXPECT_EQ(DecodeSignal(jitter(*EncodeSignal(kaseikyo), 0.2, unit / 425, 7)), kaseikyo);
    // Too far off is not the protocol.
    IrTiming stretched = *EncodeSignal(code(u"nec:0x0408"_s));
    stretched.durations[5] = 1100; // a space a third short of 3T
    EXPECT_FALSE(DecodeSignal(stretched).decoded());
}

// A held key: NEC's short repeat frames, or the frame again (Sony sends each
// at least three times); both fold into the one key. A repeat alone, or a
// different frame after the first, is not a key.
TEST(IrProtocol, RepeatsFoldIntoOneKey) {
    IrTiming nec = *EncodeSignal(code(u"nec:0x0408"_s));
    const std::vector<uint32_t> repeat{9000, 2250, 560, 96000};
    for (int i = 0; i < 3; ++i)
        nec.durations.insert(nec.durations.end(), repeat.begin(), repeat.end());
    EXPECT_EQ(DecodeSignal(nec), code(u"nec:0x0408"_s, true));
    EXPECT_FALSE(DecodeSignal(IrTiming{repeat, 38000, -1}).decoded());

    IrTiming sony = *EncodeSignal(code(u"sony12:0x010015"_s));
    const auto frame = sony.durations;
    sony.durations.insert(sony.durations.end(), frame.begin(), frame.end());
    sony.durations.insert(sony.durations.end(), frame.begin(), frame.end() - 1); // cut pause
    EXPECT_EQ(DecodeSignal(sony), code(u"sony12:0x010015"_s, true));

    IrTiming two = *EncodeSignal(code(u"sony12:0x010015"_s));
    const auto other = EncodeSignal(code(u"sony12:0x010016"_s))->durations;
    two.durations.insert(two.durations.end(), other.begin(), other.end());
    EXPECT_FALSE(DecodeSignal(two).decoded());
}

// Whatever is not wholly one protocol is raw, found fast however long.
TEST(IrProtocol, AnythingElseIsRaw) {
    EXPECT_FALSE(DecodeSignal({}).decoded());
    EXPECT_FALSE(DecodeSignal(IrTiming{{0, 0, 0, 0}, 38000, -1}).decoded());
    IrTiming cut = *EncodeSignal(code(u"nec:0x0408"_s));
    cut.durations.erase(cut.durations.begin() + 20, cut.durations.begin() + 22); // a bit lost
    EXPECT_FALSE(DecodeSignal(cut).decoded());
    IrTiming tail = *EncodeSignal(code(u"rc5:0x1e3c"_s));
    tail.durations.push_back(300); // noise after the frame
    EXPECT_FALSE(DecodeSignal(tail).decoded());

    IrTiming huge;
    huge.durations.assign(1000000, 560);
    huge.durations[0] = 9000;
    huge.durations[1] = 4500;
    QElapsedTimer clock;
    clock.start();
    EXPECT_FALSE(DecodeSignal(huge).decoded());
    huge.durations.assign(1000000, 0);
    EXPECT_FALSE(DecodeSignal(huge).decoded());
    EXPECT_LT(clock.elapsed(), 1000);
}

TEST(IrProtocol, CodeTextAndFields) {
    const IrCode nec = code(u"NEC:1032"_s);
    EXPECT_EQ(CodeSpec(nec), u"nec:0x0408"_s);
    EXPECT_EQ(CodeDisplay(nec), u"NEC 0x0408"_s);
    EXPECT_EQ(FieldsOf(nec).address, 4u);
    EXPECT_EQ(FieldsOf(nec).command, 8u);
    const IrCode sony = code(u"sony20:0x1f5a7f"_s);
    EXPECT_EQ(FieldsOf(sony).address, 0x1Fu);
    EXPECT_EQ(FieldsOf(sony).subdevice, 0x5Au);
    EXPECT_EQ(FieldsOf(sony).command, 0x7Fu);
    const IrCode kaseikyo = code(u"aeha:0x022080003dbc"_s);
    EXPECT_EQ(FieldsOf(kaseikyo).maker, 0x2002);
    EXPECT_EQ(CodeDisplay(kaseikyo), u"AEHA 2002 80003DBC"_s);
    for (const QString& bad :
         {u"nec"_s, u"nec:0x10000"_s, u"bogus:1"_s, u"raw:1"_s, u"nec:-1"_s, u"sony12:0x200000"_s,
          u"aeha:0x0220"_s, u"aeha:xyz"_s, u"rc6_mce:0x800f8410"_s}) {
        QString why;
        EXPECT_FALSE(ParseCodeSpec(bad, &why)) << bad.toStdString();
        EXPECT_FALSE(why.isEmpty());
    }
}

// The IR databases' names and parameters (DecodeIR, IrScrutinizer, irdb) for
// codes whose meaning they publish, and back.
TEST(IrProtocol, IrpNamesAndParameters) {
    const struct {
        const char* spec;
        const char* irp;
    } known[] = {
        {"nec:0x0408", "NEC1:4,251,8"},
        {"necx:0x12a55e", "NEC1:18,165,94"},
        {"nec32:0x12345678", "NEC1-f16:52,18,120,E=86"},
        {"samsung32:0x0707", "NECx1:7,7,7"},
        {"sony12:0x010015", "Sony12:1,21"},
        {"sony20:0x1f5a7f", "Sony20:31,90,127"},
        {"rc5:0x000c", "RC5:0,12"},
        {"rc5x_20:0x1e7c3f", "RC5x:30,124,63"},
        {"rc6_0:0x000c", "RC6:0,12"},
        {"rc6_mce:0x800f040c", "MCE:4,15,12"},
        {"jvc:0x1234", "JVC:18,52"},
        {"sharp:0x1ea5", "Sharp:30,165"},
        {"sanyo:0x1fff12", "Aiwa:255,31,18"},
    };
    for (const auto& k : known) {
        const IrCode c = code(QString::fromLatin1(k.spec));
        const auto irp = IrpOf(c);
        ASSERT_TRUE(irp) << k.spec;
        EXPECT_EQ(IrpSpec(*irp), QString::fromLatin1(k.irp)) << k.spec;
        EXPECT_EQ(ParseCodeSpec(QString::fromLatin1(k.irp)), c) << k.irp;
    }
    for (const QString& spec : Specs) {
        if (auto c = code(spec); c.protocol != IrProtocol::Aeha) {
            EXPECT_EQ(CodeFromIrp(*IrpOf(c)), c) << spec.toStdString();
        }
    }
    EXPECT_EQ(ParseCodeSpec(u"nec2:D=4,F=8"_s), code(u"nec:0x0408"_s));
    for (const QString& bad : {u"NEC1:256,1"_s, u"Sony12:32,1"_s, u"RC5x:1,2"_s, u"Bogus:1,2"_s,
                               u"NECx1:1,2,3"_s, u"RC5:1,2,3,4,5"_s, u"JVC:Q=1,2"_s}) {
        QString why;
        EXPECT_FALSE(ParseCodeSpec(bad, &why)) << bad.toStdString();
        EXPECT_FALSE(why.isEmpty());
    }
}

// A file is decoded once until it changes.
TEST(IrProtocol, CacheDecodesAFileUntilItChanges) {
    QTemporaryDir dir;
    const QString path = dir.filePath(u"tv-power.bin"_s);
    auto write = [&](QStringView spec) {
        ASSERT_TRUE(WriteSignalFile(path, BlobFromTiming(*EncodeSignal(code(spec)))->encode()));
    };
    SignalCodeCache cache;
    EXPECT_FALSE(cache.codeOf(path).decoded()); // missing
    write(u"nec:0x0408");
    EXPECT_EQ(cache.codeOf(path), code(u"nec:0x0408"_s));
    write(u"jvc:0x1234");
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::ReadWrite));
    f.setFileTime(QDateTime::currentDateTime().addSecs(5), QFileDevice::FileModificationTime);
    f.close();
    EXPECT_EQ(cache.codeOf(path), code(u"jvc:0x1234"_s));
}
