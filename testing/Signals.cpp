#include "testing/Signals.h"

#include <cstring>

namespace linx::testing {

Signal& Signals::make(LinxSpid sender, std::uint32_t number, std::uint32_t size) {
    Signal& signal = signals_.emplace_back();
    signal.id = "s" + std::to_string(++last_);
    signal.sender = sender;
    signal.size = size;
    signal.memory.reset(new char[Signal::gap + size]);
    std::memset(signal.payload(), '?', size - sizeof(LinxSignal));
    signal.head()->number = number;
    return signal;
}

Signal& Signals::make(LinxSpid sender, std::uint32_t number, const std::string& payload) {
    Signal& signal = make(sender, number, static_cast<std::uint32_t>(sizeof(LinxSignal) + payload.size()));
    payload.copy(signal.payload(), payload.size());
    return signal;
}

Signal* Signals::find(const LinxSignal* head) {
    for (Signal& signal : signals_) {
        if (signal.head() == head) return &signal;
    }
    return nullptr;
}

void Signals::free(const LinxSignal* head) {
    signals_.remove_if([head](const Signal& signal) { return signal.head() == head; });
}

std::string Signals::id(const LinxSignal* head) {
    if (head == nullptr) return "null";
    const Signal* signal = find(head);
    return signal != nullptr ? signal->id : "foreign";
}

}  // namespace linx::testing
