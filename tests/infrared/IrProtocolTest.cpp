#include "infrared/IrProtocol.h"
#include "infrared/DataTable.h"
#include "infrared/HeldSignal.h"
#include "infrared/SignalCodeCache.h"
#include "infrared/SignalStore.h"
#include "infrared/formats/IrFormats.h"

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
const QStringList Specs =
    (u"nec:0x0408 nec:0xff00 necx:0x12a55e nec32:0x12345678 samsung32:0x0707 "
     u"sony12:0x010015 sony12:0x1f007f sony15:0xa50012 sony20:0x1f5a7f rc5:0x1e3c "
     u"rc5:0x0001 rc5:0x1f7f rc5x_20:0x1e7c3f rc5x_20:0x000100 rc6_0:0x800c rc6_0:0xffff "
     u"rc6_6a_20:0x012345 rc6_6a_24:0xfedcba rc6_6a_32:0x12345678 rc6_mce:0x800f0410 "
     u"jvc:0x1234 sharp:0x1ea5 sanyo:0x1fff12 aeha:0x022080003dbc "
     u"aeha:0x0220e00400ff,0x2340c0a18f pioneer:0xa55a1c pioneer:0xa35c99+0xaf50bc "
     u"proton:0x12a5 rca:0x0f5a rca38:0x0a12 samsung36:0x07070a12 gicable:0x05a3 "
     u"denon:0x0c4d denon1:0x1fff denon2:0x0200 mitsubishi:0x4702 recs80:0x073f "
     u"dish:0x1f1f3f dish:0x010200 directv:0x0c10 rc_mm_12:0x0abc rc_mm_24:0xfedcba "
     u"rc_mm_32:0x2480260c"_s)
        .split(u' ');

bool rcmm(IrProtocol p) {
    return p == IrProtocol::RcMm12 || p == IrProtocol::RcMm24 || p == IrProtocol::RcMm32;
}

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
    return ProtocolName(p).startsWith(u"rc5"_s) || ProtocolName(p).startsWith(u"rc6"_s);
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
                if (toggle && !HasToggle(c.protocol))
                    continue;
                auto t = EncodeSignal(c);
                ASSERT_TRUE(t);
                EXPECT_EQ(t->carrierHz, ProtocolCarrierHz(c.protocol));
                EXPECT_EQ(t->durations.size() % 2, 0u); // ends with its pause
                EXPECT_EQ(t->repeats(), repeats);
                const IrTiming back = throughFile(*t);
                EXPECT_EQ(DecodeSignal(back), c);
                EXPECT_NEAR(back.carrierHz, t->carrierHz, 1); // a period in ns
                EXPECT_EQ(CodeSpec(c), spec);
            }
}

// Captures from cheap receivers: each duration off by up to ±25 %, or ±15 %
// with a receiver clock 8 % off, and AEHA's unit anywhere from 350 to 500 µs.
// Bi-phase codes (RC5, RC6) merge half-bits into longer durations; they are off
// by up to ±15 % of two units (beyond that a half-bit reads as a whole), ±10 %
// with the clock off. RC-MM's symbols are 167 µs apart: ±25 µs; RECS80's
// 5 and 7.5 ms spaces ±200 µs, Dish's 1.6 and 2.8 ms ones ±250 µs.
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
                const double cap = bi ? 2 * (c.protocol <= IrProtocol::Rc5x20 ? 889 : 444)
                                   : rcmm(c.protocol)                 ? 100
                                   : c.protocol == IrProtocol::Recs80 ? 800
                                   : c.protocol == IrProtocol::Dish   ? 1000
                                                                      : 1e9;
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
    const IrCode kaseikyo = code(u"aeha:0x022080003dbc"_s);
    EXPECT_EQ(FieldsOf(kaseikyo).maker, 0x2002);
    EXPECT_EQ(CodeDisplay(kaseikyo), u"AEHA 2002 80003DBC"_s);
}

