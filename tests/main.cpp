#include "core/Log.h"
#include "core/System.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // No test may put the machine running it to sleep through its own logind.
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/kestrava-test-bus");
    QCoreApplication app(argc, argv);
    InstallLogHandler(false);
    RaiseFileLimit();
    return RUN_ALL_TESTS();
}
