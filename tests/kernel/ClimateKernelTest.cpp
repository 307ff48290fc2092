// A unit takes over the state its own remote (ir-ctl on rc-loopback) sent. Run by cases/*.sh.
#include "climate/ClimateUnits.h"
#include "core/Wait.h"
#include "infrared/Transceiver.h"
#include "kernel/Lane.h"
#include "remotes/IrListener.h"
#include "support/ClimateTable.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <gtest/gtest.h>

#include <algorithm>

using namespace Qt::StringLiterals;

TEST(ClimateKernel, HeardFrameUpdatesTheUnit) {
    TempFolder t;
    t.settings.WriteIni(u"Tira", u"Device", LircDevice);
    ScriptedPrompt prompt;
    Transceiver transceiver(t.folder, t.settings, prompt);
    ClimateUnits units(t.folder, t.settings, transceiver);
    // A unit of the family with the shortest frame, else one driven by a table.
    auto families = ClimateFamilies();
    std::sort(families.begin(), families.end(), [](const ClimateCaps& a, const ClimateCaps& b) {
        const auto length = [](const ClimateCaps& c) {
            const auto frame = EncodeClimate(c.family, {});
            return frame ? frame->durations.size() : size_t(-1);
        };
        return length(a) < length(b);
    });
    const auto id = families.empty() ? units.importSmartIr(u"寝室"_s, SmartIrFile())
                                     : units.create(u"寝室"_s, families.front().family, {});
    ASSERT_TRUE(id);
    ClimateState wanted = units.unit(*id)->state;
    wanted.power = true;
    wanted.fan = units.unit(*id)->caps.fans.value(families.empty() ? 1 : 0);
    wanted.temperature = units.unit(*id)->caps.minTemp;
    wanted.mode = ClimateMode::Cool;
    const auto frame = units.signalFor(*id, wanted);
    ASSERT_TRUE(frame);
    ASSERT_FALSE(units.unit(*id)->state == wanted);

    IrListener listener(t.folder, t.settings, transceiver);
    std::vector<size_t> heard;
    QObject::connect(&listener, &IrListener::frameHeard, [&](const IrTiming& timing) {
        heard.push_back(timing.durations.size());
        units.heard(timing);
    });
    listener.SetListening(true);
    ASSERT_TRUE(listener.listening());
    QFile text(t.path(u"frame.txt"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write(IrCtlText(frame->frame()).toUtf8() + '\n');
    text.close();
    QElapsedTimer clock;
    clock.start();
    QProcess irctl;
    irctl.start(u"ir-ctl"_s, {u"-d"_s, LircDevice, u"-c"_s, QString::number(frame->carrierHz),
                              u"-s"_s, text.fileName()});
    ASSERT_TRUE(irctl.waitForFinished(20000));
    ASSERT_EQ(irctl.exitCode(), 0) << irctl.readAllStandardError().toStdString();
    ASSERT_TRUE(WaitForSignal(&units, &ClimateUnits::stateChanged, 5000))
        << heard.size() << " frames heard, the first of " << (heard.empty() ? 0 : heard[0])
        << " durations; sent " << frame->frame().size();
    EXPECT_EQ(units.unit(*id)->state, wanted);
    Figures(u"%1 unit, %2 durations, state taken %3 ms after ir-ctl started"_s
                .arg(families.empty() ? u"table"_s : families.front().family)
                .arg(frame->frame().size())
                .arg(clock.elapsed()));
}
