#include "bench/harness/footprint.h"

#include <algorithm>

#include "bench/harness/barrier.h"
#include "bench/harness/crew.h"
#include "bench/harness/shared.h"
#include "bench/harness/workspace.h"
#include "bench/peers/list.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/list.h"
#include "bench/scenarios/sequence.h"
#include "ipc/linxIpc.h"

namespace bench {

namespace {

/// A message that each process sends to others, and that each of those receives.
constexpr std::size_t messageSize = 1000;

/// What the processes of a run have come to take since they began, in stages that all of them reach together.
class Growth {
public:
    explicit Growth(unsigned processes)
        : processes_(processes), before_(processes), now_(processes), all_(processes) {}

    /// Twice: what all of them share counts in full until all of them have touched it.
    void begin(unsigned self) const {
        before_[self] = now_[self] = footprintOf("self");
        all_.wait();
        before_[self] = footprintOf("self");
        all_.wait();
    }

    /// Ends a stage. One process puts down what all of them take by then, together and `daemons` included, and what
    /// the greediest of them has to itself.
    void put(unsigned self, const std::string& stage, FigureSheet& sheet,
             const std::vector<pid_t>& daemons = {}) const {
        all_.wait();
        now_[self] = footprintOf("self") - before_[self];
        all_.wait();
        if (self != 0) return;
        Footprint sum, most;
        for (const pid_t daemon : daemons) sum = sum + footprintOf(std::to_string(daemon));
        for (unsigned i = 0; i < processes_; ++i) {
            sum = sum + now_[i];
            most.own = std::max(most.own, now_[i].own);
            most.descriptors = std::max(most.descriptors, now_[i].descriptors);
        }
        sheet.put((stage + "_total_bytes").c_str(), sum.own + sum.shared);
        sheet.put((stage + "_shared_bytes").c_str(), sum.shared);
        sheet.put((stage + "_private_bytes").c_str(), most.own);
        sheet.put((stage + "_descriptors").c_str(), most.descriptors);
    }

    void meet() const { all_.wait(); }

private:
    unsigned processes_;
    Shared<Footprint> before_, now_;
    Barrier all_;
};

/// Runs `live` in so many processes.
Figures runAll(unsigned processes, const std::function<void(unsigned self, const Growth&, FigureSheet&)>& live) {
    const Growth growth(processes);
    const Shared<FigureSheet> sheet;
    std::vector<Member> members;
    for (unsigned self = 0; self < processes; ++self) {
        members.push_back({Member::Part::principal, [&, self] {
                               growth.begin(self);
                               live(self, growth, *sheet);
                               growth.meet();  // nobody ends while others are looked at
                           }});
    }
    runCrew(members);
    return sheet->read();
}

class RingFootprint : public Scenario {
public:
    std::string name() const override { return "footprint"; }
    std::string about() const override {
        return "What processes take that each send to the next, idle and after a message each, together and the "
               "greediest by itself; counts the processes";
    }

    std::vector<Case> cases(const Wishes& wishes) const override {
        return combine(blocking(wishes), Pattern::chain, {Placement::both}, {messageSize}, {2, 10, 37});
    }

    unsigned repeats(unsigned) const override { return 1; }

    Figures run(const Case& chosen, const Effort&) const override {
        const Workspace workspace;
        const std::unique_ptr<Session> session = chosen.peer->begin(
            {Pattern::chain, chosen.population, chosen.payload, chosen.placement, workspace.path()});
        return runAll(chosen.population, [&](unsigned self, const Growth& growth, FigureSheet& sheet) {
            End* const end = chosen.peer->open(*session, self).release();  // goes with its process
            growth.meet();
            end->connect();
            growth.put(self, "idle", sheet, session->daemons);
            sendNext(*end, self);
            end->receive();
            growth.put(self, "used", sheet, session->daemons);
        });
    }
};

class DomainFootprint : public Scenario {
public:
    std::string name() const override { return "domain"; }
    std::string about() const override {
        return "What processes with an endpoint each take, idle and after each has sent to each, together and the "
               "greediest by itself; counts the processes";
    }

    std::vector<Case> cases(const Wishes& wishes) const override {
        return linxIpcAmong(wishes, Placement::both, messageSize, {1, 10, 37});
    }

    unsigned repeats(unsigned) const override { return 1; }

    Figures run(const Case& chosen, const Effort&) const override {
        const Workspace workspace;
        return runAll(chosen.population, [&](unsigned self, const Growth& growth, FigureSheet& sheet) {
            constexpr unsigned type = 2000;
            LinxIpc endpoint("domain." + std::to_string(self));
            expect(endpoint.Init() == 0, "LinxIpc does not open");
            growth.put(self, "idle", sheet);
            IpcMessage message, received;
            expect(message.Allocate(type, static_cast<unsigned>(chosen.payload), nullptr) == 0, "no memory");
            std::memset(message.DataPtr(), 0, chosen.payload);
            for (unsigned other = 0; other < chosen.population; ++other) {
                if (other == self) continue;
                expect(endpoint.Notify("domain." + std::to_string(other), message, true) == 0, "Notify");
            }
            for (unsigned left = chosen.population - 1; left != 0; --left) {
                expect(endpoint.Receive(-1, type, LinxIpc::emptyString, &received) == 0, "Receive");
            }
            growth.put(self, "used", sheet);
        });
    }
};

}  // namespace

std::unique_ptr<Scenario> makeFootprint() {
    return std::make_unique<RingFootprint>();
}

std::unique_ptr<Scenario> makeDomain() {
    return std::make_unique<DomainFootprint>();
}

}  // namespace bench
