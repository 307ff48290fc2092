#include "infrared/SignalStore.h"
#include "infrared/IrSignal.h"
#include "support/TempFolder.h"

#include <QFileInfo>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray image(std::initializer_list<std::pair<int, uint8_t>> bytes) {
    QByteArray b(SignalFileSize, '\0');
    for (int i = 0; i < SignalFileSize - 2; ++i)
        b[i] = char(1 + i % 250);
    for (auto [at, v] : bytes)
        b[at] = char(v);
    return b;
}

} // namespace

TEST(SignalStore, ReadFindsTheEndByTrailerOrLastNonZeroByte) {
    TempFolder t;
    QByteArray old(SignalFileSize, '\0'); // older layout: no trailer
    old[10] = 5;
    old[99] = 1;
    const struct {
        QByteArray content;
        SignalRead result;
        int size;
    } cases[] = {
        {image({{1998, 0}, {1999, 200}}), SignalRead::Ok, 200}, // trailer is base 255
        {image({{1998, 1}, {1999, 0}}), SignalRead::Ok, 255},
        // 1999 and 2000 bytes: the trailer lies inside the signal and goes out too.
        {image({{1998, 7}, {1999, 214}}), SignalRead::Ok, 1999},
        {image({{1998, 7}, {1999, 215}}), SignalRead::Ok, 2000},
        {image({{1998, 7}, {1999, 216}}), SignalRead::BadLength, 0},
        {image({{1998, 255}, {1999, 255}}), SignalRead::BadLength, 0},
        {image({{1998, 0}, {1999, 3}}) + QByteArray(5000, 'x'), SignalRead::Ok, 3}, // first 2000
        {old, SignalRead::Ok, 100},
        {old.left(100), SignalRead::Ok, 100},
        {QByteArray(SignalFileSize, '\0'), SignalRead::Ok, 1},
        {QByteArray(), SignalRead::Ok, 1},
    };
    const QString path = t.path(u"IRSignals/a-b.bin");
    for (const auto& c : cases) {
        t.writeFile(u"IRSignals/a-b.bin", c.content);
        QByteArray out;
        EXPECT_EQ(ReadSignalFile(path, &out), c.result) << c.size;
        if (c.result == SignalRead::Ok) {
            EXPECT_EQ(out, c.content.leftJustified(c.size, '\0', true)) << c.size;
        }
    }

    // Reading never creates the file.
    QByteArray out;
    const QString missing = t.path(u"IRSignals/none-none.bin");
    EXPECT_EQ(ReadSignalFile(missing, &out), SignalRead::Missing);
    EXPECT_FALSE(QFileInfo::exists(missing));
    EXPECT_EQ(ReadSignalFile(t.path(u"IRSignals"), &out), SignalRead::Missing);
}

TEST(SignalStore, ParseChecksTheWholeSignalBeforeItGoesOut) {
    IrBlob b;
    b.table = {1125, 563, 70};
    b.sequence = {0, 1, 2, 1, 2, 0, 0};
    b.pulsePeriodNs = 26316;
    const QByteArray blob = b.encode();
    auto file = [](const QByteArray& bytes, int stated) {
        QByteArray img(SignalFileSize, '\0');
        img.replace(0, bytes.size(), bytes);
        img[1998] = char(stated / 255);
        img[1999] = char(stated % 255);
        return img;
    };
    EXPECT_EQ(ParseSignalFile(file(blob, int(blob.size()))).blob, blob);
    // The older layout: no trailer, the blob's own count ends it.
    EXPECT_EQ(ParseSignalFile(file(blob, 0)).blob, blob);
    EXPECT_EQ(ParseSignalFile(blob).blob, blob);

    auto withField = [&](int at, int32_t v) {
        QByteArray out = blob;
        for (int i = 0; i < 4; ++i)
            out[at + i] = char(uint32_t(v) >> (8 * i));
        return out;
    };
    const QByteArray bad[] = {
        file(blob, int(blob.size()) - 2),                // trailer cuts the signal short
        blob.left(blob.size() - 1),                      // short file without trailer
        file(withField(84, 65536), 0),                   // claims 65 536 durations
        file(withField(72, 17), 0),                      // more table entries than there are
        file(withField(76, 1000), 0),                    // 1 MHz carrier
        file(withField(8, 0x100000), 0),                 // an 8 s pulse: far too long
        file(blob.left(92) + char(7) + blob.mid(93), 0), // index past the table
        QByteArray(SignalFileSize, '\0'),
        QByteArray(),
    };
    for (const QByteArray& f : bad) {
        ParsedSignal p = ParseSignalFile(f);
        EXPECT_TRUE(p.blob.isEmpty());
        EXPECT_FALSE(p.error.isEmpty()) << f.left(96).toHex().constData();
    }
}
