// Every air-conditioner family: round trips, flipped bits, and real remotes' frames.
#include "infrared/Climate.h"
#include "infrared/DataTable.h"
#include "infrared/formats/IrFormats.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

using namespace Qt::StringLiterals;

namespace {

std::string text(const ClimateCaps& caps, const ClimateState& s) {
    return (caps.family + u": "_s + ClimateStateText(s) + u" fan "_s + s.fan +
            (s.power ? u""_s : u" (off)"_s))
        .toStdString();
}

// As a Broadlink hears it: marks long, spaces short by up to 12 %, in 32.84 µs ticks.
IrTiming received(IrTiming t, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> f(0.0, 0.12);
    for (size_t i = 0; i < t.durations.size(); ++i) {
        const double d = t.durations[i] * (i % 2 == 0 ? 1 + f(gen) : 1 - f(gen));
        t.durations[i] = uint32_t(std::lround(std::round(d / 32.84) * 32.84));
    }
    return t;
}

// Each mode at both ends of the range (99 where ignored), each fan and swing, and off.
std::vector<ClimateState> statesOf(const ClimateCaps& caps) {
    std::vector<ClimateState> all;
    for (ClimateMode mode : caps.modes)
        for (double t : {caps.minTemp, caps.usesTemperature(mode) ? caps.maxTemp : 99.0})
            for (const QString& fan : caps.fans)
                for (bool swing : {false, caps.swing}) {
                    all.push_back({true, mode, t, fan, swing});
                    if (!caps.swing)
                        break;
                }
    all.push_back({false, caps.modes.front(), caps.maxTemp, caps.fans.front(), false});
    return all;
}

void expectHeard(const ClimateCaps& caps, const ClimateState& s,
                 const std::optional<ClimateHeard>& heard) {
    ASSERT_TRUE(heard) << text(caps, s);
    EXPECT_EQ(heard->family, caps.family) << text(caps, s);
    EXPECT_EQ(heard->onto(s), s) << text(caps, s) << " heard as " << text(caps, heard->state);
    // Off may be a frame of its own, without the rest.
    uint8_t want = s.power ? ClimateHeard::All : ClimateHeard::Power;
    if (!caps.usesTemperature(s.mode))
        want &= uint8_t(~ClimateHeard::Temperature);
    if (!caps.swing)
        want &= uint8_t(~ClimateHeard::Swing);
    EXPECT_EQ(heard->known & want, want) << text(caps, s);
}

TEST(ClimateCodec, EveryStateOfEveryFamilyReadsBack) {
    ASSERT_FALSE(ClimateFamilies().empty());
    unsigned seed = 1;
    for (const ClimateCaps& caps : ClimateFamilies()) {
        for (const ClimateState& s : statesOf(caps)) {
            QString why;
            const std::optional<IrTiming> frame = EncodeClimate(caps.family, s, &why);
            ASSERT_TRUE(frame) << text(caps, s) << ": " << why.toStdString();
            EXPECT_EQ(frame->carrierHz, caps.carrierHz) << text(caps, s);
            expectHeard(caps, s, DecodeClimate(*frame));
            expectHeard(caps, s, DecodeClimate(received(*frame, seed++)));
        }
    }
}

// One bit flipped at a time: a checked frame reads as nothing or as the state it held.
TEST(ClimateCodec, AFlippedBitIsNeverAnotherState) {
    for (const ClimateCaps& caps : ClimateFamilies()) {
        const ClimateState s{true, caps.modes.front(), caps.maxTemp, caps.fans.back(), caps.swing};
        IrTiming frame = *EncodeClimate(caps.family, s);
        // The shortest space is a zero's, the commonest longer one a one's.
        std::map<uint32_t, int> spaces;
        for (size_t i = 1; i < frame.durations.size(); i += 2)
            ++spaces[frame.durations[i]];
        const uint32_t zero = spaces.begin()->first;
        uint32_t one = 0;
        for (const auto& [us, n] : spaces)
            if (us > zero * 3 / 2 && (one == 0 || n > spaces[one]))
                one = us;
        for (size_t i = 1; i < frame.durations.size(); i += 2) {
            uint32_t& d = frame.durations[i];
            if (d != zero && d != one)
                continue;
            d = d == zero ? one : zero;
            const auto heard = DecodeClimate(frame);
            if (heard) {
                EXPECT_EQ(heard->onto(s), s) << text(caps, s) << " with space " << i << " flipped";
            }
            d = d == zero ? one : zero;
        }
    }
}

std::optional<IrTiming> timingOf(const QString& code) {
    QString error;
    const QByteArray bytes = code.toLatin1();
    std::optional<NamedSignal> read;
    if (code.startsWith(u'+'))
        read = ReadIrCtlText(bytes, u"capture"_s, &error);
    else if (code.startsWith(u"0000 "_s))
        read = ReadPronto(bytes, u"capture"_s, &error);
    else
        read = ReadBroadlink(bytes, u"capture"_s, BroadlinkUnitUs, &error);
    if (!read)
        return std::nullopt;
    return read->timing;
}

// tests/data/climate/<family>/captures.tsv: code, power, mode, temperature, fan, swing.
TEST(ClimateCodec, RealRemotesFramesDecodeToTheirMeaning) {
    const QDir root(QStringLiteral(KESTRAVA_TEST_DATA "/climate"));
    const QStringList families = root.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    ASSERT_FALSE(families.isEmpty());
    for (const QString& family : families) {
        EXPECT_TRUE(QFile::exists(root.filePath(family + u"/SOURCE"_s))) << family.toStdString();
        const QList<QStringList> rows = DataTable(u"climate/"_s + family + u"/captures.tsv"_s);
        EXPECT_GE(rows.size(), 3) << family.toStdString();
        for (const QStringList& f : rows) {
            SCOPED_TRACE(family.toStdString() + ": " + f.join(u' ').toStdString());
            ASSERT_EQ(f.size(), 6);
            const std::optional<IrTiming> timing = timingOf(f[0]);
            ASSERT_TRUE(timing);
            const std::optional<ClimateHeard> heard = DecodeClimate(*timing);
            ASSERT_TRUE(heard);
            EXPECT_EQ(heard->family, family);
            const ClimateState& s = heard->state;
            auto check = [&](uint8_t field, const QString& want, const QString& got) {
                if (want == u"-") // the file does not say
                    return;
                EXPECT_TRUE(heard->known & field) << " field " << int(field);
                EXPECT_EQ(got.toStdString(), want.toStdString());
            };
            check(ClimateHeard::Power, f[1], s.power ? u"on"_s : u"off"_s);
            check(ClimateHeard::Mode, f[2], ClimateModeName(s.mode));
            check(ClimateHeard::Temperature, f[3], QString::number(s.temperature));
            check(ClimateHeard::Fan, f[4], s.fan);
            check(ClimateHeard::Swing, f[5], s.swing ? u"on"_s : u"off"_s);
        }
    }
}

TEST(ClimateCodec, FittingRoundsOrRefusesAndSaysWhich) {
    ClimateCaps caps;
    caps.modes = {ClimateMode::Cool, ClimateMode::Dry};
    caps.minTemp = 16;
    caps.maxTemp = 30;
    caps.step = 1;
    caps.fans = {u"auto"_s, u"1"_s};
    caps.noTemperature = {ClimateMode::Dry};
    const QList<QStringList> cases = DataTable(u"climate/fit.tsv"_s);
    ASSERT_EQ(cases.size(), 9);
    for (const QStringList& c : cases) {
        SCOPED_TRACE(c.join(u' ').toStdString());
        const ClimateFit fit = FitClimateState(
            caps, {true, *ClimateModeFromName(c[0]), c[1].toDouble(), c[2], c[3] == u"on"});
        ASSERT_EQ(fit.state.has_value(), c[4] == u"fits");
        EXPECT_EQ(fit.why.isEmpty(), fit.state.has_value());
        if (fit.state) {
            EXPECT_EQ(fit.state->temperature, c[5].toDouble());
            EXPECT_EQ(!fit.note.isEmpty(), c[6] == u"note");
        }
    }
}

} // namespace
