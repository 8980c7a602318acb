#include "models/scenarios/stage.h"

#include <cstdlib>
#include <cstring>
#include <map>

#include "host/arena/name_table.h"
#include "host/arena/runs.h"
#include "host/handles.h"
#include "host/mailbox/take_all_stack.h"
#include "host/system/scoped_descriptor.h"
#include "models/machine/heap.h"
#include "models/machine/kernel.h"
#include "models/machine/platform.h"

namespace model {
namespace {

/// A size of which few blocks are leased at a time: few to look through.
constexpr uint32_t letterBytes = 800;
constexpr uint32_t otherBytes = 600;  ///< blocks of this size begin elsewhere

std::shared_ptr<linx::Domain> joinedDomain;

/// Lays down an arena. The domain of one of that size is joined once and kept, so that the real process's list of
/// domains stays as it is in all executions.
void joinDomain(uint32_t pages) {
    const HostHeap heap;
    static std::map<uint32_t, std::shared_ptr<linx::Domain>> kept;
    layArena(pages);
    std::shared_ptr<linx::Domain>& domain = kept[pages];
    if (domain == nullptr) domain = linx::Domain::join();
    joinedDomain = domain;
}

/// Closing gives back a share of the domain that was taken before the execution began, and in every other execution
/// is given back again: takes one for it.
void takeShareOfDomain() {
    alignas(std::shared_ptr<linx::Domain>) static char share[sizeof(std::shared_ptr<linx::Domain>)];
    new (share) std::shared_ptr<linx::Domain>(joinedDomain);
}

/// The content is read and written as words of the arena: whether it can be seen is part of the question.
linx::Word& contentOf(LinxSignal* signal) {
    return *reinterpret_cast<linx::Word*>(signal + 1);
}

/// As a look from outside, which is no step of anybody's.
LinxSpid spidOf(const std::string& name) {
    const bool before = exploring;
    exploring = false;
    const linx::Spid spid = linx::findName(domain().arena(), {name.data(), static_cast<uint32_t>(name.size())});
    exploring = before;
    return numberOf(spid);
}

uint32_t letterContent(unsigned from, unsigned to, unsigned number) {
    return 0xabu << 24 | from << 16 | to << 8 | number;
}

}  // namespace

linx::Domain& domain() {
    return *joinedDomain;
}

Stage::Stage(const std::vector<const char*>& names, const char* spinMicroseconds, uint32_t pages) : names_(names) {
    joinDomain(pages);
    setenv("LINX_SPIN_US", spinMicroseconds, 1);
}

const linx::Arena& Stage::arena() const {
    return domain().arena();
}

LINX* Stage::openUnder(const std::string& name) {
    LINX* handle = linx_open(name.c_str(), 0, nullptr);
    if (handle == nullptr) scheduler.violate(name + " cannot open");
    return handle;
}

void Stage::open(unsigned actor) {
    handles_[actor] = openUnder(names_[actor]);
    if (handles_[actor] == nullptr) return;
    kernel.tell();
    spids_[actor] = spidOf(names_[actor]);
}

void Stage::awaitOpen(unsigned actor) {
    kernel.await([this, actor] { return spids_[actor] != 0; });
}

/// The running actor has the signal in its hands; nobody else alive may.
void Stage::hold(LinxSignal* signal) {
    for (const auto& [other, holder] : held_) {
        if (other == signal && !hasEnded(holder)) {
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

LinxSignal* Stage::allocate(uint32_t number) {
    LinxSignal* signal = linx_alloc(own(), letterBytes, number);
    if (signal != nullptr) hold(signal);
    return signal;
}

int Stage::send(unsigned to, unsigned via) {
    LinxSignal* signal = allocate(letter);
    if (signal != nullptr) return sendAsLetter(signal, to, via);
    scheduler.violate("no memory");
    return -1;
}

void Stage::sendKept(unsigned to) {
    LinxSignal* signal = kept_[self()].back();
    kept_[self()].pop_back();
    signal->number = letter;
    sendAsLetter(signal, to, to);
}

int Stage::sendAsLetter(LinxSignal* signal, unsigned to, unsigned via) {
    via_[self()][to] = via;
    const unsigned number = begun_[self()][to]++;
    contentOf(signal).storeRelaxed(letterContent(self(), to, number));
    letGo(signal);  // before: from the push on it may be another's
    const int result = linx_send(own(), &signal, spids_[via]);
    if (result == 0) {
        ++sent_[self()][to];
    } else {
        --begun_[self()][to];
        if (!hasEnded(via)) scheduler.violate(std::string("a send to the living ") + names_[via] + " fails");
    }
    return result;
}

LinxSignal* Stage::receiveSignal(bool mayWait, uint32_t& size) {
    LinxSignal* signal = nullptr;
    const uint32_t any[] = {0};
    const int result = mayWait ? linx_receive(own(), &signal, any) : linx_receive_w_tmo(own(), &signal, 0, any);
    if (result < 0) scheduler.violate(std::string("a receive of ") + names_[self()] + " fails");
    if (result <= 0) return nullptr;
    size = static_cast<uint32_t>(result);
    hold(signal);
    return signal;
}

bool Stage::receiveToKeep(bool mayWait) {
    uint32_t size = 0;
    LinxSignal* signal = receiveSignal(mayWait, size);
    if (signal == nullptr) return false;
    book(signal, size);
    kept_[self()].push_back(signal);
    return true;
}

bool Stage::receive(bool mayWait) {
    if (!receiveToKeep(mayWait)) return false;
    LinxSignal* signal = kept_[self()].back();
    kept_[self()].pop_back();
    letGo(signal);
    if (linx_free_buf(own(), &signal) != 0) scheduler.violate("a signal that was received cannot be freed");
    return true;
}

void Stage::askName(unsigned of) {
    char* name = nullptr;
    linx_get_name(own(), spids_[of], &name);
    if (name != nullptr && name != std::string(names_[of])) scheduler.violate("a spid has another's name");
    linx_free_name(own(), &name);
}

void Stage::book(LinxSignal* signal, uint32_t size) {
    const uint32_t number = signal->number;
    if (number == letter) return bookLetter(signal, size);
    const unsigned about = number % 1000;
    const bool isNotice = number == notice + about;
    if (about >= maxActors || (!isNotice && number != found + about)) return scheduler.violate("a signal is garbled");
    const LinxSpid sender = linx_sender(own(), &signal);
    char* name = nullptr;
    linx_get_name(own(), sender, &name);
    const bool isForgotten = name == nullptr && slotsAreUsedAgain_;  // another may be in the slot by now
    if (!isForgotten && (name == nullptr || name != std::string(names_[about]))) {
        scheduler.violate("a notice or an answer has another's sender");
    }
    linx_free_name(own(), &name);
    if (!isNotice) {
        if (spids_[about] == 0) spids_[about] = sender;  // one may write to him now
        if (++answered_[about] > hunted_[about]) scheduler.violate("a hunt is answered twice");
        return;
    }
    if (!hasEnded(about)) scheduler.violate("an end is told of one who lives");
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
    if (linx_sender(own(), &signal) != spids_[via]) scheduler.violate("a signal has another's sender");
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
        kernel.pollFor(linx_get_descriptor(own()));
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
    if (linx_send(own(), &signal, spids_[to]) != 0 && !isDead(to))
        scheduler.violate("a relay to one who lives fails");
}

void Stage::supervise(unsigned whom) {
    LinxSignal* signal = allocate(notice + whom);
    letGo(signal);
    ++supervised_[self()][whom];
    if (linx_attach(own(), &signal, spids_[whom]) == 0) scheduler.violate("supervising fails");
}

void Stage::hunt(unsigned whom) {
    LinxSignal* signal = allocate(found + whom);
    letGo(signal);
    ++hunted_[whom];
    hunter_[whom] = self();
    if (linx_hunt(own(), names_[whom], &signal) != 0) scheduler.violate("hunting fails");
}

bool Stage::tryToKeep() {
    LinxSignal* signal = allocate(0);
    if (signal != nullptr) kept_[self()].push_back(signal);
    memoryRanOut_ = scheduler.exploring() && (memoryRanOut_ || signal == nullptr);
    return signal != nullptr;
}

void Stage::keep() {
    if (!tryToKeep()) scheduler.violate("no memory");
}

void Stage::keepOther() {
    LinxSignal* signal = linx_alloc(own(), otherBytes, 0);
    if (signal == nullptr) return scheduler.violate("no memory");
    hold(signal);
    kept_[self()].push_back(signal);
}

void Stage::scribbleOverKept() {
    for (LinxSignal* signal : kept_[self()]) std::memset(signal + 1, 0xa5, letterBytes - sizeof *signal);
}

void Stage::expectNotice(unsigned of) {
    if (noticed_[self()][of] == 0) scheduler.violate("an end is not told while signals keep coming");
}

bool Stage::hasFree(unsigned actor) const {
    bool any = false;
    linx::forEachBlock(arena(), [&](linx::BlockRef block) {
        const bool isOwn = block->home.loadRelaxed() == linx::Spid{spids_[actor]} &&
                           block->owner.loadRelaxed() == linx::OwnerWord::free;
        any = any || (isOwn && block.sizeClass == linx::classForLines(linx::linesForSignal(letterBytes)));
    });
    return any;
}

bool Stage::isThereMore() const {
    const linx::Header& header = arena().header();
    return hasFree() || header.centralLines.loadRelaxed() != 0 ||
           header.pagesUsed.loadRelaxed() < arena().pageCount();
}

void Stage::lendKept(unsigned to) {
    LinxSignal* signal = kept_[self()].back();
    kept_[self()].pop_back();
    letGo(signal);
    linx_send(own(), &signal, spids_[to]);
    const unsigned lender = self();
    as(to);
    uint32_t size;
    kept_[to].push_back(receiveSignal(false, size));
    as(lender);
}

bool Stage::hasMail(unsigned actor) const {
    const linx::Spid spid{spids_[actor]};
    bool any = false;
    // Not what was meant for an earlier user of the slot.
    linx::stack::walk(
        arena(), linx::stack::refOf(arena().slot(linx::indexOf(spid)).mailbox.loadRelaxed()),
        [&](linx::BlockRef block) { any = any || block->owner.loadRelaxed() == linx::inFlightTo(spid); });
    return any;
}

void Stage::say(unsigned to) {
    kernel.tell();
    said_[to] = true;
}

void Stage::awaitWord() {
    const unsigned to = self();
    kernel.await([this, to] { return said_[to]; });
}

void Stage::awaitEnd(unsigned of) {
    kernel.await([this, of] { return isDead(of) || (closed_[of] && handles_[of] == nullptr); });
}

void Stage::freeKept() {
    LinxSignal* signal = kept_[self()].back();
    kept_[self()].pop_back();
    letGo(signal);
    if (linx_free_buf(own(), &signal) != 0) scheduler.violate("a signal of one's own cannot be freed");
}

void Stage::close() {
    closed_[self()] = true;
    closeHandle(own());
    handles_[self()] = nullptr;
    kernel.tell();
}

void Stage::closeHandle(LINX* handle) {
    takeShareOfDomain();
    if (linx_close(handle) != 0) scheduler.violate("closing fails");
}

/// In the process of the running actor.
void Stage::openExtra(const std::string& name) {
    if (LINX* handle = openUnder(name)) extras_.push_back({handle, self()});
}

void Stage::fillSlots(unsigned keeper, unsigned left) {
    as(keeper);
    while (arena().usedSlots() + left < slotsWithMemory) openExtra("filler " + std::to_string(extras_.size()));
    slotsAreUsedAgain_ = true;
}

void Stage::openFirst(unsigned count) {
    for (unsigned actor = 0; actor < count; ++actor) {
        as(actor);
        open(actor);
    }
}

void Stage::fillDoorbell(unsigned actor) {
    const linx::ScopedDescriptor doorbell(kernel.openDoorbell(spids_[actor]));
    while (kernel.writeDoorbell(doorbell.get(), 0) == 0) {
    }
}

void Stage::openAcquainted(unsigned count) {
    openFirst(count);
    for (unsigned actor = 1; actor < count; ++actor) {
        as(actor);
        send(0);
        drain(0);
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

void Stage::dieAnswering(unsigned actor) {
    linx::Hunt& hunt = arena().hunt(0);
    hunt.hunter.storeRelaxed(linx::answeredTo(linx::Spid{spids_[hunter_[actor]]}));
    arena().header().huntsUsed.storeRelaxed(1);
    arena().header().dirty.storeRelaxed(1);
    killNow(actor);
}

void Stage::begin() {
    const HostHeap heap;
    linx::forEachBlock(arena(), [](linx::BlockRef block) { memory.keep(block->signal.number); });
}

std::string nameOfWord(const uint32_t* word) {
    const auto offset = static_cast<uint32_t>(reinterpret_cast<const char*>(word) -
                                              reinterpret_cast<const char*>(&domain().arena().header()));
    static const char* const slotWords[] = {"mailbox", "wake state"};
    if (offset < linx::bucketsOffset) return "header+" + std::to_string(offset);
    if (offset < linx::slotsOffset) return "bucket";
    if (offset < linx::huntsOffset) {
        const uint32_t within = (offset - linx::slotsOffset) % sizeof(linx::Slot);
        const std::string slot = "slot " + std::to_string((offset - linx::slotsOffset) / sizeof(linx::Slot)) + " ";
        if (within < 8) return slot + slotWords[within / 4];
        if (within == offsetof(linx::Slot, returned)) return slot + "returned";
        if (within == offsetof(linx::Slot, mailboxClaim)) return slot + "takingMailbox";
        if (within == offsetof(linx::Slot, returnedClaim)) return slot + "takingReturned";
        if (within == offsetof(linx::Slot, sending)) return slot + "sending";
        if (within == offsetof(linx::Slot, life)) return slot + "life";
        return slot + "+" + std::to_string(within);
    }
    if (offset < linx::pageMapOffset) return "hunt";
    const uint32_t ref = offset / linx::lineBytes;
    static const char* const blockWords[] = {"next", "owner", "home", "sender", "size", "", "", "number"};
    const uint32_t within = offset % linx::lineBytes / 4;
    return "block " + std::to_string(ref) + " " + (within < 8 ? blockWords[within] : "content");
}

}  // namespace model
