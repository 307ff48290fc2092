#include "infrared/formats/IrFormats.h"
#include "infrared/DataTable.h"
#include "support/TempFolder.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <gtest/gtest.h>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// An NEC frame (address 0x04, command 0x08) and its repeat code.
IrTiming necWithRepeat() {
    IrTiming t;
    t.carrierHz = 38000;
    t.durations = {9000, 4500};
    for (uint8_t byte : {0x04, 0xFB, 0x08, 0xF7})
        for (int i = 0; i < 8; ++i) {
            t.durations.push_back(560);
            t.durations.push_back((byte >> i) & 1 ? 1690 : 560);
        }
    t.durations.insert(t.durations.end(), {560, 40000});
    t.repeatBegin = int(t.durations.size());
    t.durations.insert(t.durations.end(), {9000, 2250, 560, 96000});
    return t;
}

IrCodeRead readText(const char* text, const QString& name = u"sample"_s) {
    return ReadIrCodes(QByteArray(text), name);
}

// Every duration within one carrier period, or 1 % without a carrier.
void expectClose(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b, int carrierHz) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        const double slack = carrierHz > 0 ? 1e6 / carrierHz : 0.01 * a[i];
        EXPECT_LE(std::abs(double(a[i]) - b[i]), slack)
            << " duration " << i << ": " << a[i] << " vs " << b[i];
    }
}

} // namespace

// Each format round trip keeps durations, carrier, repeat start where it can, and the code.
TEST(IrFormats, EveryFormatRoundTrips) {
    const NamedSignal nec{u"Power"_s, {}, necWithRepeat(), {}};
    const NamedSignal odd{
        u"Odd"_s, {}, {{3000, 1000, 500, 1500, 500, 700, 500, 20000}, 40000, -1}, {}};
    // Flipper, Tasmota and lircd write a decodable key by its code.
    struct Case {
        IrFormat format;
        bool keepsRepeat;
        bool keepsGap;
        const char* asCode = nullptr;
    };
    for (const Case& c :
         {Case{IrFormat::IrCtl, true, true}, Case{IrFormat::Pronto, true, true},
          Case{IrFormat::Broadlink, false, true}, Case{IrFormat::Json, false, true},
          Case{IrFormat::Bin, true, true},
          Case{IrFormat::Flipper, false, false,
               "protocol: NEC\naddress: 04 00 00 00\ncommand: 08 00 00 00\n"},
          Case{IrFormat::Lircd, false, false, "    Power                    0x20df10ef\n"},
          Case{IrFormat::GlobalCache, true, true}, Case{IrFormat::RawList, false, true},
          Case{IrFormat::Tasmota, false, true, R"("Data":"0x20DF10EF")"}})
        for (const NamedSignal& sent : {nec, odd}) {
            SCOPED_TRACE((IrFormatName(c.format) + u" "_s + sent.name).toStdString());
            QString error;
            const QByteArray bytes = WriteIrCodes(c.format, {sent}, &error);
            ASSERT_FALSE(bytes.isEmpty()) << ": " << error.toStdString();
            EXPECT_EQ(DetectIrFormat(bytes), c.format);
            const IrCodeRead back = ReadIrCodes(bytes, u"out."_s + IrFormatExtension(c.format));
            ASSERT_TRUE(back.ok()) << back.error.toStdString();
            ASSERT_EQ(back.codes.size(), 1u);
            const IrTiming& t = back.codes[0].timing;
            const IrCode before = DecodeSignal(sent.timing), after = DecodeSignal(t);
            EXPECT_EQ(CodeSpec(after), CodeSpec(before));
            if (c.format != IrFormat::Broadlink && c.format != IrFormat::RawList) {
                // Pronto has the carrier to a few tenths of a percent.
                EXPECT_NEAR(t.carrierHz, sent.timing.carrierHz, sent.timing.carrierHz / 200);
            }
            if (c.asCode && before.decoded()) {
                EXPECT_TRUE(bytes.contains(c.asCode)) << bytes.constData();
                EXPECT_EQ(back.codes[0].code.scancode, 0x0408u);
                continue;
            }
            std::vector<uint32_t> expected = sent.timing.durations, got = t.durations;
            if (!c.keepsGap) { // the first frame; Flipper's ends without its pause
                expected = sent.timing.frame();
                got = t.frame();
            }
            expectClose(expected, got, sent.timing.carrierHz);
            if (c.keepsRepeat) {
                EXPECT_EQ(t.repeatBegin, sent.timing.repeatBegin);
            }
        }
    // Many signals go only into the formats that hold many.
    QString error;
    EXPECT_TRUE(WriteIrCodes(IrFormat::Pronto, {nec, odd}, &error).isEmpty());
    EXPECT_TRUE(error.contains(u"directory"_s)) << error.toStdString();
}

