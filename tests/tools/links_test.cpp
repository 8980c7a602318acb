// What is shown of links to other machines: by endpoints that answer as a link does, or do not.

#include <gmock/gmock.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "link/status/status.h"
#include "tests/tools/scene.h"

namespace {

using linx::link::Status;
using Json = nlohmann::json;

/// A link that answers so many times with that.
std::unique_ptr<Child> link(const std::string& name, const std::string& answer, int times) {
    auto child = std::make_unique<Child>([=](Line& test) {
        Endpoint endpoint(name, LINX_OPEN_LINK);
        test.tell(spidOf(endpoint));
        for (int i = 0; i < times; ++i) {
            const Received asked = expectSignal(endpoint, linx::link::askStatusNumber);
            const Bytes text(answer.c_str(), answer.c_str() + answer.size() + 1);
            EXPECT_EQ(sendBytes(endpoint, asked.sender, linx::link::statusNumber, text), 0);
        }
        test.hear();
    });
    child->hear();
    return child;
}

void end(const std::unique_ptr<Child>& child) {
    child->tell();
    EXPECT_EQ(child->exitStatus(), 0);
}

Status statusOfOneThatIsUp() {
    Status status;
    status.state = "up";
    status.seconds = 90;
    status.peer = "Yne@$w-vo<fVvi]a<NY6T1ed:M$fCG*[IaLV{hID";
    status.byteOrder = "big";
    status.wordBits = 32;
    status.roundTrip = 1234;
    status.window = 524288;
    status.inFlight = 1024;
    status.waiting = 2048;
    status.destinations = {{"EncodeCtrl", 2, 2048, 17}};
    status.denied = {"Secret one"};
    status.refused = {{"control", 2}, {"no way back", 1}};
    status.lost = 4;
    return status;
}

Status statusOfOneThatIsDown() {
    Status status;
    status.state = "connecting";
    status.seconds = 7;
    status.reason = "nobody listens there";
    return status;
}

class LinksTest : public ProcessTest {
protected:
    static Json jsonOf(std::vector<std::string> arguments) {
        arguments.push_back("-j");
        return Json::parse(runLinx(arguments).out, nullptr, false);
    }
};

TEST_F(LinksTest, NoneAreShownWhereThereAreNone) {
    Endpoint endpoint("endpoint");
    EXPECT_EQ((Outcome{0, "[]\n", ""}), runLinx({"links", "-j"}));
    EXPECT_EQ((Outcome{3, "", "linx: no link is called 'endpoint'\n"}), runLinx({"links", "endpoint"}));
    EXPECT_EQ(receiveNumber(endpoint), 0u) << "who is no link is not asked";
}

TEST_F(LinksTest, EachIsShownAsItSays) {
    const auto up = link("toVp0", textOf(statusOfOneThatIsUp()), 3);
    const auto down = link("toVp1", textOf(statusOfOneThatIsDown()), 2);
    EXPECT_EQ(squeezed(runLinx({"links"}).out),
              "NAME STATE SINCE ROUND TRIP PEER IS IN FLIGHT WAITING REFUSED LOST REASON\n"
              "toVp0 up 1 min 1.234 ms 32 bits, big 1.0 KiB of 512.0 KiB 2.0 KiB 3 4 -\n"
              "toVp1 connecting 7.00 s - - - 0 B 0 0 nobody listens there\n");
    EXPECT_THAT(squeezed(runLinx({"links", "toVp0"}).out),
                testing::EndsWith("peer Yne@$w-vo<fVvi]a<NY6T1ed:M$fCG*[IaLV{hID\n"
                                  "refused 2: control\n"
                                  "refused 1: no way back\n"
                                  "denied Secret one\n"
                                  "waiting EncodeCtrl: 2 signals, 2.0 KiB, credit for 17 B\n"));
    Json links = jsonOf({"links"});
    ASSERT_EQ(links.size(), 2u);
    EXPECT_THAT(links[0]["since"], testing::HasSubstr("Z"));
    links[0].erase("since");
    EXPECT_EQ((Json{{"name", "toVp0"},
                    {"peer", "Yne@$w-vo<fVvi]a<NY6T1ed:M$fCG*[IaLV{hID"},
                    {"state", "up"},
                    {"reason", nullptr},
                    {"rtt_microseconds", 1234},
                    {"byte_order", "big"},
                    {"word_size", 32},
                    {"window_bytes", 524288},
                    {"in_flight_bytes", 1024},
                    {"waiting_bytes", 2048},
                    {"waiting", {{{"name", "EncodeCtrl"}, {"signals", 2}, {"bytes", 2048}, {"credit_bytes", 17}}}},
                    {"denied", {"Secret one"}},
                    {"refused", {{"control", 2}, {"no way back", 1}}},
                    {"lost", 4}}),
              links[0]);
    EXPECT_EQ(links[1]["state"], "connecting");
    EXPECT_TRUE(links[1]["word_size"].is_null());
    end(up);
    end(down);
}

TEST_F(LinksTest, OneThatSaysNothingOrNonsenseIsDown) {
    const auto silent = link("silent", "", 0);
    const auto confused = link("confused", "state well\nseconds many\n", 1);
    const Json links = jsonOf({"links", "--timeout", "100ms"});
    ASSERT_EQ(links.size(), 2u);
    for (const Json& one : links) {
        EXPECT_EQ(one["state"], "down");
        EXPECT_EQ(one["reason"], "the link does not answer");
        EXPECT_TRUE(one["since"].is_null());
    }
    silent->kill9();
    end(confused);
}

TEST_F(LinksTest, TheDoctorFindsWhatIsWrongWithThem) {
    const auto up = link("toVp0", textOf(statusOfOneThatIsUp()), 1);
    const auto down = link("toVp1", textOf(statusOfOneThatIsDown()), 1);
    const auto silent = link("silent", "", 0);
    std::map<std::string, std::string> found;
    for (const Json& one : jsonOf({"doctor", "--timeout", "100ms"})) found[one["finding"]] = one["subject"];
    EXPECT_THAT(found,
                testing::ElementsAre(testing::Pair("link-denied", "toVp0/Secret one"),
                                     testing::Pair("link-down", "toVp1"), testing::Pair("link-silent", "silent")));
    silent->kill9();
    end(up);
    end(down);
}

TEST(LinkStatus, ComesBackFromItsText) {
    const std::string text = textOf(statusOfOneThatIsUp());
    const auto back = linx::link::statusFrom(text + "a word that only later links say\n");
    ASSERT_TRUE(back);
    EXPECT_EQ(textOf(*back), text);
}

TEST(LinkStatus, NamesCannotSayMoreThanNames) {
    Status status;
    status.denied = {"a\nlost 7", "b\\nlost 7", "\\"};
    status.destinations = {{"\nstate up", 1, 2, 3}};
    const auto back = linx::link::statusFrom(textOf(status));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->denied, status.denied);
    EXPECT_EQ(back->destinations[0].name, status.destinations[0].name);
    EXPECT_EQ(back->lost, 0u);
    EXPECT_EQ(back->state, "down");
}

TEST(LinkStatus, IsNoneWithoutAStateOrWithNumbersThatAreNone) {
    using linx::link::statusFrom;
    EXPECT_TRUE(statusFrom(""));
    EXPECT_FALSE(statusFrom("state well\n"));
    for (const char* line : {"lost many", "lost", "refused", "refused x y", "destination 1 2 x"}) {
        EXPECT_FALSE(statusFrom(line)) << line;
    }
}

}  // namespace
