// Our protocol encoders against the kernel's decoders, on rc-loopback. Run by cases/*.sh.
#include "core/Wait.h"
#include "infrared/IrProtocol.h"
#include "infrared/SignalStore.h"
#include "kernel/Lane.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QFile>
#include <QProcess>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/lirc.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The kernel's name of an rc_proto number (both lists in lirc.h's order).
QString KernelName(uint16_t proto) {
    const uint16_t numbers[] = {
        RC_PROTO_RC5,       RC_PROTO_RC5X_20,   RC_PROTO_JVC,     RC_PROTO_SONY12,
        RC_PROTO_SONY15,    RC_PROTO_SONY20,    RC_PROTO_NEC,     RC_PROTO_NECX,
        RC_PROTO_NEC32,     RC_PROTO_SANYO,     RC_PROTO_RC6_0,   RC_PROTO_RC6_6A_20,
        RC_PROTO_RC6_6A_24, RC_PROTO_RC6_6A_32, RC_PROTO_RC6_MCE, RC_PROTO_SHARP,
        RC_PROTO_RCMM12,    RC_PROTO_RCMM24,    RC_PROTO_RCMM32};
    const QStringList names = (u"rc5 rc5x_20 jvc sony12 sony15 sony20 nec necx nec32 sanyo rc6_0 "
                               u"rc6_6a_20 rc6_6a_24 rc6_6a_32 rc6_mce sharp rc_mm_12 rc_mm_24 "
                               u"rc_mm_32"_s)
                                  .split(u' ');
    for (size_t i = 0; i < std::size(numbers); ++i)
        if (numbers[i] == proto)
            return names[qsizetype(i)];
    return u"proto%1"_s.arg(proto);
}

} // namespace

// The kernel's decoders read what we encode alike; Samsung32 reads as the NECx code of its bytes.
TEST(ProtocolKernel, KernelDecodesOurSignals) {
    QFile enabled(u"/sys/class/rc/rc0/protocols"_s);
    ASSERT_TRUE(enabled.open(QIODevice::ReadOnly));
    const QString protocols = QString::fromUtf8(enabled.readAll()).trimmed();
    const int fd = ::open(qPrintable(LircDevice), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    uint32_t mode = LIRC_MODE_SCANCODE;
    ASSERT_EQ(::ioctl(fd, LIRC_SET_REC_MODE, &mode), 0) << "no scancode reading";
    TempFolder t;
    QStringList codes = KernelCodes;
    codes << u"samsung32:0x0707"_s << u"samsung32:0xe019"_s;
    int matched = 0;
    QStringList misses;
    for (const QString& spec : codes) {
        SCOPED_TRACE(spec.toStdString());
        // With its repeats in one write: the kernel ends a frame only on the pause after it.
        IrCode code = *ParseCodeSpec(spec);
        code.repeats = true;
        const IrTiming timing = TimingFromBlob(*BlobFromTiming(*EncodeSignal(code)));
        const QString path = t.path(u"key.txt");
        QFile text(path);
        ASSERT_TRUE(text.open(QIODevice::WriteOnly));
        text.write(IrCtlText(timing.frame()).toUtf8() + '\n');
        text.close();
        QString want = CodeSpec(*ParseCodeSpec(spec));
        if (code.protocol == IrProtocol::Samsung32) {
            const uint32_t a = code.scancode >> 8;
            want =
                u"necx:0x%1"_s.arg(a << 16 | a << 8 | (code.scancode & 0xFF), 6, 16, QChar(u'0'));
        }
        QProcess irctl;
        irctl.start(u"ir-ctl"_s, {u"-d"_s, LircDevice, u"-c"_s, QString::number(timing.carrierHz),
                                  u"-s"_s, path});
        ASSERT_TRUE(irctl.waitForFinished(20000));
        EXPECT_EQ(irctl.exitCode(), 0) << irctl.readAllStandardError().toStdString();
        QString got;
        WaitUntil(
            [&] {
                lirc_scancode s{};
                while (::read(fd, &s, sizeof s) == sizeof s)
                    if (got.isEmpty() && !(s.flags & LIRC_SCANCODE_FLAG_REPEAT))
                        got = KernelName(s.rc_proto) + u":0x"_s + QString::number(s.scancode, 16);
                return !got.isEmpty();
            },
            2000);
        WaitMs(150); // the rest of this key's reports, not the next one's
        lirc_scancode rest{};
        while (::read(fd, &rest, sizeof rest) == sizeof rest) {
        }
        const IrCode kernel = ParseCodeSpec(got).value_or(IrCode{});
        EXPECT_EQ(CodeSpec(kernel), want)
            << "kernel read " << got.toStdString() << "; protocols " << protocols.toStdString();
        if (CodeSpec(kernel) == want)
            ++matched;
        else
            misses << spec + u"->"_s + (got.isEmpty() ? u"nothing"_s : got);
    }
    ::close(fd);
    Figures(u"%1/%2 of our codes decoded alike by the kernel%3"_s.arg(matched)
                .arg(codes.size())
                .arg(misses.isEmpty() ? QString() : u" ("_s + misses.join(u' ') + u')'));
}
