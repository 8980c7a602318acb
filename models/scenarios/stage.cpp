#include "models/scenarios/stage.h"

#include <cstdlib>

#include "host/recovery/retire.h"
#include "models/machine/heap.h"
#include "models/machine/kernel.h"
#include "models/machine/platform.h"
#include "tests/support/arena_validator.h"

namespace model {
namespace {

constexpr uint32_t letterBytes = sizeof(LinxSignal) + sizeof(linx::Word);

/// Joined once and kept, so that the real process's list of domains stays as it is.
const std::shared_ptr<linx::Domain>& joinedDomain() {
    static const std::shared_ptr<linx::Domain> joined = [] {
        const HostHeap heap;
        layArena();
        return linx::Domain::join();
    }();
    return joined;
}
linx::Domain& domain() {
    return *joinedDomain();
}

/// Closing gives back a share of the domain that was taken before the execution began, and in every other execution
/// is given back again: takes one for it.
void takeShareOfDomain() {
    alignas(std::shared_ptr<linx::Domain>) static char share[sizeof(std::shared_ptr<linx::Domain>)];
    new (share) std::shared_ptr<linx::Domain>(joinedDomain());
}

/// The content is read and written as words of the arena: whether it can be seen is part of the question.
linx::Word& contentOf(LinxSignal* signal) {
    return *reinterpret_cast<linx::Word*>(signal + 1);
}

uint32_t letterContent(unsigned from, unsigned to, unsigned number) {
    return 0xabu << 24 | from << 16 | to << 8 | number;
}

}  // namespace

Stage::Stage(const std::vector<const char*>& names, const char* spinMicroseconds) : names_(names) {
    domain();
    layArena();
    setenv("LINX_SPIN_US", spinMicroseconds, 1);
}

const linx::Arena& Stage::arena() const {
    return domain().arena();
}

void Stage::open(unsigned actor) {
    const std::string name = names_[actor];
    endpoints_[actor] = linx::Endpoint::open({name.data(), static_cast<uint32_t>(name.size())}).release();
    if (endpoints_[actor] == nullptr) return scheduler.violate(name + " cannot open");
    LinxSignal* signal = endpoints_[actor]->allocate(letterBytes, 0);
    spids_[actor] = endpoints_[actor]->sender(&signal);
    endpoints_[actor]->free(&signal);
}

/// The running actor has the signal in its hands; nobody else alive may.
void Stage::hold(LinxSignal* signal) {
    for (const auto& [other, holder] : held_) {
        if (other == signal && !isDead(holder)) {
            return scheduler.violate(std::string("a block has two owners: ") + names_[holder] + " and " +
                                     names_[self()]);
        }
    }
    held_.push_back({signal, self()});
}

void Stage::letGo(LinxSignal* signal) {
    for (size_t i = 0; i < held_.size(); ++i) {
        if (held_[i].first != signal || held_[i].second != self()) continue;
        held_[i] = held_.back();
        held_.pop_back();
        return;
    }
}

LinxSignal* Stage::allocate(uint32_t bytes, uint32_t number) {
    LinxSignal* signal = own().allocate(bytes, number);
    if (signal != nullptr) hold(signal);
    return signal;
}

int Stage::send(unsigned to, unsigned via) {
    LinxSignal* signal = allocate(letterBytes, letter);
    if (signal == nullptr) {
        scheduler.violate("no memory");
        return -1;
    }
    via_[self()][to] = via;
    const unsigned number = begun_[self()][to]++;
    contentOf(signal).storeRelaxed(letterContent(self(), to, number));
    letGo(signal);  // before: from the push on it may be another's
    const int result = own().send(&signal, spids_[via]);
    if (result == 0) {
        ++sent_[self()][to];
    } else {
        --begun_[self()][to];
        if (!isDead(via)) scheduler.violate(std::string("a send to the living ") + names_[via] + " fails");
    }
    return result;
}

LinxSignal* Stage::receiveSignal(bool mayWait, uint32_t& size) {
    LinxSignal* signal = nullptr;
    const uint32_t any[] = {0};
    const uint32_t atOnce = 0;
    const int result = own().receive(&signal, mayWait ? nullptr : &atOnce, any);
    if (result < 0) scheduler.violate(std::string("a receive of ") + names_[self()] + " fails");
    if (result <= 0) return nullptr;
    size = static_cast<uint32_t>(result);
    hold(signal);
    return signal;
}

bool Stage::receive(bool mayWait) {
    uint32_t size = 0;
    LinxSignal* signal = receiveSignal(mayWait, size);
    if (signal == nullptr) return false;
    book(signal, size);
    letGo(signal);
    if (own().free(&signal) != 0) scheduler.violate("a signal that was received cannot be freed");
    return true;
}

void Stage::book(LinxSignal* signal, uint32_t size) {
    const uint32_t number = signal->number;
    if (number == letter) return bookLetter(signal, size);
    const unsigned about = number % 1000;
    const bool isNotice = number == notice + about;
    if (about >= maxActors || (!isNotice && number != found + about)) return scheduler.violate("a signal is garbled");
    char* name = own().nameOf(own().sender(&signal));
    if (name == nullptr || name != std::string(names_[about])) {
        scheduler.violate("a notice or an answer has another's sender");
    }
    own().freeName(&name);
    if (!isNotice) {
        if (++answered_[about] > hunted_[about]) scheduler.violate("a hunt is answered twice");
        return;
    }
    if (!isDead(about)) scheduler.violate("an end is told of one who lives");
    if (++noticed_[self()][about] > supervised_[self()][about]) scheduler.violate("an end is told twice");
    // What the dead one had sent comes before: all of it whose send returned.
    if (via_[about][self()] == self() && received_[about][self()] < sent_[about][self()]) {
        scheduler.violate("an end is told before what the dead one had sent");
    }
}

void Stage::bookLetter(LinxSignal* signal, uint32_t size) {
    const uint32_t content = contentOf(signal).loadRelaxed();
    const unsigned from = content >> 16 & 0xff;
    const unsigned to = content >> 8 & 0xff;
    if (size != letterBytes || content >> 24 != 0xab || from >= maxActors || to != self()) {
        return scheduler.violate("a signal is garbled");
    }
    const unsigned via = via_[from][to] == to ? from : via_[from][to];
    if (own().sender(&signal) != spids_[via]) scheduler.violate("a signal has another's sender");
    const unsigned expected = received_[from][to]++;
    if ((content & 0xff) < expected) scheduler.violate("a signal comes twice");
    if ((content & 0xff) > expected) scheduler.violate("a signal is lost or overtaken");
}

void Stage::receiveUntilNotice(unsigned of) {
    while (noticed_[self()][of] == 0) receive();
}

void Stage::receiveFrom(unsigned from, unsigned count) {
    while (received_[from][self()] < count) receive();
}

void Stage::pollFrom(unsigned from, unsigned count) {
    while (received_[from][self()] < count) {
        kernel.pollFor(own().descriptor());
        receive(false);
    }
}

void Stage::relay() {
    uint32_t size = 0;
    LinxSignal* signal = receiveSignal(true, size);
    if (signal == nullptr) return;
    const unsigned to = contentOf(signal).loadRelaxed() >> 8 & 0xff;
    if (signal->number != letter || to >= maxActors || to == self()) return scheduler.violate("a signal is garbled");
    letGo(signal);
    if (own().send(&signal, spids_[to]) != 0 && !isDead(to)) scheduler.violate("a relay to one who lives fails");
}

void Stage::supervise(unsigned whom) {
    LinxSignal* signal = allocate(sizeof(LinxSignal), notice + whom);
    letGo(signal);
    ++supervised_[self()][whom];
    if (own().attach(&signal, spids_[whom]) == 0) scheduler.violate("supervising fails");
}

void Stage::hunt(unsigned whom) {
    LinxSignal* signal = allocate(sizeof(LinxSignal), found + whom);
    letGo(signal);
    ++hunted_[whom];
    const std::string name = names_[whom];
    if (own().hunt({name.data(), static_cast<uint32_t>(name.size())}, &signal) != 0) {
        scheduler.violate("hunting fails");
    }
}

void Stage::keep() {
    LinxSignal* signal = allocate(letterBytes, 0);
    if (signal == nullptr) return scheduler.violate("no memory");
    kept_[self()].push_back(signal);
}

bool Stage::hasFree() const {
    bool any = false;
    linx::forEachBlock(arena(), [&](const linx::Block& block, linx::Ref, uint32_t sizeClass) {
        const bool isOwn = block.home.loadRelaxed() == spids_[self()] && block.owner.loadRelaxed() == linx::ownerFree;
        any = any || (isOwn && sizeClass == linx::classForLines(linx::linesForSignal(letterBytes)));
    });
    return any;
}

void Stage::lendKept(unsigned to) {
    LinxSignal* signal = kept_[self()].back();
    kept_[self()].pop_back();
    letGo(signal);
    own().send(&signal, spids_[to]);
    const unsigned lender = self();
    as(to);
    uint32_t size;
    kept_[to].push_back(receiveSignal(false, size));
    as(lender);
}

bool Stage::hasEmptyMailbox(unsigned actor) const {
    return !linx::stack::holdsBlocks(arena().slot(linx::indexOf(spids_[actor])).mailbox.loadRelaxed());
}

void Stage::awaitEnd(unsigned of) {
    scheduler.call("waits", false, [this, of] { return isDead(of); });
}

void Stage::freeKept() {
    LinxSignal* signal = kept_[self()].back();
    kept_[self()].pop_back();
    letGo(signal);
    if (own().free(&signal) != 0) scheduler.violate("a signal of one's own cannot be freed");
}

void Stage::openFirst(unsigned count) {
    for (unsigned actor = 0; actor < count; ++actor) {
        as(actor);
        open(actor);
    }
}

void Stage::drain(unsigned actor) {
    as(actor);
    while (receive(false)) {
    }
}

void Stage::killNow(unsigned actor) {
    killed_[actor] = true;
    kernel.exit(actor);
}

void Stage::begin() {
    const HostHeap heap;
    linx::forEachBlock(arena(), [](linx::Block& block, linx::Ref, uint32_t) { memory.keep(block.signal.number); });
}

void Stage::check() {
    for (unsigned actor = 0; actor < names_.size(); ++actor) {
        if (endpoints_[actor] == nullptr || isDead(actor)) continue;
        drain(actor);
    }
    checkLetters();
    as(0);
    {
        const linx::ColdSection cold(domain());
        linx::reapAllDead(cold);
    }
    checkArena(false);
    closeAll();
    checkArena(true);
}

void Stage::checkLetters() {
    for (unsigned from = 0; from < names_.size(); ++from) {
        for (unsigned to = 0; to < names_.size(); ++to) {
            const bool lost = received_[from][to] < sent_[from][to] && !isDead(to) && !isDead(via_[from][to]);
            if (lost) {
                scheduler.violate(std::string("a signal from ") + names_[from] + " to " + names_[to] + " is lost");
            }
            if (!isDead(from) && isDead(to) && noticed_[from][to] < supervised_[from][to]) {
                scheduler.violate(std::string(names_[from]) + " is not told of the end of " + names_[to]);
            }
        }
    }
}

void Stage::closeAll() {
    for (unsigned actor = 0; actor < names_.size(); ++actor) {
        if (endpoints_[actor] == nullptr || isDead(actor)) continue;
        as(actor);
        while (!kept_[actor].empty()) freeKept();
        takeShareOfDomain();
        delete endpoints_[actor];
    }
}

/// Every word in order; and once all have ended, every block common but one for each death.
void Stage::checkArena(bool all) {
    unsigned deaths = scheduler.deaths();
    for (const bool killed : killed_) deaths += killed ? 1 : 0;
    unsigned lost = 0;
    linx::forEachBlock(arena(), [&](const linx::Block& block, linx::Ref, uint32_t) {
        if (all && !linx::common::isCommon(block)) ++lost;
    });
    if (lost > deaths) {
        return scheduler.violate(std::to_string(lost) + " blocks leak over " + std::to_string(deaths) + " deaths");
    }
    unsigned nowhere = 0;
    for (const std::string& said : linxtest::arenaViolations(domain())) {
        const bool isLoss = said.find("is on its way and nowhere") != std::string::npos ||
                            said.find("which has ended") != std::string::npos;
        // A death between two stores may leave a home's count of its lines wrong by a block.
        const bool isCount = said.find(" lines of ") != std::string::npos && deaths != 0;
        if (isLoss && ++nowhere <= deaths) continue;
        if (!isCount) return scheduler.violate("the arena: " + said);
    }
}

std::string nameOfWord(const uint32_t* word) {
    const auto offset = static_cast<uint32_t>(reinterpret_cast<const char*>(word) -
                                              reinterpret_cast<const char*>(&domain().arena().header()));
    static const char* const slotWords[] = {"mailbox", "attention"};
    if (offset < linx::bucketsOffset) return "header+" + std::to_string(offset);
    if (offset < linx::slotsOffset) return "bucket";
    if (offset < linx::huntsOffset) {
        const uint32_t within = (offset - linx::slotsOffset) % sizeof(linx::Slot);
        const std::string slot = "slot " + std::to_string((offset - linx::slotsOffset) / sizeof(linx::Slot)) + " ";
        if (within < 8) return slot + slotWords[within / 4];
        if (within == offsetof(linx::Slot, returned)) return slot + "returned";
        if (within == offsetof(linx::Slot, takingMailbox)) return slot + "takingMailbox";
        if (within == offsetof(linx::Slot, takingReturned)) return slot + "takingReturned";
        if (within == offsetof(linx::Slot, sending)) return slot + "sending";
        if (within == offsetof(linx::Slot, life)) return slot + "life";
        return slot + "+" + std::to_string(within);
    }
    if (offset < linx::unitTableOffset) return "hunt";
    const uint32_t ref = offset / linx::lineBytes;
    static const char* const blockWords[] = {"next", "owner", "home", "sender", "size", "", "", "number"};
    const uint32_t within = offset % linx::lineBytes / 4;
    return "block " + std::to_string(ref) + " " + (within < 8 ? blockWords[within] : "content");
}

}  // namespace model
