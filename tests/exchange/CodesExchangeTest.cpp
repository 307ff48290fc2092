#include "exchange/CodesExchange.h"
#include "core/Settings.h"
#include "infrared/IrProtocol.h"
#include "infrared/SignalStore.h"
#include "support/FullDisk.h"
#include "support/TempFolder.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// library.ir: a Flipper library with a name no file can hold and a name twice.
const QString Data = QStringLiteral(KESTRAVA_TEST_DATA "/exchange/");

IrCode CodeOf(TempFolder& t, const QString& device, const QString& function) {
    QByteArray blob;
    QString why;
    if (ReadCheckedSignal(SignalFilePath(t.folder, device, function), &blob, &why) !=
        SignalRead::Ok)
        return {};
    return DecodeSignal(TimingFromBlob(*IrBlob::decode(blob)));
}

} // namespace

// Refusals said per key; a second import extends the remote; an export reads back the same.
TEST(CodesExchange, ImportExtendsAndExportRoundTrips) {
    TempFolder t;
    const QString file = Data + u"library.ir"_s;
    CodesImportResult r = ImportCodes(t.folder, t.settings, {file, u"テレビ"_s, 0});
    ASSERT_EQ(r.remotes.size(), 1u) << r.error.toStdString();
    EXPECT_EQ(r.remotes[0].added, 3);
    EXPECT_EQ(r.remotes[0].design, 3); // the smallest that holds them
    ASSERT_EQ(r.refused.size(), 1) << r.refused.join(u'\n').toStdString();
    EXPECT_TRUE(r.refused[0].startsWith(u"Vol😀: 「😀」"_s));
    const int slot = r.remotes[0].slot;
    EXPECT_EQ(t.settings.ReadIni(u"Remote-%1"_s.arg(slot), u"Device"), u"テレビ"_s);
    EXPECT_EQ(t.settings.ReadIni(u"Remote-%1"_s.arg(slot), u"Button-0"), u"Power"_s);
    EXPECT_EQ(CodeSpec(CodeOf(t, u"テレビ"_s, u"Power"_s)), u"nec:0x0408"_s);

    r = ImportCodes(t.folder, t.settings, {Data + u"more.ir"_s, u"テレビ"_s, 6});
    ASSERT_TRUE(r.ok()) << r.error.toStdString();
    EXPECT_EQ(r.remotes[0].slot, slot);
    EXPECT_EQ(r.remotes[0].design, 3); // an existing remote keeps its design
    EXPECT_EQ(r.remotes[0].added, 1);
    EXPECT_EQ(r.remotes[0].replaced, 1);
    EXPECT_EQ(CodeSpec(CodeOf(t, u"テレビ"_s, u"Power-2"_s)), u"nec:0x040a"_s);
    EXPECT_EQ(CodeSpec(CodeOf(t, u"テレビ"_s, u"Power"_s)), u"nec:0x040b"_s);

    for (const QString& format : {u"flipper"_s, u"lircd"_s, u"pronto"_s}) {
        QStringList lines;
        ASSERT_TRUE(
            ExportCodes(t.folder, t.settings, t.path(u"out-"_s + format), format, {}, &lines))
            << lines.join(u'\n').toStdString();
        TempFolder other;
        const QString path = format == u"pronto"_s
                                 ? t.path(u"out-pronto/テレビ"_s)
                                 : t.path(u"out-%1/テレビ.%2"_s.arg(
                                       format, format == u"lircd"_s ? u"conf"_s : u"ir"_s));
        r = ImportCodes(other.folder, other.settings, {path, u"テレビ"_s, 0});
        ASSERT_TRUE(r.ok()) << format.toStdString() << ": " << r.error.toStdString()
                            << r.refused.join(u'\n').toStdString();
        EXPECT_EQ(r.remotes[0].added, 4) << format.toStdString();
        for (const QString& key : {u"Power"_s, u"Mute"_s})
            EXPECT_EQ(CodeSpec(CodeOf(other, u"テレビ"_s, key)),
                      CodeSpec(CodeOf(t, u"テレビ"_s, key)))
                << format.toStdString();
    }

    EXPECT_FALSE(ImportCodes(t.folder, t.settings, {t.path(u"none.ir"_s), {}, 0}).error.isEmpty());

    // A disk too full for setting.ini leaves no signal file that no key names.
    TempFolder full;
    for (auto key : {u"A", u"B", u"C"})
        full.settings.WriteIni(u"Pad", key, QString(1000, u'x')); // past one signal file's size
    {
        FullDisk disk(SignalFileSize); // a signal file still fits, setting.ini no longer does
        ASSERT_TRUE(disk.ok());
        r = ImportCodes(full.folder, full.settings, {file, u"テレビ"_s, 0});
    }
    EXPECT_FALSE(r.error.isEmpty());
    EXPECT_TRUE(r.remotes.empty());
    EXPECT_EQ(full.settings.ReadIni(u"Remote-1", u"Device"), QString());
    EXPECT_TRUE(QDir(full.path(u"IRSignals")).entryList(QDir::Files).isEmpty());
}

