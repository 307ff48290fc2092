#include "core/BoundedRead.h"

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// A pipe with a writer of /dev/zero (or of a few bytes) at its other end.
struct Fifo {
    explicit Fifo(const QString& path, const char* command = "cat /dev/zero") : path(path) {
        ::mkfifo(QFile::encodeName(path).constData(), 0600);
        writer.start(u"/bin/sh"_s,
                     {u"-c"_s, QString::fromLatin1(command) + u" > '"_s + path + u'\''});
        writer.waitForStarted(5000);
    }
    ~Fifo() {
        writer.kill();
        writer.waitForFinished(5000);
    }
    QString path;
    QProcess writer;
};

struct Measured {
    int status = -1; // the exit code; negative when killed or timed out
    QString output;  // stdout and stderr
    double seconds = 0;
    long peakKb = 0; // the command's own peak RSS
};

// python3 measures the command's time and peak memory (QProcess reaps without rusage).
Measured RunMeasured(const QStringList& command) {
    const char* script = R"(import resource, subprocess, sys, time
start = time.monotonic()
try:
    p = subprocess.run(sys.argv[1:], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=10)
    status, out = p.returncode, p.stdout
except subprocess.TimeoutExpired as e:
    status, out = -1, e.output or b""
peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
sys.stdout.buffer.write(b"%d %f %d\n" % (status, time.monotonic() - start, peak) + out))";
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(u"DISPLAY"_s); // the system bus is already none (main.cpp)
    p.setProcessEnvironment(env);
    p.start(u"/usr/bin/python3"_s, QStringList{u"-c"_s, QString::fromLatin1(script)} + command);
    p.waitForFinished(20000);
    const QByteArray out = p.readAllStandardOutput();
    const QList<QByteArray> head = out.left(out.indexOf('\n')).split(' ');
    if (head.size() != 3)
        return {};
    return {head[0].toInt(), QString::fromUtf8(out.mid(out.indexOf('\n') + 1)), head[1].toDouble(),
            head[2].toLong()};
}

} // namespace

// Whatever stat says, a read stops at its limit; commands end at once on endless input.
TEST(BoundedRead, StopsAtTheLimitAndTheCommandsRefuseEndlessInputQuickly) {
    QTemporaryDir dir;
    const QString plain = dir.filePath(u"plain"_s);
    QFile f(plain);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly) && f.write("0123456789") == 10);
    f.close();
    EXPECT_EQ(ReadBounded(plain, 10).bytes, "0123456789");
    EXPECT_EQ(ReadBounded(plain, 9).result, BoundedRead::TooLarge);
    EXPECT_EQ(ReadBounded(plain, 4, {.prefix = true}).bytes, "0123");
    EXPECT_EQ(ReadBounded(dir.filePath(u"none"_s), 9).result, BoundedRead::Missing);
    EXPECT_EQ(ReadBounded(dir.path(), 9).result, BoundedRead::Failed);
    EXPECT_EQ(ReadBounded(u"/dev/zero"_s, 1 << 20).result, BoundedRead::TooLarge);
    EXPECT_EQ(ReadBounded(u"/dev/zero"_s, 1 << 20, {.plainOnly = true}).result,
              BoundedRead::NotPlain);
    const BoundedRead proc = ReadBounded(u"/proc/self/status"_s, 64 * 1024);
    ASSERT_TRUE(proc.ok());
    EXPECT_TRUE(proc.bytes.contains("VmHWM")) << "nothing read past a size of 0";
    Fifo endless(dir.filePath(u"endless"_s)), sane(dir.filePath(u"sane"_s), "printf 'power 0x40'");
    EXPECT_EQ(ReadBounded(endless.path, 1 << 20).result, BoundedRead::TooLarge);
    EXPECT_EQ(ReadBounded(sane.path, 1 << 20).bytes, "power 0x40");
    // A pipe where only a plain file will do is refused, not waited on.
    ::mkfifo(QFile::encodeName(dir.filePath(u"idle"_s)).constData(), 0600);
    EXPECT_EQ(ReadBounded(dir.filePath(u"idle"_s), 10, {.plainOnly = true}).result,
              BoundedRead::NotPlain);

    const QString home = dir.filePath(u"home"_s);
    // Endless input would take gigabytes; ASan's shadow memory alone takes over 100 MB.
#ifdef __SANITIZE_ADDRESS__
    constexpr long PeakLimitKb = 400 * 1024;
#else
    constexpr long PeakLimitKb = 100 * 1024;
#endif
    const QString out = dir.filePath(u"out.json"_s);
    Fifo fifo(dir.filePath(u"fifo"_s));
    const QString ir = QStringLiteral(KESTRAVA_IR_BINARY),
                  program = QStringLiteral(KESTRAVA_BINARY);
    for (const QStringList& c : {QStringList{ir, u"convert"_s, u"/dev/zero"_s, out},
                                 {program, u"--home"_s, home, u"--import-codes"_s, fifo.path}}) {
        const QString what = c.join(u' ');
        const Measured m = RunMeasured(c);
        EXPECT_NE(m.status, 0) << what.toStdString();
        EXPECT_TRUE(m.output.contains(u"more than the 16 MB a file of codes may have"_s))
            << what.toStdString() << ": " << m.output.toStdString();
        EXPECT_LT(m.seconds, 1.0) << what.toStdString();
        EXPECT_LT(m.peakKb, PeakLimitKb) << what.toStdString();
        std::printf("%s: %.3f s, peak %ld kB\n", qPrintable(what), m.seconds, m.peakKb);
        EXPECT_FALSE(QFile::exists(out));
    }
}
