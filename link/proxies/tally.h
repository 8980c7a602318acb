#ifndef LINXIPC_LINK_PROXIES_TALLY_H
#define LINXIPC_LINK_PROXIES_TALLY_H

#include <cstdint>
#include <map>
#include <string>

namespace linx::link {

/// What a link has refused and lost, by reason and by destination. Bounded: a peer chooses the names.
class Tally {
public:
    void refuse(const std::string& reason) { ++refused_[reason]; }
    void lose(const std::string& destination, uint64_t signals) {
        if (signals == 0) return;
        lost_ += signals;
        const bool isKnown = atEnd_.size() < mostNames || atEnd_.count(destination) != 0;
        atEnd_[isKnown ? destination : "others"] += signals;
    }

    const std::map<std::string, uint64_t>& refused() const { return refused_; }
    uint64_t lost() const { return lost_; }
    /// In all: "control 2, loop 1"; empty when there was nothing.
    std::string refusals() const { return textOf(refused_); }
    /// The same of the losses of each destination since this was asked last.
    std::string takeLosses() {
        std::string text = textOf(atEnd_);
        atEnd_.clear();
        return text;
    }

private:
    static std::string textOf(const std::map<std::string, uint64_t>& counts) {
        std::string text;
        for (const auto& [name, count] : counts) {
            text += (text.empty() ? "" : ", ") + name + ' ' + std::to_string(count);
        }
        return text;
    }

    static constexpr size_t mostNames = 32;

    std::map<std::string, uint64_t> refused_;
    std::map<std::string, uint64_t> atEnd_;
    uint64_t lost_ = 0;
};

}  // namespace linx::link

#endif
