#include "demo/launcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "demo/console.h"
#include "demo/descriptors.h"
#include "demo/domain.h"
#include "demo/ledger.h"
#include "demo/processes.h"
#include "demo/protocol.h"
#include "demo/roster.h"
#include "demo/servers/payload.h"
#include "demo/verdict.h"
#include "ipc/linxIpc.h"

namespace demo {

namespace {

/// How far the demonstration has come. It goes on when the servers have reported what the stage waits for.
enum class Stage {
    hunting,     // some servers run and must have looked for WatchdogMgr in vain
    joining,     // all run; WatchdogMgr must say that everybody is ready
    playing,     // Play was pressed; UiMgr must be connected
    locating,    // Locate was pressed; GpsHal must have somebody waiting for it, to be killed then
    recovering,  // GpsHal was killed; everybody must have noticed and reached the new one
    ticking,     // all rounds are done; enough ticks must have been seen
    ending,      // the shutdown request is out; all servers must have ended
    over
};

class Launcher {
public:
    explicit Launcher(const Options& options);
    int Run();

private:
    bool Open();
    void StartInRandomOrder();
    void StartServer(e_Process server);
    void Loop();
    int MillisecondsLeft() const;

    void TakeReports();
    void TakeSignals();
    void TakeMessages();
    void TakeEnds();
    void OnRestart(IpcMessage& message);
    void Judge(const Processes::End& end);

    void Advance();
    void BeginRound();
    void KillGpsHal();
    bool Recovered() const;
    bool EnoughTicks() const;
    void RequestShutdown();
    void Press(Button button);

    void Say(const std::string& text) { console.Line(Microseconds(), launcher, text); }
    void GiveUp(const std::string& reason);
    int Finish();

    const Options& options;
    const std::int64_t deadline;
    Console console;
    Ledger ledger;
    SignalDescriptor signals;  // blocks the signals, so it comes before everything that is to be cleaned up
    Domain domain;
    Pipe reports;
    Pipe frontPanel;
    Processes processes;
    LinxIpc ipc;

