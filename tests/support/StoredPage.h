#pragma once

#include "core/ShiftJis.h"

#include <QFile>
#include <gtest/gtest.h>

// A classic page as the server sends it (CP932), byte for byte against the
// one stored in tests/data/pages/.
inline void ExpectStoredPage(const QString& name, const QString& page) {
    QFile f(QStringLiteral(KESTRAVA_TEST_DATA "/pages/") + name);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly)) << name.toStdString();
    EXPECT_EQ(ShiftJis::Encode(page).toStdString(), f.readAll().toStdString())
        << name.toStdString();
}
