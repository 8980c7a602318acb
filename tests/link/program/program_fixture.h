#ifndef LINXIPC_TESTS_LINK_PROGRAM_PROGRAM_FIXTURE_H
#define LINXIPC_TESTS_LINK_PROGRAM_PROGRAM_FIXTURE_H

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/kit/domain.h"

namespace linktest {

/// What a command has written and how it has ended.
struct Transcript {
    std::string output;
    std::string errors;
    int status = -1;
};

inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// A socket that listens at an address of its own. It stays this process's when the socket has gone: the number of
/// the process stands in it, so nobody else is given the port meanwhile.
class TakenPort {
public:
    TakenPort() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(host());
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(socket_, 1), 0);
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
        address_ = std::string("tcp://") + text + ":" + std::to_string(ntohs(address.sin_port));
    }
    ~TakenPort() { close(socket_); }
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;

    const std::string& address() const { return address_; }

private:
    /// In 127.0.0.0/8, whose upper half nobody but these tests listens in. Process numbers have 22 bits at most.
    static uint32_t host() { return 0x7f800000u | (static_cast<uint32_t>(getpid()) & 0x3fffffu); }

    int socket_;
    std::string address_;
};

/// A directory with two keys, in which linx-link is run, and a domain for what does not name another.
class ProgramTest : public testing::Test {
protected:
    ProgramTest() {
        std::string name = testing::TempDir() + "linx-link.XXXXXX";
        directory = mkdtemp(name.data());
        ownKey = keygen("link.key");
        peerKey = keygen("peer.key");
    }
    ~ProgramTest() override { std::filesystem::remove_all(directory); }

    /// Runs it in the directory, with what a shell makes of the arguments.
    Transcript run(const std::string& arguments) {
        const std::string command = "cd '" + directory + "' && '" LINX_LINK "' " + arguments;
        const std::string all = "{ " + command + "; } >'" + directory + "/output' 2>'" + directory + "/errors'";
        Transcript transcript;
        const int status = std::system(all.c_str());
        transcript.status = WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
        transcript.output = contentOf(directory + "/output");
        transcript.errors = contentOf(directory + "/errors");
        return transcript;
    }
    std::string keygen(const std::string& file) {
        const Transcript transcript = run("keygen " + file);
        EXPECT_EQ(transcript.status, 0) << transcript.errors;
        return transcript.output.substr(0, transcript.output.find('\n'));
    }
    void configure(const std::string& text, const std::string& file = "link.conf") {
        std::ofstream(directory + "/" + file) << text;
    }
    static std::string linkTo(const std::string& peer, const std::string& name = "toVp0") {
        return "[[link]]\nname = \"" + name + "\"\npeer = \"" + peer + "\"\n";
    }

    const linxtest::TestDomain defaultDomain;
    std::string directory;
    std::string ownKey;
    std::string peerKey;
};

}  // namespace linktest

#endif
