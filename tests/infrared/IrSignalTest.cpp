#include "infrared/IrSignal.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The start of an NEC frame as the Tira-2 reports it in timing mode.
const QByteArray NecStream = QByteArray::fromHex("0465023300460046004600D300460000"
                                                 "34B2");
const std::vector<uint32_t> NecUs{9000, 4504, 560, 560, 560, 1688, 560};
const QByteArray NecIx = QByteArray::fromHex("49583400"
                                             "0465023300460"
                                             "0D3"
                                             "00000000000000000000000000000000"
                                             "0122232F");

} // namespace

TEST(IrSignal, TiraStreamBecomesDurationsCarrierAndIxCommand) {
    TiraBurst burst;
    ASSERT_EQ(ParseTiraBurst(NecStream, &burst), NecStream.size());
    IrTiming t = TimingFromTiraBurst(burst);
    EXPECT_EQ(t.durations, NecUs);
    EXPECT_EQ(t.carrierHz, 38462);
    EXPECT_EQ(IrCtlText(t.durations), u"+9000 -4504 +560 -560 +560 -1688 +560"_s);
    EXPECT_EQ(TiraTransmitCommand(t.durations, t.carrierHz).toHex(), NecIx.toHex());
}

TEST(IrSignal, TiraStreamInPiecesAndOutOfStep) {
    TiraBurst burst;
    for (int cut : {0, 1, 2, 13, 14, 15, 16, 17})
        EXPECT_EQ(ParseTiraBurst(NecStream.left(cut), &burst), 0) << cut;
    // A burst ending on a space, and a trailer without its fixed byte.
    EXPECT_EQ(ParseTiraBurst(QByteArray::fromHex("046502330000"
                                                 "34B2"),
                             &burst),
              -1);
    EXPECT_EQ(ParseTiraBurst(QByteArray::fromHex("04650000"
                                                 "3400"),
                             &burst),
              -1);
    QByteArray two = NecStream + QByteArray::fromHex("046500000000");
    EXPECT_EQ(ParseTiraBurst(two, &burst), NecStream.size());
}

TEST(IrSignal, BlobMatchesTheWorkedExampleAndRoundTrips) {
    IrTiming t{NecUs, 38462, -1};
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
    EXPECT_EQ(t2.carrierHz, 38462);
    EXPECT_EQ(TiraTransmitCommand(t2.frame(), t2.carrierHz), NecIx);
}

TEST(IrSignal, BlobFromAnotherTransceiverKeepsItsUnitsAndRepeat) {
    // A Tira-1 style blob in 32 µs units with a repeat part and a final pause.
    IrBlob b;
    b.timeBase = 32;
    b.table = {281, 140, 17, 1250, 70};
    b.pulsePeriodNs = 27778; // 36 kHz
    b.sequence = {0, 1, 2, 3, 0, 4, 2, 3};
    b.repeatBegin = 4;
    auto d = IrBlob::decode(b.encode());
    ASSERT_TRUE(d);
    IrTiming t = TimingFromBlob(*d);
    EXPECT_EQ(t.carrierHz, 36000);
    // The first send holds the lead-in and one copy of the repeating part.
    EXPECT_EQ(t.frame(), (std::vector<uint32_t>{8992, 4480, 544, 40000, 8992, 2240, 544}));
    EXPECT_EQ(t.repeatFrame(), (std::vector<uint32_t>{8992, 2240, 544}));
    EXPECT_EQ(t.gapUs(), 40000u);
    QByteArray ix = TiraTransmitCommand(t.repeatFrame(), t.carrierHz);
    EXPECT_EQ(ix.mid(0, 4).toHex(), "49583700");
    EXPECT_EQ(ix.mid(4, 6).toHex(), "04640118"
                                    "0044");
    EXPECT_EQ(ix.mid(28).toHex(), "012f");
}

