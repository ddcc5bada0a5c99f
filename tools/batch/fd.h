// A file descriptor that is closed with its owner; the standard streams stay open.
#ifndef CMODEL_BATCH_FD_H
#define CMODEL_BATCH_FD_H

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

}  // namespace eetool

#endif
