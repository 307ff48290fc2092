#include "desktop/ClimateWindow.h"
#include "climate/ClimateUnits.h"
#include "infrared/Transceiver.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// Shows the chosen unit's state, sends its controls' state whole, follows other fronts.
TEST(ClimateWindow, SendsTheChosenStateAndFollowsOthers) {
    const auto families = ClimateFamilies();
    if (families.empty())
        GTEST_SKIP() << "no climate family built in";
    const ClimateCaps caps = families.front();
    TempFolder t;
    t.settings.WriteIni(u"Tira", u"Device", u"sim");
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
    ClimateUnits units{t.folder, t.settings, device};
    const ClimateState initial{false, caps.modes.front(), caps.minTemp, caps.fans.value(0), false};
    ASSERT_TRUE(units.create(u"居間"_s, caps.family, initial));
    const auto id = units.create(u"寝室"_s, caps.family, initial);
    ASSERT_TRUE(id);

    ClimateWindow w(units);
    ASSERT_EQ(w.list->count(), 2);
    w.list->setCurrentRow(1);
    EXPECT_FALSE(w.power->isChecked());
    EXPECT_EQ(w.temperature->value(), caps.minTemp);
    EXPECT_EQ(w.temperature->maximum(), caps.maxTemp);
    w.power->setChecked(true);
    w.temperature->setValue(caps.maxTemp);
    QTest::mouseClick(w.send, Qt::LeftButton);
    ASSERT_TRUE(WaitUntil([&] { return w.send->isEnabled(); }));
    EXPECT_EQ(t.readFile(u"sim-transmit.log").trimmed().split('\n').size(), 1);
    EXPECT_TRUE(units.unit(*id)->state.power);
    EXPECT_EQ(units.unit(*id)->state.temperature, caps.maxTemp);
    EXPECT_TRUE(w.message->text().contains(u"送信しました"_s)) << w.message->text().toStdString();

    ClimateState off = units.unit(*id)->state;
    off.power = false;
    bool done = false;
    units.setState(*id, off, [&](const ClimateUnits::Outcome&) { done = true; });
    ASSERT_TRUE(WaitUntil([&] { return done; }));
    EXPECT_FALSE(w.power->isChecked());
}
