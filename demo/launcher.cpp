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
#include "demo/nodes.h"
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
    offloading,  // with --nodes: both encoders must have answered; then a link is killed
    cutOff,      // its end must be told; then it is started again
    relinking,   // the encoder behind it must have answered again
    ending,      // the shutdown request is out; all servers must have ended
    over
};

class Launcher {
public:
    explicit Launcher(const Options& options);
    int run();

private:
    bool open();
    void startInRandomOrder();
    void startServer(e_Process server);
    void startLink(e_Process link);
    bool startNodes();
    void loop();
    int millisecondsLeft() const;

    void takeReports();
    void takeSignals();
    void takeMessages();
    void takeEnds();
    void onRestart(IpcMessage& message);
    void judge(const Processes::End& end);

    void advance();
    void beginRound();
    void killGpsHal();
    bool recovered() const;
    bool enoughTicks() const;
    void cutLink();
    void dismissLinks();
    void requestShutdown();
    void press(Button button);

    void say(const std::string& text) { console_.printLine(microseconds(), launcher, text); }
    void giveUp(const std::string& reason);
    int finish();

    const Options& options_;
    const std::int64_t deadline_;
    Console console_;
    Ledger ledger_;
    SignalDescriptor signals_;  // blocks the signals, so it comes before everything that is to be cleaned up
    Domain domain_;
    Pipe reports_;
    Pipe frontPanel_;
    Processes processes_;
    LinxIpc ipc_;

    Stage stage_ = Stage::hunting;
    std::vector<e_Process> toStart_;
    bool allReady_ = false;
    unsigned round_ = 0;
    pid_t victim_ = 0;
    bool linksDismissed_ = false;
    std::string failure_;
    int interruptedBy_ = 0;
};

Launcher::Launcher(const Options& chosen)
    : options_(chosen),
      deadline_(microseconds() + std::int64_t{chosen.limit} * 1000000),
      console_(chosen.noColor),
      signals_({SIGINT, SIGTERM, SIGHUP, SIGCHLD}),
      processes_(options_, reports_.writeEnd(), frontPanel_.readEnd(), signals_.maskBefore()),
      ipc_(nameOf(launcher)) {
    ipc_.RegisterHandler(
        m_AllReady, [](LinxIpc*, void* self) { static_cast<Launcher*>(self)->allReady_ = true; }, this);
    ipc_.RegisterHandler(
        m_Restart,
        [](LinxIpc* endpoint, void* self) { static_cast<Launcher*>(self)->onRestart(endpoint->rxMessage); }, this);
}

int Launcher::run() {
    if (open() && startNodes()) {
        startInRandomOrder();
        loop();
    }
    return finish();
}

bool Launcher::open() {
    if (domain_.path().empty()) {
        giveUp(std::string("cannot make a directory in /dev/shm: ") + std::strerror(errno));
        return false;
    }
    if (!signals_.valid() || !reports_.valid() || !frontPanel_.valid()) {
        giveUp("cannot open pipes");
        return false;
    }
    if (const int error = ipc_.Init(); error != 0) {
        giveUp(std::string("cannot open an endpoint: ") + std::strerror(error));
        return false;
    }
    say("domain " + domain_.path() + ", seed " + std::to_string(options_.seed) + ", rounds " +
        std::to_string(options_.rounds) + ", payload " + std::to_string(options_.payload) + " bytes");
    return true;
}

/// WatchdogMgr is never the first, and waits until one of those before it has hunted it in vain.
void Launcher::startInRandomOrder() {
    std::mt19937_64 random(options_.seed);
    toStart_.assign(roster.begin(), roster.end());
    std::shuffle(toStart_.begin(), toStart_.end(), random);
    if (toStart_.front() == e_WatchdogMgr) std::swap(toStart_.front(), toStart_.back());
    while (toStart_.front() != e_WatchdogMgr) {
        startServer(toStart_.front());
        toStart_.erase(toStart_.begin());
    }
}

void Launcher::startServer(e_Process server) {
    const pid_t pid = processes_.start(server);
    if (pid == -1) return giveUp("cannot start " + nameOf(server) + ": " + std::strerror(errno));
    say("starts " + nameOf(server) + ", process " + std::to_string(pid));
}

void Launcher::startLink(e_Process link) {
    const pid_t pid = processes_.startLink(link);
    if (pid == -1) return giveUp("cannot start the link " + nameOf(link) + ": " + std::strerror(errno));
    say("starts the link " + nameOf(link) + ", process " + std::to_string(pid));
}

/// The other nodes, with all that runs there, and who of here has them work.
bool Launcher::startNodes() {
    if (!options_.nodes) return true;
    if (const std::string trouble = layOutNodes(domain_.path(), options_.link); !trouble.empty()) {
        giveUp(trouble);
        return false;
    }
    startServer(encodersClient);
    for (const e_Process encoder : encoders) startServer(encoder);
    for (const e_Process link : links) startLink(link);
    return failure_.empty();
}

