#include "inspect/holdings.h"

#include <algorithm>
#include <vector>

#include "inspect/record.h"
#include "inspect/signals.h"

namespace linx {
namespace inspect {
namespace {

/// What endpoints have recorded, each read once.
class Records {
public:
    explicit Records(const Arena& arena) : arena_(arena) {}

    /// When the signal came to its owner, at the latest; 0 where nothing tells.
    uint64_t timeOf(Where where, Spid owner, const BlockRef& block) {
        if (where != Where::held && where != Where::queued) return 0;  // it came from nobody
        const Spid sender = block->sender.loadRelaxed();
        if (where == Where::held) {
            return sender == owner ? 0 : timeOf(of(owner), EventKind::received, sender, block.ref);
        }
        return timeOf(of(sender), EventKind::sent, owner, block.ref);
    }

private:
    struct Record {
        std::vector<Recorded> events;
        bool isFromTheBeginning = false;
    };

    const Record& of(Spid spid) {
        const auto known = records_.find(spid);
        if (known != records_.end()) return known->second;
        Record& record = records_[spid];
        if (spid == Spid::none || spidOf(arena_.slot(indexOf(spid)).life.loadRelaxed()) != spid) return record;
        record.events = recordOf(arena_, indexOf(spid));
        record.isFromTheBeginning = !record.events.empty() && record.events.front().kind == EventKind::opened;
        return record;
    }

    /// Of the last such event, or of a time after it. One that is not recorded any more was before all that is.
    static uint64_t timeOf(const Record& record, EventKind kind, Spid peer, Ref block) {
        uint64_t time = 0;
        for (auto event = record.events.rbegin(); event != record.events.rend(); ++event) {
            if (event->time != 0) time = event->time;
            if (event->kind == kind && event->peer == peer && event->block == block) return time;
        }
        return record.isFromTheBeginning ? 0 : time;
    }

    const Arena& arena_;
    std::unordered_map<Spid, Record> records_;
};

}  // namespace

std::unordered_map<Spid, Holding> holdingsOf(const Arena& arena) {
    Records records(arena);
    std::unordered_map<Spid, Holding> holdings;
    forEachSignal(arena, [&](Where where, Spid owner, BlockRef block) {
        if (where == Where::parked) return;
        Holding& holding = holdings[owner];
        ++holding.sizes[linesOfClass(block.sizeClass) * lineBytes];
        const uint64_t time = records.timeOf(where, owner, block);
        if (time != 0) holding.since = std::min(holding.since.value_or(time), time);
    });
    return holdings;
}

}  // namespace inspect
}  // namespace linx
