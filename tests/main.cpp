#include "core/Log.h"
#include "core/System.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    QCoreApplication app(argc, argv);
    InstallLogHandler(false);
    RaiseFileLimit();
    return RUN_ALL_TESTS();
}
