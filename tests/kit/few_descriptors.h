#ifndef LINXIPC_TESTS_KIT_FEW_DESCRIPTORS_H
#define LINXIPC_TESTS_KIT_FEW_DESCRIPTORS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

/// While it lives, this process may open no more than `count` more descriptors.
class FewDescriptors {
public:
    explicit FewDescriptors(unsigned count) {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
        rlimit few = before_;
        few.rlim_cur = 0;
        for (unsigned unused = 0; few.rlim_cur < before_.rlim_cur; ++few.rlim_cur) {
            if (fcntl(static_cast<int>(few.rlim_cur), F_GETFD) == -1 && unused++ == count) break;
        }
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit before_ = {};
};

#endif
