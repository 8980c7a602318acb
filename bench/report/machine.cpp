#include "bench/report/machine.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <ctime>
#include <fstream>

namespace bench {

namespace {

/// Words of the kernel's about the first processor, where it has any.
std::string processorModel() {
    std::ifstream about("/proc/cpuinfo");
    for (std::string line; std::getline(about, line);) {
        const std::size_t colon = line.find(": ");
        if (line.rfind("model name", 0) == 0 && colon != std::string::npos) return line.substr(colon + 2);
    }
    return "unknown";
}

std::string kernel() {
    utsname names = {};
    uname(&names);
    return std::string(names.sysname) + ' ' + names.release + ' ' + names.machine;
}

std::string compiler() {
#ifdef __clang__
    return __VERSION__;
#else
    return std::string("g++ ") + __VERSION__;
#endif
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", std::gmtime(&now));
    return text;
}

std::string load() {
    std::string minute;
    std::ifstream("/proc/loadavg") >> minute;
    return minute;
}

}  // namespace

Machine thisMachine() {
    return {processorModel(), std::to_string(sysconf(_SC_NPROCESSORS_ONLN)), kernel(), compiler(), today(), load()};
}

}  // namespace bench
