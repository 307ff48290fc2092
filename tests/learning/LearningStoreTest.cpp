#include "learning/LearningStore.h"
#include "core/Settings.h"
#include "remotes/Registry.h"
#include "support/FullDisk.h"
#include "support/TempFolder.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Store {
    Store() { t.folder.CreateDataFolders(); }
    SignalImage image(uint8_t first) {
        SignalImage i{};
        i[0] = first;
        return i;
    }
    void learn(const QString& function, int button, uint8_t first = 1) {
        QString error;
        ASSERT_GT(session.Add(image(first), function, button, &error), 0) << error.toStdString();
    }
    bool signalFile(const QString& name) { return QFile::exists(t.path(u"IRSignals/"_s + name)); }
    QString key(int slot, const QString& key) {
        return t.settings.ReadIni(RemoteSection(slot), key);
    }
    QStringList keys(int slot, const QStringList& names) {
        QStringList values;
        for (const QString& name : names)
            values << key(slot, name);
        return values;
    }

    TempFolder t;
    LearningSession session{t.folder};
};

} // namespace

// A new remote takes the first free slot; later signals and functions win; removed lines go.
TEST(LearningStore, NewRemoteTakesFreeSlotAndLaterSignalsWin) {
    Store s;
    s.t.writeRemote(1, u"TV"_s, 2, {u"電源"_s});
    s.t.writeRemote(3, u"BD"_s, 2, {u"再生"_s});
    s.learn(u"電源"_s, 0, 1);
    s.learn(u"電源"_s, 1, 2); // same name on another button
    s.learn(u"音量+"_s, 2, 3);
    s.learn(u"音量-"_s, 2, 4); // same button: the later key wins
    s.learn(u"消す"_s, 3, 5);
    s.session.Remove(5);

    StoreLearnedRemote(s.t.folder, s.t.settings, FindRemoteSlot(s.t.settings, u"エアコン"_s),
                       u"エアコン"_s, 2, s.session);

    EXPECT_EQ(s.keys(2, {u"Device"_s, u"Button-0"_s, u"Button-1"_s, u"Button-2"_s, u"Button-3"_s}),
              (QStringList{u"エアコン"_s, u"電源"_s, u"電源"_s, u"音量-"_s, QString()}));
    const QByteArray power = s.t.readFile(u"IRSignals/エアコン-電源.bin");
    EXPECT_EQ(power.size(), SignalFileSize);
    EXPECT_EQ(uint8_t(power.at(0)), 2);
    EXPECT_TRUE(s.signalFile(u"エアコン-音量+.bin"_s));
    EXPECT_FALSE(s.signalFile(u"エアコン-消す.bin"_s));
    EXPECT_TRUE(QFile::exists(s.t.path(u"5.tmp")));

    LearningSession::RemoveTempFiles(s.t.folder);
    EXPECT_TRUE(QDir(s.t.root()).entryList({u"*.tmp"_s}).isEmpty());
    EXPECT_TRUE(QFile::exists(s.t.folder.settingsPath()));
}

// Overwriting removes all old signals and keys; a device named "<name>-..." keeps its files.
TEST(LearningStore, OverwriteClearsOldRemoteButSparesOtherDevices) {
    Store s;
    s.t.writeRemote(1, u"TV"_s, 2, {u"電源"_s, u"入力"_s, u"音量+"_s});
    s.t.writeRemote(2, u"TV-2"_s, 2, {u"電源"_s});
    s.t.writeFile(u"IRSignals/TV-古い.bin", "x"); // left from an earlier rename
    s.learn(u"ch1"_s, 5);

    StoreLearnedRemote(s.t.folder, s.t.settings, FindRemoteSlot(s.t.settings, u"TV"_s), u"TV"_s, 4,
                       s.session);

    EXPECT_EQ(s.keys(1, {u"Design"_s, u"Button-0"_s, u"Button-5"_s}),
              (QStringList{u"4"_s, QString(), u"ch1"_s}));
    EXPECT_EQ(QDir(s.t.path(u"IRSignals")).entryList(QDir::Files, QDir::Name),
              (QStringList{u"TV-2-電源.bin"_s, u"TV-ch1.bin"_s}));
    EXPECT_EQ(s.key(2, u"Button-0"_s), u"電源"_s);
}

