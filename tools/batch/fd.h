// A file descriptor that is closed with its owner; the standard streams stay open.
#ifndef CMODEL_BATCH_FD_H
#define CMODEL_BATCH_FD_H

#include <fcntl.h>
#include <unistd.h>

namespace eetool {

class Fd {
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ > STDERR_FILENO) {
            close(fd_);
        }
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    operator int() const { return fd_; }

  private:
    const int fd_;
};

// Room for some rows at a time, if it is a pipe: fewer switches between those that write and read it.
inline void widen_pipe(int fd) {
    fcntl(fd, F_SETPIPE_SZ, 1 << 20);
}

}  // namespace eetool

#endif
