// What only the engine has that leaves the machine: keys, and everybody who can reach its port.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "link/engine/zeromq/words.h"
#include "tests/link/engine/nodes.h"
#include "tests/link/engine/zeromq_maker.h"

namespace {

using namespace linktest;

constexpr PeerNumber onlyPeer = {};

/// Another program than a link, with whatever keys it was given.
class RawSocket {
public:
    RawSocket(const KeyPair* keys, const std::string& serverKey, const std::string& address)
        : socket_(context_, ZMQ_DEALER) {
        if (keys != nullptr) {
            socket_.set(ZMQ_CURVE_SERVERKEY, serverKey);
            socket_.set(ZMQ_CURVE_PUBLICKEY, keys->publicKey);
            socket_.set(ZMQ_CURVE_SECRETKEY, keys->secretKey);
        }
        socket_.set(ZMQ_RECONNECT_IVL, -1);
        zmq_socket_monitor(socket_.get(), "inproc://events", ZMQ_EVENT_ALL);
        monitor_.connect("inproc://events");
        socket_.connect(address);
    }
    void send(const Bytes& message, bool hasMore = false) {
        ASSERT_TRUE(socket_.send(message.data(), message.size(), hasMore));
    }
    /// The connection has come to its end.
    bool isEnded() {
        while (true) {
            const std::vector<std::string> event = monitor_.receiveAll(2);
            if (event.empty()) return isEnded_;
            uint16_t number = 0;
            memcpy(&number, event[0].data(), sizeof number);
            if (number == ZMQ_EVENT_DISCONNECTED || number == ZMQ_EVENT_CLOSED) isEnded_ = true;
        }
    }

private:
    linx::link::ZmqContext context_;
    linx::link::ZmqSocket socket_;
    linx::link::ZmqSocket monitor_{context_, ZMQ_PAIR};
    bool isEnded_ = false;
};

class ZeromqTest : public testing::Test {
protected:
    RawSocket raw() { return RawSocket(&maker.diallerKeys, maker.listenerKeys.publicKey, maker.address); }
    /// The peer gets in, whoever else is there.
    void expectThatThePeerGetsIn() {
        const std::unique_ptr<ZmqEngine> dialler = maker.dialler();
        Told here(*dialler);
        const size_t before = there.connected.size();
        dialler->dial(onlyPeer, clockNow());
        const auto isIn = [&] { return here.connected.size() == 1 && there.connected.size() == before + 1; };
        EXPECT_TRUE(listenUntil({&here, &there}, isIn));
    }

    ZeromqMaker maker;
    std::unique_ptr<ZmqEngine> listener = maker.listener();
    Told there{*listener};
};

}  // namespace

TEST_F(ZeromqTest, AStrangerIsToldWhyAndCounted) {
    const std::unique_ptr<ZmqEngine> engine = maker.stranger();
    Told stranger(*engine);
    engine->dial(onlyPeer, clockNow());
    ASSERT_TRUE(listenUntil({&stranger, &there}, [&] { return !stranger.failed.empty(); }));
    EXPECT_EQ(stranger.failed[0].reason, "the peer does not know this node's key");
    EXPECT_EQ(listener->strangers(), 1u);
    EXPECT_TRUE(there.connected.empty());
    EXPECT_TRUE(there.frames.empty());
}

TEST_F(ZeromqTest, WhoeverHasNotThePeersKeyIsNotTakenForIt) {
    const KeyPair other = linx::link::newKeyPair();
    const std::unique_ptr<ZmqEngine> engine = maker.dialling(maker.diallerKeys, other.publicKey);
    Told here(*engine);
    engine->dial(onlyPeer, clockNow());
    ASSERT_TRUE(listenUntil({&here, &there}, [&] { return !here.failed.empty(); }));
    EXPECT_NE(here.failed[0].reason, "");
    EXPECT_TRUE(here.connected.empty());
    EXPECT_TRUE(there.connected.empty());
}

TEST_F(ZeromqTest, WhoeverDoesNotEncryptGetsNowhere) {
    RawSocket raw(nullptr, "", maker.address);
    raw.send({linx::link::opens});
    raw.send(bytesOf(100));
    ASSERT_TRUE(listenUntil({&there}, [&] { return raw.isEnded(); }));
    expectThatThePeerGetsIn();
    EXPECT_EQ(there.connected.size(), 1u);
    EXPECT_TRUE(there.frames.empty());
}