// Samples in the forms people share them, read with their published units.
TEST(IrFormats, ReadsSamplesInTheirUnits) {
    const QList<QStringList> rows = DataTable(u"published/units.tsv"_s);
    ASSERT_EQ(rows.size(), 5);
    for (const QStringList& row : rows) {
        SCOPED_TRACE(row[0].toStdString());
        const IrCodeRead r = ReadIrCodes(row[0].toUtf8(), u"sample"_s);
        ASSERT_TRUE(r.ok()) << r.error.toStdString();
        const IrTiming& t = r.codes.at(0).timing;
        const QString got =
            u"%1 %2 "_s.arg(t.carrierHz).arg(t.repeatBegin) + IrCtlText(t.durations);
        EXPECT_EQ(got.toStdString(), row[1].toStdString());
    }
    // Flipper: raw entries kept, an unknown one refused by name and line.
    const IrCodeRead r =
        readText("Filetype: IR signals file\nVersion: 1\n#\nname: Power\ntype: raw\n"
                 "frequency: 38000\nduty_cycle: 0.330000\ndata: 9000 4500 560 560 560\n"
                 "#\nname: Odd\ntype: parsed\nprotocol: Foo\naddress: 00 00 00 00\n"
                 "command: 01 00 00 00\n",
                 u"tv.ir"_s);
    ASSERT_TRUE(r.ok()) << r.error.toStdString();
    ASSERT_EQ(r.codes.size(), 1u);
    EXPECT_EQ(r.codes[0].name, u"Power"_s);
    ASSERT_EQ(r.refused.size(), 1);
    EXPECT_TRUE(r.refused[0].startsWith(u"tv.ir:12: Odd: "_s)) << r.refused[0].toStdString();
}

// Codes as other programs publish them (tests/data/published/codes.tsv, with sources).
TEST(IrFormats, ReadsCodesOtherProgramsWrote) {
    const QList<QStringList> rows = DataTable(u"published/codes.tsv"_s);
    ASSERT_EQ(rows.size(), 17);
    for (const QStringList& row : rows) {
        SCOPED_TRACE(row[0].toStdString());
        const IrCodeRead r = ReadIrCodes(row[0].toUtf8(), u"sample"_s);
        ASSERT_TRUE(r.ok()) << r.error.toStdString();
        const IrTiming& t = r.codes.at(0).timing;
        const IrCode decoded = DecodeSignal(t);
        EXPECT_EQ(t.carrierHz, row[2].toInt());
        if (row[1].startsWith(u"raw "_s)) {
            EXPECT_FALSE(decoded.decoded());
            EXPECT_EQ(u"raw %1 %2"_s.arg(t.durations.size()).arg(t.durations.front()), row[1]);
            continue;
        }
        const IrCode want = *ParseCodeSpec(row[1]);
        EXPECT_EQ(CodeSpec(decoded), CodeSpec(want));
        if (r.codes[0].code.decoded()) { // a short form names its code
            EXPECT_EQ(r.codes[0].code.scancode, want.scancode);
        }
        // Written out as a learned code, it reads back the same.
        QString error;
        const QByteArray learned = WritePronto(r.codes[0], &error);
        EXPECT_TRUE(learned.startsWith("0000 "));
        EXPECT_EQ(DecodeSignal(readText(learned.constData()).codes.at(0).timing).scancode,
                  want.scancode);
    }
}

