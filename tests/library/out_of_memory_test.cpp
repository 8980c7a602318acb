// Each call is made again and again, and memory runs out at its first request for some, its second, and so on. Either
// the call works nevertheless, or std::bad_alloc passes through it. Then nothing that LINX has handed out is lost, no
// table is half updated, and the next call works as if nothing had happened.
#include <cerrno>
#include <functional>
#include <new>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include "fixture.h"
#include "platform/Watchdog.h"
#include "tests/kit/failing_new.h"

namespace {

using linxtest::newThatFails;

// Names too long for a string to hold without allocating.
const std::string peer = "toVp0/tsAppReceiver";                  // spid 7; number 36 in the directory
const std::string other = "another peer, not in the directory";  // spid 8
const std::string absent = "somebody who is not there";
const std::string nobody;

struct Scene {
    Scene() {
        platform.setName(7, peer);
        platform.setName(8, other);
        platform.answerHunts(peer, {7});
        platform.answerHunts(other, {8});
        endpoint.Init();
        request.Allocate(300, 4, std::string("abcd").data());
    }

    void meet(LinxSpid spid) {
        platform.arrive(spid, 1);
        endpoint.Receive(-1, 0, nobody, nullptr);
    }

    int receive(unsigned type, const std::string& from) { return endpoint.Receive(10, type, from, &message); }

