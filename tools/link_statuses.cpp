#include "tools/link_statuses.h"

#include <algorithm>
#include <chrono>

#include "tools/correspondent.h"
#include "tools/failure.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;
using linx::inspect::Endpoint;
using linx::link::askStatusNumber;
using linx::link::statusNumber;

constexpr std::chrono::milliseconds usualPatience(1000);

/// Answers in the order of who asks: whose is told by the sender, as a link that is late may answer another question.
void take(const Letter& answer, const std::vector<Endpoint>& links, std::vector<LinkStatus>& statuses) {
    std::string text(answer.payload.begin(), answer.payload.end());
    text.resize(std::min(text.find('\0'), text.size()));
    for (size_t i = 0; i < links.size(); ++i) {
        if (linx::numberOf(links[i].spid) == answer.sender) statuses[i].status = linx::link::statusFrom(text);
    }
}

}  // namespace

std::vector<LinkStatus> linkStatuses(const Options& options, const std::vector<Endpoint>& endpoints) {
    std::vector<Endpoint> links;
    std::copy_if(endpoints.begin(), endpoints.end(), std::back_inserter(links), [](const Endpoint& endpoint) {
        return endpoint.isLink && endpoint.state != linx::inspect::State::ended;
    });
    std::vector<LinkStatus> statuses;
    for (const Endpoint& link : links) statuses.push_back({link.name, std::nullopt});
    if (links.empty()) return statuses;
    Correspondent self(options);
    size_t asked = 0;
    for (const Endpoint& link : links) {
        try {
            self.send(linx::numberOf(link.spid), askStatusNumber, {});
            ++asked;
        } catch (const Failure&) {  // it has ended meanwhile
        }
    }
    const auto end = Clock::now() + options.timeout.value_or(usualPatience);
    for (; asked != 0; --asked) {
        const auto left = std::max(Clock::duration(0), end - Clock::now());
        const auto answer =
            self.receive(statusNumber, statusNumber, std::chrono::duration_cast<std::chrono::milliseconds>(left));
        if (!answer) break;
        take(*answer, links, statuses);
    }
    return statuses;
}

}  // namespace tools
