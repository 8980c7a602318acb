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
#include "tests/support/failing_new.h"

namespace {

using linxtest::newThatFails;
using recording::Platform;

// Names too long for a string to hold without allocating.
const std::string peer = "toVp0/tsAppReceiver";                  // spid 7; number 36 in the directory
const std::string other = "another peer, not in the directory";  // spid 8
const std::string absent = "somebody who is not there";
const std::string nobody;

struct Scene {
    Scene() {
        platform.Knows(7, peer);
        platform.Knows(8, other);
        platform.Answers(peer, {7});
        platform.Answers(other, {8});
        endpoint.Init();
        request.Allocate(300, 4, std::string("abcd").data());
    }

    void Meet(LinxSpid spid) {
        platform.Arrive(spid, 1);
        endpoint.Receive(-1, 0, nobody, nullptr);
    }

    int Receive(unsigned type, const std::string& from) { return endpoint.Receive(10, type, from, &message); }

    Platform& platform = Platform::Instance();
    LinxIpc endpoint{"the endpoint that all this happens to"};
    LinxIpc unopened{"an endpoint that was not opened"};
    IpcMessage request;
    IpcMessage message;
    RelayMessage relay{&endpoint};
    Watchdog watchdog;
};

void Nothing(Scene&) {}

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
void Handle(Scene& scene, unsigned number) {
    scene.endpoint.RegisterHandler(number, NoteMessage, Named("handler"));
}

std::function<void(Scene&)> Arriving(LinxSpid from, std::uint32_t number, const std::string& payload = "abcd") {
    return [=](Scene& scene) { scene.platform.Arrive(from, number, payload); };
}

std::function<void(Scene&)> Failing(const char* operation, int error) {
    return [=](Scene& scene) { scene.platform.Fail(operation, {error}); };
}

void MeetPeer(Scene& scene) {
    scene.Meet(7);
}

void SeekAbsent(Scene& scene) {
    scene.endpoint.ResolveDestination(absent, false);
}

void FillRelay(Scene& scene) {
    scene.relay.Allocate(300, 4, nullptr);
}

/// The name of the peer, by reference to the endpoint's own table.
const std::string& OwnName(Scene& scene) {
    int notHunted = 1;
    const std::string& name = scene.endpoint.MessageOriginator(notHunted);
    EXPECT_EQ(notHunted, 0);
    return name;
}

const Call calls[] = {
    {"ReceiveFromANewSender", [](Scene& s) { Handle(s, 300); }, Arriving(7, 300),
     [](Scene& s) { return s.endpoint.Receive(10, 0, nobody, nullptr); }},
    {"ReceiveFromAKnownSender", MeetPeer, Arriving(7, 300),
     [](Scene& s) { return s.endpoint.Receive(10, 0, nobody, nullptr); }},
    {"ReceiveFromASenderHuntedInVain",
     [](Scene& s) {
         s.platform.Answers(peer, {});
         s.endpoint.ResolveDestination(peer, false);
     },
     Arriving(7, 300), [](Scene& s) { return s.Receive(0, nobody); }},
    {"ReceiveFromTheUnknown", Nothing, Arriving(9, 300), [](Scene& s) { return s.Receive(0, nobody); }},
    {"ReceiveAnAwaitedType", Nothing, Arriving(7, 300), [](Scene& s) { return s.Receive(300, other); }},
    {"ReceiveAwaitingANameOfItsOwn", MeetPeer, Arriving(7, 300), [](Scene& s) { return s.Receive(300, OwnName(s)); }},
    {"ReceiveAHuntSignal", Nothing, Arriving(7, 251), [](Scene& s) { return s.Receive(0, nobody); }},
    {"ReceiveForRelay",
     [](Scene& s) {
         s.Meet(7);
         s.endpoint.RegisterRelayHandler(300, NoteRelay, Named("relay"));
         s.endpoint.relayMessage.Allocate(299, 4, nullptr);
     },
     Arriving(8, 300), [](Scene& s) { return s.Receive(0, nobody); }},
    {"ReceiveByTheDefaultHandler", [](Scene& s) { s.endpoint.RegisterDefault(NoteMessage, Named("default")); },
     Arriving(7, 300), [](Scene& s) { return s.Receive(0, nobody); }},
    {"ReceiveAShutdownRequest", [](Scene& s) { s.endpoint.RegisterShutdown(NoteMessage, Named("shutdown")); },
     Arriving(7, 1280), [](Scene& s) { return s.Receive(400, other); }},
    {"ReceiveTheDeathOfTheAwaited", [](Scene& s) { s.endpoint.RegisterProcessDied(NoteMessage, Named("died")); },
     Arriving(8, 1281, Word(36)), [](Scene& s) { return s.Receive(0, peer); }},
    {"ReceiveTheDeathOfAnother", Nothing,
     [](Scene& s) {
         s.platform.Arrive(8, 1281, Word(-5));
         s.platform.Arrive(7, 400, "abcd");
     },
     [](Scene& s) { return s.Receive(400, peer); }},
    {"ReceiveAfterWhatDoesNotEndTheWait", [](Scene& s) { Handle(s, 13264); },
     [](Scene& s) {
         s.platform.Arrive(8, 13264);
         s.platform.Arrive(7, 400, "abcd");
     },
     [](Scene& s) { return s.Receive(0, peer); }},
    {"ReceiveAMessageThatIsTooLong", [](Scene& s) { Handle(s, 300); }, Arriving(7, 300, std::string(65533, 'x')),
     [](Scene& s) { return s.Receive(0, nobody); }},
    {"ReceiveInVain", Nothing, Failing("linx_receive_w_tmo", EINVAL), [](Scene& s) { return s.Receive(0, peer); }},
    {"ReceiveNothing", Nothing, Nothing, [](Scene& s) { return s.Receive(0, nobody); }, false},
    {"ReceiveUnopened", Nothing, Nothing, [](Scene& s) { return s.unopened.Receive(10, 0, nobody, nullptr); }},
    {"ReceiveWithAWatchdog", [](Scene& s) { Handle(s, 300); }, Arriving(7, 300),
     [](Scene& s) { return s.endpoint.Receive(s.watchdog, 10); }},

    {"ResolveTheUnknown", Nothing, Nothing, [](Scene& s) { return s.endpoint.ResolveDestination(peer, true); }},
    {"ResolveTheKnown", MeetPeer, Nothing, [](Scene& s) { return s.endpoint.ResolveDestination(peer, true); }},
    {"ResolveANameOfItsOwn", MeetPeer, Nothing,
     [](Scene& s) { return s.endpoint.ResolveDestination(OwnName(s), true); }},
    {"ResolveTheAbsent", Nothing, Nothing, [](Scene& s) { return s.endpoint.ResolveDestination(absent, true); }},
    {"ResolveTheAbsentAgain", SeekAbsent, Nothing,
     [](Scene& s) { return s.endpoint.ResolveDestination(absent, true); }},
    {"ResolveWithoutAHunt", Nothing, Failing("linx_hunt", ENOSPC),
     [](Scene& s) { return s.endpoint.ResolveDestination(peer, true); }},
    {"ResolveWithoutAnAnswer", Nothing, Failing("linx_receive_w_tmo", EINVAL),
     [](Scene& s) { return s.endpoint.ResolveDestination(absent, true); }},
    {"MessageOriginator", MeetPeer, Nothing, [](Scene& s) { return static_cast<int>(OwnName(s).size()); }, false},

    {"AttachToTheUnknown", Nothing, Nothing, [](Scene& s) { return s.endpoint.Attach(peer.c_str(), 500); }},
    {"AttachToTheKnown", MeetPeer, Nothing, [](Scene& s) { return s.endpoint.Attach(peer.c_str(), 500); }},
    {"AttachToTheAbsent", Nothing, Nothing, [](Scene& s) { return s.endpoint.Attach(absent.c_str(), 500); }},
    {"AttachInVain", MeetPeer, Failing("linx_attach", ESRCH),
     [](Scene& s) { return s.endpoint.Attach(peer.c_str(), 500); }},
    {"AttachUnopened", Nothing, Nothing, [](Scene& s) { return s.unopened.Attach(peer.c_str(), 500); }},

    {"NotifyTheKnown", MeetPeer, Nothing, [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }, false},
    {"NotifyTheUnknown", Nothing, Nothing, [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},
    {"NotifyTheAbsent", Nothing, Nothing, [](Scene& s) { return s.endpoint.Notify(absent, s.request, true); }},
    {"NotifyTheAbsentAgain", SeekAbsent, Nothing,
     [](Scene& s) { return s.endpoint.Notify(absent, s.request, true); }},
    {"NotifyWithoutASignal", MeetPeer, Failing("linx_alloc", EMSGSIZE),
     [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},
    {"NotifyAtTheSecondAttempt", MeetPeer, Failing("linx_send", ECONNRESET),
     [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},
    {"NotifyANameOfItsOwn", MeetPeer,
     [](Scene& s) {
         s.Meet(7);
         s.platform.Calls();
         s.platform.Fail("linx_send", {ECONNRESET});
     },
     [](Scene& s) {
         int notHunted = 1;
         return s.endpoint.Notify(s.endpoint.MessageOriginator(notHunted), s.request, true);
     }},
    {"NotifyAPeerThatIsGone",
     [](Scene& s) {
         s.Meet(7);
         s.platform.Answers(peer, {});
     },
     Failing("linx_send", ECONNRESET), [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},
    {"NotifyInVain", MeetPeer, [](Scene& s) { s.platform.FailAlways("linx_send", ECONNRESET); },
     [](Scene& s) { return s.endpoint.Notify(peer, s.request, true); }},

    {"RequestTheUnknown", Nothing, Arriving(7, 400),
     [](Scene& s) { return s.endpoint.Request(peer, s.request, 400, 10, &s.message); }},
    {"RequestANameOfItsOwn", MeetPeer, Arriving(7, 400),
     [](Scene& s) {
         s.endpoint.rxMessage.SetSender(peer);
         return s.endpoint.Request(OwnName(s), s.request, 400, 10, &s.message);
     }},
    {"RequestTheAbsent", Nothing, Nothing,
     [](Scene& s) { return s.endpoint.Request(absent, s.request, 400, 10, &s.message); }},
    {"RequestWithoutAnAnswer", MeetPeer, Nothing,
     [](Scene& s) { return s.endpoint.Request(peer, s.request, 400, 10, &s.message); }},
    {"RequestOfADyingPeer", MeetPeer, Arriving(8, 1281, Word(36)),
     [](Scene& s) { return s.endpoint.Request(peer, s.request, 400, 10, &s.message); }},
    {"AsyncRequest", [](Scene& s) { Handle(s, 301); },
     [](Scene& s) {
         s.platform.Arrive(8, 301, "abcd");
         s.platform.Arrive(7, 400, "abcd");
     },
     [](Scene& s) { return s.endpoint.AsyncRequest(peer, s.request, 400, 10, &s.message); }},
    {"AsyncRequestTheAbsent", Nothing, Nothing,
     [](Scene& s) { return s.endpoint.AsyncRequest(absent, s.request, 400, 10, &s.message); }},

    {"EnableTimer", Nothing, Nothing, [](Scene& s) { return s.endpoint.EnableTimer(10, 500); }, false},
    {"EnableTimerWithoutASignal", Nothing, Failing("linx_alloc", ENOSPC),
     [](Scene& s) { return s.endpoint.EnableTimer(10, 500); }},
    {"EnableTimerInVain", Nothing, Failing("linx_request_tmo", ENOSPC),
     [](Scene& s) { return s.endpoint.EnableTimer(10, 500); }},
    {"DisableTimer", Nothing, Nothing, [](Scene& s) { return s.endpoint.DisableTimer(); }, false},

    {"RelayToTheKnown", MeetPeer, FillRelay, [](Scene& s) { return s.endpoint.Relay(s.relay, peer); }, false},
    {"RelayToTheUnknown", Nothing, FillRelay, [](Scene& s) { return s.endpoint.Relay(s.relay, peer); }},
    {"RelayToTheAbsent", Nothing, FillRelay, [](Scene& s) { return s.endpoint.Relay(s.relay, absent); }},
    {"RelayToTheAbsentAgain", SeekAbsent, FillRelay, [](Scene& s) { return s.endpoint.Relay(s.relay, absent); }},
    {"RelayInVain", MeetPeer,
     [](Scene& s) {
         s.Meet(7);
         s.platform.Calls();
         FillRelay(s);
         s.platform.Fail("linx_send", {ECONNRESET});
     },
     [](Scene& s) { return s.endpoint.Relay(s.relay, peer); }},
    {"RelayASignalOfAnother", Nothing, Nothing,
     [](Scene& s) {
         RelayMessage foreign(&s.unopened);
         return s.endpoint.Relay(foreign, peer);
     }},

    {"InitAgain", Nothing, Nothing, [](Scene& s) { return s.endpoint.Init(); }},
    {"InitInVain", Nothing, Failing("linx_open", EADDRINUSE), [](Scene& s) { return s.unopened.Init(); }},
    {"CommonInit", Nothing, Nothing,
     [](Scene& s) {
         s.unopened.CommonInit("a name that is a good deal longer than the one before");
         return 0;
     }},
    {"OperationsOnPlainDescriptors", Nothing, Nothing, [](Scene& s) { return s.endpoint.Blocking(true); }},
    {"RegisterAndDeregister", Nothing, Nothing,
     [](Scene& s) {
         s.endpoint.DeregisterHandler(300);
         s.endpoint.DeregisterDefault();
         s.endpoint.RegisterHandler(300, NoteMessage, Named("handler"));
         s.endpoint.RegisterRelayHandler(301, NoteRelay, Named("relay"));
         s.endpoint.RegisterShutdown(NoteMessage, Named("shutdown"));
         s.endpoint.RegisterProcessDied(NoteMessage, Named("died"));
         s.endpoint.RegisterDefault(NoteMessage, Named("default"));
         return 0;
     }},
    {"AllocateAndFill", Nothing, Nothing,
     [](Scene& s) {
         const int result = s.message.Allocate(300, 100, nullptr);
         return result != 0 ? result : s.message.Fill("abcd", 4);
     }},
    {"SetSender", Nothing, Nothing,
     [](Scene& s) {
         s.message.SetSender(peer);
         return 0;
     }},
};

class OutOfMemoryTest : public LibraryTest, public ::testing::WithParamInterface<Call> {
protected:
    /// Uses the endpoint on, and returns what that shows of its tables: which peers it knows, sends to, hunts for,
    /// and asks LINX about.
    std::vector<std::string> UseOn(Scene& scene) {
        platform.ForgetWhatWasToCome();
        platform.Calls();
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
            for (const std::uint32_t number : {300u, 301u, 1281u, 700u}) platform.Arrive(spid, number);
            for (int i = 0; i < 3; ++i) seen.push_back(std::to_string(scene.Receive(0, nobody)));
            seen.push_back(Described(scene.message));
        }
        static const std::regex runningNumbers("s[0-9]+|= [0-9]+|\\(1[0-9]{3}\\)");
        for (const std::string& call : platform.Calls())
            seen.push_back(std::regex_replace(call, runningNumbers, "*"));
        return seen;
    }

    /// Everything that LINX has handed out has been given back, except signals that a message holds.
    void ExpectNothingLost(Scene& scene) {
        std::set<std::string> held;
        for (const RelayMessage* message : {&scene.relay, &scene.endpoint.relayMessage}) {
            LinxSignal* signal = message->Sig();
            if (signal != nullptr) held.insert(platform.Id(&signal));
        }
        EXPECT_EQ(platform.SignalsInHand(), held);
        EXPECT_EQ(platform.namesReturned, platform.namesHandedOut);
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
        signalsKept = platform.SignalsInHand().size();
        expectedAfterwards = UseOn(scene);
    }
    for (unsigned n = 1;; ++n) {
        SCOPED_TRACE(n);
        platform.Reset();
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
            ExpectNothingLost(scene);
        } else {
            EXPECT_TRUE(result == expected || (failed && result == ENOMEM)) << result;
            EXPECT_EQ(platform.SignalsInHand().size(), signalsKept);
        }
        if (!failed) {
            EXPECT_EQ(n > 1, call.needsMemory);
            return;
        }
        platform.ForgetWhatWasToCome();
        call.expect(scene);
        EXPECT_EQ(call.make(scene), expected);
        EXPECT_EQ(UseOn(scene), expectedAfterwards);
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
    EXPECT_THAT(platform.Calls(), IsEmpty());
    LinxIpc works("the endpoint that all this happens to");
    EXPECT_EQ(works.Init(), 0);
}

TEST_F(OutOfMemory, ALogLineWithoutMemoryKeepsTheErrorThatItReports) {
    Scene scene;
    scene.Meet(7);
    for (unsigned n = 1;; ++n) {
        scene.platform.Fail("linx_alloc", {EMSGSIZE});
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
