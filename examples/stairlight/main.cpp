#include <cerrno>

#include "stair_light.h"

int main() {
    StairLight light;
    return light.open() == 0 && light.serve() == ESHUTDOWN ? 0 : 1;
}