// Real Flipper-IRDB files: names mapped as convert maps them, repeats kept as NAME-2, overflow
// into "NAME (2)"; nothing is dropped.
TEST(CodesExchange, ImportKeepsEveryKeyOfRealFiles) {
    TempFolder t;
    const QString data = QStringLiteral(KESTRAVA_TEST_DATA "/flipper-irdb/");
    CodesImportResult r =
        ImportCodes(t.folder, t.settings, {data + u"jvc-mini-system.ir"_s, u"JVC"_s, 0});
    ASSERT_TRUE(r.ok()) << r.error.toStdString() << r.refused.join(u'\n').toStdString();
    EXPECT_EQ(r.remotes[0].added, 22);
    EXPECT_EQ(r.renamed, QStringList({u"WAKE_UP/SLEEP: stored as WAKE_UP_SLEEP"_s,
                                      u"INPUT:_FM/AM: stored as INPUT__FM_AM"_s,
                                      u"VOL+: stored as VOL+-2"_s, u"VOL-: stored as VOL--2"_s,
                                      u"INPUT:_MD/AUX: stored as INPUT__MD_AUX"_s}));
    EXPECT_EQ(CodeOf(t, u"JVC"_s, u"INPUT__FM_AM"_s).protocol,
              CodeOf(t, u"JVC"_s, u"VOL+-2"_s).protocol);
    EXPECT_EQ(QDir(t.path(u"IRSignals"_s)).entryList(QDir::Files).size(), 22);

    r = ImportCodes(t.folder, t.settings, {data + u"adcom-pre-amplifier.ir"_s, u"Adcom"_s, 0});
    ASSERT_TRUE(r.ok()) << r.error.toStdString() << r.refused.join(u'\n').toStdString();
    ASSERT_EQ(r.remotes.size(), 3u);
    EXPECT_EQ(r.remotes[1].device, u"Adcom (2)"_s);
    EXPECT_EQ(r.remotes[2].device, u"Adcom (3)"_s);
    EXPECT_EQ(r.remotes[0].added + r.remotes[1].added + r.remotes[2].added, 181);
    EXPECT_TRUE(r.renamed.contains(u"TUNER: stored as TUNER-2"_s));
    EXPECT_TRUE(r.renamed.contains(u"SKIP_>>: stored as SKIP___"_s));

    // A SmartIR air conditioner: named after the device, 151 keys over three remotes.
    r = ImportCodes(t.folder, t.settings,
                    {QStringLiteral(KESTRAVA_TEST_DATA "/smartir/climate-2301.json"), {}, 0});
    ASSERT_TRUE(r.ok()) << r.error.toStdString() << r.refused.join(u'\n').toStdString();
    ASSERT_EQ(r.remotes.size(), 3u);
    EXPECT_EQ(r.remotes[0].device, u"Zanussi ZACS_I-07 HPF_A17_N1"_s);
    EXPECT_EQ(r.remotes[0].added + r.remotes[1].added + r.remotes[2].added, 151);
    EXPECT_TRUE(QFile::exists(
        SignalFilePath(t.folder, u"Zanussi ZACS_I-07 HPF_A17_N1 (3)"_s, u"heat_turbo_30"_s)));
}