// Tasmota's "Data" is the frame's bits as sent, for every protocol it shares with us.
TEST(IrFormats, TasmotaSpeaksEachProtocolItShares) {
    const QList<QStringList> rows = DataTable(u"published/tasmota.tsv"_s);
    ASSERT_EQ(rows.size(), 14);
    for (const QStringList& row : rows) {
        SCOPED_TRACE(row.join(u' ').toStdString());
        IrCode code = *ParseCodeSpec(row[0]);
        code.toggle = row[1] == u"toggle";
        NamedSignal sent{u"k"_s, {}, *EncodeSignal(code), code};
        QString error;
        const QByteArray bytes = WriteTasmota(sent, &error);
        EXPECT_TRUE(bytes.contains(row[2].toUtf8())) << bytes.constData();
        const auto back = ReadTasmota(bytes, u"t"_s, &error);
        ASSERT_TRUE(back) << error.toStdString();
        EXPECT_EQ(back->code, code) << CodeSpec(back->code).toStdString();
        EXPECT_EQ(CodeSpec(DecodeSignal(back->timing)), CodeSpec(code));
    }
}

// SmartIR device files: one remote each, keys named by path, non-codes refused by name.
TEST(IrFormats, SmartIrDeviceFilesAreOneRemote) {
    const QList<QStringList> cases = DataTable(u"smartir/files.tsv"_s);
    ASSERT_EQ(cases.size(), 4);
    for (const QStringList& c : cases) {
        SCOPED_TRACE(c[0].toStdString());
        const IrCodeRead r = ReadIrCodePath(QStringLiteral(KESTRAVA_TEST_DATA "/smartir/") + c[0]);
        ASSERT_TRUE(r.ok()) << r.error.toStdString();
        EXPECT_EQ(r.format, IrFormat::SmartIr);
        EXPECT_TRUE(r.refused.isEmpty()) << r.refused.join(u'\n').toStdString();
        ASSERT_EQ(r.codes.size(), c[2].toUInt());
        const auto key = std::find_if(r.codes.begin(), r.codes.end(),
                                      [&](const NamedSignal& s) { return s.name == c[3]; });
        ASSERT_NE(key, r.codes.end());
        EXPECT_EQ(key->group, c[1]);
        EXPECT_EQ(ProtocolName(DecodeSignal(key->timing).protocol), c[4]);
    }
    const IrCodeRead odd = readText(
        R"({"supportedController":"Broadlink","commandsEncoding":"Base64","commands":{
           "off":"JgAcAB0dOjo6HR0dHR0dHR0dHR0dHR0dHTodAAtnDQUAAAAAAAAAAAAAAAA==",
           "_comment":"a remark", "on":null, "cool":{"20":"!!"}}})");
    EXPECT_EQ(odd.codes.size(), 1u);
    EXPECT_EQ(odd.refused.size(), 2) << odd.refused.join(u'\n').toStdString();
}