// The IR databases' names and parameters (tests/data/irp/names.tsv) for
// codes whose meaning they publish, and back.
TEST(IrProtocol, IrpNamesAndParameters) {
    const QList<QStringList> known = DataTable(u"irp/names.tsv"_s);
    ASSERT_EQ(known.size(), 36);
    for (const QStringList& k : known) {
        SCOPED_TRACE(k.join(u' ').toStdString());
        const IrCode c = code(k[0]);
        const auto irp = IrpOf(c);
        ASSERT_TRUE(irp);
        EXPECT_EQ(IrpSpec(*irp), k[1]);
        EXPECT_EQ(ParseCodeSpec(k[1]), c);
    }
    for (const QString& spec : Specs) {
        if (auto c = code(spec); c.frames.empty()) {
            EXPECT_EQ(CodeFromIrp(*IrpOf(c)), c) << spec.toStdString();
        }
    }
    EXPECT_EQ(ParseCodeSpec(u"nec2:D=4,F=8"_s), code(u"nec:0x0408"_s));
    EXPECT_EQ(ParseCodeSpec(u"Pioneer:165,28"_s), code(u"pioneer:0xa55a1c"_s));
    EXPECT_EQ(ParseCodeSpec(u"G.I.Cable:5,163"_s), code(u"gicable:0x05a3"_s));
    // A frame that breaks its maker's check, and an air conditioner's, have no IRP.
    EXPECT_FALSE(IrpOf(code(u"aeha:0x0220b0003d8e"_s)));
    EXPECT_FALSE(IrpOf(code(u"aeha:0x0220e00400ff,0x2340c0a18f"_s)));
    // Text that is no code, in either form, says why.
    for (const QString& bad : {u"nec"_s,
                               u"nec:0x10000"_s,
                               u"bogus:1"_s,
                               u"raw:1"_s,
                               u"nec:-1"_s,
                               u"sony12:0x200000"_s,
                               u"aeha:0x0220"_s,
                               u"aeha:xyz"_s,
                               u"rc6_mce:0x800f8410"_s,
                               u"NEC1:256,1"_s,
                               u"Sony12:32,1"_s,
                               u"RC5x:1,2"_s,
                               u"Bogus:1,2"_s,
                               u"NECx1:1,2,3"_s,
                               u"RC5:1,2,3,4,5"_s,
                               u"JVC:Q=1,2"_s,
                               u"Kaseikyo:1,2,3"_s,
                               u"Denon-K:16,1,5"_s,
                               u"RCA:16,1"_s,
                               u"pioneer:0xa55a1c+0x12"_s}) {
        QString why;
        EXPECT_FALSE(ParseCodeSpec(bad, &why)) << bad.toStdString();
        EXPECT_FALSE(why.isEmpty());
    }
}

// Captures and parsed entries of real remotes (Flipper-IRDB, see
// tests/data/flipper-irdb/SOURCE) read as the IR databases have those remotes'
// codes (decodes.tsv there), toggles included: the carrier the file gives
// decides Pioneer against NEC and RCA against RCA-38, the check bits Sharp
// against Denon, and Sony pulses stretched to 745/1349 µs are read by the
// frame's own short pulses.
TEST(IrProtocol, RealRemotesDecode) {
    const QList<QStringList> known = DataTable(u"flipper-irdb/decodes.tsv"_s);
    ASSERT_EQ(known.size(), 21);
    for (const QStringList& k : known) {
        SCOPED_TRACE(k.join(u' ').toStdString());
        QFile file(QStringLiteral(KESTRAVA_TEST_DATA "/flipper-irdb/") + k[0]);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        // Flipper-IRDB's raw files end without a newline: read as they are.
        const IrCodeRead read = ReadIrCodes(file.readAll(), file.fileName());
        ASSERT_TRUE(read.ok()) << read.error.toStdString();
        EXPECT_TRUE(read.refused.isEmpty()) << read.refused.join(u'\n').toStdString();
        const auto s = std::find_if(read.codes.begin(), read.codes.end(),
                                    [&](const NamedSignal& n) { return n.name == k[1]; });
        ASSERT_NE(s, read.codes.end());
        const IrCode c = DecodeSignal(s->timing);
        if (k[3] != u"-") {
            EXPECT_EQ(CodeSpec(c), k[3]);
        }
        const auto irp = IrpOf(c);
        ASSERT_TRUE(irp) << CodeSpec(c).toStdString();
        EXPECT_EQ(IrpSpec(*irp), k[2]);
        EXPECT_EQ(c.toggle, k[4] == u"toggle");
    }
    // The same frames with the carrier unknown: NEC, and RCA.
    IrTiming pioneer = *EncodeSignal(code(u"pioneer:0xa55a1c"_s));
    pioneer.carrierHz = 0;
    EXPECT_EQ(DecodeSignal(pioneer), code(u"nec:0xa51c"_s));
    IrTiming rca = *EncodeSignal(code(u"rca38:0x0a12"_s));
    rca.carrierHz = 0;
    EXPECT_EQ(DecodeSignal(rca), code(u"rca:0x0a12"_s));
}

// A half of Denon's frame alone, sent again while held, is DecodeIR's
// Denon{1} or Denon{2}; a lone Sharp half is nothing.
TEST(IrProtocol, LoneDenonHalves) {
    const IrTiming full = *EncodeSignal(code(u"denon:0x0c4d"_s));
    const size_t half = full.durations.size() / 2;
    IrTiming first = full, second = full;
    first.durations.resize(half);
    second.durations.erase(second.durations.begin(), second.durations.begin() + half);
    EXPECT_EQ(DecodeSignal(first), code(u"denon1:0x0c4d"_s));
    EXPECT_EQ(DecodeSignal(second), code(u"denon2:0x0c4d"_s));
    first.durations.insert(first.durations.end(), first.durations.begin(), first.durations.end());
    EXPECT_EQ(DecodeSignal(first), code(u"denon1:0x0c4d"_s, true));
    IrTiming sharp = *EncodeSignal(code(u"sharp:0x0c4d"_s));
    sharp.durations.resize(sharp.durations.size() / 2);
    EXPECT_FALSE(DecodeSignal(sharp).decoded());
}

