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
    /// Since this was asked last: "X 5, Y 3"; empty when there was nothing.
    std::string takeLosses() {
        std::string text;
        for (const auto& [name, signals] : atEnd_) {
            text += (text.empty() ? "" : ", ") + name + ' ' + std::to_string(signals);
        }
        atEnd_.clear();
        return text;
    }

private:
    static constexpr size_t mostNames = 32;

    std::map<std::string, uint64_t> refused_;
    std::map<std::string, uint64_t> atEnd_;
    uint64_t lost_ = 0;
};

}  // namespace linx::link

#endif
