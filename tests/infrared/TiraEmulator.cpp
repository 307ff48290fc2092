// A Tira-2 on a virtual machine's serial port: answers like FakeTira, plays a burst on capture,
// and logs each command it gets.  tira-emulator --connect SOCKET --log FILE
#include "infrared/FakeTira.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QTimer>

#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A short NEC-like burst in the device's timing stream, with its trailer.
const QByteArray Capture = QByteArray::fromHex("04650233004600460046 00D3 00460000 34B2");

int connectTo(const QString& path) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(path);
    if (size_t(name.size()) >= sizeof addr.sun_path)
        return -1;
    std::copy(name.begin(), name.end(), addr.sun_path);
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        fd = -1;
    }
    return fd;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::signal(SIGPIPE, SIG_IGN); // a peer that went away is seen on the next read
    QCommandLineParser args;
    args.addHelpOption();
    args.addOption({u"connect"_s, u"QEMU's serial chardev socket."_s, u"socket"_s});
    args.addOption({u"log"_s, u"Where the commands are written."_s, u"file"_s});
    args.process(app);
    if (!args.isSet(u"connect"_s) || !args.isSet(u"log"_s)) {
        std::fputs("tira-emulator: give --connect and --log\n", stderr);
        return 2;
    }
    QFile log(args.value(u"log"_s));
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        std::fprintf(stderr, "tira-emulator: cannot write %s\n", qPrintable(log.fileName()));
        return 1;
    }
    auto note = [&](const QByteArray& line) { log.write(line + '\n'); };

    std::unique_ptr<FakeTira> tira;
    int line = 0; // counts connections, so that a late timer skips a new one
    auto serve = [&](std::unique_ptr<FakeTira> t) {
        tira = std::move(t);
        const int mine = ++line;
        tira->onCommand = [&, mine](const QByteArray& cmd) {
            note(cmd.startsWith("IX") ? "IX " + cmd.mid(2).toHex() : cmd.left(2));
            if (cmd.startsWith("IC")) // a remote pressed a moment after arming
                QTimer::singleShot(100, [&, mine] {
                    if (!tira || line != mine)
                        return;
                    tira->write(Capture);
                    note("played " + Capture.toHex());
                });
        };
    };

    QTimer retry;
    retry.setInterval(100);
    // When the line drops (QEMU gone or restarted) we connect again.
    const QString path = args.value(u"connect"_s);
    QObject::connect(&retry, &QTimer::timeout, [&] {
        const int fd = connectTo(path);
        if (fd < 0)
            return;
        retry.stop();
        note("connected");
        serve(std::make_unique<FakeTira>(fd));
        tira->onGone = [&] {
            note("disconnected");
            QTimer::singleShot(0, [&] {
                tira.reset();
                retry.start();
            });
        };
    });
    retry.start();
    return app.exec();
}
