#include "infrared/IrSignal.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The start of an NEC frame as the Tira-2 reports it in timing mode.
const QByteArray NecStream = QByteArray::fromHex("0465023300460046004600D300460000 34B2");
const std::vector<uint32_t> NecUs{9000, 4504, 560, 560, 560, 1688, 560};
// "IX", the carrier, the table of durations, padding to 28 bytes, then the indexes.
const QByteArray NecIx =
    QByteArray::fromHex("4958 3400 0465 0233 0046 00D3 00000000000000000000000000000000 0122232F");

} // namespace

// A Tira burst to durations, to the worked example's blob, and back to the very IX command.
TEST(IrSignal, TiraStreamToBlobAndBackToTheSameIxCommand) {
    TiraBurst burst;
    ASSERT_EQ(ParseTiraBurst(NecStream, &burst), NecStream.size());
    IrTiming t = TimingFromTiraBurst(burst);
    EXPECT_EQ(t.durations, NecUs);
    EXPECT_EQ(t.carrierHz, 38462);
    EXPECT_EQ(IrCtlText(t.durations), u"+9000 -4504 +560 -560 +560 -1688 +560"_s);
    EXPECT_EQ(TiraTransmitCommand(t.durations, t.carrierHz).toHex(), NecIx.toHex());

    auto blob = BlobFromTiming(t);
    ASSERT_TRUE(blob);
    EXPECT_EQ(blob->timeBase, 8);
    EXPECT_EQ(blob->table, (std::vector<int32_t>{1125, 563, 70, 211}));
    EXPECT_EQ(blob->sequence, (std::vector<uint8_t>{0, 1, 2, 2, 2, 3, 2}));
    EXPECT_EQ(blob->pulsePeriodNs, 26000);
    QByteArray bytes = blob->encode();
    ASSERT_EQ(bytes.size(), 92 + 7);
    EXPECT_EQ(bytes.mid(0, 12).toHex(), "000000000800000065040000");
    EXPECT_EQ(bytes.mid(72, 20).toHex(), "0400000090650000010000000700000"
                                         "0ffffffff");
    EXPECT_EQ(bytes.mid(92).toHex(), "00010202020302");

    auto back = IrBlob::decode(bytes);
    ASSERT_TRUE(back);
    IrTiming t2 = TimingFromBlob(*back);
    EXPECT_EQ(t2.durations, NecUs);
    EXPECT_EQ(TiraTransmitCommand(t2.frame(), t2.carrierHz), NecIx);
    for (const QByteArray& junk : {QByteArray(), QByteArray(2000, '\xFF'), QByteArray("hello")})
        EXPECT_FALSE(IrBlob::decode(junk)) << junk.left(8).toHex().constData();
}
