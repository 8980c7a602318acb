#include "demo/verdict.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "demo/protocol.h"
#include "demo/roster.h"
#include "demo/stream.h"

namespace demo {

namespace {

using Values = std::vector<std::uint64_t>;

constexpr std::size_t handledWanted = 2;  // messages during an asynchronous request

std::string Number(std::size_t number, const std::string& noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string Hex(std::uint64_t number) {
    char text[20];
    std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(number & 0xffffffffU));
    return text;
}

bool CountsUp(const Values& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] != i + 1) return false;
    }
    return true;
}

bool AllAre(const Values& values, std::uint64_t wanted) {
    return std::all_of(values.begin(), values.end(), [&](std::uint64_t value) { return value == wanted; });
}

Row Hunted(const Ledger& ledger) {
    const std::size_t vain = ledger.Count(Fact::huntedInVain);
    const std::size_t late = ledger.Count(Fact::foundLate);
    return {"a name hunted before it exists", "1 or more, all told later",
            std::to_string(vain) + " in vain, " + std::to_string(late) + " told later",
            ledger.Witnesses(Fact::foundLate), vain > 0 && vain == late};
}

Row Notified(const Ledger& ledger, const Options& options) {
    const std::size_t wanted = roster.size() - 1 + options.rounds;
    const std::size_t seen = ledger.Count(Fact::announced);
    return {"notifications", Number(wanted, "announcement"), Number(seen, "announcement"),
            ledger.Witnesses(Fact::announced), seen == wanted};
}

Row Requested(const Ledger& ledger, const Options& options) {
    const std::size_t wanted = roster.size() - 2 + options.rounds;
    const std::size_t given = ledger.Count(Fact::configGiven);
    const std::size_t taken = ledger.Count(Fact::configTaken);
    return {"a request answered by a handler", Number(wanted, "answer"),
            std::to_string(given) + " given, " + std::to_string(taken) + " taken",
            ledger.Witnesses(Fact::configGiven) + ", " + ledger.Witnesses(Fact::configTaken),
            given == wanted && taken == wanted};
}

Row RequestedAsynchronously(const Ledger& ledger, const Options& options) {
    const Values handled = ledger.Values(Fact::connected);
    const auto least = std::min_element(handled.begin(), handled.end());
    const std::size_t fewest = least == handled.end() ? 0 : static_cast<std::size_t>(*least);
    return {"an asynchronous request", std::to_string(options.rounds) + ", 2 or more handled in each",
            std::to_string(handled.size()) + ", " + std::to_string(fewest) + " or more handled in each",
            ledger.Witnesses(Fact::connected), handled.size() == options.rounds && fewest >= handledWanted};
}

Row Polled(const Ledger& ledger, const Options& options) {
    const std::size_t presses = ledger.Count(Fact::buttonRead);
    const std::size_t signals = ledger.Count(Fact::signalPolled);
    return {"a poll loop with another descriptor", std::to_string(2 * options.rounds) + " presses, and signals",
            std::to_string(presses) + " presses, " + Number(signals, "signal"), ledger.Witnesses(Fact::buttonRead),
            presses == 2 * options.rounds && signals > 0};
}

Row Ticked(const Ledger& ledger) {
    const Values fired = ledger.Values(Fact::tickFired, e_SysTickHal);
    const Values seen = ledger.Values(Fact::tickSeen, e_UiMgr);
    return {"periodic ticks by time-out", std::to_string(ticksWanted) + " or more, none missing",
            std::to_string(fired.size()) + " fired, " + std::to_string(seen.size()) + " seen",
            ledger.Witnesses(Fact::tickFired) + ", " + ledger.Witnesses(Fact::tickSeen),
            fired.size() >= ticksWanted && seen.size() >= ticksWanted && CountsUp(fired) && CountsUp(seen)};
}

Row Streamed(const Ledger& ledger, const Options& options) {
    Values wanted;
    for (unsigned round = 1; round <= options.rounds; ++round) {
        wanted.push_back(StreamChecksum(options.seed, round, options.payload));
    }
    const std::size_t signals = std::size_t{options.rounds} * ChunkCount(options.payload);
    const std::size_t relayed = ledger.Count(Fact::chunkRelayed, e_StreamMgr);
    const Values played = ledger.Values(Fact::streamPlayed);
    const std::string last = played.empty() ? "none" : Hex(played.back());
    return {"a stream of " + std::to_string(options.payload) + " bytes, relayed",
            Number(signals, "signal") + ", sum " + Hex(wanted.back()), Number(relayed, "signal") + ", sum " + last,
            ledger.Witnesses(Fact::chunkRelayed) + ", " + ledger.Witnesses(Fact::streamPlayed),
            relayed == signals && played == wanted};
}