// irdb rows: keys of one remote named by folders; unsendable protocols refused by row.
TEST(IrFormats, IrdbCsvRowsAreKeysOfOneRemote) {
    const QString data = QStringLiteral(KESTRAVA_TEST_DATA "/irdb/");
    IrCodeRead r = ReadIrCodePath(data + u"codes/Sony/TV/1,-1.csv"_s);
    ASSERT_TRUE(r.ok()) << r.error.toStdString();
    EXPECT_EQ(r.format, IrFormat::IrdbCsv);
    ASSERT_EQ(r.codes.size(), 8u);
    EXPECT_EQ(r.codes[0].group, u"Sony TV"_s);
    EXPECT_EQ(CodeSpec(DecodeSignal(r.codes[2].timing)), u"sony12:0x010002"_s);

    r = ReadIrCodePath(data + u"mixed.csv"_s);
    ASSERT_TRUE(r.ok()) << r.error.toStdString();
    QStringList keys;
    for (size_t i = 0; i < 7 && i < r.codes.size(); ++i)
        keys << r.codes[i].name + u'=' + ProtocolName(DecodeSignal(r.codes[i].timing).protocol);
    EXPECT_EQ(
        keys.join(u','),
        u"UP=nec,KEY_POWER=rc5,MUTE=rc6_0,=jvc,SKIP=samsung32,KEY_0=rc6_mce,VOLUME +=sharp"_s);
    EXPECT_TRUE(r.codes.back().name == u"SP-A, FRONT"_s ||
                r.refused.join(u'\n').contains(u"SP-A, FRONT: "_s));
    EXPECT_TRUE(r.refused.join(u'\n').contains(u"mixed.csv:10: TV/RADIO: the protocol 'XMP-1'"_s))
        << r.refused.join(u'\n').toStdString();

    QString error;
    const QByteArray written = WriteIrCodes(IrFormat::IrdbCsv, r.codes, &error);
    const IrCodeRead back = ReadIrCodes(written, u"again.csv"_s);
    ASSERT_EQ(back.codes.size(), r.codes.size()) << error.toStdString() << written.constData();
    for (size_t i = 0; i < r.codes.size(); ++i)
        EXPECT_EQ(back.codes[i].code, r.codes[i].code) << written.constData();
}

// Flipper's protocols come in as the kernel's protocol and scancode, and go out the same.
TEST(IrFormats, FlipperProtocolsAsTheKernelNamesThem) {
    const QList<QStringList> rows = DataTable(u"published/flipper-protocols.tsv"_s);
    ASSERT_EQ(rows.size(), 14);
    for (const QStringList& row : rows) {
        SCOPED_TRACE(row.join(u' ').toStdString());
        const QByteArray parsed = ("protocol: "_L1 + row[0] + "\naddress: "_L1 + row[1] +
                                   "\ncommand: "_L1 + row[2] + u'\n')
                                      .toLatin1();
        const IrCodeRead r = ReadIrCodes(
            "Filetype: IR library file\nVersion: 1\n#\nname: k\ntype: parsed\n" + parsed,
            u"lib.ir"_s);
        ASSERT_EQ(r.codes.size(), 1u) << r.refused.join(u' ').toStdString();
        const NamedSignal& k = r.codes[0];
        const QString want = CodeSpec(*ParseCodeSpec(row[4]));
        EXPECT_EQ(CodeSpec(DecodeSignal(k.timing)), want);
        QString error;
        const QByteArray out = WriteIrCodes(IrFormat::Flipper, r.codes, &error);
        if (row[3] == u"raw") {
            EXPECT_FALSE(k.code.decoded());
        } else {
            EXPECT_EQ(CodeSpec(k.code), want);
            EXPECT_TRUE(out.contains(parsed)) << out.constData();
        }
    }
    const IrCodeRead rca = ReadIrCodes(
        "Filetype: IR signals file\nVersion: 1\n#\nname: k\ntype: raw\nfrequency: 38000\n"
        "data: 9000 4500 560\n#\nname: RCA\ntype: parsed\nprotocol: RCA\n"
        "address: 0F 00 00 00\ncommand: 54 00 00 00\n",
        u"x.ir"_s);
    EXPECT_EQ(rca.codes.at(1).timing.carrierHz, 56000); // not the raw entry's before it
}

