// Every air-conditioner family, by the same tables: its frames read back to
// the state written (also as a receiver quantises them), a broken bit is
// never taken for another state, and real remotes' frames decode to what
// their files say they are.
#include "infrared/Climate.h"
#include "infrared/formats/IrFormats.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

using namespace Qt::StringLiterals;

namespace {

constexpr ClimateMode AllModes[] = {ClimateMode::Auto, ClimateMode::Cool, ClimateMode::Heat,
                                    ClimateMode::Dry, ClimateMode::Fan};

std::string text(const ClimateCaps& caps, const ClimateState& s) {
    return (caps.family + u": "_s + ClimateStateText(s) + u" fan "_s + s.fan +
            (s.power ? u""_s : u" (off)"_s))
        .toStdString();
}

// As a Broadlink hears it: marks long and spaces short by up to 12 %, then
// counted in its 32.84 µs ticks.
IrTiming received(IrTiming t, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> f(0.0, 0.12);
    for (size_t i = 0; i < t.durations.size(); ++i) {
        const double d = t.durations[i] * (i % 2 == 0 ? 1 + f(gen) : 1 - f(gen));
        t.durations[i] = uint32_t(std::lround(std::round(d / 32.84) * 32.84));
    }
    return t;
}

// The states a family's round trip covers: each mode at both ends of the
// range (a mode that ignores it with a temperature no frame holds), each fan
// and swing setting, and off.
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
        for (ClimateMode mode : caps.modes)
            EXPECT_NE(std::find(std::begin(AllModes), std::end(AllModes), mode),
                      std::end(AllModes));
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

// Turns each bit's space into the other kind, one at a time: a checked frame
// then reads as nothing, or as the state it held (a bit of a copy or clock).
TEST(ClimateCodec, AFlippedBitIsNeverAnotherState) {
    for (const ClimateCaps& caps : ClimateFamilies()) {
        const ClimateState s{true, caps.modes.front(), caps.maxTemp, caps.fans.back(), caps.swing};
        IrTiming frame = *EncodeClimate(caps.family, s);
        // The shortest space is a zero's, the commonest longer one a one's
        // (leaders' spaces are rarer).
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

// tests/data/climate/<family>/captures.tsv: code, power, mode, temperature,
// fan, swing; "-" where the file does not say.
TEST(ClimateCodec, RealRemotesFramesDecodeToTheirMeaning) {
    const QDir root(QStringLiteral(KESTRAVA_TEST_DATA "/climate"));
    const QStringList families = root.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    ASSERT_FALSE(families.isEmpty());
    for (const QString& family : families) {
        QFile file(root.filePath(family + u"/captures.tsv"_s));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << family.toStdString();
        EXPECT_TRUE(QFile::exists(root.filePath(family + u"/SOURCE"_s))) << family.toStdString();
        int line = 0, frames = 0;
        while (!file.atEnd()) {
            ++line;
            const QString row = QString::fromUtf8(file.readLine()).trimmed();
            if (row.isEmpty() || row.startsWith(u'#'))
                continue;
            const QStringList f = row.split(u'\t');
            const std::string where = family.toStdString() + ":" + std::to_string(line);
            ASSERT_EQ(f.size(), 6) << where;
            const std::optional<IrTiming> timing = timingOf(f[0]);
            ASSERT_TRUE(timing) << where;
            const std::optional<ClimateHeard> heard = DecodeClimate(*timing);
            ASSERT_TRUE(heard) << where;
            ++frames;
            EXPECT_EQ(heard->family, family) << where;
            const ClimateState& s = heard->state;
            auto check = [&](uint8_t field, const QString& want, const QString& got) {
                if (want == u"-")
                    return;
                EXPECT_TRUE(heard->known & field) << where << " field " << int(field);
                EXPECT_EQ(got.toStdString(), want.toStdString()) << where;
            };
            check(ClimateHeard::Power, f[1], s.power ? u"on"_s : u"off"_s);
            check(ClimateHeard::Mode, f[2], ClimateModeName(s.mode));
            check(ClimateHeard::Temperature, f[3], QString::number(s.temperature));
            check(ClimateHeard::Fan, f[4], s.fan);
            check(ClimateHeard::Swing, f[5], s.swing ? u"on"_s : u"off"_s);
        }
        EXPECT_GE(frames, 3) << family.toStdString();
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
    struct Case {
        ClimateState wanted;
        bool fits;
        double temperature;
        bool note;
    } const cases[] = {
        {{true, ClimateMode::Cool, 26, u"auto"_s, false}, true, 26, false},
        {{true, ClimateMode::Cool, 19.5, u"auto"_s, false}, true, 20, true}, // half up
        {{true, ClimateMode::Cool, 30.4, u"1"_s, false}, true, 30, true},
        {{true, ClimateMode::Cool, 31, u"auto"_s, false}, false, 0, false},
        {{true, ClimateMode::Cool, NAN, u"auto"_s, false}, false, 0, false},
        {{true, ClimateMode::Dry, 99, u"auto"_s, false}, true, 99, true}, // ignored, kept
        {{true, ClimateMode::Heat, 26, u"auto"_s, false}, false, 0, false},
        {{true, ClimateMode::Cool, 26, u"5"_s, false}, false, 0, false},
        {{true, ClimateMode::Cool, 26, u"auto"_s, true}, false, 0, false},
    };
    for (const Case& c : cases) {
        const ClimateFit fit = FitClimateState(caps, c.wanted);
        const std::string what = ClimateStateText(c.wanted).toStdString();
        ASSERT_EQ(fit.state.has_value(), c.fits) << what;
        EXPECT_EQ(fit.why.isEmpty(), c.fits) << what;
        if (c.fits) {
            EXPECT_EQ(fit.state->temperature, c.temperature) << what;
            EXPECT_EQ(!fit.note.isEmpty(), c.note) << what;
        }
    }
}

} // namespace
