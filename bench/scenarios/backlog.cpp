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

void Answer(LinxIpc* server, void* reply) {
    server->Notify(server->rxMessage.GetSender(), *static_cast<IpcMessage*>(reply), true);
}

[[noreturn]] void Serve(const Case& chosen, const Barrier& allOpen) {
    Confine(chosen.placement);
    LinxIpc server("server");
    IpcMessage reply;
    reply.Allocate(answer, static_cast<unsigned>(chosen.payload), nullptr);
    std::memset(reply.DataPtr(), 0, chosen.payload);
    server.RegisterHandler(question, Answer, &reply);
    Expect(server.Init() == 0, "LinxIpc does not open");
    Settle(chosen.placement, 0);
    allOpen.Wait();
    allOpen.Wait();
    for (;;) server.Receive(-1, 0, LinxIpc::emptyString, nullptr);
}

[[noreturn]] void Bother(const Case& chosen, const Barrier& allOpen) {
    BurstEndpoint stranger("stranger", "requester", smallestPayload);
    allOpen.Wait();
    stranger.Meet();
    for (unsigned i = 0; i < chosen.population; ++i) stranger.Send();
    allOpen.Wait();
    for (;;) pause();  // what it has sent is its own until it is received
}

void Ask(const Case& chosen, const Effort& effort, const Barrier& allOpen, FigureSheet& sheet) {
    Confine(chosen.placement);
    LinxIpc requester("requester");
    IpcMessage request, reply;
    request.Allocate(question, static_cast<unsigned>(chosen.payload), nullptr);
    std::memset(request.DataPtr(), 0, chosen.payload);
    Expect(requester.Init() == 0, "LinxIpc does not open");
    Settle(chosen.placement, 1);
    allOpen.Wait();
    allOpen.Wait();
    const auto lap = [&] {
        Expect(requester.Request("server", request, answer, -1, &reply) == 0 && reply.Length() == chosen.payload,
               "a wrong answer");
    };
    TimeLaps(
        effort, lap, [] { return ProcessorNanoseconds(getpid()); }, sheet);
    unsigned queued = 0;
    while (requester.Receive(0, BurstEndpoint::type, LinxIpc::emptyString, nullptr) == 0) ++queued;
    Expect(queued == chosen.population, "the queue does not hold what was sent");
}

class Backlog : public Scenario {
public:
    std::string Name() const override { return "backlog"; }
    std::string About() const override {
        return "A request and its answer; counts the other messages that wait at the one who asks";
    }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        return LinxIpcAmong(wishes, Placement::apart, 64, {0, wishes.effort.quick ? 1000U : 100000U});
    }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const Workspace workspace;
        const Barrier allOpen(3);
        const Shared<FigureSheet> sheet;
        RunCrew({{Member::Part::servant, [&] { Serve(chosen, allOpen); }},
                 {Member::Part::servant, [&] { Bother(chosen, allOpen); }},
                 {Member::Part::principal, [&] { Ask(chosen, effort, allOpen, *sheet); }}});
        return sheet->Read();
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeBacklog() {
    return std::make_unique<Backlog>();
}

}  // namespace bench
