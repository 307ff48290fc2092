#include "app/Display.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

bool connectUnix(const QByteArray& path, bool abstract) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    size_t offset = abstract ? 1 : 0;
    if (path.isEmpty() || size_t(path.size()) + offset >= sizeof addr.sun_path)
        return false;
    std::memcpy(addr.sun_path + offset, path.constData(), size_t(path.size()));
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    socklen_t len = socklen_t(offsetof(sockaddr_un, sun_path) + offset + size_t(path.size()));
    bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), len) == 0;
    ::close(fd);
    return ok;
}

bool connectTcp(quint16 port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    ::close(fd);
    return ok;
}

bool x11Available() {
    QByteArray display = qgetenv("DISPLAY");
    if (display.isEmpty())
        return false;
    qsizetype colon = display.lastIndexOf(':');
    if (colon < 0)
        return false;
    QByteArray host = display.left(colon);
    QByteArray number = display.mid(colon + 1);
    if (qsizetype dot = number.indexOf('.'); dot >= 0)
        number.truncate(dot);
    bool ok = false;
    int n = number.toInt(&ok);
    if (!ok || n < 0)
        return false;
    if (host.isEmpty() || host == "unix") {
        QByteArray socket = "/tmp/.X11-unix/X" + QByteArray::number(n);
        return connectUnix(socket, false) || connectUnix(socket, true);
    }
    if (host == "localhost" || host == "127.0.0.1")
        return connectTcp(quint16(6000 + n));
    // A display on another host: let the toolkit try it.
    return true;
}

bool waylandAvailable() {
    QByteArray name = qgetenv("WAYLAND_DISPLAY");
    if (name.isEmpty())
        return false;
    if (!name.startsWith('/')) {
        QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
        if (runtime.isEmpty())
            return false;
        name = runtime + '/' + name;
    }
    return connectUnix(name, false);
}

} // namespace

bool DisplayAvailable() {
    QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if (platform.startsWith("xcb"))
        return x11Available();
    if (platform.startsWith("wayland"))
        return waylandAvailable();
    if (!platform.isEmpty())
        return true; // offscreen, vnc, eglfs...: the person chose it
    return waylandAvailable() || x11Available();
}
