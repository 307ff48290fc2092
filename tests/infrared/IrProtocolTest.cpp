#include "infrared/IrProtocol.h"
#include "infrared/DataTable.h"
#include "infrared/HeldSignal.h"
#include "infrared/SignalCodeCache.h"
#include "infrared/SignalStore.h"
#include "infrared/formats/IrFormats.h"
#include "support/TempFolder.h"

#include <QElapsedTimer>
#include <QFile>
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

// Every protocol's code comes back the same through a signal file, carrier and repeats too.
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

// Cheap receivers' captures (±25 %, ±15 % with the clock 8 % off; bi-phase and
// closely spaced symbols within a quarter of their spacing) still decode.
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

// NEC repeat codes or a frame again fold into one key; a lone repeat or another frame do not.
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

// The IR databases' names and parameters (tests/data/irp/names.tsv), and back.
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
    for (const QString& bad :
         (u"nec nec:0x10000 bogus:1 raw:1 nec:-1 sony12:0x200000 aeha:0x0220 aeha:xyz "
          u"rc6_mce:0x800f8410 NEC1:256,1 Sony12:32,1 RC5x:1,2 Bogus:1,2 NECx1:1,2,3 "
          u"RC5:1,2,3,4,5 JVC:Q=1,2 Kaseikyo:1,2,3 Denon-K:16,1,5 RCA:16,1 "
          u"pioneer:0xa55a1c+0x12"_s)
             .split(u' ')) {
        QString why;
        EXPECT_FALSE(ParseCodeSpec(bad, &why)) << bad.toStdString();
        EXPECT_FALSE(why.isEmpty());
    }
}

// Real remotes (tests/data/flipper-irdb) decode as the IR databases say: the carrier tells
// Pioneer from NEC and RCA from RCA-38, check bits Sharp from Denon; stretched Sony reads.
TEST(IrProtocol, RealRemotesDecode) {
    const QList<QStringList> known = DataTable(u"flipper-irdb/decodes.tsv"_s);
    ASSERT_EQ(known.size(), 21);
    for (const QStringList& k : known) {
        SCOPED_TRACE(k.join(u' ').toStdString());
        const IrCodeRead read =
            ReadIrCodePath(QStringLiteral(KESTRAVA_TEST_DATA "/flipper-irdb/") + k[0]);
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

// A lone half of Denon's frame is DecodeIR's Denon{1} or Denon{2}; a lone Sharp half is nothing.
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

// Decoded once until the file changes, across restarts and renames; a bad cache is replaced.
TEST(IrProtocol, CacheDecodesAFileOnceUntilItChanges) {
    TempFolder t;
    const QString path = t.path(u"tv-power.bin"), file = t.path(u"codes");
    auto write = [&](QStringView spec) {
        ASSERT_TRUE(WriteSignalFile(path, BlobFromTiming(*EncodeSignal(code(spec)))->encode()));
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
    const QByteArray kept = t.readFile(u"codes");
    ASSERT_TRUE(kept.contains("jvc:0x1234"));
    t.writeFile(u"codes", QByteArray(kept).replace("jvc:0x1234", "jvc:0x1235"));
    const QString renamed = t.path(u"tv-on.bin");
    ASSERT_TRUE(QFile::rename(path, renamed));
    {
        SignalCodeCache cache(file);
        EXPECT_EQ(cache.codeOf(renamed), code(u"jvc:0x1235"_s));
    }
    for (const QByteArray& bad :
         {kept.left(kept.size() - 3), QByteArray(kept).replace("jvc", "xyz"),
          QByteArray(kept).replace(" 0 ", " 00 "), QByteArray("\x89PNG")}) {
        t.writeFile(u"codes", bad);
        SignalCodeCache cache(file);
        EXPECT_EQ(cache.codeOf(renamed), code(u"jvc:0x1234"_s)) << bad.toStdString();
        cache.save();
        EXPECT_TRUE(SignalCodeCache::Parse(t.readFile(u"codes"))) << "replaced by a good one";
    }
}

// What a held key sends after its first frame, and how often; a raw signal its repeating part.
TEST(IrProtocol, HeldKeysRepeatAtTheProtocolsPeriod) {
    const QList<QStringList> cases = DataTable(u"irp/held.tsv"_s);
    ASSERT_EQ(cases.size(), 10);
    for (const QStringList& c : cases) {
        SCOPED_TRACE(c[0].toStdString());
        const IrCode ir = code(c[0]);
        const auto held = HeldSignalOf(*EncodeSignal(ir), ir);
        ASSERT_TRUE(held);
        EXPECT_EQ(held->firstPeriodUs, c[1].toUInt());
        EXPECT_EQ(held->repeatPeriodUs, c[2].toUInt());
        EXPECT_EQ(held->first.durations.size() % 2, 1u) << "ends on a pulse";
        if (c[3] == u"0")
            EXPECT_EQ(held->repeat.durations, held->first.durations);
        else
            EXPECT_EQ(held->repeat.durations.size(), c[3].toUInt());
        EXPECT_EQ(DecodeSignal(held->first), ir);
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
