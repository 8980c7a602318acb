#ifndef LINXIPC_TESTING_SIGNALS_H
#define LINXIPC_TESTING_SIGNALS_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "platform/linx.h"

namespace linx::testing {

struct Signal {
    std::string id;
    LinxSpid sender;
    std::uint32_t size;
    bool inHand = false;             // whether the program holds it
    const LINX* receiver = nullptr;  // whom it is for once it arrives; null: whoever receives first
    std::unique_ptr<char[]> memory;  // ends with the signal, so that a sanitizer sees every access beyond it

    LinxSignal* head() const { return reinterpret_cast<LinxSignal*>(&memory[gap]); }
    char* payload() const { return &memory[gap + sizeof(LinxSignal)]; }
    std::string bytes() const { return {&memory[gap], size}; }

    /// The payload starts where programs may rely on it to start: 16-byte aligned.
    static constexpr std::size_t gap = 16 - sizeof(LinxSignal);
};

/// All signals that there are.
class Signals {
public:
    /// A new one. Its payload is filled with question marks.
    Signal& make(LinxSpid sender, std::uint32_t number, std::uint32_t size);

    /// A new one with that payload.
    Signal& make(LinxSpid sender, std::uint32_t number, const std::string& payload);

    /// Null when there is no such signal.
    Signal* find(const LinxSignal* head);

    void free(const LinxSignal* head);

    std::string id(const LinxSignal* head);

    const std::list<Signal>& all() const { return signals_; }

private:
    std::list<Signal> signals_;
    unsigned last_ = 0;
};

}  // namespace linx::testing

#endif
