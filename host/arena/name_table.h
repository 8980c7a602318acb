#ifndef LINXIPC_HOST_ARENA_NAME_TABLE_H
#define LINXIPC_HOST_ARENA_NAME_TABLE_H

#include "host/arena/arena.h"

namespace linx {

/// A name on its way into or out of the arena, with its hash.
class Name {
public:
    Name() = default;
    /// REQUIRES `length` <= maxNameLength.
    Name(const char* text, uint32_t length);

    /// What stands in the arena, as far as a name goes.
    static Name read(const Word* words, uint32_t length);

    const char* text() const { return text_; }
    uint32_t length() const { return length_; }
    uint32_t hash() const { return hash_; }

    void writeTo(Word* words) const;
    bool equals(const Word* words, uint32_t length) const;

private:
    void hashText();
    uint32_t wordCount() const { return (length_ + 3) / 4; }

    char text_[maxNameLength + 1] = {};
    uint32_t length_ = 0;
    uint32_t hash_ = 0;
};

/// The spid of the open endpoint called `name`; none when there is none. Takes no lock: while somebody opens or ends
/// an endpoint it may miss one, so a no counts only under the domain lock.
Spid findName(const Arena& arena, const Name& name);

/// Copies the name of `spid`, open or ended. False when its slot has gone to another. Takes no lock.
bool nameOfSpid(const Arena& arena, Spid spid, Name& name);

/// Under the domain lock: puts the slot, its name written, into the table, and takes it out. Each is one store that
/// others may see before or after.
void insertName(const Arena& arena, SlotIndex index);
void removeName(const Arena& arena, SlotIndex index);

}  // namespace linx

#endif
