#include "webserver/LoginThrottle.h"
#include "support/FixedClock.h"

#include <QHostAddress>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using Login = LoginThrottle::Login;

// Five wrong logins lock only within the window: for 30 s, doubling to at most 15 minutes.
TEST(LoginThrottle, LockoutsComeWithinTheWindowAndDoubleUpToFifteenMinutes) {
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(8, 0), Qt::UTC));
    LoginThrottle throttle(clock);
    const QHostAddress peer(u"192.168.1.5"_s);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(throttle.Attempt(peer, Login::Wrong), 0) << i;
        clock.at = clock.at.addSecs(151); // five span 604 s
    }
    clock.at = clock.at.addSecs(600);
    for (const int lockout : {30, 60, 120, 240, 480, 900, 900}) {
        for (int i = 0; i < 5; ++i)
            ASSERT_EQ(throttle.Attempt(peer, Login::Wrong), 0) << lockout << " " << i;
        EXPECT_EQ(throttle.Attempt(peer, Login::Right), lockout);
        clock.at = clock.at.addSecs(lockout - 1);
        EXPECT_EQ(throttle.Attempt(QHostAddress(u"::ffff:192.168.1.5"_s), Login::None), 1);
        clock.at = clock.at.addSecs(1);
    }
    EXPECT_EQ(throttle.Attempt(peer, Login::Right), 0);
}

// Only addresses with wrong logins are kept, at most the capacity, the oldest forgotten first.
TEST(LoginThrottle, TheTableIsBoundedAndForgetsTheAddressSeenLongestAgo) {
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(8, 0), Qt::UTC));
    LoginThrottle throttle(clock, 3);
    auto address = [](int n) { return QHostAddress(quint32(0x0a000000 + n)); };
    for (int i = 0; i < 4; ++i)
        throttle.Attempt(address(0), Login::Wrong);
    throttle.Attempt(address(1), Login::Wrong);
    throttle.Attempt(address(2), Login::Wrong);
    throttle.Attempt(address(0), Login::Wrong); // the fifth: locked, and seen last
    throttle.Attempt(address(3), Login::Wrong); // address 1 goes
    EXPECT_EQ(throttle.size(), 3);
    EXPECT_EQ(throttle.Attempt(address(0), Login::None), 30);
    for (int i = 0; i < 4; ++i) // address 1 starts again from nothing
        throttle.Attempt(address(1), Login::Wrong);
    EXPECT_EQ(throttle.Attempt(address(1), Login::None), 0);

    for (int n = 100; n < 10100; ++n) {
        throttle.Attempt(address(n), Login::Wrong);
        throttle.Attempt(address(n + 20000), Login::Right);
    }
    EXPECT_EQ(throttle.size(), 3);
    EXPECT_EQ(throttle.Attempt(address(0), Login::Right), 0);
}
