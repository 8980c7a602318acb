#ifndef LINXIPC_MODELS_MACHINE_HEAP_H
#define LINXIPC_MODELS_MACHINE_HEAP_H

#include <cstddef>
#include <vector>

namespace model {

/*
 * The private memory of the modelled processes. It comes from a region of its own, always in the same order, so that
 * an execution can be repeated exactly and put back to its beginning by copying, whoever was killed in between.
 */

/// While it lives, `new` takes from the world's region, or from the ordinary heap.
class HeapChoice {
public:
    explicit HeapChoice(bool world);
    ~HeapChoice();
    HeapChoice(const HeapChoice&) = delete;
    HeapChoice& operator=(const HeapChoice&) = delete;

private:
    bool before_;
};
struct WorldHeap : HeapChoice {
    WorldHeap() : HeapChoice(true) {}
};
struct HostHeap : HeapChoice {
    HostHeap() : HeapChoice(false) {}
};

/// Empties the region.
void clearWorldHeap();

/// The region as it is now, and back to that.
std::vector<char> copyOfWorldHeap();
void restoreWorldHeap(const std::vector<char>& copy);

}  // namespace model

#endif
