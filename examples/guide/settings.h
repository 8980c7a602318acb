// What ConfigMgr understands.
#ifndef GUIDE_SETTINGS_H
#define GUIDE_SETTINGS_H

#include <cstdint>

constexpr unsigned getSetting = 2300;  // Question
constexpr unsigned setting = 2301;     // Answer

struct Question {
    std::uint32_t number;  // which the answer repeats
    char key[28];
};

struct Answer {
    std::uint32_t number;
    char value[28];  // empty when there is no such setting
};

#endif
