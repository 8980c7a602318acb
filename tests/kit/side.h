#ifndef LINXIPC_TESTS_KIT_SIDE_H
#define LINXIPC_TESTS_KIT_SIDE_H

#include <memory>
#include <string>

#include "platform/linx.h"
#include "tests/kit/child.h"

/// A test between processes has two sides: its own process is on this one, with the roles that it has played in its
/// own size, and the other roles are on the other. Both are in one domain, unless the run has a link between them:
/// then each knows the endpoints of the other by their names behind the link.
///
/// Whether there is a link between them. And what an endpoint of this side, or of the other, is called by this
/// process, for a name that somebody else opened: who opens an endpoint gives it its name without a link.
bool areApart();
std::string here(const std::string& name);
std::string there(const std::string& name);

/// The spid by which this process knows the endpoint that a process has opened as `name`, as here() or there() give
/// it, and told the spid of. Returns when it is known.
LinxSpid met(uint32_t told, const std::string& name);

/// Returns when this side knows that the endpoint, of a process that has ended, is no more. In one domain that is so
/// at once.
void learnEndOf(LinxSpid spid);

/// How long to wait for what is there at once in one domain, in milliseconds.
uint32_t atOnce();

/// What the other side of a run lives behind, if it does not live in the domain of the test.
class OtherSide {
public:
    /// How it is made for a test in that domain; null where both sides share it.
    static std::unique_ptr<OtherSide> (*make)(const std::string& domain);

    /// Marks this process as one of the sides that have a link between them.
    OtherSide();
    virtual ~OtherSide();
    OtherSide(const OtherSide&) = delete;
    OtherSide& operator=(const OtherSide&) = delete;

    virtual std::string domain() const = 0;

    /// Has this process be on the other side from now on, if there is a link in between.
    static void enter();
};

#endif