    Stage stage = Stage::hunting;
    std::vector<e_Process> toStart;
    bool allReady = false;
    unsigned round = 0;
    pid_t victim = 0;
    std::string failure;
    int interruptedBy = 0;
};

Launcher::Launcher(const Options& chosen)
    : options(chosen),
      deadline(Microseconds() + std::int64_t{chosen.limit} * 1000000),
      console(chosen.noColor),
      signals({SIGINT, SIGTERM, SIGHUP, SIGCHLD}),
      processes(options, reports.WriteEnd(), frontPanel.ReadEnd(), signals.MaskBefore()),
      ipc(Name(launcher)) {
    ipc.RegisterHandler(
        m_AllReady, [](LinxIpc*, void* self) { static_cast<Launcher*>(self)->allReady = true; }, this);
    ipc.RegisterHandler(
        m_Restart,
        [](LinxIpc* endpoint, void* self) { static_cast<Launcher*>(self)->OnRestart(endpoint->rxMessage); }, this);
}

int Launcher::Run() {
    if (Open()) {
        StartInRandomOrder();
        Loop();
    }
    return Finish();
}

bool Launcher::Open() {
    if (domain.Path().empty()) {
        GiveUp(std::string("cannot make a directory in /dev/shm: ") + std::strerror(errno));
        return false;
    }
    if (!signals.Valid() || !reports.Valid() || !frontPanel.Valid()) {
        GiveUp("cannot open pipes");
        return false;
    }
    if (const int error = ipc.Init(); error != 0) {
        GiveUp(std::string("cannot open an endpoint: ") + std::strerror(error));
        return false;
    }
    Say("domain " + domain.Path() + ", seed " + std::to_string(options.seed) + ", rounds " +
        std::to_string(options.rounds) + ", payload " + std::to_string(options.payload) + " bytes");
    return true;
}

/// WatchdogMgr is never the first, and waits until one of those before it has hunted it in vain.
void Launcher::StartInRandomOrder() {
    std::mt19937_64 random(options.seed);
    toStart.assign(roster.begin(), roster.end());
    std::shuffle(toStart.begin(), toStart.end(), random);
    if (toStart.front() == e_WatchdogMgr) std::swap(toStart.front(), toStart.back());
    while (toStart.front() != e_WatchdogMgr) {
        StartServer(toStart.front());
        toStart.erase(toStart.begin());
    }
}

void Launcher::StartServer(e_Process server) {
    const pid_t pid = processes.Start(server);
    if (pid == -1) return GiveUp("cannot start " + Name(server) + ": " + std::strerror(errno));
    Say("starts " + Name(server) + ", process " + std::to_string(pid));
}

void Launcher::Loop() {
    pollfd watched[] = {{reports.ReadEnd(), POLLIN, 0}, {signals.Number(), POLLIN, 0}, {ipc.Descriptor(), POLLIN, 0}};
    while (stage != Stage::over && failure.empty() && interruptedBy == 0) {
        const int left = MillisecondsLeft();
        if (left == 0) {
            return GiveUp("not finished within " + std::to_string(options.limit) +
                          " s; see the table for what is missing");
        }
        if (poll(watched, 3, left) == -1 && errno != EINTR) return GiveUp(std::strerror(errno));
        TakeReports();
        if (watched[1].revents != 0) TakeSignals();
        if (watched[2].revents != 0) TakeMessages();
        Advance();
    }
}

int Launcher::MillisecondsLeft() const {
    return static_cast<int>(std::max<std::int64_t>(deadline - Microseconds(), 0) / 1000);
}

void Launcher::TakeReports() {
    Report report{};
    while (read(reports.ReadEnd(), &report, sizeof report) == sizeof report) {
        const auto server = static_cast<e_Process>(report.server);
        if (report.text[0] != '\0') console.Line(report.microseconds, server, report.text);
        ledger.Note(server, report.fact, report.value);
        if (report.fact == Fact::failed) GiveUp(Name(server) + " reports a failure");
    }
}

void Launcher::TakeSignals() {
    signalfd_siginfo info{};
    while (read(signals.Number(), &info, sizeof info) == sizeof info) {
        if (info.ssi_signo != SIGCHLD) interruptedBy = static_cast<int>(info.ssi_signo);
    }
    TakeEnds();
}

void Launcher::TakeMessages() {
    const int result = ipc.Receive(0, 0, LinxIpc::emptyString, nullptr);
    if (result != 0 && result != ETIMEDOUT) GiveUp("the launcher's Receive gave " + std::to_string(result));
}

void Launcher::TakeEnds() {
    while (const auto end = processes.Reap()) {
        TakeReports();  // what it said last comes before its end
        Judge(*end);
    }
}

void Launcher::Judge(const Processes::End& end) {
    if (end.pid == victim) return;  // as it was meant to
    ledger.Note(end.server, Fact::exited, static_cast<unsigned>(end.status));
    const bool inOrder = end.status == 0;
    std::string how = "exit status " + std::to_string(WEXITSTATUS(end.status));
    if (WIFSIGNALED(end.status)) how = std::string("killed by ") + strsignal(WTERMSIG(end.status));
    Say(Name(end.server) + " has ended, " + how);
    if (!inOrder || stage != Stage::ending) GiveUp(Name(end.server) + " ended when it should not: " + how);
}

void Launcher::OnRestart(IpcMessage& message) {
    const auto server = static_cast<e_Process>(Unpack<Died>(message).process);
    const pid_t pid = processes.Start(server);
    if (pid == -1) return GiveUp("cannot start " + Name(server) + ": " + std::strerror(errno));
    ledger.Note(LinxServerNameList::Instance().Process(message.GetSender()), Fact::restarted,
                static_cast<std::uint64_t>(pid));
    Say("starts " + Name(server) + " again for " + message.GetSender() + ", process " + std::to_string(pid));
}

void Launcher::Advance() {
    switch (stage) {
        case Stage::hunting:
            if (ledger.Count(Fact::huntedInVain) == 0) return;
            for (const e_Process server : toStart) StartServer(server);
            stage = Stage::joining;
            return;
        case Stage::joining:
            if (allReady) BeginRound();
            return;
        case Stage::playing:
            if (ledger.Count(Fact::connected) < round) return;
            Press(b_Locate);
            stage = Stage::locating;
            return;
        case Stage::locating:
            if (ledger.Count(Fact::fixAwaited) == round) KillGpsHal();
            return;
        case Stage::recovering:
            if (!Recovered()) return;
            if (round < options.rounds) return BeginRound();
            stage = Stage::ticking;
            return;
        case Stage::ticking:
            if (EnoughTicks()) RequestShutdown();
            return;
        case Stage::ending:
            if (processes.Empty()) stage = Stage::over;
            return;
        case Stage::over:
            return;
    }
}

void Launcher::BeginRound() {
    ++round;
    Say("round " + std::to_string(round) + ": presses Play");
    Press(b_Play);
    stage = Stage::playing;
}

void Launcher::KillGpsHal() {
    victim = processes.Kill(e_GpsHal);
    if (victim == -1) return GiveUp("there is no GpsHal to kill");
    ledger.Note(launcher, Fact::killed, static_cast<std::uint64_t>(victim));
    Say("kills GpsHal, process " + std::to_string(victim) + ", with SIGKILL");
    stage = Stage::recovering;
}

bool Launcher::Recovered() const {
    return ledger.Count(Fact::supervisorTold) == 2 * round && ledger.Count(Fact::requestCutShort) == round &&
           ledger.Count(Fact::reached) == 2 * round;
}

bool Launcher::EnoughTicks() const {
    return ledger.Count(Fact::tickFired) >= ticksWanted && ledger.Count(Fact::tickSeen) >= ticksWanted;
}

void Launcher::RequestShutdown() {
    Say("asks WatchdogMgr to shut everything down");
    IpcMessage message;
    message.Allocate(m_Shutdown, 0, nullptr);
    if (ipc.Notify(Name(e_WatchdogMgr), message, true) != 0) return GiveUp("cannot reach WatchdogMgr");
    stage = Stage::ending;
}

void Launcher::Press(Button button) {
    if (write(frontPanel.WriteEnd(), &button, 1) != 1) GiveUp("cannot press a button");
}

void Launcher::GiveUp(const std::string& reason) {
    if (failure.empty()) failure = reason;
}

/// Ends what still runs, leaves nothing behind and says what happened.
int Launcher::Finish() {
    Remains remains;
    remains.processes = processes.KillAll();
    remains.domainRemoved = domain.Remove();
    if (interruptedBy != 0) {
        console.Text("linx-demo: interrupted by " + std::string(strsignal(interruptedBy)) + "; all servers ended, " +
                     (remains.domainRemoved ? "nothing left behind" : "files left in " + domain.Path()));
        return 128 + interruptedBy;
    }
    const std::vector<Row> rows = demo::Judge(ledger, options, remains);
    console.Table(rows);
    const bool all = std::all_of(rows.begin(), rows.end(), [](const Row& row) { return row.happened; });
    if (!failure.empty()) console.Text("linx-demo: " + failure);
    console.Text(all && failure.empty() ? "Everything happened that was to happen." : "Not everything happened.");
    return all && failure.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Seconds by which a launcher that is past its time limit may be late to end its servers on a busy machine.
constexpr unsigned slowness = 10;

/// The last resort, should the launcher itself be stuck; its servers die with it.
void EndAtOnce(int) {
    static constexpr char text[] = "linx-demo: the launcher is stuck and ends itself\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text, sizeof text - 1);
    _exit(EXIT_FAILURE);
}

}  // namespace

int Launch(const Options& options) {
    signal(SIGPIPE, SIG_IGN);  // a reader that has seen enough is no reason to leave things behind
    signal(SIGALRM, EndAtOnce);
    alarm(options.limit + slowness);
    setenv("LINX_LOG", "syslog", 0);  // the terminal is for the demonstration
    return Launcher(options).Run();
}

void ListCapabilities(const Options& options) {
    Console console(options.noColor);
    for (const Row& row : Judge(Ledger(), options, Remains())) {
        console.Text(row.what + std::string(row.what.size() < 40 ? 40 - row.what.size() : 1, ' ') + row.expected);
    }
}

}  // namespace demo
