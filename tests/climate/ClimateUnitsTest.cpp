#include "climate/ClimateUnits.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "support/ClimateTable.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

ClimateState On(ClimateMode mode, double t, const QString& fan) {
    return {true, mode, t, fan, false};
}

struct Units {
    explicit Units(bool withDevice = true) {
        if (withDevice)
            t.settings.WriteIni(u"Tira", u"Device", u"sim");
        device.factory = [this](const QString&) {
            return std::make_unique<SimDriver>(t.path(u"sim-transmit.log"));
        };
    }
    ClimateUnits::Outcome set(ClimateUnits& units, const QString& id, const ClimateState& s) {
        std::optional<ClimateUnits::Outcome> out;
        units.setState(id, s, [&](const ClimateUnits::Outcome& o) { out = o; });
        WaitUntil([&] { return out.has_value(); }, 5000);
        return out.value_or(ClimateUnits::Outcome{});
    }
    int sends() const { return int(t.readFile(u"sim-transmit.log").count('\n')); }

    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
};

} // namespace

TEST(ClimateUnits, TableUnitSendsOnlyWhatItsTableHoldsRemembersAndHearsTheRealRemote) {
    Units u;
    std::optional<QString> id;
    {
        ClimateUnits units(u.t.folder, u.t.settings, u.device);
        id = units.importSmartIr(u"寝室のエアコン"_s, SmartIrFile());
        ASSERT_TRUE(id);
        const ClimateUnit unit = *units.unit(*id);
        EXPECT_TRUE(unit.family.isEmpty());
        EXPECT_EQ(unit.caps.fans, (QStringList{u"low"_s, u"high"_s}));
        EXPECT_TRUE(unit.caps.hasMode(ClimateMode::Fan));
        EXPECT_FALSE(unit.caps.usesTemperature(ClimateMode::Fan));

        const auto sent = u.set(units, *id, On(ClimateMode::Cool, 25, u"low"_s));
        EXPECT_TRUE(sent.sent) << sent.message.toStdString();
        EXPECT_EQ(u.sends(), 1);
        // Refused before anything goes out, saying why: not in the table, out of range.
        for (const ClimateState& s :
             {On(ClimateMode::Cool, 25, u"high"_s), On(ClimateMode::Cool, 27, u"low"_s)}) {
            const auto refused = u.set(units, *id, s);
            EXPECT_FALSE(refused.sent);
            EXPECT_FALSE(refused.result);
            EXPECT_FALSE(refused.message.isEmpty());
            EXPECT_EQ(refused.state.temperature, 25);
        }
        EXPECT_TRUE(u.set(units, *id, On(ClimateMode::Fan, 25, u"low"_s)).sent);
        EXPECT_EQ(u.sends(), 2);
    }
    ClimateUnits again(u.t.folder, u.t.settings, u.device);
    ASSERT_EQ(again.units().size(), 1u);
    EXPECT_EQ(again.units()[0].name, u"寝室のエアコン"_s);
    EXPECT_EQ(again.units()[0].state, On(ClimateMode::Fan, 25, u"low"_s));

    // The real remote heard: the unit takes its state over without sending.
    QStringList told;
    QObject::connect(&again, &ClimateUnits::stateChanged,
                     [&](const QString& which, const ClimateState& s) {
                         told << which + u' ' + ClimateStateText(s);
                     });
    again.heard(TimingOf(RawCode(14))); // cool, high, 24
    EXPECT_EQ(again.unit(*id)->state, On(ClimateMode::Cool, 24, u"high"_s));
    again.heard(TimingOf(RawCode(8))); // off
    EXPECT_FALSE(again.unit(*id)->state.power);
    again.heard(TimingOf(RawCode(30))); // nobody's
    EXPECT_EQ(told.size(), 2);
    EXPECT_EQ(u.sends(), 2);
    EXPECT_TRUE(u.t.readFile(u"climate/ac1.json").contains("\"power\": false"));
    EXPECT_TRUE(again.remove(*id));
    EXPECT_TRUE(ClimateUnits(u.t.folder, u.t.settings, u.device).units().empty());
    EXPECT_FALSE(QFile::exists(u.t.path(u"climate/ac1.json")));
}

TEST(ClimateUnits, AFailedSendKeepsTheStateBelievedBefore) {
    Units u(false); // no transceiver set
    ClimateUnits units(u.t.folder, u.t.settings, u.device);
    const auto id = units.importSmartIr(u"居間"_s, SmartIrFile());
    ASSERT_TRUE(id);
    const ClimateState before = units.unit(*id)->state;
    const QByteArray file = u.t.readFile(u"climate/ac1.json");
    int changes = 0;
    QObject::connect(&units, &ClimateUnits::stateChanged, [&] { ++changes; });
    const auto failed = u.set(units, *id, On(ClimateMode::Cool, 24, u"high"_s));
    EXPECT_FALSE(failed.sent);
    EXPECT_EQ(failed.result, SendResult::NotOpened);
    EXPECT_EQ(units.unit(*id)->state, before);
    EXPECT_EQ(u.t.readFile(u"climate/ac1.json"), file);
    EXPECT_EQ(changes, 0);
}

TEST(ClimateUnits, FamilyUnitsAreMadeByNameOrFromAFrameAndAForeignFrameSaysSo) {
    Units u;
    ClimateUnits units(u.t.folder, u.t.settings, u.device);
    QString why;
    EXPECT_FALSE(units.create(u"a"_s, u"nosuchfamily"_s, {}, &why));
    EXPECT_FALSE(units.createFromSignal(u"a"_s, TimingOf(RawCode(32)), &why));
    EXPECT_TRUE(why.contains(u"SmartIR"_s));
    EXPECT_FALSE(units.importSmartIr(u"名前\u0001"_s, SmartIrFile(), &why));
    if (ClimateFamilies().empty())
        GTEST_SKIP() << "no air-conditioner family is built in";
    const ClimateCaps caps = ClimateFamilies().front();
    const ClimateMode mode =
        caps.hasMode(ClimateMode::Cool) ? ClimateMode::Cool : caps.modes.front();
    ClimateState wanted = On(mode, caps.maxTemp, caps.fans.front());
    const auto frame = EncodeClimate(caps.family, wanted);
    ASSERT_TRUE(frame);
    const auto learned = units.createFromSignal(u"learned"_s, *frame, &why);
    ASSERT_TRUE(learned) << why.toStdString();
    EXPECT_EQ(units.unit(*learned)->family, caps.family);
    EXPECT_EQ(units.unit(*learned)->state.temperature, caps.maxTemp);
    const auto made = units.create(u"made"_s, caps.family, {}, &why);
    ASSERT_TRUE(made);
    EXPECT_TRUE(u.set(units, *made, wanted).sent);
    units.heard(*EncodeClimate(caps.family, On(mode, caps.minTemp, caps.fans.front())));
    EXPECT_EQ(units.unit(*made)->state.temperature, caps.minTemp);
    EXPECT_EQ(units.unit(*learned)->state.temperature, caps.minTemp);
}
