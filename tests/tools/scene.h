#ifndef LINXIPC_TESTS_TOOLS_SCENE_H
#define LINXIPC_TESTS_TOOLS_SCENE_H

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "host/arena/spid.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"
#include "tests/kit/small_arena.h"
#include "tests/tools/program.h"

/// What this program, and so every process of a test, is called.
inline std::string processName() {
    std::ifstream file("/proc/self/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

/// All of a file, which lasts where it is done byte by byte.
inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    std::string content(static_cast<size_t>(file.tellg()), '\0');
    file.seekg(0);
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    return content;
}

/// Two processes. `server` has received a signal 100 and kept it; two signals 200 and one 300 wait for it. It hunts
/// for a name that nobody opens. `client` has sent all of that.
class SceneTest : private linxtest::SmallArena, public ProcessTest {
protected:
    SceneTest() {
        server = std::make_unique<Child>([](Line& test) {
            Endpoint endpoint("server");
            test.tell(spidOf(endpoint));
            test.hear();
            const uint32_t first[] = {1, 100};
            LinxSignal* kept = nullptr;
            ASSERT_EQ(4 + 1000, linx_receive(endpoint, &kept, first));
            ASSERT_EQ(linx_hunt(endpoint, "absent", nullptr), 0);
            test.tell();
            test.hear();
            linx_free_buf(endpoint, &kept);
        });
        serverSpid = server->hear();
        client = std::make_unique<Child>([this](Line& test) {
            Endpoint endpoint("client");
            ASSERT_EQ(sendBytes(endpoint, serverSpid, 100, Bytes(1000)), 0);
            ASSERT_EQ(sendBytes(endpoint, serverSpid, 200, Bytes(8)), 0);
            ASSERT_EQ(sendBytes(endpoint, serverSpid, 200, Bytes(8)), 0);
            ASSERT_EQ(sendBytes(endpoint, serverSpid, 300, Bytes(5000)), 0);
            test.tell(spidOf(endpoint));
            test.hear();
        });
        clientSpid = client->hear();
        server->tell();
        server->hear();
        server->awaitSleep();
        client->awaitSleep();
    }

    void TearDown() override {
        server.reset();
        client.reset();
        ProcessTest::TearDown();
    }

    /// The text with @server and @client as the columns of their spids and processes, @comm and @user as theirs.
    std::string filled(std::string text) const {
        replace(text, "@server", columnsOf(serverSpid, *server));
        replace(text, "@client", columnsOf(clientSpid, *client));
        return text;
    }

    static void replace(std::string& text, const std::string& what, const std::string& by) {
        for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
            text.replace(at, what.size(), by);
        }
    }

    std::unique_ptr<Child> server;
    std::unique_ptr<Child> client;
    LinxSpid serverSpid = 0;
    LinxSpid clientSpid = 0;

private:
    static std::string columnsOf(LinxSpid spid, const Child& process) {
        char text[64];
        std::snprintf(text, sizeof text, "%08x %d", spid, static_cast<int>(process.pid()));
        return text;
    }
};

/// A text with every run of spaces made one, and none at the ends of lines: what a table says, whatever its widths.
inline std::string squeezed(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == ' ' && (result.empty() || result.back() == ' ' || result.back() == '\n')) continue;
        if (c == '\n' && !result.empty() && result.back() == ' ') result.pop_back();
        result += c;
    }
    return result;
}

#endif
