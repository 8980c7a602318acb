// What publisher and subscribers agree on.
#ifndef GUIDE_FRAMES_H
#define GUIDE_FRAMES_H

constexpr unsigned subscribe = 2200;   // to the publisher, without payload
constexpr unsigned frame = 2201;       // to a subscriber: a picture that begins with its number, an `unsigned`
constexpr unsigned frameTaken = 2202;  // to the publisher, for each frame, without payload
constexpr unsigned frameSize = 60000;

#endif
