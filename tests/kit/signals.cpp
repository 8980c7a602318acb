#include "tests/kit/signals.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

uint32_t Received::word(size_t index) const {
    uint32_t value = 0;
    if (payload.size() >= (index + 1) * sizeof value) {
        std::memcpy(&value, payload.data() + index * sizeof value, sizeof value);
    }
    return value;
}

unsigned char* payloadOf(LinxSignal* signal) {
    return reinterpret_cast<unsigned char*>(signal) + sizeof(LinxSignal);
}

Bytes pattern(size_t size, uint32_t seed) {
    Bytes bytes(size);
    uint32_t state = seed * 2654435761u + 1;
    for (unsigned char& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<unsigned char>(state >> 24);
    }
    return bytes;
}

LinxSpid spidOf(LINX* linx) {
    LinxSignal* fresh = linx_alloc(linx, sizeof(LinxSignal), 0);
    const LinxSpid own = linx_sender(linx, &fresh);
    EXPECT_EQ(linx_free_buf(linx, &fresh), 0);
    return own;
}

int send(LINX* linx, LinxSpid to, uint32_t number, const std::vector<uint32_t>& words) {
    Bytes payload(words.size() * sizeof(uint32_t));
    if (!words.empty()) std::memcpy(payload.data(), words.data(), payload.size());
    return sendBytes(linx, to, number, payload);
}

int sendBytes(LINX* linx, LinxSpid to, uint32_t number, const Bytes& payload) {
    const uint32_t size = static_cast<uint32_t>(sizeof(LinxSignal) + payload.size());
    LinxSignal* signal = linx_alloc(linx, size, number);
    if (signal == nullptr) return errno;
    if (!payload.empty()) std::memcpy(payloadOf(signal), payload.data(), payload.size());
    const int result = linx_send(linx, &signal, to) == 0 ? 0 : errno;
    EXPECT_EQ(signal, nullptr);
    return result;
}

void sendNumber(LINX* linx, LinxSpid to, uint32_t number, uint32_t size) {
    LinxSignal* signal = linx_alloc(linx, size, number);
    ASSERT_NE(signal, nullptr);
    ASSERT_EQ(linx_send(linx, &signal, to), 0);
}

std::optional<Received> receive(LINX* linx, uint32_t milliseconds, const std::vector<uint32_t>& numbers) {
    std::vector<uint32_t> selection = {static_cast<uint32_t>(numbers.size())};
    selection.insert(selection.end(), numbers.begin(), numbers.end());
    LinxSignal* signal = nullptr;
    const int size = linx_receive_w_tmo(linx, &signal, milliseconds, selection.data());
    if (signal == nullptr) {
        EXPECT_EQ(size, 0) << std::strerror(errno);
        return std::nullopt;
    }
    Received received;
    received.number = signal->number;
    received.sender = linx_sender(linx, &signal);
    received.payload.assign(payloadOf(signal), reinterpret_cast<unsigned char*>(signal) + size);
    EXPECT_EQ(linx_free_buf(linx, &signal), 0);
    return received;
}

uint32_t receiveNumber(LINX* linx) {
    LinxSignal* signal = nullptr;
    if (linx_receive_w_tmo(linx, &signal, 0, anySignal) <= 0) return 0;
    const uint32_t number = signal->number;
    linx_free_buf(linx, &signal);
    return number;
}

Received expectSignal(LINX* linx, uint32_t number, uint32_t milliseconds) {
    const std::optional<Received> received = receive(linx, milliseconds);
    EXPECT_TRUE(received) << "signal " << number << " did not come";
    if (!received) return {};
    EXPECT_EQ(received->number, number);
    return *received;
}

Received expectAmongOthers(LINX* linx, uint32_t number) {
    const std::optional<Received> received = receive(linx, patience, {number});
    EXPECT_TRUE(received) << "signal " << number << " did not come";
    return received.value_or(Received());
}

void expectNothing(LINX* linx) {
    const std::optional<Received> received = receive(linx, 0);
    EXPECT_FALSE(received) << "got signal " << received->number;
}

void sendBack(LINX* linx, uint32_t number) {
    for (;;) {
        const Received received = expectSignal(linx, number);
        ASSERT_EQ(sendBytes(linx, received.sender, number, received.payload), 0);
    }
}

LinxSpid hunt(LINX* linx, const std::string& name) {
    EXPECT_EQ(linx_hunt(linx, name.c_str(), nullptr), 0) << std::strerror(errno);
    return expectAmongOthers(linx, LINX_OS_HUNT_SIG).sender;
}

LinxRef attach(LINX* linx, LinxSpid spid, uint32_t number) {
    LinxSignal* notice = linx_alloc(linx, sizeof(LinxSignal), number);
    const LinxRef reference = linx_attach(linx, &notice, spid);
    EXPECT_EQ(notice, nullptr);
    return reference;
}

std::string nameOf(LINX* linx, LinxSpid spid) {
    char* name = nullptr;
    if (linx_get_name(linx, spid, &name) != 0) return std::string();
    const std::string copy = name;
    EXPECT_EQ(linx_free_name(linx, &name), 0);
    return copy;
}
