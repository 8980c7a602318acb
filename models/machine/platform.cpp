// What endpoints ask of the operating system, asked of the modelled one.

#include "models/machine/platform.h"

#include <sched.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "host/arena/arena_file.h"
#include "host/arena/domain_path.h"
#include "host/arena/layout.h"
#include "host/mailbox/doorbell.h"
#include "host/system/this_process.h"
#include "models/machine/kernel.h"
#include "models/machine/scheduler.h"

namespace model {
namespace {

constexpr time_t secondsAtStart = 1000;  ///< of the clocks

constexpr size_t mostBytes = size_t{linx::firstPoolPage(plentyOfPages) + plentyOfPages} * linx::pageBytes;
/// From here on events have no memory, and so no slots to which they belong.
constexpr uint32_t eventsEnd = linx::eventsOffset + (slotsWithMemory + 1) * uint32_t{sizeof(linx::EventRing)};
static_assert(eventsEnd % linx::pageBytes == 0, "memory comes in pages");

void* arenaMemory = nullptr;
uint32_t arenaPages = 0;

}  // namespace

void layArena(uint32_t pages) {
    if (arenaMemory == nullptr) {
        arenaMemory = mmap(nullptr, mostBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        memory.cover(arenaMemory, mostBytes);
    }
    madvise(arenaMemory, mostBytes, MADV_DONTNEED);  // all zero again
    arenaPages = pages;
}

}  // namespace model

namespace linx {

std::string domainPath() {
    return "model";
}
int openDomainDirectory(const std::string&) {
    return model::kernel.openFile();
}
int openArenaFile(int) {
    return model::kernel.openFile();
}
int openOrMakeArenaFile(int, unsigned, bool&) {
    return model::kernel.openFile();
}
uint32_t checkArenaFile(int) {
    return model::arenaPages;
}
// The mapping is that of all modelled processes, and stays.
void Unmap::operator()(void*) const {}
ArenaMapping mapArenaFile(int, uint32_t) {
    return ArenaMapping(model::arenaMemory, {0});
}
uint32_t startOfThisProcess() {
    return 0;
}
uint32_t namespaceOfThisProcess() {
    return 0;
}
bool reservePages(int, uint32_t first, uint32_t count) {
    const bool isOfEvents = first >= eventsOffset / pageBytes && first < pageMapOffset / pageBytes;
    if (!isOfEvents || first + count <= model::eventsEnd / pageBytes) return true;
    errno = ENOMEM;
    return false;
}

namespace doorbell {

int make(int, Spid spid, unsigned) {
    return model::kernel.makeDoorbell(numberOf(spid));
}
int open(int, Spid spid) {
    return model::kernel.openDoorbell(numberOf(spid));
}
bool remove(int, Spid spid) {
    model::kernel.removeDoorbell(numberOf(spid));
    return true;
}
int ring(int descriptor) {
    const int result = model::kernel.writeDoorbell(descriptor, 0);
    return result == EAGAIN ? 0 : result;
}
bool tell(int descriptor, uint32_t record) {
    return model::kernel.writeDoorbell(descriptor, record) == 0;
}
uint32_t drain(int descriptor, uint32_t (&records)[capacity]) {
    static_assert(model::Kernel::doorbellCapacity <= capacity, "what a modelled doorbell holds fits");
    const uint32_t count = model::kernel.drainDoorbell(descriptor, records);
    if (count != model::Kernel::doorbellCapacity) return count;
    std::fill(records + count, records + capacity, 0u);  // a full one is full
    return capacity;
}
bool isDead(int descriptor) {
    return model::kernel.isDoorbellDead(descriptor);
}

}  // namespace doorbell
}  // namespace linx

extern "C" {

int __real_close(int descriptor);

int __wrap_close(int descriptor) {
    if (model::kernel.closeFile(descriptor)) return 0;
    if (!model::kernel.owns(descriptor)) return __real_close(descriptor);
    model::kernel.close(descriptor);
    return 0;
}
// Of the arena's file, which is opened once more to be locked.
int __wrap_openat(int, const char*, int, ...) {
    return model::kernel.openFile();
}
int __wrap_fstat(int, struct stat* status) {
    *status = {};
    status->st_mode = S_IFDIR | 0700;
    status->st_dev = 1;
    status->st_ino = model::arenaPages;  // arenas of different sizes are different ones
    status->st_nlink = 1;
    return 0;
}
// The real processes share one descriptor here: the lock is the process's.
int __wrap_flock(int, int operation) {
    if (operation == LOCK_UN) return model::kernel.unlockArena();
    return model::kernel.lockArena((operation & LOCK_NB) == 0);
}
// Each modelled process has one thread.
int __wrap_pthread_mutex_lock(pthread_mutex_t*) {
    return 0;
}
int __wrap_pthread_mutex_trylock(pthread_mutex_t*) {
    return 0;
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t*) {
    return 0;
}

int __wrap_fcntl(int descriptor, int, ...) {
    return model::kernel.duplicate(descriptor);
}
int __wrap_getrlimit(int, rlimit* limit) {
    *limit = {RLIM_INFINITY, RLIM_INFINITY};
    return 0;
}
// Which machine the model itself runs on makes no difference.
int __wrap_sched_getaffinity(pid_t, size_t, cpu_set_t*) {
    return -1;
}

int __wrap_epoll_create1(int) {
    return model::kernel.makeSet();
}
int __wrap_epoll_ctl(int set, int operation, int descriptor, epoll_event* event) {
    if (operation == EPOLL_CTL_DEL) return model::kernel.unwatch(set, descriptor);
    return model::kernel.watch(set, descriptor, event->events, event->data.u32);
}
int __wrap_epoll_wait(int set, epoll_event* events, int most, int milliseconds) {
    model::Kernel::Event found[16];
    const int count = model::kernel.waitFor(set, found, most < 16 ? most : 16, milliseconds);
    for (int i = 0; i < count; ++i) {
        events[i].events = found[i].events;
        events[i].data.u32 = found[i].tag;
    }
    return count;
}

// Others go on whenever they may.
int __wrap_sched_yield() {
    return 0;
}
int __wrap_nanosleep(const timespec*, timespec*) {
    return 0;
}

int __wrap_timerfd_create(int, int) {
    return model::kernel.makeTimer();
}
int __wrap_timerfd_settime(int descriptor, int, const itimerspec* when, itimerspec*) {
    const timespec& at = when->it_value;
    const bool isArmed = at.tv_sec != 0 || at.tv_nsec != 0;
    const auto seconds = static_cast<uint64_t>(at.tv_sec - model::secondsAtStart);
    model::kernel.setTimer(
        descriptor, isArmed ? seconds * 1000000 + static_cast<uint64_t>(at.tv_nsec) / 1000 : model::Kernel::never);
    return 0;
}
int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    model::Scheduler& asked = model::scheduler;
    const uint64_t microseconds = clock == CLOCK_MONOTONIC ? asked.askTime() : asked.coarseTime();
    *time = {model::secondsAtStart, static_cast<long>(microseconds * 1000)};
    return 0;
}

}  // extern "C"
