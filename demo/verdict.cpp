#include "demo/verdict.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "demo/nodes.h"
#include "demo/protocol.h"
#include "demo/stream.h"

namespace demo {

namespace {

using Values = std::vector<std::uint64_t>;

constexpr std::size_t handledWanted = 2;  // messages during an asynchronous request

std::string number(std::size_t number, const std::string& noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string hex(std::uint64_t number) {
    char text[20];
    std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(number & 0xffffffffU));
    return text;
}

bool countsUp(const Values& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] != i + 1) return false;
    }
    return true;
}

bool allAre(const Values& values, std::uint64_t wanted) {
    return std::all_of(values.begin(), values.end(), [&](std::uint64_t value) { return value == wanted; });
}

Row hunted(const Ledger& ledger) {
    const std::size_t vain = ledger.count(Fact::huntedInVain);
    const std::size_t late = ledger.count(Fact::foundLate);
    return {"a name hunted before it exists", "1 or more, all told later",
            std::to_string(vain) + " in vain, " + std::to_string(late) + " told later",
            ledger.witnesses(Fact::foundLate), vain > 0 && vain == late};
}

Row notified(const Ledger& ledger, const Options& options) {
    const std::size_t wanted = roster.size() - 1 + options.rounds;
    const std::size_t seen = ledger.count(Fact::announced);
    return {"notifications", number(wanted, "announcement"), number(seen, "announcement"),
            ledger.witnesses(Fact::announced), seen == wanted};
}

Row requested(const Ledger& ledger, const Options& options) {
    const std::size_t wanted = roster.size() - 2 + options.rounds;
    const std::size_t given = ledger.count(Fact::configGiven);
    const std::size_t taken = ledger.count(Fact::configTaken);
    return {"a request answered by a handler", number(wanted, "answer"),
            std::to_string(given) + " given, " + std::to_string(taken) + " taken",
            ledger.witnesses(Fact::configGiven) + ", " + ledger.witnesses(Fact::configTaken),
            given == wanted && taken == wanted};
}

Row requestedAsynchronously(const Ledger& ledger, const Options& options) {
    const Values handled = ledger.values(Fact::connected);
    const auto least = std::min_element(handled.begin(), handled.end());
    const std::size_t fewest = least == handled.end() ? 0 : static_cast<std::size_t>(*least);
    return {"an asynchronous request", std::to_string(options.rounds) + ", 2 or more handled in each",
            std::to_string(handled.size()) + ", " + std::to_string(fewest) + " or more handled in each",
            ledger.witnesses(Fact::connected), handled.size() == options.rounds && fewest >= handledWanted};
}

Row polled(const Ledger& ledger, const Options& options) {
    const std::size_t presses = ledger.count(Fact::buttonRead);
    const std::size_t signals = ledger.count(Fact::signalPolled);
    return {"a poll loop with another descriptor", std::to_string(2 * options.rounds) + " presses, and signals",
            std::to_string(presses) + " presses, " + number(signals, "signal"), ledger.witnesses(Fact::buttonRead),
            presses == 2 * options.rounds && signals > 0};
}

Row ticked(const Ledger& ledger) {
    const Values fired = ledger.values(Fact::tickFired, e_SysTickHal);
    const Values seen = ledger.values(Fact::tickSeen, e_UiMgr);
    return {"periodic ticks by time-out", std::to_string(ticksWanted) + " or more, none missing",
            std::to_string(fired.size()) + " fired, " + std::to_string(seen.size()) + " seen",
            ledger.witnesses(Fact::tickFired) + ", " + ledger.witnesses(Fact::tickSeen),
            fired.size() >= ticksWanted && seen.size() >= ticksWanted && countsUp(fired) && countsUp(seen)};
}

Row streamed(const Ledger& ledger, const Options& options) {
    Values wanted;
    for (unsigned round = 1; round <= options.rounds; ++round) {
        wanted.push_back(streamChecksum(options.seed, round, options.payload));
    }
    const std::size_t signals = std::size_t{options.rounds} * chunkCount(options.payload);
    const std::size_t relayed = ledger.count(Fact::chunkRelayed, e_StreamMgr);
    const Values played = ledger.values(Fact::streamPlayed);
    const std::string last = played.empty() ? "none" : hex(played.back());
    return {"a stream of " + std::to_string(options.payload) + " bytes, relayed",
            number(signals, "signal") + ", sum " + hex(wanted.back()), number(relayed, "signal") + ", sum " + last,
            ledger.witnesses(Fact::chunkRelayed) + ", " + ledger.witnesses(Fact::streamPlayed),
            relayed == signals && played == wanted};
}

