#include "webserver/LoginThrottle.h"

#include "core/Clock.h"

#include <QHostAddress>
#include <QLoggingCategory>

#include <algorithm>

namespace {
Q_LOGGING_CATEGORY(lcLogin, "kestrava.web")

qint64 LockMs(int lockouts) {
    if (lockouts <= 0)
        return 0;
    const qint64 secs = qint64(LoginThrottle::FirstLockSecs) << std::min(lockouts - 1, 16);
    return std::min<qint64>(secs, LoginThrottle::MaxLockSecs) * 1000;
}
} // namespace

int LoginThrottle::Attempt(const QHostAddress& peer, Login login) {
    const qint64 now = clock_.now().toMSecsSinceEpoch();
    bool isV4 = false;
    const quint32 v4 = peer.toIPv4Address(&isV4);
    const QString address = isV4 ? QHostAddress(v4).toString() : peer.toString();
    auto found = entries_.find(address);
    if (found != entries_.end()) {
        Entry& e = **found;
        // A clock set back does not make a lockout longer than it was.
        const qint64 left = std::min(e.lockedUntil - now, LockMs(e.lockouts));
        if (left > 0)
            return int((left + 999) / 1000);
    }
    if (login == Login::Right && found != entries_.end()) {
        order_.erase(*found);
        entries_.erase(found);
    }
    if (login != Login::Wrong)
        return 0;

    if (found == entries_.end()) {
        if (int(entries_.size()) >= capacity_) {
            entries_.remove(order_.back().address);
            order_.pop_back();
        }
        order_.push_front(Entry{address});
        found = entries_.insert(address, order_.begin());
    } else {
        order_.splice(order_.begin(), order_, *found);
    }
    Entry& e = **found;
    e.wrong[size_t(e.next)] = now;
    e.next = (e.next + 1) % MaxWrong;
    e.count = std::min(e.count + 1, MaxWrong);
    // With the ring full, the oldest of the last MaxWrong is the next to go.
    if (e.count == MaxWrong && now - e.wrong[size_t(e.next)] <= qint64(WindowSecs) * 1000) {
        ++e.lockouts;
        e.lockedUntil = now + LockMs(e.lockouts);
        e.count = 0;
        qCWarning(lcLogin).noquote()
            << MaxWrong << "wrong logins from" << address << "- its logins are held up for"
            << LockMs(e.lockouts) / 1000 << "s";
    }
    return 0;
}
