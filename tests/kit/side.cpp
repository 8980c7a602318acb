#include "tests/kit/side.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/kit/signals.h"

namespace {

/// In the environment, so that it also reaches programs that are executed: "this" or "other", and nothing without a
/// link in between.
constexpr const char* sideVariable = "LINX_TEST_SIDE";
constexpr uint32_t endNumber = 1;

const OtherSide* current = nullptr;

bool isOn(const char* side) {
    const char* const own = std::getenv(sideVariable);
    return own != nullptr && own == std::string(side);
}

std::string finderName() {
    return "finder in " + std::to_string(getpid());
}

}  // namespace

std::unique_ptr<OtherSide> (*OtherSide::make)(const std::string& domain) = nullptr;

OtherSide::OtherSide() {
    setenv(sideVariable, "this", 1);
    current = this;
}

OtherSide::~OtherSide() {
    current = nullptr;
    unsetenv(sideVariable);
}

void OtherSide::enter() {
    if (current == nullptr) return;
    setenv("LINX_DOMAIN", current->domain().c_str(), 1);
    setenv(sideVariable, "other", 1);
}

bool areApart() {
    return std::getenv(sideVariable) != nullptr;
}

std::string here(const std::string& name) {
    return isOn("other") ? "toA/" + name : name;
}

std::string there(const std::string& name) {
    return isOn("this") ? "toB/" + name : name;
}

LinxSpid met(uint32_t told, const std::string& name) {
    return areApart() ? hunt(Endpoint(finderName()), name) : told;
}

void learnEndOf(LinxSpid spid) {
    if (!areApart()) return;
    Endpoint finder(finderName());
    ASSERT_NE(attach(finder, spid, endNumber), 0u);
    expectSignal(finder, endNumber);
}

uint32_t atOnce() {
    return areApart() ? patience : 0;
}
