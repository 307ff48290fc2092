#include "core/Log.h"

#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // Test discovery runs this too, without the tests' environment.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // No test may put the machine running it to sleep through its own logind.
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/kestrava-test-bus");
    QApplication app(argc, argv);
    InstallLogHandler(false);
    return RUN_ALL_TESTS();
}
