#include "core/System.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <sys/resource.h>

void RaiseFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

void PinTimeZone() {
    setenv("TZ", ":/etc/localtime", 0); // a TZ of the user's stays
    tzset();
}
