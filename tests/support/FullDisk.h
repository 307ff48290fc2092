#pragma once

#include <csignal>
#include <sys/resource.h>

// While it lives, writes past `bytes` fail (EFBIG) as on a full disk: RLIMIT_FSIZE, SIGXFSZ
// ignored.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) {
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit now = old_;
        now.rlim_cur = bytes;
        ok_ = setrlimit(RLIMIT_FSIZE, &now) == 0;
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    bool ok() const { return ok_; }

private:
    rlimit old_{};
    void (*handler_)(int) = nullptr;
    bool ok_ = false;
};