void Launcher::loop() {
    pollfd watched[] = {
        {reports_.readEnd(), POLLIN, 0}, {signals_.number(), POLLIN, 0}, {ipc_.Descriptor(), POLLIN, 0}};
    while (stage_ != Stage::over && failure_.empty() && interruptedBy_ == 0) {
        const int left = millisecondsLeft();
        if (left == 0) {
            return giveUp("not finished within " + std::to_string(options_.limit) +
                          " s; see the table for what is missing");
        }
        if (poll(watched, 3, left) == -1 && errno != EINTR) return giveUp(std::strerror(errno));
        takeReports();
        if (watched[1].revents != 0) takeSignals();
        if (watched[2].revents != 0) takeMessages();
        advance();
    }
}

int Launcher::millisecondsLeft() const {
    return static_cast<int>(std::max<std::int64_t>(deadline_ - microseconds(), 0) / 1000);
}

void Launcher::takeReports() {
    Report report{};
    while (read(reports_.readEnd(), &report, sizeof report) == sizeof report) {
        const auto server = static_cast<e_Process>(report.server);
        if (report.text[0] != '\0') console_.printLine(report.microseconds, server, report.text);
        ledger_.note(server, report.fact, report.value);
        if (report.fact == Fact::failed) giveUp(nameOf(server) + " reports a failure");
    }
}

void Launcher::takeSignals() {
    signalfd_siginfo info{};
    while (read(signals_.number(), &info, sizeof info) == sizeof info) {
        if (info.ssi_signo != SIGCHLD) interruptedBy_ = static_cast<int>(info.ssi_signo);
    }
    takeEnds();
}

void Launcher::takeMessages() {
    const int result = ipc_.Receive(0, 0, LinxIpc::emptyString, nullptr);
    if (result != 0 && result != ETIMEDOUT) giveUp("the launcher's Receive gave " + std::to_string(result));
}

void Launcher::takeEnds() {
    while (const auto end = processes_.reap()) {
        takeReports();  // what it said last comes before its end
        judge(*end);
    }
}

void Launcher::judge(const Processes::End& end) {
    if (end.pid == victim_) return;  // as it was meant to
    if (!isLink(end.server)) ledger_.note(end.server, Fact::exited, static_cast<unsigned>(end.status));
    const bool inOrder = end.status == 0;
    std::string how = "exit status " + std::to_string(WEXITSTATUS(end.status));
    if (WIFSIGNALED(end.status)) how = std::string("killed by ") + strsignal(WTERMSIG(end.status));
    say(nameOf(end.server) + " has ended, " + how);
    if (!inOrder || stage_ != Stage::ending) giveUp(nameOf(end.server) + " ended when it should not: " + how);
}

void Launcher::onRestart(IpcMessage& message) {
    const auto server = static_cast<e_Process>(unpack<Died>(message).process);
    const pid_t pid = processes_.start(server);
    if (pid == -1) return giveUp("cannot start " + nameOf(server) + ": " + std::strerror(errno));
    ledger_.note(LinxServerNameList::Instance().Process(message.GetSender()), Fact::restarted,
                 static_cast<std::uint64_t>(pid));
    say("starts " + nameOf(server) + " again for " + message.GetSender() + ", process " + std::to_string(pid));
}

void Launcher::advance() {
    switch (stage_) {
        case Stage::hunting:
            if (ledger_.count(Fact::huntedInVain) == 0) return;
            for (const e_Process server : toStart_) startServer(server);
            stage_ = Stage::joining;
            return;
        case Stage::joining:
            if (allReady_) beginRound();
            return;
        case Stage::playing:
            if (ledger_.count(Fact::connected) < round_) return;
            press(b_Locate);
            stage_ = Stage::locating;
            return;
        case Stage::locating:
            if (ledger_.count(Fact::fixAwaited) == round_) killGpsHal();
            return;
        case Stage::recovering:
            if (!recovered()) return;
            if (round_ < options_.rounds) return beginRound();
            stage_ = Stage::ticking;
            return;
        case Stage::ticking:
            if (!enoughTicks()) return;
            if (!options_.nodes) return requestShutdown();
            stage_ = Stage::offloading;
            return advance();
        case Stage::offloading:
            if (ledger_.count(Fact::encoded) == encoders.size()) cutLink();
            return;
        case Stage::cutOff:
            if (ledger_.count(Fact::encoderLost) == 0 || ledger_.count(Fact::linkLost) == 0) return;
            startLink(e_VpHal0);
            stage_ = Stage::relinking;
            return;
        case Stage::relinking:
            if (ledger_.count(Fact::encoded) > encoders.size()) requestShutdown();
            return;
        case Stage::ending:
            if (processes_.hasOnlyLinks()) dismissLinks();
            if (processes_.empty()) stage_ = Stage::over;
            return;
        case Stage::over:
            return;
    }
}

