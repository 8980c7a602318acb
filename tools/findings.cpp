#include "tools/findings.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

#include "host/arena/admission.h"
#include "host/arena/arena_file.h"
#include "host/arena/share.h"
#include "host/arena/slot_table.h"
#include "host/debug/validate.h"
#include "host/mailbox/doorbell.h"
#include "inspect/hunts.h"
#include "inspect/waits.h"
#include "tools/look.h"
#include "tools/text.h"

namespace tools {
namespace {

using linx::inspect::Edge;
using linx::inspect::Endpoint;
using linx::inspect::PendingHunt;
using linx::inspect::Place;
using linx::inspect::Process;
using linx::inspect::Snapshot;
using linx::inspect::State;

/// What may be on its way, and so be gone at the next look.
struct Passing {
    std::vector<PendingHunt> hunts;
    std::vector<linx::Spid> doorbells;  ///< of endpoints that are not open
    std::vector<Edge> waits;            ///< of endpoints that wait in circles, or for long
    std::string disorder;

    bool isEmpty() const { return hunts.empty() && doorbells.empty() && waits.empty() && disorder.empty(); }
};

bool isLong(const Edge& edge) {
    return secondsSince(edge.since) > 1;
}

bool isIn(const std::vector<std::vector<linx::Spid>>& cycles, linx::Spid spid) {
    return std::any_of(cycles.begin(), cycles.end(), [&](const std::vector<linx::Spid>& cycle) {
        return std::find(cycle.begin(), cycle.end(), spid) != cycle.end();
    });
}

std::vector<Edge> doubtfulWaits(const std::vector<Endpoint>& endpoints) {
    std::vector<Edge> edges = linx::inspect::edgesOf(endpoints);
    const auto cycles = linx::inspect::cyclesOf(edges);
    edges.erase(std::remove_if(edges.begin(), edges.end(),
                               [&](const Edge& edge) { return !isLong(edge) && !isIn(cycles, edge.from); }),
                edges.end());
    return edges;
}

Passing passingIn(const Place& place, const linx::Arena& arena) {
    Passing passing;
    passing.hunts = linx::inspect::pendingHunts(arena);
    passing.waits = doubtfulWaits(linx::inspect::endpointsOf(arena, place));
    // Who has the lock may be in the middle of what it guards, for long if it is stopped.
    if (!linx::inspect::lockHolderOf(place.file())) {
        passing.disorder = linx::debug::validate(arena, linx::debug::Grade::quick).broken;
    }
    for (const linx::Spid spid : linx::inspect::doorbellsIn(place.directory())) {
        if (!isOpen(arena, spid)) passing.doorbells.push_back(spid);
    }
    return passing;
}

/// What two looks have in common.
template <class T>
std::vector<T> both(const std::vector<T>& first, const std::vector<T>& second) {
    std::vector<T> common;
    std::copy_if(first.begin(), first.end(), std::back_inserter(common),
                 [&](const T& one) { return std::find(second.begin(), second.end(), one) != second.end(); });
    return common;
}

Passing lasting(const Passing& first, const Passing& second) {
    return {both(first.hunts, second.hunts), both(first.doorbells, second.doorbells), both(first.waits, second.waits),
            first.disorder == second.disorder ? first.disorder : std::string()};
}

class Examination {
public:
    explicit Examination(const Place& place) : place_(place) {}

    std::vector<Finding> all() {
        if (place_.directory() != -1) {
            lookAtFiles();
            lookAtFileSystem();
            lookAtLock();
        }
        std::unique_ptr<Snapshot> snapshot = Snapshot::take(place_.file());
        if (snapshot == nullptr) {
            if (errno == EPROTO)
                foundForeignArena();
            else
                failToRead(place_.path());
            return std::move(findings_);
        }
        lookAtEndpoints(snapshot->arena());
        lookAtWhatLasts(std::move(snapshot));
        return std::move(findings_);
    }

private:
    void found(const char* finding, const std::string& subject, const std::string& text, const std::string& remedy) {
        findings_.push_back({finding, subject, text, remedy});
    }

    void foundForeignArena() {
        found("foreign-arena", place_.path(),
              "is no arena of this make: another version or machine has made it, or it "
              "is damaged",
              "end who uses it, and remove it; or look at it with the `linx` of that version");
    }

    void lookAtFiles() {
        struct stat directory;
        struct stat file;
        if (fstat(place_.directory(), &directory) == -1 || fstat(place_.file(), &file) == -1) return;
        if (!linx::keepsItsFiles(directory)) {
            found("permissions", place_.path(), "anybody may exchange the files of the domain, so nobody can join it",
                  "chmod o-w " + shellWord(place_.path()));
        }
        if (!linx::isForMembers(file, directory, geteuid())) {
            found("permissions", place_.path() + "/arena", "others than members may have made it, or may write to it",
                  "chmod o-w " + shellWord(place_.path() + "/arena"));
        }
        const bool forGroup = (directory.st_mode & S_IRWXG) == S_IRWXG && linx::keepsItsFiles(directory);
        if (forGroup && ((file.st_mode & S_IWGRP) == 0 || file.st_gid != directory.st_gid)) {
            found("permissions", place_.path() + "/arena", "the directory is for a group that cannot join",
                  "end who uses it, chmod 2770 " + shellWord(place_.path()) + ", and remove the arena");
        }
    }

