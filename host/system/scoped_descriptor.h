#ifndef LINXIPC_HOST_SYSTEM_SCOPED_DESCRIPTOR_H
#define LINXIPC_HOST_SYSTEM_SCOPED_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>

namespace linx {

/// A descriptor that is closed with its scope unless it is released; keeps errno.
class ScopedDescriptor {
public:
    explicit ScopedDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~ScopedDescriptor() { reset(); }
    ScopedDescriptor(const ScopedDescriptor&) = delete;
    ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;

    void reset(int descriptor = -1) {
        const int keptErrno = errno;
        if (descriptor_ != -1) close(descriptor_);
        descriptor_ = descriptor;
        errno = keptErrno;
    }
    int get() const { return descriptor_; }
    int release() {
        const int descriptor = descriptor_;
        descriptor_ = -1;
        return descriptor;
    }

private:
    int descriptor_;
};

}  // namespace linx

#endif
