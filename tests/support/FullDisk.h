#pragma once

#include <csignal>
#include <sys/resource.h>

// A disk that holds no file past `bytes`, for as long as this lives: the
// process's file size limit, with SIGXFSZ ignored, makes every write past it
// fail with EFBIG, as writes fail on a full disk. It needs no privilege and no
// mount, so it works as any user and in any container.
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
