#include "support/TempFolder.h"

#include <QDir>
#include <QImage>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QStringList kBases = {u"power"_s, u"up"_s,   u"down"_s, u"left"_s, u"right"_s,
                            u"ok"_s,    u"muji"_s, u"0"_s,    u"1"_s,    u"2"_s,
                            u"3"_s,     u"4"_s,    u"5"_s,    u"6"_s,    u"7"_s,
                            u"8"_s,     u"9"_s,    u"10"_s,   u"11"_s,   u"12"_s};

double MeanLightness(const QImage& image) {
    double sum = 0;
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            QRgb p = image.pixel(x, y);
            if (qAlpha(p) == 0)
                continue;
            sum += qGray(p);
            ++n;
        }
    return n ? sum / n : 0;
}

} // namespace

TEST(Pictures, EveryPictureOfThePagesShipsAsAValidImage) {
    TempFolder t;
    t.folder.WritePictures();

    QStringList expected{u"panelA.jpg"_s, u"panelB.jpg"_s};
    for (const QString& base : kBases)
        expected << base + u".gif"_s << base + u"-p.gif"_s;
    QStringList written = QDir(t.path(u"pic")).entryList(QDir::Files);
    expected.sort();
    written.sort();
    EXPECT_EQ(written.join(u' ').toStdString(), expected.join(u' ').toStdString());

    for (const QString& base : kBases) {
        const QByteArray up = t.readFile(QString(u"pic/"_s + base + u".gif"_s));
        const QByteArray down = t.readFile(QString(u"pic/"_s + base + u"-p.gif"_s));
        for (const QByteArray& bytes : {up, down}) {
            EXPECT_TRUE(bytes.startsWith("GIF89a") || bytes.startsWith("GIF87a"))
                << base.toStdString();
            QImage image = QImage::fromData(bytes, "GIF");
            EXPECT_EQ(image.size(), QSize(35, 20)) << base.toStdString();
        }
        // The pressed form must be told apart at a glance: darker.
        EXPECT_LT(MeanLightness(QImage::fromData(down, "GIF")) + 10,
                  MeanLightness(QImage::fromData(up, "GIF")))
            << base.toStdString();
    }

    // Pages only ever shrink the panels: design 6 shows them largest.
    QImage panelA = QImage::fromData(t.readFile(u"pic/panelA.jpg"), "JPEG");
    QImage panelB = QImage::fromData(t.readFile(u"pic/panelB.jpg"), "JPEG");
    EXPECT_TRUE(panelA.width() >= 243 && panelA.height() >= 465) << panelA.width();
    EXPECT_TRUE(panelB.width() >= 266 && panelB.height() >= 515) << panelB.width();
}
