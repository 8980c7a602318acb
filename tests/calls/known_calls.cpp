#include "tests/calls/known_calls.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>

namespace calls {
namespace {

// Some calls have a successor with wider words, which is the one that is made.
#if defined(__i386__)
constexpr uint64_t fcntlCall = SYS_fcntl64;
constexpr uint64_t fstatatCall = SYS_statx;
constexpr uint64_t ftruncateCall = SYS_ftruncate64;
constexpr uint64_t geteuidCall = SYS_geteuid32;
constexpr uint64_t lseekCall = SYS__llseek;
constexpr uint64_t mmapCall = SYS_mmap2;
constexpr uint64_t nanosleepCall = SYS_clock_nanosleep_time64;
constexpr uint64_t settimeCall = SYS_timerfd_settime64;
constexpr uint64_t sigtimedwaitCall = SYS_rt_sigtimedwait_time64;
#else
constexpr uint64_t fcntlCall = SYS_fcntl;
constexpr uint64_t fstatatCall = SYS_newfstatat;
constexpr uint64_t ftruncateCall = SYS_ftruncate;
constexpr uint64_t geteuidCall = SYS_geteuid;
constexpr uint64_t lseekCall = SYS_lseek;
constexpr uint64_t mmapCall = SYS_mmap;
constexpr uint64_t nanosleepCall = SYS_clock_nanosleep;
constexpr uint64_t settimeCall = SYS_timerfd_settime;
constexpr uint64_t sigtimedwaitCall = SYS_rt_sigtimedwait;
#endif

bool isNameless(const Call& call) {
    return (call.arguments[2] & O_TMPFILE) == O_TMPFILE;
}

bool isCreating(const Call& call) {
    return (call.arguments[2] & O_CREAT) != 0;
}

bool isFollowed(const Call& call) {
    return (call.arguments[4] & AT_SYMLINK_FOLLOW) != 0;
}

bool isOpenFile(const Call& call) {
    const uint64_t flags = call.arguments[call.number == SYS_statx ? 2 : 3];
    return (flags & AT_EMPTY_PATH) != 0;
}

bool isUnlock(const Call& call) {
    return (call.arguments[1] & LOCK_UN) != 0;
}

bool isTry(const Call& call) {
    return (call.arguments[1] & LOCK_NB) != 0;
}

bool isDuplicate(const Call& call) {
    return call.arguments[1] == F_DUPFD_CLOEXEC;
}

bool isPipeSize(const Call& call) {
    return call.arguments[1] == F_SETPIPE_SZ;
}

bool isAdd(const Call& call) {
    return call.arguments[1] == EPOLL_CTL_ADD;
}

/*
 * Which errors are in a line: those that the call's manual names, and EIO and ESTALE wherever a file system may say
 * so. No line has
 *   - EBADF, EFAULT, EINVAL, ENOTSUP, ENAMETOOLONG, EOVERFLOW, EISDIR, ESPIPE, EMSGSIZE and the like, which tell of a
 *     wrong argument, of a file of another kind, or of a limit that an argument alone decides;
 *   - ENOSYS, ENODEV, ETXTBSY, which no kernel says of such a call, or of such a file;
 *   - ENOENT, ENXIO, EEXIST, EPIPE, ECHILD, and EAGAIN of a full pipe, which tell what others have done: an endpoint
 *     that is told that another has ended rightly believes it. Others do all this in tests of their own.
 * A line that leaves out more says why.
 */
const std::vector<KnownCall> known = {
    // Files. Lines of the same number: the general one comes last.
    {SYS_openat,
     "openat O_TMPFILE",  // which a file system need not know
     isNameless,
     {EACCES, EDQUOT, EINTR, EIO, ELOOP, EMFILE, ENFILE, ENOMEM, ENOSPC, ENOTDIR, EOPNOTSUPP, EPERM, EROFS, ESTALE}},
    {SYS_openat,
     "openat O_CREAT",
     isCreating,
     {EACCES, EDQUOT, EINTR, EIO, ELOOP, EMFILE, ENFILE, ENOMEM, ENOSPC, ENOTDIR, EPERM, EROFS, ESTALE}},
    {SYS_openat,
     "openat",  // of what is there and takes no room
     nullptr,
     {EACCES, EINTR, EIO, ELOOP, EMFILE, ENFILE, ENOMEM, ENOTDIR, EPERM, EROFS, ESTALE}},
    {SYS_mkdir,
     "mkdir",
     nullptr,
     {EACCES, EDQUOT, EIO, ELOOP, EMLINK, ENOMEM, ENOSPC, ENOTDIR, EPERM, EROFS, ESTALE}},
    {SYS_mknodat, "mknodat", nullptr, {EACCES, EDQUOT, EIO, ELOOP, ENOMEM, ENOSPC, ENOTDIR, EPERM, EROFS, ESTALE}},
    {SYS_linkat,
     "linkat AT_SYMLINK_FOLLOW",  // from /proc, which may not be there
     isFollowed,
     {EACCES, EDQUOT, EIO, ELOOP, EMLINK, ENOENT, ENOMEM, ENOSPC, ENOTDIR, EPERM, EROFS, ESTALE, EXDEV}},
    {SYS_linkat,
     "linkat",
     nullptr,
     {EACCES, EDQUOT, EIO, ELOOP, EMLINK, ENOMEM, ENOSPC, ENOTDIR, EPERM, EROFS, ESTALE}},
    {SYS_unlinkat, "unlinkat", nullptr, {EACCES, EBUSY, EIO, ELOOP, ENOMEM, ENOTDIR, EPERM, EROFS, ESTALE}},
    {fstatatCall, "fstat", isOpenFile, {EIO, ENOMEM, ESTALE}},  // no path is walked
    {fstatatCall, "fstatat", nullptr, {EACCES, EIO, ELOOP, ENOMEM, ENOTDIR, ESTALE}},
    {SYS_fchmod, "fchmod", nullptr, {EIO, ENOMEM, EPERM, EROFS, ESTALE}},
    {ftruncateCall, "ftruncate", nullptr, {EFBIG, EINTR, EIO, ENOSPC, EPERM, ESTALE}},
    {SYS_fallocate, "fallocate", nullptr, {EDQUOT, EFBIG, EINTR, EIO, ENOMEM, ENOSPC, EPERM}},  // a tmpfs knows it
    {SYS_pread64, "pread64", nullptr, {EINTR, EIO, ESTALE}},
    {SYS_pwrite64, "pwrite64", nullptr, {EDQUOT, EFBIG, EINTR, EIO, ENOMEM, ENOSPC, EPERM, ESTALE}},
    {lseekCall, "lseek", nullptr, {}},  // of a file that is read
    {SYS_getdents64, "getdents64", nullptr, {EIO, ENOENT, ENOMEM, ESTALE}},
    {SYS_flock, "flock LOCK_UN", isUnlock, {ENOLCK}},
    {SYS_flock, "flock LOCK_NB", isTry, {EINTR, ENOLCK, EWOULDBLOCK}},
    {SYS_flock, "flock", nullptr, {EINTR, ENOLCK}},

    // Descriptors.
    {SYS_close, "close", nullptr, {EDQUOT, EINTR, EIO, ENOSPC}},
    {fcntlCall, "fcntl F_DUPFD_CLOEXEC", isDuplicate, {EMFILE, ENOMEM}},
    {fcntlCall, "fcntl F_SETPIPE_SZ", isPipeSize, {EBUSY, ENOMEM, EPERM}},
    {fcntlCall, "fcntl", nullptr, {}},     // only asks
    {SYS_dup3, "dup3", nullptr, {EINTR}},  // onto one that is there
    {SYS_read, "read", nullptr, {EAGAIN, EINTR, EIO}},
    {SYS_write, "write", nullptr, {EINTR, EIO, ENOMEM}},
    {SYS_poll, "poll", nullptr, {EINTR}},  // one descriptor is looked at without memory
    {SYS_epoll_create1, "epoll_create1", nullptr, {EMFILE, ENFILE, ENOMEM}},
    {SYS_epoll_ctl, "epoll_ctl EPOLL_CTL_ADD", isAdd, {ENOMEM, ENOSPC}},
    {SYS_epoll_ctl, "epoll_ctl", nullptr, {}},  // what is taken out is in, and needs nothing
    {SYS_epoll_wait, "epoll_wait", nullptr, {EINTR}},
    {SYS_timerfd_create, "timerfd_create", nullptr, {EMFILE, ENFILE, ENOMEM}},
    {settimeCall, "timerfd_settime", nullptr, {}},  // ECANCELED is for those who ask for it
    {SYS_socket, "socket", nullptr, {EACCES, EMFILE, ENFILE, ENOBUFS, ENOMEM}},
    {SYS_connect, "connect", nullptr, {EACCES, EAGAIN, ECONNREFUSED, EINTR, EPERM, EPROTOTYPE}},
    {SYS_ioctl, "ioctl", nullptr, {EIO}},
    {SYS_sendto, "sendto", nullptr, {EAGAIN, ECONNRESET, EINTR, ENOBUFS, ENOMEM, ENOTCONN, EPIPE}},
#if defined(__i386__)
    {SYS_socketcall, "socketcall", nullptr, {EACCES, EINTR, ENOMEM}},  // one of the three above
#endif

    // Memory.
    {SYS_brk, "brk", nullptr, {ENOMEM}},
    {mmapCall, "mmap", nullptr, {EAGAIN, ENFILE, ENOMEM, EPERM}},
    {SYS_mremap, "mremap", nullptr, {EAGAIN, ENOMEM}},
    {SYS_munmap, "munmap", nullptr, {}},  // ENOMEM is for those who unmap a part
    {SYS_mprotect, "mprotect", nullptr, {EACCES, ENOMEM}},
    {SYS_mincore, "mincore", nullptr, {EAGAIN, ENOMEM}},
    {SYS_mlock2, "mlock2", nullptr, {EAGAIN, ENOMEM, EPERM}},
    {SYS_munlock, "munlock", nullptr, {EAGAIN, ENOMEM, EPERM}},

    // The process and its time.
    {SYS_clone, "clone", nullptr, {EAGAIN, ENOMEM}},
    {SYS_set_robust_list, "set_robust_list", nullptr, {}},
    {SYS_prctl, "prctl", nullptr, {}},
    {SYS_membarrier, "membarrier", nullptr, {EPERM}},  // of one who may not
    {SYS_exit_group, "exit_group", nullptr, {}},
    {geteuidCall, "geteuid", nullptr, {}},
    {SYS_getpid, "getpid", nullptr, {}},
    {SYS_prlimit64, "prlimit64", nullptr, {}},                        // asks for its own
    {SYS_sched_getaffinity, "sched_getaffinity", nullptr, {EINVAL}},  // more processors than the mask has bits
    {SYS_sched_yield, "sched_yield", nullptr, {}},
    {SYS_futex, "futex", nullptr, {}},  // only wakes
    {nanosleepCall, "clock_nanosleep", nullptr, {EINTR}},
    {SYS_getrandom, "getrandom", nullptr, {EINTR}},
    {SYS_rt_sigprocmask, "rt_sigprocmask", nullptr, {}},
    {SYS_rt_sigpending, "rt_sigpending", nullptr, {}},
    {sigtimedwaitCall, "rt_sigtimedwait", nullptr, {EAGAIN, EINTR}},
};

template <class Condition>
const KnownCall* find(Condition condition) {
    const auto found = std::find_if(known.begin(), known.end(), condition);
    return found == known.end() ? nullptr : &*found;
}

}  // namespace

bool KnownCall::mayAnswer(int error) const {
    return std::count(errors.begin(), errors.end(), error) != 0;
}

bool KnownCall::isDoneNevertheless() const {
    return number == SYS_close;
}

bool KnownCall::isRemoval() const {
    return number == SYS_unlinkat;
}

bool KnownCall::isFork() const {
    return number == SYS_clone;
}

bool KnownCall::isLast() const {
    return number == SYS_exit_group;
}

bool KnownCall::isIdle() const {
    return number == SYS_sched_yield;
}

const KnownCall* lineOf(const Call& call) {
    return find([&](const KnownCall& line) {
        return line.number == call.number && (line.isIt == nullptr || line.isIt(call));
    });
}

const KnownCall* lineNamed(const std::string& name) {
    return find([&](const KnownCall& line) { return line.name == name; });
}

}  // namespace calls
