#ifndef LINXIPC_MODELS_MACHINE_MEMORY_H
#define LINXIPC_MODELS_MACHINE_MEMORY_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace model {

/*
 * A memory as weak as the language allows, within the limits given below.
 *
 * A word that several endpoints share has a history of messages, one a store, in modification order. Every thread has
 * a view: for each such word, the oldest message that it may still read. A relaxed or acquiring load reads any
 * message from there on, so a store stays unseen for as long as nothing forces it to be seen: what a store buffer or
 * a late invalidation does, each word by itself. A releasing store leaves its thread's view in the message, and an
 * acquiring load that reads it takes that view over. Read-modify-writes read the newest message and pass on the view
 * that they found. Sequentially consistent loads read no older message than the last sequentially consistent store of
 * that word; they order nothing but each other.
 *
 * What it leaves out: loads that see stores of their own future (load buffering), and stores of one word by two
 * threads that take effect in another order than that in which they were explored.
 */

constexpr size_t maxShared = 640;  ///< words of the arena that several threads use in one scenario
constexpr unsigned maxThreads = 4;

/// For each shared word, the oldest message that may still be read.
struct View {
    std::array<uint16_t, maxShared> from{};
};

/// What a thread is about to do to a shared word, as the scheduler must know it.
struct Access {
    enum Kind : uint8_t { loads, stores, updates, compares };
    Kind kind;
    uint16_t shared;
    std::memory_order order;
    uint32_t expected;  ///< of one that compares
};

class Memory {
public:
    /// Bytes of the modelled arena.
    void cover(void* base, size_t bytes);

    /// Forgets which words are shared: another scenario begins.
    void forgetShared();

    /// Takes the arena as it is for the state in which every execution begins.
    void begin();
    /// A word that is no cell, and belongs to the state too.
    void keep(uint32_t& plain) { plain_.push_back({&plain, plain}); }
    /// Puts that state back.
    void rewind();

    /// True once a word turned out to be shared that was not known to be, or to have one more who writes it: what was
    /// explored so far does not count.
    bool foundMoreShared() const { return foundMore_; }
    void sharedIsKnown() { foundMore_ = false; }
    size_t sharedCount() const { return sharedWords_.size(); }

    /// In how many ways the access can go now; at least 1.
    uint32_t waysOf(unsigned thread, const Access& access) const;

    /// Whether any of the threads ever writes the word.
    bool isWrittenBy(uint16_t shared, unsigned threads) const {
        return (uses_[sharedWords_[shared]].writers & threads) != 0;
    }

    /// Kernel objects synchronise like locks: what came before is seen after.
    void synchronise(unsigned thread, View& object);
    const View& viewOf(unsigned thread) const { return views_[thread]; }

    uint64_t hash(uint64_t seed, const View* kernelViews, size_t count, unsigned liveThreads) const;

    const uint32_t* wordOf(uint16_t shared) const { return base_ + sharedWords_[shared]; }

    // For the functions above.
    uint32_t read(const uint32_t& word, std::memory_order order);
    void write(uint32_t& word, uint32_t to, std::memory_order order);
    template <class Change>
    uint32_t update(uint32_t& word, std::memory_order order, Change change);
    bool compareAndWrite(uint32_t& word, uint32_t& expected, uint32_t to, std::memory_order success,
                         std::memory_order failure);

private:
    static constexpr uint16_t notShared = 0xffff;

    struct Message {
        uint32_t value;
        uint32_t view;  ///< in `kept_`; what the store left for those who acquire it
    };
    struct History {
        std::vector<Message> messages;
        uint16_t lastSeqCst = 0;
    };

    /// Who has used a word, in any execution.
    struct Use {
        uint16_t shared = notShared;  ///< its number among the shared ones
        uint8_t readers = 0;          ///< bit t: thread t
        uint8_t writers = 0;
    };

    bool covers(const uint32_t* word) const { return word >= base_ && word < base_ + words_; }
    size_t indexOf(const uint32_t* word) const { return static_cast<size_t>(word - base_); }
    uint16_t sharedAt(const uint32_t& word, bool writes);
    void note(size_t index, bool writes);
    void writeUnseen(uint32_t& word, uint32_t to);
    void keepFirst(size_t index);
    uint16_t oldestReadable(unsigned thread, uint16_t shared, std::memory_order order) const;
    uint16_t newest(uint16_t shared) const { return static_cast<uint16_t>(histories_[shared].messages.size() - 1); }
    uint32_t readMessage(uint16_t shared, uint16_t which, std::memory_order order);
    void append(uint32_t& word, uint16_t shared, uint32_t to, std::memory_order order, uint32_t inherited);
    void joinUsed(View& view, const View& other) const;

    uint32_t* base_ = nullptr;
    size_t words_ = 0;
    std::vector<Use> uses_;              ///< by word
    std::vector<uint32_t> sharedWords_;  ///< by number among the shared ones: the word
    bool foundMore_ = false;
    std::vector<History> histories_;
    std::array<View, maxThreads> views_;
    std::vector<View> kept_;      ///< views in messages; the first says nothing
    std::vector<uint8_t> dirty_;  ///< by word: written since the beginning
    std::vector<std::pair<size_t, uint32_t>> before_;
    std::vector<std::pair<uint32_t*, uint32_t>> plain_;
};

extern Memory memory;

/// Whether a thread of an execution runs: only then is there anything to choose.
extern bool exploring;

// What the cells of the arena call.
inline uint32_t load(const uint32_t& word, std::memory_order order) {
    return exploring ? memory.read(word, order) : word;
}
void store(uint32_t& word, uint32_t to, std::memory_order order);
uint32_t exchange(uint32_t& word, uint32_t to, std::memory_order order);
uint32_t add(uint32_t& word, uint32_t n, std::memory_order order);
bool compareExchange(uint32_t& word, uint32_t& expected, uint32_t to, std::memory_order success,
                     std::memory_order failure);

}  // namespace model

#endif