// A disk too full for the signal files or setting.ini stores nothing: the remote stays whole.
TEST(LearningStore, AFullDiskStoresNothingOfTheFinish) {
    const struct {
        bool wizard;
        rlim_t disk;   // no file grows past it
        bool largeIni; // setting.ini past a signal file's size
    } cases[] = {{false, SignalFileSize - 500, false}, {true, SignalFileSize, true}};
    for (const auto& c : cases) {
        Store s;
        s.t.writeRemote(1, u"TV"_s, 2, {u"電源"_s});
        if (c.largeIni)
            for (auto key : {u"A", u"B", u"C"})
                s.t.settings.WriteIni(u"Pad", key, QString(1000, u'x'));
        s.learn(u"入力"_s, 1);
        s.learn(u"音量"_s, 2);
        bool stored = true;
        {
            FullDisk full(c.disk);
            ASSERT_TRUE(full.ok());
            stored = c.wizard ? StoreLearnedRemote(s.t.folder, s.t.settings,
                                                   FindRemoteSlot(s.t.settings, u"TV"_s), u"TV"_s,
                                                   4, s.session)
                              : StoreRemoteEdit(s.t.folder, s.t.settings, 1, u"TV"_s,
                                                {{u"電源"_s, 0}}, s.session);
        }
        EXPECT_FALSE(stored);
        EXPECT_EQ(s.keys(1, {u"Design"_s, u"Button-0"_s, u"Button-1"_s, u"Button-2"_s}),
                  (QStringList{u"2"_s, u"電源"_s, QString(), QString()}))
            << c.wizard;
        EXPECT_EQ(QDir(s.t.path(u"IRSignals")).entryList(QDir::Files),
                  QStringList{u"TV-電源.bin"_s})
            << c.wizard;
    }
}

// With 1000 slots taken only the same name finds one; the 101st signal is refused, not overrun.
TEST(LearningStore, FullRegistryAndFullSession) {
    Store s;
    QByteArray ini;
    for (int i = 1; i <= 1000; ++i)
        ini += "[Remote-" + QByteArray::number(i) + "]\r\nDevice=D" + QByteArray::number(i) +
               "\r\nDesign=2\r\n";
    s.t.writeFile(u"setting.ini", ini);
    EXPECT_EQ(FindRemoteSlot(s.t.settings, u"new"_s).slot(), 0);
    EXPECT_EQ(FindRemoteSlot(s.t.settings, u"D1000"_s).slot(), 1000);

    for (int n = 1; n <= MaxSessionSignals; ++n)
        s.learn(u"f"_s + QString::number(n), 0);
    EXPECT_TRUE(s.session.full());
    QString error;
    EXPECT_EQ(s.session.Add(s.image(1), u"more"_s, 0, &error), 0);
    EXPECT_FALSE(QFile::exists(s.t.path(u"101.tmp")));
}

// A decoded capture is stored with exact timings; kept raw, it only takes the carrier.
TEST(LearningStore, DecodedCapturesAreStoredClean) {
    IrCode nec;
    nec.protocol = IrProtocol::Nec;
    nec.scancode = 0x0408;
    const IrTiming exact = *EncodeSignal(nec);
    IrTiming jittered = exact;
    for (size_t i = 0; i < jittered.durations.size(); ++i)
        jittered.durations[i] = jittered.durations[i] * (i % 2 ? 112 : 90) / 100;
    jittered.carrierHz = 0;
    const QByteArray captured = BlobFromTiming(jittered)->encode();
    auto capture = [&](SignalImage& image) {
        image.fill(0);
        std::copy(captured.begin(), captured.end(), image.begin());
        return int(captured.size());
    };

    SignalImage image;
    int length = capture(image);
    EXPECT_EQ(CodeDisplay(TidyCapture(image, length, true)), u"NEC 0x0408"_s);
    const auto clean = IrBlob::decode(QByteArrayView(image.data(), length));
    ASSERT_TRUE(clean);
    EXPECT_EQ(TimingFromBlob(*clean).durations, TimingFromBlob(*BlobFromTiming(exact)).durations);

    length = capture(image);
    TidyCapture(image, length, false);
    const auto kept = IrBlob::decode(QByteArrayView(image.data(), length));
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->sequence, IrBlob::decode(captured)->sequence);
    EXPECT_NEAR(TimingFromBlob(*kept).carrierHz, 38000, 10);
}
