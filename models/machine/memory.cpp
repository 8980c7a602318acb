#include "models/machine/memory.h"

#include <algorithm>

#include "models/machine/hash.h"
#include "models/machine/heap.h"
#include "models/machine/scheduler.h"

namespace model {
namespace {

bool acquires(std::memory_order order) {
    return order == std::memory_order_acquire || order == std::memory_order_acq_rel ||
           order == std::memory_order_seq_cst;
}
bool releases(std::memory_order order) {
    return order == std::memory_order_release || order == std::memory_order_acq_rel ||
           order == std::memory_order_seq_cst;
}
bool severalBits(unsigned bits) {
    return (bits & (bits - 1)) != 0;
}

}  // namespace

Memory memory;
bool exploring = false;

void Memory::joinUsed(View& view, const View& other) const {
    for (size_t i = 0; i < sharedWords_.size(); ++i) view.from[i] = std::max(view.from[i], other.from[i]);
}

void Memory::cover(void* base, size_t bytes) {
    base_ = static_cast<uint32_t*>(base);
    words_ = bytes / sizeof(uint32_t);
    uses_.assign(words_, Use());
    dirty_.assign(words_, 0);
}

void Memory::forgetShared() {
    std::fill(uses_.begin(), uses_.end(), Use());
    sharedWords_.clear();
    plain_.clear();
    foundMore_ = false;
}

void Memory::begin() {
    for (const auto& [index, value] : before_) dirty_[index] = 0;
    before_.clear();
}

void Memory::rewind() {
    for (auto change = before_.rbegin(); change != before_.rend(); ++change) {
        base_[change->first] = change->second;
        dirty_[change->first] = 0;
    }
    before_.clear();
    for (const auto& [word, value] : plain_) *word = value;
    histories_.resize(sharedWords_.size());
    for (size_t i = 0; i < histories_.size(); ++i) {
        histories_[i].messages.assign(1, {base_[sharedWords_[i]], 0});
        histories_[i].lastSeqCst = 0;
    }
    views_.fill(View());
    kept_.assign(1, View());
}

/// Remembers who uses a word; one that a thread writes and another uses is shared from now on.
void Memory::note(size_t index, bool writes) {
    const auto self = static_cast<uint8_t>(1u << scheduler.thread());
    Use& use = uses_[index];
    uint8_t& users = writes ? use.writers : use.readers;
    users = static_cast<uint8_t>(users | self);
    const bool isKnown = use.shared != notShared;
    if (use.writers == 0 || !severalBits(use.readers | use.writers) || (isKnown && !writes)) return;
    if (!isKnown) {
        const HostHeap heap;
        use.shared = static_cast<uint16_t>(sharedWords_.size());
        sharedWords_.push_back(static_cast<uint32_t>(index));
    }
    foundMore_ = true;
    scheduler.abandon(sharedWords_.size() > maxShared ? "more shared words than the model holds" : nullptr);
}

uint16_t Memory::sharedAt(const uint32_t& word, bool writes) {
    if (!exploring || !covers(&word)) return notShared;
    const size_t index = indexOf(&word);
    const Use& use = uses_[index];
    if (((writes ? use.writers : use.readers) >> scheduler.thread() & 1) == 0) note(index, writes);
    return use.shared;
}

/// Writes a word that no other thread uses, or that is none of the arena's.
void Memory::writeUnseen(uint32_t& word, uint32_t to) {
    if (word == to) return;
    if (covers(&word)) {
        if (exploring) scheduler.pauseUnseen();
        keepFirst(indexOf(&word));
    }
    word = to;
}

void Memory::keepFirst(size_t index) {
    if (dirty_[index] != 0) return;
    const HostHeap heap;
    dirty_[index] = 1;
    before_.push_back({index, base_[index]});
}

uint16_t Memory::oldestReadable(unsigned thread, uint16_t shared, std::memory_order order) const {
    const uint16_t from = views_[thread].from[shared];
    return order == std::memory_order_seq_cst ? std::max(from, histories_[shared].lastSeqCst) : from;
}

uint32_t Memory::waysOf(unsigned thread, const Access& access) const {
    const uint16_t from = oldestReadable(thread, access.shared, access.order);
    const auto& messages = histories_[access.shared].messages;
    if (access.kind == Access::loads) return static_cast<uint32_t>(messages.size() - from);
    if (access.kind != Access::compares) return 1;
    // It reads any value that is not the expected one and fails, or the newest and succeeds.
    uint32_t ways = messages.back().value == access.expected ? 1 : 0;
    for (size_t i = from; i < messages.size(); ++i) {
        if (messages[i].value != access.expected) ++ways;
    }
    return ways;
}

uint32_t Memory::readMessage(uint16_t shared, uint16_t which, std::memory_order order) {
    View& view = views_[scheduler.thread()];
    const Message& message = histories_[shared].messages[which];
    view.from[shared] = std::max(view.from[shared], which);
    if (acquires(order)) joinUsed(view, kept_[message.view]);
    scheduler.observed(message.value);
    return message.value;
}

void Memory::append(uint32_t& word, uint16_t shared, uint32_t to, std::memory_order order, uint32_t inherited) {
    const HostHeap heap;
    View& view = views_[scheduler.thread()];
    History& history = histories_[shared];
    const auto number = static_cast<uint16_t>(history.messages.size());
    view.from[shared] = number;
    uint32_t left = inherited;
    if (releases(order)) {
        const View released = kept_[inherited];
        left = static_cast<uint32_t>(kept_.size());
        kept_.push_back(view);
        joinUsed(kept_.back(), released);
    }
    history.messages.push_back({to, left});
    if (order == std::memory_order_seq_cst) history.lastSeqCst = number;
    keepFirst(indexOf(&word));
    word = to;
}

uint32_t Memory::read(const uint32_t& word, std::memory_order order) {
    const uint16_t shared = sharedAt(word, false);
    if (shared == notShared) return word;
    const uint32_t way = scheduler.pause({Access::loads, shared, order, 0});
    // The newest first, which is what a machine does most of the time.
    return readMessage(shared, static_cast<uint16_t>(newest(shared) - way), order);
}

void Memory::write(uint32_t& word, uint32_t to, std::memory_order order) {
    // A store of what is there already makes nothing shared: who clears a whole table uses few of its words.
    const uint16_t shared = sharedAt(word, word != to);
    if (shared == notShared) {
        writeUnseen(word, to);
        return;
    }
    scheduler.pause({Access::stores, shared, order, 0});
    append(word, shared, to, order, 0);
}

template <class Change>
uint32_t Memory::update(uint32_t& word, std::memory_order order, Change change) {
    const uint16_t shared = sharedAt(word, true);
    if (shared == notShared) {
        const uint32_t found = word;
        writeUnseen(word, change(found));
        return found;
    }
    scheduler.pause({Access::updates, shared, order, 0});
    const uint32_t found = readMessage(shared, newest(shared), order);
    append(word, shared, change(found), order, histories_[shared].messages.back().view);
    return found;
}

bool Memory::compareAndWrite(uint32_t& word, uint32_t& expected, uint32_t to, std::memory_order success,
                             std::memory_order failure) {
    const uint16_t shared = sharedAt(word, true);
    if (shared == notShared) {
        const bool equal = word == expected;
        expected = word;
        if (equal) writeUnseen(word, to);
        return equal;
    }
    uint32_t way = scheduler.pause({Access::compares, shared, failure, expected});
    const auto& messages = histories_[shared].messages;
    if (messages.back().value == expected && way-- == 0) {
        readMessage(shared, newest(shared), success);
        append(word, shared, to, success, messages.back().view);
        return true;
    }
    for (size_t i = messages.size(); i-- > 0;) {
        if (messages[i].value == expected || way-- != 0) continue;
        expected = readMessage(shared, static_cast<uint16_t>(i), failure);
        break;
    }
    return false;
}

void Memory::synchronise(unsigned thread, View& object) {
    joinUsed(views_[thread], object);
    object = views_[thread];
}

uint64_t Memory::hash(uint64_t seed, const View* kernelViews, size_t count, unsigned liveThreads) const {
    Hash hash(seed);
    const size_t words = sharedWords_.size();
    // Nobody reads what lies before the oldest message that a living thread may read, so states that differ in
    // nothing else are the same: all numbers count from there.
    std::array<uint16_t, maxShared> base;
    for (size_t s = 0; s < words; ++s) {
        base[s] = newest(static_cast<uint16_t>(s));
        for (unsigned t = 0; t < maxThreads; ++t) {
            if ((liveThreads >> t & 1) != 0) base[s] = std::min(base[s], views_[t].from[s]);
        }
    }
    const auto addView = [&](const View& view) {
        if (&view == kept_.data()) return;
        for (size_t s = 0; s < words; ++s) {
            if (view.from[s] > base[s]) hash.add(s << 16 | (view.from[s] - base[s]));
        }
        hash.add(~uint64_t{0});
    };
    for (unsigned t = 0; t < maxThreads; ++t) {
        if ((liveThreads >> t & 1) != 0) addView(views_[t]);
    }
    for (size_t i = 0; i < count; ++i) addView(kernelViews[i]);
    for (size_t s = 0; s < words; ++s) {
        const History& history = histories_[s];
        hash.add(history.messages.size() - base[s]);
        hash.add(history.lastSeqCst > base[s] ? history.lastSeqCst - base[s] : 0);
        for (size_t i = base[s]; i < history.messages.size(); ++i) {
            hash.add(history.messages[i].value);
            addView(kept_[history.messages[i].view]);
        }
    }
    return hash.value();
}

void store(uint32_t& word, uint32_t to, std::memory_order order) {
    memory.write(word, to, order);
}
uint32_t exchange(uint32_t& word, uint32_t to, std::memory_order order) {
    return memory.update(word, order, [to](uint32_t) { return to; });
}
uint32_t add(uint32_t& word, uint32_t n, std::memory_order order) {
    return memory.update(word, order, [n](uint32_t found) { return found + n; });
}
bool compareExchange(uint32_t& word, uint32_t& expected, uint32_t to, std::memory_order success,
                     std::memory_order failure) {
    return memory.compareAndWrite(word, expected, to, success, failure);
}

}  // namespace model
