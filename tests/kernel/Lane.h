#pragma once

#include <QString>

#include <cstdio>

// A case's figures: guest.sh puts the lines printed here on the case's line.
inline void Figures(const QString& text) {
    std::printf("FIGURES %s\n", qPrintable(text));
    std::fflush(stdout);
}