TEST(IrSignal, DecodeRefusesWhatIsNotABlobAndPadsLostZeros) {
    for (const QByteArray& junk : {QByteArray(), QByteArray(1, '\0'), QByteArray(2000, '\xFF'),
                                   QByteArray("hello"), QByteArray(2000, '\0')})
        EXPECT_FALSE(IrBlob::decode(junk)) << junk.left(8).toHex().constData();
    IrBlob b;
    b.table = {1125, 563, 70};
    b.sequence = {0, 1, 2, 1, 0, 0, 0};
    QByteArray bytes = b.encode();
    auto d = IrBlob::decode(bytes.left(bytes.size() - 3)); // as the older file layout reads
    ASSERT_TRUE(d);
    EXPECT_EQ(d->sequence, b.sequence);
    bytes[92] = 7; // index past the table
    EXPECT_FALSE(IrBlob::decode(bytes));
}

TEST(IrSignal, NoisyCaptureIsMergedDownToTheIxTable) {
    // A real receiver jitters: the 560 µs marks and spaces come in around it.
    std::vector<uint32_t> us{9010, 4490};
    for (int bit = 0; bit < 32; ++bit) {
        us.push_back(540 + (bit * 7) % 50);
        us.push_back(bit % 3 ? 1650 + (bit * 13) % 70 : 530 + (bit * 11) % 60);
    }
    us.push_back(575);
    auto blob = BlobFromTiming({us, 38000, -1});
    ASSERT_TRUE(blob);
    EXPECT_EQ(blob->table.size(), 4u);
    QByteArray ix = TiraTransmitCommand(us, 38000);
    ASSERT_EQ(ix.size(), 28 + 34);
    EXPECT_EQ(uint8_t(ix[2]), 52);
    EXPECT_EQ(ix.mid(12, 16), QByteArray(16, '\0')); // four entries in use
    EXPECT_EQ(uint8_t(ix.back()) & 0x0F, 0x0F);

    // Sixteen far-apart durations cannot be squeezed into twelve entries.
    std::vector<uint32_t> wide;
    for (int i = 0; i < 17; ++i)
        wide.push_back(100u << (i % 16));
    EXPECT_TRUE(TiraTransmitCommand(wide, 38000).isEmpty());
    EXPECT_TRUE(TiraTransmitCommand({560, 560}, 38000).isEmpty()); // ends on a space
}

TEST(IrSignal, HeldKeyIsFoldedIntoLeadInAndRepeat) {
    // Three identical frames (a remote that resends its whole code).
    std::vector<uint32_t> frame{2400, 600, 1200, 600, 600};
    std::vector<uint32_t> us = frame;
    for (int i = 0; i < 2; ++i) {
        us.push_back(25000);
        us.insert(us.end(), frame.begin(), frame.end());
    }
    IrTiming folded = FoldRepeats({us, 40000, -1});
    EXPECT_EQ(folded.repeatBegin, 0);
    EXPECT_EQ(folded.durations, (std::vector<uint32_t>{2400, 600, 1200, 600, 600, 25000}));
    EXPECT_EQ(folded.repeatFrame(), frame);

    // Frames that differ (an air conditioner's several parts) stay whole.
    std::vector<uint32_t> parts{3500,  1700, 450,  30000, 3500, 1700, 450, 1300, 450,
                                30000, 3500, 1700, 450,   400,  450,  400, 450};
    EXPECT_EQ(FoldRepeats({parts, 38000, -1}).durations, parts);
    // A frame and one repeat code: lead-in and repeating part.
    std::vector<uint32_t> nec{9000, 4500, 560, 40000, 9000, 2250, 560};
    IrTiming two = FoldRepeats({nec, 38000, -1});
    EXPECT_EQ(two.repeatBegin, 4);
    EXPECT_EQ(two.repeatFrame(), (std::vector<uint32_t>{9000, 2250, 560}));
    EXPECT_EQ(two.gapUs(), 40000u);
    EXPECT_EQ(FoldRepeats({frame, 38000, -1}).durations, frame);
}