// A file is decoded once until it changes, and what it decodes as outlives
// the program and a rename through the cache's file; a cache file that is not
// wholly well-formed is decoded anew and replaced.
TEST(IrProtocol, CacheDecodesAFileOnceUntilItChanges) {
    QTemporaryDir dir;
    const QString path = dir.filePath(u"tv-power.bin"_s), file = dir.filePath(u"codes"_s);
    auto write = [&](QStringView spec) {
        ASSERT_TRUE(WriteSignalFile(path, BlobFromTiming(*EncodeSignal(code(spec)))->encode()));
    };
    auto setFile = [&](const QByteArray& bytes) {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size());
    };
    {
        SignalCodeCache cache(file);
        EXPECT_FALSE(cache.codeOf(path).decoded()); // missing
        write(u"nec:0x0408");
        EXPECT_EQ(cache.codeOf(path), code(u"nec:0x0408"_s));
        write(u"jvc:0x1234");
        EXPECT_EQ(cache.codeOf(path), code(u"jvc:0x1234"_s));
    }
    // Taken from the file without decoding: a changed entry shows through.
    QByteArray kept;
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::ReadOnly));
        kept = f.readAll();
    }
    ASSERT_TRUE(kept.contains("jvc:0x1234"));
    setFile(QByteArray(kept).replace("jvc:0x1234", "jvc:0x1235"));
    const QString renamed = dir.filePath(u"tv-on.bin"_s);
    ASSERT_TRUE(QFile::rename(path, renamed));
    {
        SignalCodeCache cache(file);
        EXPECT_EQ(cache.codeOf(renamed), code(u"jvc:0x1235"_s));
    }
    for (const QByteArray& bad :
         {kept.left(kept.size() - 3), QByteArray(kept).replace("jvc", "xyz"),
          QByteArray(kept).replace(" 0 ", " 00 "), QByteArray("\x89PNG")}) {
        setFile(bad);
        SignalCodeCache cache(file);
        EXPECT_EQ(cache.codeOf(renamed), code(u"jvc:0x1234"_s)) << bad.toStdString();
        cache.save();
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::ReadOnly));
        EXPECT_TRUE(SignalCodeCache::Parse(f.readAll())) << "replaced by a good one";
    }
}

// What a held key sends after its first frame, and how often: NEC's repeat
// code, JVC's frame without its leader, the whole frame for the rest; a raw
// signal its own repeating part, or itself, at its length and pause.
TEST(IrProtocol, HeldKeysRepeatAtTheProtocolsPeriod) {
    struct Case {
        const char* spec;
        uint32_t firstUs, repeatUs;
        int repeatDurations; // 0: the first frame again
    };
    const Case cases[] = {
        {"nec:0x0408", 108000, 108000, 3},          {"necx:0x040812", 108000, 108000, 3},
        {"samsung32:0x0708", 108000, 108000, 0},    {"jvc:0x1234", 60000, 60000, 33},
        {"sony12:0x010015", 45000, 45000, 0},       {"sony20:0x010215", 45000, 45000, 0},
        {"rc5:0x0510", 113778, 113778, 0},          {"rc6_0:0x0510", 106667, 106667, 0},
        {"aeha:0x022080003dbc", 130000, 130000, 0}, {"proton:0x0510", 63000, 63000, 0},
    };
    for (const Case& c : cases) {
        const IrCode ir = code(QString::fromLatin1(c.spec));
        const auto held = HeldSignalOf(*EncodeSignal(ir), ir);
        ASSERT_TRUE(held) << c.spec;
        EXPECT_EQ(held->firstPeriodUs, c.firstUs) << c.spec;
        EXPECT_EQ(held->repeatPeriodUs, c.repeatUs) << c.spec;
        EXPECT_EQ(held->first.durations.size() % 2, 1u) << c.spec << ": ends on a pulse";
        if (c.repeatDurations == 0)
            EXPECT_EQ(held->repeat.durations, held->first.durations) << c.spec;
        else
            EXPECT_EQ(int(held->repeat.durations.size()), c.repeatDurations) << c.spec;
        EXPECT_EQ(DecodeSignal(held->first), ir) << c.spec;
    }
    IrTiming raw{{3000, 1000, 500, 20000}, 38000, -1};
    auto held = HeldSignalOf(raw, {});
    ASSERT_TRUE(held);
    EXPECT_EQ(held->repeat.durations, (std::vector<uint32_t>{3000, 1000, 500}));
    EXPECT_EQ(held->repeatPeriodUs, 24500u);
    raw.durations.insert(raw.durations.end(), {800, 30000});
    raw.repeatBegin = 4;
    held = HeldSignalOf(raw, {});
    EXPECT_EQ(held->firstPeriodUs, 24500u);
    EXPECT_EQ(held->repeat.durations, (std::vector<uint32_t>{800}));
    EXPECT_EQ(held->repeatPeriodUs, 30800u);
}
