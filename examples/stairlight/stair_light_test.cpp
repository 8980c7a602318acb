// The stair light alone: no lamp, no button, and half a minute takes no time.
#include "stair_light.h"

#include <cerrno>
#include <chrono>
#include <iostream>

#include "testing/RecordingPlatform.h"

using linx::testing::RecordingPlatform;
using namespace std::chrono_literals;

static int failures = 0;
static RecordingPlatform& platform = RecordingPlatform::instance();

static void check(bool holds, const char* condition, int line) {
    if (holds) return;
    ++failures;
    std::cout << "line " << line << ": " << condition << std::endl;
}
#define CHECK(condition) check(condition, #condition, __LINE__)

// The house that each test begins with. The stair light serves until it has nothing left to do.
struct House {
    House() {
        platform.reset();
        button = platform.addPeer("button");
        lamp = platform.addPeer("lamp");
        CHECK(light.open() == 0);
    }
    ~House() { CHECK(platform.signalsInHand().empty()); }

    void press() {
        platform.sent.clear();
        platform.arrive(button, e_ButtonPressed);
    }
    void lampObeys() { platform.arrive(lamp, e_LampSwitched); }
    void serve() { CHECK(light.serve() == EDEADLK); }

    bool lampWasSwitched(const char* state) const {
        return !platform.sent.empty() && platform.sent[0].to == lamp &&
               platform.sent[0].payload == std::string(state, 1);
    }
    bool buttonWasTold(unsigned number) const {
        return !platform.sent.empty() && platform.sent.back().to == button && platform.sent.back().number == number;
    }

    StairLight light;
    LinxSpid button;
    LinxSpid lamp;
};

static void theButtonSwitchesTheLampOn() {
    House house;
    house.press();
    house.lampObeys();
    house.serve();
    CHECK(house.lampWasSwitched("\1"));
    CHECK(house.buttonWasTold(e_LightIsOn));
}

static void theLightGoesOutHalfAMinuteAfterTheLastPress() {
    House house;
    house.press();
    house.lampObeys();
    house.serve();
    platform.advance(20s);
    house.press();
    house.serve();
    CHECK(platform.sent.size() == 1 && house.buttonWasTold(e_LightIsOn));

    platform.sent.clear();
    platform.advance(29s);
    house.serve();
    CHECK(platform.sent.empty());
    platform.advance(1s);
    house.lampObeys();
    house.serve();
    CHECK(house.lampWasSwitched("\0"));
}

static void aLampThatDoesNotAnswerIsBroken() {
    House house;
    house.press();
    house.serve();
    CHECK(platform.now() == 500ms);
    CHECK(house.buttonWasTold(e_LightIsBroken));
}

static void aLampThatHasEndedIsBroken() {
    House house;
    platform.endPeer("lamp");
    house.press();
    house.serve();
    CHECK(house.buttonWasTold(e_LightIsBroken));
}

static void memoryThatHasRunOutSwitchesNothing() {
    House house;
    platform.fail("linx_alloc", {ENOMEM});
    house.press();
    house.serve();
    CHECK(platform.sent.size() == 1 && house.buttonWasTold(e_LightIsBroken));
}

int main() {
    theButtonSwitchesTheLampOn();
    theLightGoesOutHalfAMinuteAfterTheLastPress();
    aLampThatDoesNotAnswerIsBroken();
    aLampThatHasEndedIsBroken();
    memoryThatHasRunOutSwitchesNothing();
    if (failures == 0) std::cout << "the light works" << std::endl;
    return failures == 0 ? 0 : 1;
}
