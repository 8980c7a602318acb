#include <unistd.h>

#include "bench/harness/barrier.h"
#include "bench/harness/clock.h"
#include "bench/harness/crew.h"
#include "bench/harness/workspace.h"
#include "bench/peers/head.h"
#include "bench/scenarios/burst_endpoint.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"

namespace bench {

namespace {

constexpr unsigned question = 3000, answer = 3001;

void giveAnswer(LinxIpc* server, void* reply) {
    server->Notify(server->rxMessage.GetSender(), *static_cast<IpcMessage*>(reply), true);
}

[[noreturn]] void serve(const Case& chosen, const Barrier& allOpen) {
    confine(chosen.placement);
    LinxIpc server("server");
    IpcMessage reply;
    reply.Allocate(answer, static_cast<unsigned>(chosen.payload), nullptr);
    std::memset(reply.DataPtr(), 0, chosen.payload);
    server.RegisterHandler(question, giveAnswer, &reply);
    expect(server.Init() == 0, "LinxIpc does not open");
    settle(chosen.placement, 0);
    allOpen.wait();
    allOpen.wait();
    for (;;) server.Receive(-1, 0, LinxIpc::emptyString, nullptr);
}

[[noreturn]] void bother(const Case& chosen, const Barrier& allOpen) {
    BurstEndpoint stranger("stranger", "requester", smallestPayload);
    allOpen.wait();
    stranger.meet();
    for (unsigned i = 0; i < chosen.population; ++i) stranger.send();
    allOpen.wait();
    for (;;) pause();  // what it has sent is its own until it is received
}

void ask(const Case& chosen, const Effort& effort, const Barrier& allOpen, FigureSheet& sheet) {
    confine(chosen.placement);
    LinxIpc requester("requester");
    IpcMessage request, reply;
    request.Allocate(question, static_cast<unsigned>(chosen.payload), nullptr);
    std::memset(request.DataPtr(), 0, chosen.payload);
    expect(requester.Init() == 0, "LinxIpc does not open");
    settle(chosen.placement, 1);
    allOpen.wait();
    allOpen.wait();
    const auto lap = [&] {
        expect(requester.Request("server", request, answer, -1, &reply) == 0 && reply.Length() == chosen.payload,
               "a wrong answer");
    };
    timeLaps(
        effort, lap, [] { return processorNanoseconds(getpid()); }, sheet);
    unsigned queued = 0;
    while (requester.Receive(0, BurstEndpoint::type, LinxIpc::emptyString, nullptr) == 0) ++queued;
    expect(queued == chosen.population, "the queue does not hold what was sent");
}

class Backlog : public Scenario {
public:
    std::string name() const override { return "backlog"; }
    std::string about() const override {
        return "A request and its answer; counts the other messages that wait at the one who asks";
    }

    std::vector<Case> cases(const Wishes& wishes) const override {
        return linxIpcAmong(wishes, Placement::apart, 64, {0, wishes.effort.quick ? 1000U : 100000U});
    }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const Workspace workspace;
        const Barrier allOpen(3);
        const Shared<FigureSheet> sheet;
        runCrew({{Member::Part::servant, [&] { serve(chosen, allOpen); }},
                 {Member::Part::servant, [&] { bother(chosen, allOpen); }},
                 {Member::Part::principal, [&] { ask(chosen, effort, allOpen, *sheet); }}});
        return sheet->read();
    }
};

}  // namespace

std::unique_ptr<Scenario> makeBacklog() {
    return std::make_unique<Backlog>();
}

}  // namespace bench
