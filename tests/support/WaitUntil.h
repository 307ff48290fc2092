#pragma once

#include "core/Wait.h"

// Lets events run until ready() holds or ms pass; true when it holds.
template <typename F> bool WaitUntil(F ready, int ms = 10000) {
    for (int i = 0; i < ms / 20 && !ready(); ++i)
        WaitMs(20);
    return ready();
}