void Launcher::beginRound() {
    ++round_;
    say("round " + std::to_string(round_) + ": presses Play");
    press(b_Play);
    stage_ = Stage::playing;
}

void Launcher::killGpsHal() {
    victim_ = processes_.signal(e_GpsHal, SIGKILL);
    if (victim_ == -1) return giveUp("there is no GpsHal to kill");
    ledger_.note(launcher, Fact::killed, static_cast<std::uint64_t>(victim_));
    say("kills GpsHal, process " + std::to_string(victim_) + ", with SIGKILL");
    stage_ = Stage::recovering;
}

bool Launcher::recovered() const {
    return ledger_.count(Fact::supervisorTold) == 2 * round_ && ledger_.count(Fact::requestCutShort) == round_ &&
           ledger_.count(Fact::reached) == 2 * round_;
}

bool Launcher::enoughTicks() const {
    return ledger_.count(Fact::tickFired) >= ticksWanted && ledger_.count(Fact::tickSeen) >= ticksWanted;
}

void Launcher::cutLink() {
    victim_ = processes_.signal(e_VpHal0, SIGKILL);
    if (victim_ == -1) return giveUp("there is no link to kill");
    ledger_.note(launcher, Fact::linkCut, static_cast<std::uint64_t>(victim_));
    say("kills the link " + nameOf(e_VpHal0) + ", process " + std::to_string(victim_) + ", with SIGKILL");
    stage_ = Stage::cutOff;
}

/// Once nobody is left whom they serve.
void Launcher::dismissLinks() {
    if (linksDismissed_) return;
    linksDismissed_ = true;
    for (const e_Process link : links) processes_.signal(link, SIGTERM);
}

void Launcher::requestShutdown() {
    say("asks WatchdogMgr to shut everything down");
    std::vector<e_Process> asked = {e_WatchdogMgr};
    if (options_.nodes) {  // whom WatchdogMgr does not know
        asked.push_back(encodersClient);
        asked.insert(asked.end(), encoders.begin(), encoders.end());
    }
    for (const e_Process server : asked) {
        IpcMessage message;
        message.Allocate(m_Shutdown, 0, nullptr);
        if (ipc_.Notify(nameOf(server), message, true) != 0) return giveUp("cannot reach " + nameOf(server));
    }
    stage_ = Stage::ending;
}

void Launcher::press(Button button) {
    if (write(frontPanel_.writeEnd(), &button, 1) != 1) giveUp("cannot press a button");
}

void Launcher::giveUp(const std::string& reason) {
    if (failure_.empty()) failure_ = reason;
}

/// Ends what still runs, leaves nothing behind and says what happened.
int Launcher::finish() {
    Remains remains;
    remains.processes = processes_.killAll();
    remains.domainRemoved = domain_.remove();
    if (interruptedBy_ != 0) {
        console_.printText("linx-demo: interrupted by " + std::string(strsignal(interruptedBy_)) +
                           "; all servers ended, " +
                           (remains.domainRemoved ? "nothing left behind" : "files left in " + domain_.path()));
        return 128 + interruptedBy_;
    }
    const std::vector<Row> rows = demo::judge(ledger_, options_, remains);
    console_.printTable(rows);
    const bool all = std::all_of(rows.begin(), rows.end(), [](const Row& row) { return row.happened; });
    if (!failure_.empty()) console_.printText("linx-demo: " + failure_);
    console_.printText(all && failure_.empty() ? "Everything happened that was to happen."
                                               : "Not everything happened.");
    return all && failure_.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Seconds by which a launcher that is past its time limit may be late to end its servers on a busy machine.
constexpr unsigned slowness = 10;

/// The last resort, should the launcher itself be stuck; its servers die with it.
void endAtOnce(int) {
    static constexpr char text[] = "linx-demo: the launcher is stuck and ends itself\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text, sizeof text - 1);
    _exit(EXIT_FAILURE);
}

}  // namespace

int launch(const Options& options) {
    signal(SIGPIPE, SIG_IGN);  // a reader that has seen enough is no reason to leave things behind
    signal(SIGALRM, endAtOnce);
    alarm(options.limit + slowness);
    setenv("LINX_LOG", "syslog", 0);  // the terminal is for the demonstration
    return Launcher(options).run();
}

void listCapabilities(const Options& options) {
    Console console(options.noColor);
    for (const Row& row : judge(Ledger(), options, Remains())) {
        console.printText(row.what + std::string(row.what.size() < 40 ? 40 - row.what.size() : 1, ' ') +
                          row.expected);
    }
}

}  // namespace demo
