// A small server: whoever presses the button has light for half a minute. The lamp belongs to another server.
#ifndef STAIR_LIGHT_H
#define STAIR_LIGHT_H

#include "ipc/linxIpc.h"

enum StairSignal : unsigned {
    e_ButtonPressed = 3000,  // to the stair light, from anybody
    e_LightIsOn = 3001,      // its answer, or that:
    e_LightIsBroken = 3002,
    e_SwitchLamp = 3100,    // to the lamp: a byte, 1 is on
    e_LampSwitched = 3101,  // the lamp's answer
    e_LightsOut = 3200      // the time is up
};

class StairLight {
public:
    int open();   // the result of Init
    int serve();  // until a receive fails, or the stair light is asked to shut down; what the receive returned

private:
    void buttonPressed();
    void lightsOut();
    bool switchLamp(bool on);

    LinxIpc endpoint_{"stairLight"};
    bool isLit_ = false;
};

#endif
