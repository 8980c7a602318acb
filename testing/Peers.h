#ifndef LINXIPC_TESTING_PEERS_H
#define LINXIPC_TESTING_PEERS_H

#include <deque>
#include <initializer_list>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "testing/Signals.h"

namespace linx::testing {

/// Those who are there and those who were, as far as the test has told, and who waits for the one or the other.
class Peers {
public:
    struct Hunt {
        std::string name;
        const LINX* hunter;
        Signal* signal;  // null: the default one
    };
    struct Notice {
        LinxSpid spid;
        Signal* signal;
    };

    static constexpr LinxSpid ownSpid = 1;      // of the endpoint that is opened first
    static constexpr LinxSpid firstSpid = 100;  // those below are the test's

    LinxSpid add(const std::string& name);

    /// The spid that has ended, 0 when no such peer was added.
    LinxSpid end(const std::string& name);

    bool has(const std::string& name) const { return present_.count(name) != 0; }
    bool hasEnded(LinxSpid spid) const { return ended_.count(spid) != 0; }

    LinxSpid newSpid() { return nextSpid_++; }

    void setName(LinxSpid spid, const std::string& name) { names_[spid] = name; }

    /// Null when it is not known.
    const std::string* nameOf(LinxSpid spid) const;

    void answerHunts(const std::string& name, std::initializer_list<LinxSpid> spids);

    /// Whom the next hunt for the name finds.
    std::optional<LinxSpid> find(const std::string& name);

    void await(const Hunt& hunt) { hunts_.push_back(hunt); }
    void await(const Notice& notice) { notices_.push_back(notice); }

    /// The hunts for that name, which wait no longer.
    std::list<Hunt> takeHunts(const std::string& name);

    /// The notices of that end, which wait no longer.
    std::list<Notice> takeNotices(LinxSpid spid);

    std::list<Hunt> takeAllHunts();

private:
    std::map<LinxSpid, std::string> names_;
    std::map<std::string, std::deque<LinxSpid>> answers_;
    std::map<std::string, LinxSpid> present_;  // those that were added and have not ended
    std::set<LinxSpid> ended_;
    std::list<Hunt> hunts_;
    std::list<Notice> notices_;
    LinxSpid nextSpid_ = firstSpid;
};

}  // namespace linx::testing

#endif