Row supervised(const Ledger& ledger, const Options& options) {
    const std::size_t killed = ledger.count(Fact::killed);
    const std::size_t byWatchdog = ledger.count(Fact::supervisorTold, e_WatchdogMgr);
    const std::size_t byState = ledger.count(Fact::supervisorTold, e_StateMgr);
    return {"a server killed, its supervisors told",
            number(options.rounds, "kill") + ", " + number(2 * options.rounds, "notice"),
            number(killed, "kill") + ", " + number(byWatchdog + byState, "notice"),
            ledger.witnesses(Fact::supervisorTold),
            killed == options.rounds && byWatchdog == options.rounds && byState == options.rounds};
}

Row cutShort(const Ledger& ledger, const Options& options) {
    const Values results = ledger.values(Fact::requestCutShort);
    const std::string seen = results.empty() ? "none" : "result " + std::to_string(results.back());
    return {"a request cut short by a death", std::to_string(options.rounds) + " with result 113",
            std::to_string(results.size()) + (results.empty() ? "" : " with " + seen),
            ledger.witnesses(Fact::requestCutShort),
            results.size() == options.rounds && allAre(results, EHOSTUNREACH)};
}

Row restarted(const Ledger& ledger, const Options& options) {
    const std::size_t seen = ledger.count(Fact::restarted);
    return {"the dead server started again", number(options.rounds, "restart"), number(seen, "restart"),
            ledger.witnesses(Fact::restarted), seen == options.rounds};
}

Row reached(const Ledger& ledger, const Options& options) {
    const Values pids = ledger.values(Fact::restarted);
    const Values byState = ledger.values(Fact::reached, e_StateMgr);
    const Values byUi = ledger.values(Fact::reached, e_UiMgr);
    const Values before = ledger.values(Fact::positionTaken);
    return {
        "its new process reached by name", number(2 * options.rounds, "answer") + " from its pid",
        number(byState.size() + byUi.size(), "answer"), ledger.witnesses(Fact::reached),
        pids.size() == options.rounds && byState == pids && byUi == pids && before == ledger.values(Fact::killed)};
}

Row encoded(const Ledger& ledger) {
    const Values pids = ledger.values(Fact::encoded);
    const std::size_t wanted = encoders.size() + 1;
    // The one behind the link that was cut is the same process before and after. Which of the two was the first to
    // answer, nobody has promised.
    return {"servers of other nodes reached by name", number(wanted, "answer") + ", one after a cut",
            number(pids.size(), "answer"), ledger.witnesses(Fact::encoded),
            pids.size() == wanted && pids[0] != pids[1] && (pids[2] == pids[0] || pids[2] == pids[1])};
}

Row cut(const Ledger& ledger) {
    const std::size_t cuts = ledger.count(Fact::linkCut);
    const std::size_t proxies = ledger.count(Fact::encoderLost);
    const std::size_t sessions = ledger.count(Fact::linkLost);
    return {"a link killed, its end told", "1 kill, 2 notices",
            number(cuts, "kill") + ", " + number(proxies + sessions, "notice"), ledger.witnesses(Fact::linkLost),
            cuts == 1 && proxies == 1 && sessions == 1};
}

Row shutDown(const Ledger& ledger, const Options& options) {
    const std::size_t servers = roster.size() + (options.nodes ? encoders.size() + 1 : 0);
    const Values results = ledger.values(Fact::receiveEnded);
    const Values statuses = ledger.values(Fact::exited);
    const auto inOrder = std::count(statuses.begin(), statuses.end(), 0U);
    const std::string all = std::to_string(servers);
    return {
        "an orderly shutdown", all + " times 108, " + all + " exits with 0",
        std::to_string(std::count(results.begin(), results.end(), std::uint64_t{ESHUTDOWN})) + " times 108, " +
            std::to_string(inOrder) + " exits with 0",
        ledger.witnesses(Fact::receiveEnded),
        results.size() == servers && allAre(results, ESHUTDOWN) && statuses.size() == servers && allAre(statuses, 0)};
}

Row nothingLeft(const Remains& remains) {
    return {"nothing left behind", "no process, no file",
            (remains.processes == 0 ? "no process, " : std::to_string(remains.processes) + " killed, ") +
                (remains.domainRemoved ? "no file" : "files"),
            "launcher", remains.processes == 0 && remains.domainRemoved};
}

}  // namespace

std::vector<Row> judge(const Ledger& ledger, const Options& options, const Remains& remains) {
    std::vector<Row> rows = {hunted(ledger),
                             notified(ledger, options),
                             requested(ledger, options),
                             requestedAsynchronously(ledger, options),
                             polled(ledger, options),
                             ticked(ledger),
                             streamed(ledger, options),
                             supervised(ledger, options),
                             cutShort(ledger, options),
                             restarted(ledger, options),
                             reached(ledger, options),
                             shutDown(ledger, options),
                             nothingLeft(remains)};
    if (options.nodes) rows.insert(rows.end() - 2, {encoded(ledger), cut(ledger)});
    return rows;
}

}  // namespace demo
