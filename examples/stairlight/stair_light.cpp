#include "stair_light.h"

namespace {

constexpr int lightLasts = 30000;  // milliseconds
constexpr int lampMayTake = 500;

}  // namespace

int StairLight::open() {
    const auto pressed = [](LinxIpc*, void* light) { static_cast<StairLight*>(light)->buttonPressed(); };
    const auto timeIsUp = [](LinxIpc*, void* light) { static_cast<StairLight*>(light)->lightsOut(); };
    endpoint_.RegisterHandler(e_ButtonPressed, pressed, this);
    endpoint_.RegisterHandler(e_LightsOut, timeIsUp, this);
    return endpoint_.Init();
}

int StairLight::serve() {
    int result = 0;
    while (result == 0) result = endpoint_.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result;
}

void StairLight::buttonPressed() {
    const std::string who = endpoint_.rxMessage.GetSender();
    if (isLit_) {
        endpoint_.DisableTimer();  // half a minute begins anew
    } else {
        isLit_ = switchLamp(true);
    }
    if (isLit_) endpoint_.EnableTimer(lightLasts, e_LightsOut);
    IpcMessage answer;
    answer.Allocate(isLit_ ? e_LightIsOn : e_LightIsBroken, 0, nullptr);
    endpoint_.Notify(who, answer, true);
}

void StairLight::lightsOut() {
    switchLamp(false);
    isLit_ = false;
}

bool StairLight::switchLamp(bool on) {
    IpcMessage request;
    IpcMessage answer;
    char state = on ? 1 : 0;
    return request.Allocate(e_SwitchLamp, sizeof state, &state) == 0 &&
           endpoint_.Request("lamp", request, e_LampSwitched, lampMayTake, &answer) == 0;
}
