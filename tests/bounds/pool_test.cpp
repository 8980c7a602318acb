// An arena that is full to the last block: the sender is told, and all that was sent arrives.

#include <cerrno>
#include <map>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uint32_t item = 100;
constexpr uint32_t end = 101;
constexpr size_t words = 1000;

class FullArena : public ProcessTest {
protected:
    const linxtest::ScopedVariable size{"LINX_ARENA_MB", "4"};
};

/// Sends numbered signals until there is no memory. Returns how many.
uint32_t sendUntilFull(LINX* endpoint, LinxSpid to) {
    for (uint32_t sent = 0;; ++sent) {
        std::vector<uint32_t> payload(words, sent);
        const int result = send(endpoint, to, item, payload);
        if (result == 0) continue;
        EXPECT_EQ(result, ENOMEM);
        return sent;
    }
}

/// Sends `end` as soon as there is memory for it. False when that never comes.
bool sendEnd(LINX* endpoint, LinxSpid to) {
    for (int tries = 0; tries < 200; ++tries) {
        const int result = send(endpoint, to, end);
        if (result != ENOMEM) return result == 0;
        receive(endpoint, 100);  // others work meanwhile
    }
    return false;
}

/// Sends to "receiver" until there is no memory, tells how often, and says `end` when told to.
void filler(Line& parent) {
    Endpoint endpoint("filler" + std::to_string(getpid()));
    const LinxSpid to = hunt(endpoint, "receiver");
    parent.tell(sendUntilFull(endpoint, to));
    parent.hear();
    EXPECT_TRUE(sendEnd(endpoint, to));
    parent.hear();
}

TEST_F(FullArena, IsUsedUpByAFewAndAllThatTheySentArrives) {
    constexpr uint32_t fillers = 3;  // more than enough, each with no more than its share
    Child receiver([](Line& parent) {
        Endpoint endpoint("receiver");
        parent.tell();
        for (;;) {
            parent.hear();
            std::map<LinxSpid, uint32_t> next;
            for (uint32_t ended = 0; ended < fillers;) {
                const std::optional<Received> received = receive(endpoint, patience);
                ASSERT_TRUE(received);
                if (received->number == end) {
                    ++ended;
                } else {
                    EXPECT_EQ(received->word(words - 1), next[received->sender]++);
                }
            }
            uint32_t sum = 0;
            for (const auto& [sender, count] : next) sum += count;
            parent.tell(sum);
        }
    });
    receiver.hear();
    receiver.tell();
    receiver.stop();
    std::vector<std::unique_ptr<Child>> senders;
    uint32_t sent = 0;
    for (uint32_t i = 0; i < fillers; ++i) {
        senders.push_back(std::make_unique<Child>(filler));
        sent += senders.back()->hear();
    }
    EXPECT_GT(sent * words * sizeof(uint32_t), 3u << 20);
    {
        Endpoint late("late");
        std::vector<uint32_t> payload(words);
        EXPECT_EQ(send(late, spidOf(late), item, payload), ENOMEM);
        receiver.cont();
        for (const auto& sender : senders) sender->tell();
        EXPECT_EQ(receiver.hear(), sent);
        EXPECT_EQ(send(late, spidOf(late), item, payload), 0);
        expectSignal(late, item, 0);
    }
    for (const auto& sender : senders) {
        sender->tell();
        EXPECT_EQ(sender->exitStatus(), 0);
    }
}

TEST_F(FullArena, IsFreeAgainWhenWhoKeptEverythingEnds) {
    for (const bool killed : {false, true}) {
        Child hoarder([](Line& parent) {
            Endpoint endpoint("hoarder");
            parent.tell();
            LinxSignal* signal = nullptr;
            do {
                ASSERT_LT(0, linx_receive_w_tmo(endpoint, &signal, patience, anySignal));
            } while (signal->number != end);
            parent.tell();
            parent.hear();
        });
        hoarder.hear();
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        const LinxSpid to = hunt(endpoint, "hoarder");
        LinxSignal* last = linx_alloc(endpoint, sizeof(LinxSignal), end);
        const uint32_t sent = sendUntilFull(endpoint, to);
        EXPECT_GT(sent, 300u);
        ASSERT_EQ(linx_send(endpoint, &last, to), 0);
        hoarder.hear();
        EXPECT_EQ(sendUntilFull(endpoint, own), 0u);  // what was received is still not freed
        if (killed) {
            hoarder.kill9();
        } else {
            hoarder.tell();
            EXPECT_EQ(hoarder.exitStatus(), 0);
        }
        expectNothing(endpoint);  // the end of a peer is noticed in a receive
        EXPECT_NEAR(sent, sendUntilFull(endpoint, own), sent / 4);
    }
}

}  // namespace