// lircd.conf: described keys become timings, raw ones keep theirs, no timings is refused.
TEST(IrFormats, LircdRemotesBecomeTimings) {
    const IrCodeRead r =
        ReadIrCodePath(QStringLiteral(KESTRAVA_TEST_DATA "/lircd/tv-amp-usb.conf"));
    ASSERT_TRUE(r.ok()) << r.error.toStdString();
    ASSERT_EQ(r.codes.size(), 3u);
    const IrTiming& power = r.codes[0].timing;
    EXPECT_EQ(r.codes[0].group + u'/' + r.codes[0].name, u"tv/KEY_POWER"_s);
    ASSERT_EQ(power.repeatBegin, 68);
    EXPECT_EQ(CodeSpec(DecodeSignal(power)), u"nec:0x0408"_s); // 0x20DF10EF, MSB first
    uint64_t frame = 0;
    for (int i = 0; i < 68; ++i)
        frame += power.durations[i];
    EXPECT_EQ(frame, 108000u); // CONST_LENGTH: the gap is the whole frame
    EXPECT_EQ(std::vector<uint32_t>(power.durations.begin() + 68, power.durations.end()),
              (std::vector<uint32_t>{9000, 2250, 560, 108000 - 9000 - 2250 - 560}));
    EXPECT_EQ(r.codes[2].timing.durations,
              (std::vector<uint32_t>{2400, 600, 1200, 600, 600, 50000}));
    ASSERT_EQ(r.refused.size(), 1);
    EXPECT_TRUE(r.refused[0].contains(u"tv-amp-usb.conf:32: remote usb (1 keys): no timings"_s))
        << r.refused[0].toStdString();
}

// Hostile files (tests/data/hostile/ir-codes.tsv, big ones built): a clear error, fast.
TEST(IrFormats, HostileInputIsRefusedClearly) {
    QByteArray million = "carrier 38000\n";
    for (int i = 0; i < 500000; ++i)
        million += "+560 -560\n";
    QByteArray fifty(50 * 1024 * 1024, ' ');
    fifty.prepend("begin remote\n");
    QByteArray manyKeys = "begin remote\n name x\n bits 8\n one 1 1\n zero 1 1\n gap 1\n"
                          " begin codes\n";
    for (int i = 0; i < MaxCodesPerFile + 5; ++i)
        manyKeys += "  K 0x1\n";
    QByteArray deepJson = QByteArray(100000, '[') + QByteArray(100000, ']');
    deepJson.prepend("{\"timings\": ");
    std::vector<std::pair<QByteArray, QString>> cases{
        {million, u"f:2050: more than 4096 durations"_s},
        {deepJson, u"f:1: "_s},
        {fifty, u"f: 52428813 bytes, more than the 16 MB"_s},
        {manyKeys, u"f:20008: more than 20000 keys"_s}};
    for (const QStringList& row : DataTable(u"hostile/ir-codes.tsv"_s))
        cases.push_back({row[0].toUtf8(), row[1]});
    ASSERT_EQ(cases.size(), 36u);
    for (const auto& [bytes, error] : cases) {
        SCOPED_TRACE(error.toStdString());
        QElapsedTimer clock;
        clock.start();
        const IrCodeRead r = ReadIrCodes(bytes, u"f"_s);
        EXPECT_FALSE(r.ok());
        EXPECT_TRUE(r.codes.empty());
        EXPECT_TRUE(r.error.startsWith(error)) << r.error.toStdString();
        EXPECT_LT(clock.elapsed(), 2000);
    }
    // A writer refuses what its format cannot hold, and leaves the old file.
    TempFolder t;
    t.writeFile(u"out/old.pronto", "old");
    const QString path = t.path(u"out/old.pronto");
    IrTiming tooLong{{9000, 2900000, 560}, 38000, -1};
    QString error;
    EXPECT_FALSE(SaveIrCodes(path, IrFormat::Pronto, {{u"x"_s, {}, tooLong, {}}}, &error));
    EXPECT_TRUE(error.startsWith(path + u": "_s)) << error.toStdString();
    EXPECT_EQ(t.readFile(u"out/old.pronto"), "old");
    EXPECT_EQ(QDir(t.path(u"out")).entryList(QDir::Files), QStringList{u"old.pronto"_s});
}