TEST_F(ZeromqTest, ConnectionsThatSayNothingOrNonsenseKeepNobodyOut) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(std::stoi(maker.address.substr(maker.address.rfind(':') + 1))));
    std::vector<int> sockets;
    for (int i = 0; i < 200; ++i) {
        sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(connect(sockets.back(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        const Bytes nonsense = bytesOf(static_cast<size_t>(i) * 3, static_cast<uint8_t>(i));
        send(sockets.back(), nonsense.data(), nonsense.size(), MSG_NOSIGNAL);
    }
    expectThatThePeerGetsIn();
    EXPECT_EQ(there.connected.size(), 1u);
    EXPECT_TRUE(there.frames.empty());
    for (const int socket : sockets) close(socket);
}

TEST_F(ZeromqTest, APeerIsOnlyHeardAfterItsFirstWordAndOnlyInWholeMessages) {
    RawSocket peer = raw();
    peer.send(bytesOf(100));
    peer.send({linx::link::closes});
    peer.send({});
    peer.send({linx::link::opens}, true);
    peer.send(bytesOf(50));
    peer.send({linx::link::opens});
    peer.send(bytesOf(60), true);
    peer.send(bytesOf(60), true);
    peer.send(bytesOf(60));
    peer.send(bytesOf(70));
    ASSERT_TRUE(listenUntil({&there}, [&] { return !there.frames.empty(); }));
    EXPECT_EQ(there.connected.size(), 1u);
    EXPECT_EQ(there.frames, std::vector<Bytes>{bytesOf(70)});
}

TEST_F(ZeromqTest, AfterAConnectionWasClosedNothingMoreIsHeardOfIt) {
    RawSocket peer = raw();
    peer.send({linx::link::opens});
    peer.send(bytesOf(70));
    ASSERT_TRUE(listenUntil({&there}, [&] { return !there.frames.empty(); }));
    listener->close(there.connected[0].connection);
    peer.send(bytesOf(80));
    peer.send({linx::link::opens});
    ASSERT_TRUE(listenUntil({&there}, [&] { return there.connected.size() == 2; }));
    EXPECT_NE(there.connected[0].connection, there.connected[1].connection);
    EXPECT_EQ(there.frames, std::vector<Bytes>{bytesOf(70)});
}

TEST_F(ZeromqTest, WhoeverSendsWhatIsFarTooLargeIsCutOff) {
    RawSocket peer = raw();
    peer.send({linx::link::opens});
    ASSERT_TRUE(listenUntil({&there}, [&] { return !there.connected.empty(); }));
    peer.send(bytesOf(linx::link::largestMessage + 1));
    ASSERT_TRUE(listenUntil({&there}, [&] { return peer.isEnded(); }));
    EXPECT_TRUE(there.frames.empty());
    const auto isTold = [&] {
        listener->send(there.connected[0].connection, bytesOf(100));
        there.listen();
        return !there.disconnected.empty();
    };
    EXPECT_TRUE(listenUntil({&there}, isTold));
    expectThatThePeerGetsIn();
}

TEST_F(ZeromqTest, AConnectionThatOnlyOpensDoesNotKeepThePeerOut) {
    // It has the right key and opens, but says no HELLO: the session's own time limit ends it.
    RawSocket silent = raw();
    silent.send({linx::link::opens});
    Node b(*listener, 2, Peer::Side::higher, false);
    const std::unique_ptr<ZmqEngine> dialler = maker.dialler();
    Node a(*dialler, 1, Peer::Side::lower, true);
    EXPECT_TRUE(turnUntil({&a, &b}, [&] { return a.session() != nullptr && b.session() != nullptr; }));
}

TEST(ZeromqNodesTest, WhereBothDialOneSessionStays) {
    const KeyPair keys[] = {linx::link::newKeyPair(), linx::link::newKeyPair()};
    linx::link::Trouble trouble;
    std::string addresses[2];
    for (int i = 0; i < 2; ++i) addresses[i] = ZmqEngine::open(keys[i], "tcp://127.0.0.1:*", {}, trouble)->address();
    const auto first = ZmqEngine::open(keys[0], addresses[0], {{keys[1].publicKey, addresses[1]}}, trouble);
    ASSERT_NE(first, nullptr) << trouble.text;
    const auto second = ZmqEngine::open(keys[1], addresses[1], {{keys[0].publicKey, addresses[0]}}, trouble);
    ASSERT_NE(second, nullptr) << trouble.text;
    const bool isLower = keys[0].publicKey < keys[1].publicKey;
    Node a(*first, 1, isLower ? Peer::Side::lower : Peer::Side::higher, true);
    Node b(*second, 2, isLower ? Peer::Side::higher : Peer::Side::lower, true);
    ASSERT_TRUE(turnUntil({&a, &b}, [&] { return a.session() != nullptr && b.session() != nullptr; }));
    const OwnId server = *b.session()->announce("server");
    ASSERT_TRUE(turnUntil({&a, &b}, [&] { return !a.announced.empty(); }));
    EXPECT_EQ(numberOf(a.announced.back().id), numberOf(server));
}

TEST(ZeromqOpeningTest, AnAddressThatCannotBeHadIsNamed) {
    const KeyPair keys = linx::link::newKeyPair();
    linx::link::Trouble trouble;
    const auto first = ZmqEngine::open(keys, "tcp://127.0.0.1:*", {}, trouble);
    ASSERT_NE(first, nullptr) << trouble.text;
    EXPECT_EQ(ZmqEngine::open(keys, first->address(), {}, trouble), nullptr);
    EXPECT_EQ(trouble.text, "cannot listen at " + first->address() + ": Address already in use");
}

TEST(ZeromqKeyTest, ASecretKeyHasItsPublicKeyAndNonsenseHasNone) {
    const KeyPair keys = linx::link::newKeyPair();
    ASSERT_EQ(keys.publicKey.size(), 40u);
    ASSERT_EQ(keys.secretKey.size(), 40u);
    ASSERT_TRUE(linx::link::keyPairOf(keys.secretKey));
    EXPECT_EQ(linx::link::keyPairOf(keys.secretKey)->publicKey, keys.publicKey);
    EXPECT_NE(linx::link::newKeyPair().secretKey, keys.secretKey);
    EXPECT_FALSE(linx::link::keyPairOf(keys.secretKey.substr(1)));
    EXPECT_FALSE(linx::link::keyPairOf(std::string(40, ' ')));
}
