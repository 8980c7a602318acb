#include "tests/storm/ledger.h"

#include <algorithm>
#include <cstring>

namespace storm {

uint32_t Ledger::beginLife(uint32_t worker, uint32_t process) {
    const uint32_t number = ++livesUsed;
    Life& own = life(number);
    own.spid = 0;
    own.closing = false;
    own.worker = worker;
    own.process = process;
    own.previous = latest[worker].load();
    for (Outgoing& outgoing : own.to) outgoing.peer = 0;
    latest[worker] = number;
    return number;
}

uint32_t Ledger::findLife(uint32_t worker, uint32_t spid) const {
    uint32_t number = latest[worker];
    for (int left = 100; number != 0 && left != 0; --left) {
        if (life(number).spid == spid) return number;
        number = life(number).previous;
    }
    return 0;
}

bool Ledger::isLiving(uint32_t worker, uint32_t spid) const {
    const uint32_t number = findLife(worker, spid);
    return number != 0 && !life(number).closing && !doomed[life(number).process % maxLives];
}

void Ledger::complain(const std::string& text) {
    const uint32_t place = complaintCount++;
    if (place >= std::size(complaints)) return;
    std::strncpy(complaints[place], text.c_str(), sizeof complaints[place] - 1);
}

std::vector<std::string> Ledger::allComplaints() const {
    const size_t count = std::min<size_t>(complaintCount, std::size(complaints));
    return std::vector<std::string>(complaints, complaints + count);
}

std::string nameOfWorker(uint32_t worker) {
    return "worker" + std::to_string(worker);
}

}  // namespace storm
