#include "core/System.h"

#include <algorithm>
#include <sys/resource.h>

void RaiseFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}
