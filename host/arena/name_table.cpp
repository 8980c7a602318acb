#include "host/arena/name_table.h"

#include <algorithm>
#include <cstring>

#include "host/arena/slot_table.h"

namespace linx {

Name::Name(const char* text, uint32_t length) : length_(length) {
    std::memcpy(text_, text, length);
    hashText();
}

void Name::hashText() {
    hash_ = 2166136261u;  // FNV-1a
    for (uint32_t i = 0; i < length_; ++i) hash_ = (hash_ ^ static_cast<unsigned char>(text_[i])) * 16777619u;
}

Name Name::read(const Word* words, uint32_t length) {
    Name name;
    name.length_ = std::min(length, maxNameLength);
    for (uint32_t i = 0; i < name.wordCount(); ++i) {
        const uint32_t word = words[i].loadAcquire();  // [name]
        std::memcpy(name.text_ + 4 * i, &word, 4);
    }
    name.text_[name.length_] = '\0';
    name.hashText();
    return name;
}

void Name::writeTo(Word* words) const {
    for (uint32_t i = 0; i < wordCount(); ++i) {
        uint32_t word;
        std::memcpy(&word, text_ + 4 * i, 4);
        // Release [name]: pairs with the acquires in read and equals. Whoever reads a part of the new name reads the
        // new life too.
        words[i].storeRelease(word);
    }
}

bool Name::equals(const Word* words, uint32_t length) const {
    if (length != length_) return false;
    for (uint32_t i = 0; i < wordCount(); ++i) {
        uint32_t word;
        std::memcpy(&word, text_ + 4 * i, 4);
        // Acquire [name]. The caller reads the life word again after this and must see it as new as the name.
        if (words[i].loadAcquire() != word) return false;
    }
    return true;
}

Spid findName(const Arena& arena, const Name& name) {
    // Acquire [bucket]: pairs with the releases in insertName and removeName; a slot's own link is as new as the link
    // that leads to it.
    SlotIndex index = arena.bucket(name.hash()).loadAcquire();
    for (uint32_t left = slotCount; arena.hasSlot(index) && left != 0; --left) {
        const Slot& slot = arena.slot(index);
        // Acquire [opened]: pairs with the release that opened the endpoint, its name written before. Hash and length
        // are relaxed: no name is empty, and equal words vouch for both, or are newer and betray themselves by
        // [name].
        const LifeWord life = slot.life.loadAcquire();
        const Spid spid = spidOf(life);
        // As strict as isOpen: what that denies could never be reaped.
        const bool open = life == openAs(spid) && indexOf(spid) == index && wasUsed(arena, spid);
        if (open && slot.nameHash.loadRelaxed() == name.hash() &&
            name.equals(slot.name, slot.nameLength.loadRelaxed()) && slot.life.loadRelaxed() == life) {
            return spid;
        }
        index = slot.nextInBucket.loadAcquire();  // [bucket]; of a reused slot it leads astray, never to a wrong yes
    }
    return Spid::none;
}

bool nameOfSpid(const Arena& arena, Spid spid, Name& name) {
    if (!wasUsed(arena, spid)) return false;
    const Slot& slot = arena.slot(indexOf(spid));
    if (spidOf(slot.life.loadAcquire()) != spid) return false;
    name = Name::read(slot.name, slot.nameLength.loadAcquire());  // [name]
    // The slot's next user changes the life before the name, so an unchanged life vouches for what was read.
    return spidOf(slot.life.loadRelaxed()) == spid;
}

void insertName(const Arena& arena, SlotIndex index) {
    Slot& slot = arena.slot(index);
    WordOf<SlotIndex>& bucket = arena.bucket(slot.nameHash.loadRelaxed());
    slot.nextInBucket.storeRelaxed(bucket.loadRelaxed());
    bucket.storeRelease(index);  // [bucket], pairs with the acquires in findName
}

void removeName(const Arena& arena, SlotIndex index) {
    const Slot& slot = arena.slot(index);
    WordOf<SlotIndex>* link = &arena.bucket(slot.nameHash.loadRelaxed());
    for (uint32_t left = slotCount; left != 0; --left) {
        const SlotIndex here = link->loadRelaxed();
        if (!arena.hasSlot(here)) return;
        if (here == index) {
            // The removed slot keeps its link, so a reader that is at it goes on. Release [bucket]: until now another
            // slot's release published the slot that is linked here.
            link->storeRelease(slot.nextInBucket.loadRelaxed());
            return;
        }
        link = &arena.slot(here).nextInBucket;
    }
}

}  // namespace linx
