#include "app/SignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int pipeFds[2] = {-1, -1};

void onSignal(int number) {
    unsigned char byte = static_cast<unsigned char>(number);
    [[maybe_unused]] ssize_t n = ::write(pipeFds[1], &byte, 1);
}

} // namespace

SignalWatcher::SignalWatcher(QObject* parent) : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pipeFds) != 0)
        return;
    notifier_ = new QSocketNotifier(pipeFds[0], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, [this] {
        unsigned char byte = 0;
        if (::read(pipeFds[0], &byte, 1) == 1)
            emit terminationRequested(byte);
    });
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

SignalWatcher::~SignalWatcher() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    delete notifier_;
    for (int& fd : pipeFds)
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
}
