/* What the endpoint "Thermometer" understands; for C and C++. */
#ifndef GUIDE_THERMOMETER_H
#define GUIDE_THERMOMETER_H

#include <stdint.h>

enum {
    askTemperature = 2000, /* without payload; answered with `temperature` */
    temperature = 2001,    /* struct Temperature */
    correct = 2002         /* struct Temperature, to be added from now on; not answered */
};

struct Temperature {
    int32_t milliCelsius;
};

#endif
