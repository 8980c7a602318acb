#include "host/system/file_lock.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/recovery/retire.h"
#include "platform/linx.h"
#include "tests/support/domain_fixture.h"

namespace {

using FileLockTest = linxtest::DomainTest;

/// Opens an endpoint, makes a child that lives until `release` is closed, and tells its number, having the cold lock.
[[noreturn]] void holdLock(const int (&tell)[2], const int (&release)[2]) {
    linx_open("holder", 0, nullptr);
    close(release[1]);
    const pid_t heir = fork();
    if (heir == 0) {
        char nothing;
        while (read(release[0], &nothing, 1) == -1) {
        }
        _exit(0);
    }
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    const linx::ColdSection cold(*domain);
    if (cold.entered() && write(tell[1], &heir, sizeof heir) == sizeof heir) pause();
    _exit(1);
}

TEST_F(FileLockTest, GoesWithItsHolderThoughAChildOfThatOneLivesOn) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the child is to be waited for
    int tell[2];
    int release[2];
    ASSERT_EQ(0, pipe(tell));
    ASSERT_EQ(0, pipe(release));
    const pid_t holder = fork();
    if (holder == 0) holdLock(tell, release);
    close(tell[1]);
    close(release[0]);
    pid_t heir = -1;
    EXPECT_EQ(ssize_t{sizeof heir}, read(tell[0], &heir, sizeof heir));
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    const std::shared_ptr<linx::Domain> joined = linx::Domain::join();
    EXPECT_TRUE(linx::ColdSection(*joined, linx::ColdSection::Patience::tryOnce).entered());
    close(release[1]);
    close(tell[0]);
    waitpid(heir, nullptr, 0);
    reapAllDead(linx::ColdSection(*joined));
}

}  // namespace
