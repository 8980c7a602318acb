#ifndef LINXIPC_TESTS_KIT_FAILURES_H
#define LINXIPC_TESTS_KIT_FAILURES_H

#include <string>

/// What fails in a process of a test, in memory that outlives it: the killed can tell by nothing else.
class Failures {
public:
    /// For a process that is about to be made.
    Failures();
    /// As another process has made it. Takes over the descriptor.
    explicit Failures(int descriptor);
    ~Failures();
    Failures(const Failures&) = delete;
    Failures& operator=(const Failures&) = delete;

    /// From now on this process notes here what fails in it, and nowhere else. For as long as it lives.
    void note() const;

    /// What has been noted; empty when nothing failed.
    std::string text() const;

    /// To be inherited by a program that is executed. Of the process that notes here.
    static int ownDescriptor();

    /// Not needed by who only reads.
    void closeDescriptor();

private:
    struct Page;
    class Listener;

    int descriptor_;
    Page* page_;
};

#endif
