#include "core/BoundedRead.h"

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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
    int status = -1; // the exit code; -1 when killed or timed out
    QString output;  // stdout and stderr
    double seconds = 0;
    long peakKb = 0; // the child's own peak RSS, from wait4
};

// Runs a program to its end, measuring the time and the peak memory of that
// process alone (QProcess reaps its children without their rusage).
Measured RunMeasured(const QString& program, const QStringList& args, int timeoutMs = 10000) {
    std::vector<QByteArray> owned{QFile::encodeName(program)};
    for (const QString& a : args)
        owned.push_back(a.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& a : owned)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0)
        return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, out[1], 2);
    QByteArray bus = "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/kestrava-test-bus";
    std::vector<char*> env{bus.data()};
    for (char** e = environ; *e; ++e)
        if (!QByteArray(*e).startsWith("DISPLAY=") && !QByteArray(*e).startsWith("DBUS_SYSTEM"))
            env.push_back(*e);
    env.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), env.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    Measured m;
    if (spawned != 0) {
        ::close(out[0]);
        return m;
    }
    QByteArray text;
    for (;;) {
        const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
                                std::chrono::steady_clock::now() - start)
                                .count();
        pollfd p{out[0], POLLIN, 0};
        if (waited >= timeoutMs || ::poll(&p, 1, int(timeoutMs - waited)) <= 0) {
            ::kill(pid, SIGKILL);
            break;
        }
        char buffer[4096];
        const ssize_t n = ::read(out[0], buffer, sizeof buffer);
        if (n <= 0)
            break;
        text.append(buffer, n);
    }
    ::close(out[0]);
    int status = 0;
    rusage usage{};
    while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    m.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    m.output = QString::fromUtf8(text);
    m.peakKb = usage.ru_maxrss;
    return m;
}

} // namespace

// Whatever stat says, a read stops at its limit: a plain file, /dev/zero, a
// /proc file that stats as empty, and pipes of endless and of sane size.
TEST(BoundedRead, StopsAtTheLimitWhateverTheFileIs) {
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
    {
        Fifo endless(dir.filePath(u"endless"_s));
        EXPECT_EQ(ReadBounded(endless.path, 1 << 20).result, BoundedRead::TooLarge);
    }
    {
        Fifo sane(dir.filePath(u"sane"_s), "printf 'power 0x40'");
        const BoundedRead r = ReadBounded(sane.path, 1 << 20);
        EXPECT_TRUE(r.ok());
        EXPECT_EQ(r.bytes, "power 0x40");
    }
    // A pipe where only a plain file will do is refused, not waited on.
    ::mkfifo(QFile::encodeName(dir.filePath(u"idle"_s)).constData(), 0600);
    EXPECT_EQ(ReadBounded(dir.filePath(u"idle"_s), 10, {.plainOnly = true}).result,
              BoundedRead::NotPlain);
}

// The commands a user runs on endless input end at once with a clear
// reason, in bounded memory.
TEST(BoundedRead, CommandsRefuseEndlessInputQuickly) {
    QTemporaryDir dir;
    const QString home = dir.filePath(u"home"_s);
    // What an endless input would take is gigabytes; the sanitizers' shadow
    // memory alone takes more than a bounded read.
#ifdef __SANITIZE_ADDRESS__
    constexpr long PeakLimitKb = 400 * 1024;
#else
    constexpr long PeakLimitKb = 100 * 1024;
#endif
    const QString out = dir.filePath(u"out.json"_s);
    Fifo fifo(dir.filePath(u"fifo"_s));
    Fifo fifo2(dir.filePath(u"fifo2"_s));
    const QString ir = QStringLiteral(KESTRAVA_IR_BINARY);
    const QString program = QStringLiteral(KESTRAVA_BINARY);
    const struct {
        QString program;
        QStringList args;
    } cases[] = {
        {ir, {u"convert"_s, u"/dev/zero"_s, out}},
        {ir, {u"convert"_s, fifo.path, out}},
        {program, {u"--home"_s, home, u"--import-codes"_s, u"/dev/zero"_s}},
        {program, {u"--home"_s, home, u"--import-codes"_s, fifo2.path}},
    };
    for (const auto& c : cases) {
        const QString what = c.args.join(u' ');
        const Measured m = RunMeasured(c.program, c.args);
        EXPECT_NE(m.status, 0) << what.toStdString();
        EXPECT_TRUE(m.output.contains(u"more than the 16 MB a file of codes may have"_s))
            << what.toStdString() << ": " << m.output.toStdString();
        EXPECT_LT(m.seconds, 1.0) << what.toStdString();
        EXPECT_LT(m.peakKb, PeakLimitKb) << what.toStdString();
        std::printf("%s: %.3f s, peak %ld kB\n", qPrintable(what), m.seconds, m.peakKb);
        EXPECT_FALSE(QFile::exists(out));
    }
}
