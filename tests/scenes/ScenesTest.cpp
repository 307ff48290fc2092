#include "scenes/Scenes.h"

#include "climate/ClimateUnits.h"
#include "infrared/DataTable.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// A remote テレビ (1) whose 電源 and 入力 are learned and 音量 is not, on the simulator.
struct Home {
    Home() {
        t.settings.WriteIni(u"Tira", u"Device", u"sim");
        device.factory = [this](const QString&) {
            return std::make_unique<SimDriver>(t.path(u"sim-transmit.log"));
        };
        t.writeRemote(1, u"テレビ"_s, 1, {u"電源"_s, u"入力"_s, u"音量"_s});
        for (int k = 0; k < 2; ++k)
            WriteSignalFile(SignalFilePath(t.folder, u"テレビ", k ? u"入力" : u"電源"),
                            SimDriver::NecSignal(0x10, uint8_t(k)));
        QFile::remove(SignalFilePath(t.folder, u"テレビ", u"音量"));
    }
    static Scene scene(const QByteArray& json) {
        QString why;
        auto s = SceneFromJson(QJsonDocument::fromJson(json).object(), &why);
        EXPECT_TRUE(s) << why.toStdString();
        return s.value_or(Scene{});
    }
    // Which key each send was (0 電源, 1 入力), in the order they went out.
    QString sent() const {
        QString keys;
        for (const QByteArray& line : t.readFile(u"sim-transmit.log").split('\n'))
            for (int k = 0; k < 2; ++k)
                if (!line.isEmpty() &&
                    line.endsWith(SimDriver::NecSignal(0x10, uint8_t(k)).toHex(' ').toUpper()))
                    keys += QString::number(k);
        return keys;
    }

    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
    ClimateUnits climates{t.folder, t.settings, device};
};

} // namespace

TEST(Scenes, AHandWrittenFileIsReadAndWhatIsMadeKeptAcrossRestarts) {
    Home h;
    h.t.writeFile(u"scenes.json",
                  "\xEF\xBB\xBF{ \"scenes\": [ { \"steps\": [ {\"ms\": 1500, "
                  "\"type\": \"wait\"}, {\"type\":\"key\",\"key\":1,\"remote\":1} ],"
                  " \"id\": 7, \"name\": \"映画を見る\" } ] }\r\n");
    {
        Scenes scenes(h.t.folder, h.t.settings, h.device, h.climates);
        ASSERT_EQ(scenes.scenes().size(), 1u);
        const Scene film = scenes.scenes()[0];
        EXPECT_EQ(film.id, 7);
        EXPECT_EQ(film.steps[0].waitMs, 1500);
        EXPECT_EQ(film.steps[1].repeat, 1);
        EXPECT_EQ(scenes.sceneNamed(u" 映画を見る "_s)->id, 7);
        EXPECT_EQ(scenes.create(Home::scene(R"({"name":"おやすみ","steps":[
            {"type":"key","remote":1,"key":0,"repeat":2}]})")),
                  1);
    }
    Scenes again(h.t.folder, h.t.settings, h.device, h.climates);
    ASSERT_EQ(again.scenes().size(), 2u);
    EXPECT_EQ(again.scene(1)->steps[0].repeat, 2);
    EXPECT_TRUE(again.remove(7));
    EXPECT_FALSE(Scenes(h.t.folder, h.t.settings, h.device, h.climates).scene(7));
}

TEST(Scenes, AFileThatCannotBeReadIsNeverOverwritten) {
    Home h;
    const QByteArray broken =
        R"({"scenes":[{"id":1,"name":"a","steps":[{"type":"wait","ms":5}]}]})";
    h.t.writeFile(u"scenes.json", broken);
    Scenes scenes(h.t.folder, h.t.settings, h.device, h.climates);
    EXPECT_TRUE(scenes.readOnly());
    QString why;
    EXPECT_FALSE(
        scenes.create(Home::scene(R"({"name":"b","steps":[{"type":"wait","ms":100}]})"), &why));
    EXPECT_TRUE(why.contains(u"scenes.json"));
    EXPECT_EQ(h.t.readFile(u"scenes.json"), broken);
}

TEST(Scenes, RefusalsNameTheField) {
    Home h;
    Scenes scenes(h.t.folder, h.t.settings, h.device, h.climates);
    ASSERT_TRUE(scenes.create(Home::scene(R"({"name":"朝","steps":[{"type":"wait","ms":100}]})")));
    const QList<QStringList> cases = DataTable(u"scenes/refusals.tsv"_s);
    ASSERT_EQ(cases.size(), 15);
    for (const QStringList& c : cases) {
        SCOPED_TRACE(c[0].toStdString());
        QString why;
        auto s = SceneFromJson(QJsonDocument::fromJson(c[0].toUtf8()).object(), &why);
        if (s) {
            EXPECT_FALSE(scenes.create(*s, &why));
        }
        EXPECT_TRUE(why.contains(c[1])) << why.toStdString();
    }
    EXPECT_EQ(scenes.scenes().size(), 1u);
}

TEST(Scenes, RunsQueueInOrderAndAFailedStepStopsItsRun) {
    Home h;
    Scenes scenes(h.t.folder, h.t.settings, h.device, h.climates);
    const auto film = scenes.create(Home::scene(R"({"name":"映画","steps":[
        {"type":"key","remote":1,"key":0},{"type":"wait","ms":100},{"type":"key","remote":1,"key":1}]})"));
    const auto broken = scenes.create(Home::scene(R"({"name":"音","steps":[
        {"type":"key","remote":1,"key":1},{"type":"key","remote":1,"key":2},{"type":"key","remote":1,"key":0}]})"));
    ASSERT_TRUE(film && broken);
    std::vector<SceneOutcome> ended;
    for (int id : {*film, *broken, *film})
        scenes.run(
            id, [&](const SceneOutcome& o) { ended.push_back(o); }, u"test"_s);
    EXPECT_EQ(scenes.pending(), 3);
    ASSERT_TRUE(WaitUntil([&] { return ended.size() == 3; }, 5000));
    EXPECT_TRUE(ended[0].done);
    EXPECT_FALSE(ended[1].done);
    EXPECT_EQ(ended[1].step, 2);
    EXPECT_EQ(ended[1].why.toStdString(),
              "手順 2（テレビ 音量）: このキーはまだ学習されていません。");
    EXPECT_TRUE(ended[2].done);
    // Runs 01, 1 and 01: the second stopped at its second step, its third key never sent.
    EXPECT_EQ(h.sent(), u"01101"_s);
}