    RecordingPlatform& platform = RecordingPlatform::instance();
    LinxIpc endpoint{"the endpoint that all this happens to"};
    LinxIpc unopened{"an endpoint that was not opened"};
    IpcMessage request;
    IpcMessage message;
    RelayMessage relay{&endpoint};
    Watchdog watchdog;
};

void nothing(Scene&) {}

/// A call that is to run out of memory.
struct Call {
    const char* name;
    std::function<void(Scene&)> arrange;  // what happens before
    std::function<void(Scene&)> expect;   // what the call needs each time that it is made
    std::function<int(Scene&)> make;
    bool needsMemory = true;
};

std::ostream& operator<<(std::ostream& stream, const Call& call) {
    return stream << call.name;
}

/// Registers handlers of `number` that note what they were called for.
void handle(Scene& scene, unsigned number) {
    scene.endpoint.RegisterHandler(number, noteMessage, named("handler"));
}

std::function<void(Scene&)> arriving(LinxSpid from, std::uint32_t number, const std::string& payload = "abcd") {
    return [=](Scene& scene) { scene.platform.arrive(from, number, payload); };
}

std::function<void(Scene&)> failing(const char* operation, int error) {
    return [=](Scene& scene) { scene.platform.fail(operation, {error}); };
}

void meetPeer(Scene& scene) {
    scene.meet(7);
}

void seekAbsent(Scene& scene) {
    scene.endpoint.ResolveDestination(absent, false);
}

void fillRelay(Scene& scene) {
    scene.relay.Allocate(300, 4, nullptr);
}

/// The name of the peer, by reference to the endpoint's own table.
const std::string& ownName(Scene& scene) {
    int notHunted = 1;
    const std::string& name = scene.endpoint.MessageOriginator(notHunted);
    EXPECT_EQ(notHunted, 0);
    return name;
}

const Call calls[] = {
    {"ReceiveFromANewSender", [](Scene& s) { handle(s, 300); }, arriving(7, 300),
     [](Scene& s) { return s.endpoint.Receive(10, 0, nobody, nullptr); }},
    {"ReceiveFromAKnownSender", meetPeer, arriving(7, 300),
     [](Scene& s) { return s.endpoint.Receive(10, 0, nobody, nullptr); }},
    {"ReceiveFromASenderHuntedInVain",
     [](Scene& s) {
         s.platform.answerHunts(peer, {});
         s.endpoint.ResolveDestination(peer, false);
     },
     arriving(7, 300), [](Scene& s) { return s.receive(0, nobody); }},
    {"ReceiveFromTheUnknown", nothing, arriving(9, 300), [](Scene& s) { return s.receive(0, nobody); }},
    {"ReceiveAnAwaitedType", nothing, arriving(7, 300), [](Scene& s) { return s.receive(300, other); }},
    {"ReceiveAwaitingANameOfItsOwn", meetPeer, arriving(7, 300), [](Scene& s) { return s.receive(300, ownName(s)); }},
    {"ReceiveAHuntSignal", nothing, arriving(7, 251), [](Scene& s) { return s.receive(0, nobody); }},
    {"ReceiveForRelay",
     [](Scene& s) {
         s.meet(7);
         s.endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
         s.endpoint.relayMessage.Allocate(299, 4, nullptr);
     },
     arriving(8, 300), [](Scene& s) { return s.receive(0, nobody); }},
    {"ReceiveByTheDefaultHandler", [](Scene& s) { s.endpoint.RegisterDefault(noteMessage, named("default")); },
     arriving(7, 300), [](Scene& s) { return s.receive(0, nobody); }},
    {"ReceiveAShutdownRequest", [](Scene& s) { s.endpoint.RegisterShutdown(noteMessage, named("shutdown")); },
     arriving(7, 1280), [](Scene& s) { return s.receive(400, other); }},
    {"ReceiveTheDeathOfTheAwaited", [](Scene& s) { s.endpoint.RegisterProcessDied(noteMessage, named("died")); },
     arriving(8, 1281, word(36)), [](Scene& s) { return s.receive(0, peer); }},
    {"ReceiveTheDeathOfAnother", nothing,
     [](Scene& s) {
         s.platform.arrive(8, 1281, word(-5));
         s.platform.arrive(7, 400, "abcd");
     },
     [](Scene& s) { return s.receive(400, peer); }},
    {"ReceiveAfterWhatDoesNotEndTheWait", [](Scene& s) { handle(s, 13264); },
     [](Scene& s) {
         s.platform.arrive(8, 13264);
         s.platform.arrive(7, 400, "abcd");
     },
     [](Scene& s) { return s.receive(0, peer); }},
    {"ReceiveAMessageThatIsTooLong", [](Scene& s) { handle(s, 300); }, arriving(7, 300, std::string(65533, 'x')),
     [](Scene& s) { return s.receive(0, nobody); }},
    {"ReceiveInVain", nothing, failing("linx_receive_w_tmo", EINVAL), [](Scene& s) { return s.receive(0, peer); }},
    {"ReceiveNothing", nothing, nothing, [](Scene& s) { return s.receive(0, nobody); }, false},
    {"ReceiveUnopened", nothing, nothing, [](Scene& s) { return s.unopened.Receive(10, 0, nobody, nullptr); }},
    {"ReceiveWithAWatchdog", [](Scene& s) { handle(s, 300); }, arriving(7, 300),
     [](Scene& s) { return s.endpoint.Receive(s.watchdog, 10); }},

    {"ResolveTheUnknown", nothing, nothing, [](Scene& s) { return s.endpoint.ResolveDestination(peer, true); }},
    {"ResolveTheKnown", meetPeer, nothing, [](Scene& s) { return s.endpoint.ResolveDestination(peer, true); }},
    {"ResolveANameOfItsOwn", meetPeer, nothing,
     [](Scene& s) { return s.endpoint.ResolveDestination(ownName(s), true); }},
    {"ResolveTheAbsent", nothing, nothing, [](Scene& s) { return s.endpoint.ResolveDestination(absent, true); }},
    {"ResolveTheAbsentAgain", seekAbsent, nothing,
     [](Scene& s) { return s.endpoint.ResolveDestination(absent, true); }},
    {"ResolveWithoutAHunt", nothing, failing("linx_hunt", ENOSPC),
     [](Scene& s) { return s.endpoint.ResolveDestination(peer, true); }},
    {"ResolveWithoutAnAnswer", nothing, failing("linx_receive_w_tmo", EINVAL),
     [](Scene& s) { return s.endpoint.ResolveDestination(absent, true); }},
    {"MessageOriginator", meetPeer, nothing, [](Scene& s) { return static_cast<int>(ownName(s).size()); }, false},

    {"AttachToTheUnknown", nothing, nothing, [](Scene& s) { return s.endpoint.Attach(peer.c_str(), 500); }},
    {"AttachToTheKnown", meetPeer, nothing, [](Scene& s) { return s.endpoint.Attach(peer.c_str(), 500); }},
    {"AttachToTheAbsent", nothing, nothing, [](Scene& s) { return s.endpoint.Attach(absent.c_str(), 500); }},
    {"AttachInVain", meetPeer, failing("linx_attach", ESRCH),
     [](Scene& s) { return s.endpoint.Attach(peer.c_str(), 500); }},
    {"AttachUnopened", nothing, nothing, [](Scene& s) { return s.unopened.Attach(peer.c_str(), 500); }},

    {"NotifyTheKnown", meetPeer, nothing, [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }, false},
    {"NotifyTheUnknown", nothing, nothing, [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},
    {"NotifyTheAbsent", nothing, nothing, [](Scene& s) { return s.endpoint.Notify(absent, s.request, true); }},
    {"NotifyTheAbsentAgain", seekAbsent, nothing,
     [](Scene& s) { return s.endpoint.Notify(absent, s.request, true); }},
    {"NotifyWithoutASignal", meetPeer, failing("linx_alloc", EMSGSIZE),
     [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},
    {"NotifyAtTheSecondAttempt", meetPeer, failing("linx_send", ECONNRESET),
     [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},
    {"NotifyANameOfItsOwn", meetPeer,
     [](Scene& s) {
         s.meet(7);
         s.platform.takeCalls();
         s.platform.fail("linx_send", {ECONNRESET});
     },
     [](Scene& s) {
         int notHunted = 1;
         return s.endpoint.Notify(s.endpoint.MessageOriginator(notHunted), s.request, true);
     }},
    {"NotifyAPeerThatIsGone",
     [](Scene& s) {
         s.meet(7);
         s.platform.answerHunts(peer, {});
     },
     failing("linx_send", ECONNRESET), [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},
    {"NotifyInVain", meetPeer, [](Scene& s) { s.platform.failAlways("linx_send", ECONNRESET); },
     [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},

    {"RequestTheUnknown", nothing, arriving(7, 400),
     [](Scene& s) { return s.endpoint.Request(peer, s.request, 400, 10, &s.message); }},
    {"RequestANameOfItsOwn", meetPeer, arriving(7, 400),
     [](Scene& s) {
         s.endpoint.rxMessage.SetSender(peer);
         return s.endpoint.Request(ownName(s), s.request, 400, 10, &s.message);
     }},
    {"RequestTheAbsent", nothing, nothing,
     [](Scene& s) { return s.endpoint.Request(absent, s.request, 400, 10, &s.message); }},
    {"RequestWithoutAnAnswer", meetPeer, nothing,
     [](Scene& s) { return s.endpoint.Request(peer, s.request, 400, 10, &s.message); }},
    {"RequestOfADyingPeer", meetPeer, arriving(8, 1281, word(36)),
     [](Scene& s) { return s.endpoint.Request(peer, s.request, 400, 10, &s.message); }},
    {"AsyncRequest", [](Scene& s) { handle(s, 301); },
     [](Scene& s) {
         s.platform.arrive(8, 301, "abcd");
         s.platform.arrive(7, 400, "abcd");
     },
     [](Scene& s) { return s.endpoint.AsyncRequest(peer, s.request, 400, 10, &s.message); }},
    {"AsyncRequestTheAbsent", nothing, nothing,
     [](Scene& s) { return s.endpoint.AsyncRequest(absent, s.request, 400, 10, &s.message); }},

    {"EnableTimer", nothing, nothing, [](Scene& s) { return s.endpoint.EnableTimer(10, 500); }, false},
    {"EnableTimerWithoutASignal", nothing, failing("linx_alloc", ENOSPC),
     [](Scene& s) { return s.endpoint.EnableTimer(10, 500); }},
    {"EnableTimerInVain", nothing, failing("linx_request_tmo", ENOSPC),
     [](Scene& s) { return s.endpoint.EnableTimer(10, 500); }},
    {"DisableTimer", nothing, nothing, [](Scene& s) { return s.endpoint.DisableTimer(); }, false},

    {"RelayToTheKnown", meetPeer, fillRelay, [](Scene& s) { return s.endpoint.Relay(s.relay, peer); }, false},
    {"RelayToTheUnknown", nothing, fillRelay, [](Scene& s) { return s.endpoint.Relay(s.relay, peer); }},
    {"RelayToTheAbsent", nothing, fillRelay, [](Scene& s) { return s.endpoint.Relay(s.relay, absent); }},
    {"RelayToTheAbsentAgain", seekAbsent, fillRelay, [](Scene& s) { return s.endpoint.Relay(s.relay, absent); }},
    {"RelayInVain", meetPeer,
     [](Scene& s) {
         s.meet(7);
         s.platform.takeCalls();
         fillRelay(s);
         s.platform.fail("linx_send", {ECONNRESET});
     },
     [](Scene& s) { return s.endpoint.Relay(s.relay, peer); }},
    {"RelayASignalOfAnother", nothing, nothing,
     [](Scene& s) {
         RelayMessage foreign(&s.unopened);
         return s.endpoint.Relay(foreign, peer);
     }},

    {"InitAgain", nothing, nothing, [](Scene& s) { return s.endpoint.Init(); }},
    {"InitInVain", nothing, failing("linx_open", EADDRINUSE), [](Scene& s) { return s.unopened.Init(); }},
    {"CommonInit", nothing, nothing,
     [](Scene& s) {
         s.unopened.CommonInit("a name that is a good deal longer than the one before");
         return 0;
     }},
    {"OperationsOnPlainDescriptors", nothing, nothing, [](Scene& s) { return s.endpoint.Blocking(true); }},
    {"RegisterAndDeregister", nothing, nothing,
     [](Scene& s) {
         s.endpoint.DeregisterHandler(300);
         s.endpoint.DeregisterDefault();
         s.endpoint.RegisterHandler(300, noteMessage, named("handler"));
         s.endpoint.RegisterRelayHandler(301, noteRelay, named("relay"));
         s.endpoint.RegisterShutdown(noteMessage, named("shutdown"));
         s.endpoint.RegisterProcessDied(noteMessage, named("died"));
         s.endpoint.RegisterDefault(noteMessage, named("default"));
         return 0;
     }},
    {"AllocateAndFill", nothing, nothing,
     [](Scene& s) {
         const int result = s.message.Allocate(300, 100, nullptr);
         return result != 0 ? result : s.message.Fill("abcd", 4);
     }},
    {"SetSender", nothing, nothing,
     [](Scene& s) {
         s.message.SetSender(peer);
         return 0;
     }},
};

class OutOfMemoryTest : public LibraryTest, public ::testing::WithParamInterface<Call> {
protected:
    /// Uses the endpoint on, and returns what that shows of its tables: which peers it knows, sends to, hunts for,
    /// and asks LINX about.
    std::vector<std::string> useOn(Scene& scene) {
        platform.cancelArrangements();
        platform.takeCalls();
        platform.level = 0;
        std::vector<std::string> seen;
        IpcMessage message;
        for (const std::string& name : {peer, other, absent}) {
            int notHunted = -1;
            scene.endpoint.rxMessage.SetSender(name);
            scene.endpoint.MessageOriginator(notHunted);
            seen.push_back(std::to_string(notHunted));
            seen.push_back(std::to_string(scene.endpoint.Notify(name, message, false)));
        }
        for (const LinxSpid spid : {7u, 8u, 9u}) {
            for (const std::uint32_t number : {300u, 301u, 1281u, 700u}) platform.arrive(spid, number);
            for (int i = 0; i < 3; ++i) seen.push_back(std::to_string(scene.receive(0, nobody)));
            seen.push_back(described(scene.message));
        }
        static const std::regex runningNumbers("s[0-9]+|= [0-9]+|\\(1[0-9]{3}\\)");
        for (const std::string& call : platform.takeCalls())
            seen.push_back(std::regex_replace(call, runningNumbers, "*"));
        return seen;
    }

    /// Everything that LINX has handed out has been given back, except signals that a message holds.
    void expectNothingLost(Scene& scene) {
        std::set<std::string> held;
        for (const RelayMessage* message : {&scene.relay, &scene.endpoint.relayMessage}) {
            if (message->Sig() != nullptr) held.insert(platform.nameOf(message->Sig()));
        }
        EXPECT_EQ(platform.signalsInHand(), held);
        EXPECT_EQ(platform.namesInHand(), 0u);
    }
};

TEST_P(OutOfMemoryTest, LeavesNothingLostOrHalfDone) {
    const Call& call = GetParam();
    int expected = 0;
    std::vector<std::string> expectedAfterwards;
    std::size_t signalsKept = 0;
    {
        Scene scene;
        call.arrange(scene);
        call.expect(scene);
        expected = call.make(scene);
        signalsKept = platform.signalsInHand().size();
        expectedAfterwards = useOn(scene);
    }
    for (unsigned n = 1;; ++n) {
        SCOPED_TRACE(n);
        resetPlatform();
        Scene scene;
        call.arrange(scene);
        call.expect(scene);
        bool thrown = false;
        int result = 0;
        newThatFails = n;
        try {
            result = call.make(scene);
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
        const bool failed = newThatFails == 0;
        newThatFails = 0;
        if (thrown) {
            expectNothingLost(scene);
        } else {
            EXPECT_TRUE(result == expected || (failed && result == ENOMEM)) << result;
            EXPECT_EQ(platform.signalsInHand().size(), signalsKept);
        }
        if (!failed) {
            EXPECT_EQ(n > 1, call.needsMemory);
            return;
        }
        platform.cancelArrangements();
        call.expect(scene);
        EXPECT_EQ(call.make(scene), expected);
        EXPECT_EQ(useOn(scene), expectedAfterwards);
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Library, OutOfMemoryTest, ::testing::ValuesIn(calls),
                         [](const auto& test) { return test.param.name; });

using OutOfMemory = LibraryTest;

TEST_F(OutOfMemory, AFailedConstructionLeavesNothingBehind) {
    const auto make = [](unsigned n) {
        newThatFails = n;
        try {
            const LinxIpc made("the endpoint that all this happens to");
        } catch (const std::bad_alloc&) {
        }
        return std::exchange(newThatFails, 0) == 0;
    };
    EXPECT_TRUE(make(1));
    unsigned n = 1;
    while (make(n)) ++n;
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
    LinxIpc works("the endpoint that all this happens to");
    EXPECT_EQ(works.Init(), 0);
}

TEST_F(OutOfMemory, ALogLineWithoutMemoryKeepsTheErrorThatItReports) {
    Scene scene;
    scene.meet(7);
    for (unsigned n = 1;; ++n) {
        scene.platform.fail("linx_alloc", {EMSGSIZE});
        newThatFails = n;
        try {
            EXPECT_EQ(scene.endpoint.Notify(peer, scene.request, true), EMSGSIZE) << n;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(errno, ENOMEM);
        }
        if (std::exchange(newThatFails, 0) != 0) {
            EXPECT_GT(n, 2u);
            return;
        }
    }
}

}  // namespace