// Debian's lirc remotes: each imports (decoding to its stated code) or is refused with a reason.
TEST(IrFormats, LircCompatRemotesImportOrAreRefused) {
    const QString root = u"/usr/share/lirc/remotes"_s;
    if (!QDir(root).exists())
        GTEST_SKIP() << "lirc-compat-remotes is not installed";
    int files = 0, imported = 0, refusedFiles = 0, codes = 0, refusedRemotes = 0;
    QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        ++files;
        const IrCodeRead r = ReadIrCodePath(path);
        if (r.ok()) {
            ++imported;
            codes += int(r.codes.size());
            for (const NamedSignal& s : r.codes) {
                EXPECT_TRUE(TimingProblem(s.timing).isEmpty()) << path.toStdString();
                const IrCode got = DecodeSignal(s.timing);
                if (s.code.decoded() &&
                    (got.protocol != s.code.protocol || got.scancode != s.code.scancode))
                    ADD_FAILURE() << path.toStdString() << " " << s.name.toStdString() << ": "
                                  << CodeSpec(s.code).toStdString() << " decodes as "
                                  << CodeSpec(got).toStdString();
            }
        } else {
            ++refusedFiles;
            EXPECT_TRUE(r.error.startsWith(path + u":"_s)) << r.error.toStdString();
        }
        refusedRemotes += int(r.refused.size());
        for (const QString& why : r.refused)
            EXPECT_TRUE(why.startsWith(path + u":"_s)) << why.toStdString();
    }
    std::printf("lirc-compat-remotes: %d files, %d imported (%d keys), %d refused; "
                "%d remotes left out with a reason\n",
                files, imported, codes, refusedFiles, refusedRemotes);
    EXPECT_GT(imported, 20);
}

// Real Broadlink codes (odd endings included) keep each duration within a unit through a file.
TEST(IrFormats, RealBroadlinkCodesKeepTheirTimings) {
    QFile list(QStringLiteral(KESTRAVA_TEST_DATA "/broadlink/smartir.txt"));
    ASSERT_TRUE(list.open(QIODevice::ReadOnly));
    int read = 0;
    for (const QByteArray& line : list.readAll().split('\n')) {
        const QList<QByteArray> field = line.split(' ');
        if (field.size() != 3)
            continue;
        const std::string what = (field[0] + ' ' + field[1]).toStdString();
        const IrCodeRead r = ReadIrCodes(field[2], u"code"_s);
        ASSERT_TRUE(r.ok()) << what << ": " << r.error.toStdString();
        ++read;
        QString error;
        const QByteArray file = WriteSignalBlob(r.codes[0], &error);
        ASSERT_FALSE(file.isEmpty()) << what << ": " << error.toStdString();
        const auto stored = ReadSignalBlob(file, u"x.bin"_s, &error);
        ASSERT_TRUE(stored) << what << ": " << error.toStdString();
        const QByteArray again = WriteBroadlink(*stored, BroadlinkUnitUs, &error);
        const auto back = ReadBroadlink(again, u"x"_s, BroadlinkUnitUs, &error);
        ASSERT_TRUE(back) << what << ": " << error.toStdString();
        const auto& a = r.codes[0].timing.durations;
        const auto& z = back->timing.durations;
        ASSERT_GE(z.size(), a.size()) << what; // an odd count gains its pause
        for (size_t i = 0; i < a.size(); ++i)
            EXPECT_LE(std::abs(double(a[i]) - z[i]), BroadlinkUnitUs + 1)
                << what << " duration " << i << ": " << a[i] << " -> " << z[i];
    }
    EXPECT_EQ(read, 9);

    // Durations 12 % apart cannot share entries: 21 of them are refused.
    IrTiming ladder;
    for (double us = 1000; ladder.durations.size() < 21; us *= 1.12)
        ladder.durations.push_back(uint32_t(us));
    QString error;
    EXPECT_TRUE(WriteSignalBlob({u"x"_s, {}, ladder, {}}, &error).isEmpty());
    EXPECT_TRUE(error.startsWith(u"needs 21 distinct durations"_s)) << error.toStdString();
}
