#pragma once

#include <QHash>
#include <QString>

#include <array>
#include <list>

class Clock;
class QHostAddress;

// Wrong logins are held up per client address, so that a password cannot be
// guessed at the speed of the network. After MaxWrong wrong logins within
// WindowSecs, the address is answered "wait" for a while whatever it sends,
// right credentials too; each further lockout lasts twice as long, up to
// MaxLockSecs. A right login outside a lockout forgets the address. Only
// addresses with wrong logins are kept, at most `capacity`, the one seen
// longest ago forgotten first, so a flood of addresses cannot grow memory.
class LoginThrottle {
public:
    static constexpr int MaxWrong = 5;
    static constexpr int WindowSecs = 10 * 60;
    static constexpr int FirstLockSecs = 30;
    static constexpr int MaxLockSecs = 15 * 60;
    static constexpr int Capacity = 4096;

    enum class Login { None, Wrong, Right };

    explicit LoginThrottle(const Clock& clock, int capacity = Capacity)
        : clock_(clock), capacity_(capacity) {}

    // A request that needs the login, from peer, with no, wrong or right
    // credentials. The seconds it must wait when it is held up (nothing of it
    // is counted then), 0 when it goes on.
    int Attempt(const QHostAddress& peer, Login login);

    int size() const { return int(entries_.size()); }

private:
    struct Entry {
        QString address;
        std::array<qint64, MaxWrong> wrong{}; // when, ms; the oldest at `next`
        int count = 0, next = 0;
        qint64 lockedUntil = 0; // ms
        int lockouts = 0;
    };
    using Order = std::list<Entry>; // most recently seen first

    const Clock& clock_;
    const int capacity_;
    Order order_;
    QHash<QString, Order::iterator> entries_;
};