    void lookAtFileSystem() {
        constexpr uint64_t fewParts = 16;
        struct statfs status;
        if (fstatfs(place_.directory(), &status) == -1) return;
        const auto kind = static_cast<uint32_t>(status.f_type);
        if (kind != TMPFS_MAGIC && kind != RAMFS_MAGIC) {
            found("not-tmpfs", place_.path(), "does not lie on a tmpfs: the kernel writes the signals to disk",
                  "have $LINX_DOMAIN name a directory on /dev/shm");
        } else if (status.f_blocks != 0 && status.f_bavail < status.f_blocks / fewParts) {
            found("tmpfs-full", place_.path(),
                  "of its file system only " +
                      humanBytes(uint64_t{status.f_bavail} * static_cast<uint64_t>(status.f_bsize)) +
                      " are left: soon nobody can lease memory",
                  "remove what else lies there, or mount it larger");
        }
    }

    void lookAtLock() {
        const auto holder = linx::inspect::lockHolderOf(place_.file());
        const std::optional<Process> process = holder ? linx::inspect::processOf(*holder) : std::nullopt;
        if (!process || !process->isStopped) return;
        found("stopped-lock-holder", describe(process->name, process),
              "is stopped and has the lock of the domain: nobody can open, close or hunt an absent name",
              "kill -CONT " + std::to_string(process->pid));
    }

    void lookAtEndpoints(const linx::Arena& arena) {
        const uint64_t share = uint64_t{linx::share::limitOf(arena)} * linx::lineBytes;
        for (const Endpoint& endpoint : linx::inspect::endpointsOf(arena, place_)) {
            if (endpoint.state == State::dead) {
                found("dead", endpoint.name, "has ended with its process, and nobody has cleared up after it yet",
                      "linx wait --gone " + nameWord(endpoint.name));
            }
            if (endpoint.state == State::stopped) {
                found("stopped", describe(endpoint.name, endpoint.process), "stands still: its process is stopped",
                      "kill -CONT " + std::to_string(endpoint.process->pid));
            }
            if (endpoint.state != State::ended) lookAtMemory(endpoint, share);
        }
    }

    void lookAtMemory(const Endpoint& endpoint, uint64_t share) {
        const auto& account = endpoint.account;
        if (account.lent.bytes >= share - share / 8) {
            found("full-share", endpoint.name,
                  "has used " + humanBytes(account.lent.bytes) + " of the " + humanBytes(share) +
                      " that it may have: soon it can send nothing",
                  "have its receivers keep up (`linx holders` names them), or make the domain with a larger "
                  "$LINX_ARENA_MB");
        }
        const uint64_t owned = account.held.bytes + account.queued.bytes;
        if (owned >= share / 2) {
            found("hoard", endpoint.name,
                  "keeps " + humanBytes(owned) + " in " + std::to_string(account.held.signals) +
                      " signals that it has not freed and " + std::to_string(account.queued.signals) +
                      " that it has not received",
                  "linx status " + nameWord(endpoint.name) + " shows their numbers and senders");
        }
    }

    void lookAtWhatLasts(std::unique_ptr<Snapshot> snapshot) {
        Passing passing = passingIn(place_, snapshot->arena());
        for (int looks = 2; looks != 0 && !passing.isEmpty(); --looks) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
            snapshot.reset();  // first: each is as large as what is used of the arena
            snapshot = Snapshot::take(place_.file());
            if (snapshot == nullptr) {
                if (errno != EPROTO) failToRead(place_.path());
                return foundForeignArena();
            }
            passing = lasting(passing, passingIn(place_, snapshot->arena()));
        }
        lookAtWaits(snapshot->arena(), passing.waits);
        for (const PendingHunt& hunt : passing.hunts) {
            found("hunt-pending", nameIn(snapshot->arena(), hunt.hunter),
                  "hunts for '" + hunt.name + "', which nobody has opened",
                  "start who is to be called that, or put the name right");
        }
        for (const linx::Spid spid : passing.doorbells) {
            const std::string file = place_.path() + "/bell." + hexadecimal(spid);
            found("left-over", file, "is the doorbell of nobody", "rm " + shellWord(file));
        }
        if (!passing.disorder.empty()) {
            found("disorder", place_.path(), "the arena is not in order: " + passing.disorder,
                  "whoever takes the domain's lock next mends what a death has left; what was scribbled over stays: "
                  "end "
                  "all endpoints, and remove the domain");
        }
    }

    void lookAtWaits(const linx::Arena& arena, const std::vector<Edge>& waits) {
        const auto cycles = linx::inspect::cyclesOf(waits);
        for (const auto& cycle : cycles) {
            const std::string first = nameIn(arena, cycle.front());
            std::string way = "waits for ";
            for (size_t i = 1; i < cycle.size(); ++i) way += nameIn(arena, cycle[i]) + ", which waits for ";
            found("cycle", first, way + first + ": each has asked the next one, and none can answer",
                  "have one of them ask without waiting; for now, linx shutdown " + nameWord(first) +
                      " has its request fail");
        }
        for (const Edge& edge : waits) {
            if (!isIn(cycles, edge.from) && isLong(edge)) foundLongWait(arena, edge);
        }
    }

    void foundLongWait(const linx::Arena& arena, const Edge& edge) {
        const std::string from = nameIn(arena, edge.from);
        const std::string to = nameIn(arena, edge.to);
        const bool canAnswer = isOpen(arena, edge.to);
        found("long-wait", from,
              "sent " + std::to_string(edge.sent) + " to " + to + (canAnswer ? " " : ", which has ended, ") +
                  humanSeconds(secondsSince(edge.since)) + " ago and waits for " + std::to_string(edge.number),
              canAnswer
                  ? "linx status " + nameWord(to) + " shows what it does instead of answering"
                  : "have it attach to whom it asks, or limit its waits; for now, linx shutdown " + nameWord(from));
    }

    const Place& place_;
    std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> examine(const Place& place) {
    return Examination(place).all();
}

}  // namespace tools