Row Supervised(const Ledger& ledger, const Options& options) {
    const std::size_t killed = ledger.Count(Fact::killed);
    const std::size_t byWatchdog = ledger.Count(Fact::supervisorTold, e_WatchdogMgr);
    const std::size_t byState = ledger.Count(Fact::supervisorTold, e_StateMgr);
    return {"a server killed, its supervisors told",
            Number(options.rounds, "kill") + ", " + Number(2 * options.rounds, "notice"),
            Number(killed, "kill") + ", " + Number(byWatchdog + byState, "notice"),
            ledger.Witnesses(Fact::supervisorTold),
            killed == options.rounds && byWatchdog == options.rounds && byState == options.rounds};
}

Row CutShort(const Ledger& ledger, const Options& options) {
    const Values results = ledger.Values(Fact::requestCutShort);
    const std::string seen = results.empty() ? "none" : "result " + std::to_string(results.back());
    return {"a request cut short by a death", std::to_string(options.rounds) + " with result 113",
            std::to_string(results.size()) + (results.empty() ? "" : " with " + seen),
            ledger.Witnesses(Fact::requestCutShort),
            results.size() == options.rounds && AllAre(results, EHOSTUNREACH)};
}

Row Restarted(const Ledger& ledger, const Options& options) {
    const std::size_t seen = ledger.Count(Fact::restarted);
    return {"the dead server started again", Number(options.rounds, "restart"), Number(seen, "restart"),
            ledger.Witnesses(Fact::restarted), seen == options.rounds};
}

Row Reached(const Ledger& ledger, const Options& options) {
    const Values pids = ledger.Values(Fact::restarted);
    const Values byState = ledger.Values(Fact::reached, e_StateMgr);
    const Values byUi = ledger.Values(Fact::reached, e_UiMgr);
    const Values before = ledger.Values(Fact::positionTaken);
    return {
        "its new process reached by name", Number(2 * options.rounds, "answer") + " from its pid",
        Number(byState.size() + byUi.size(), "answer"), ledger.Witnesses(Fact::reached),
        pids.size() == options.rounds && byState == pids && byUi == pids && before == ledger.Values(Fact::killed)};
}

Row ShutDown(const Ledger& ledger) {
    const Values results = ledger.Values(Fact::receiveEnded);
    const Values statuses = ledger.Values(Fact::exited);
    const auto inOrder = std::count(statuses.begin(), statuses.end(), 0U);
    const std::string all = std::to_string(roster.size());
    return {"an orderly shutdown", all + " times 108, " + all + " exits with 0",
            std::to_string(std::count(results.begin(), results.end(), std::uint64_t{ESHUTDOWN})) + " times 108, " +
                std::to_string(inOrder) + " exits with 0",
            ledger.Witnesses(Fact::receiveEnded),
            results.size() == roster.size() && AllAre(results, ESHUTDOWN) && statuses.size() == roster.size() &&
                AllAre(statuses, 0)};
}

Row NothingLeft(const Remains& remains) {
    return {"nothing left behind", "no process, no file",
            (remains.processes == 0 ? "no process, " : std::to_string(remains.processes) + " killed, ") +
                (remains.domainRemoved ? "no file" : "files"),
            "launcher", remains.processes == 0 && remains.domainRemoved};
}

}  // namespace

std::vector<Row> Judge(const Ledger& ledger, const Options& options, const Remains& remains) {
    return {Hunted(ledger),
            Notified(ledger, options),
            Requested(ledger, options),
            RequestedAsynchronously(ledger, options),
            Polled(ledger, options),
            Ticked(ledger),
            Streamed(ledger, options),
            Supervised(ledger, options),
            CutShort(ledger, options),
            Restarted(ledger, options),
            Reached(ledger, options),
            ShutDown(ledger),
            NothingLeft(remains)};
}

}  // namespace demo
