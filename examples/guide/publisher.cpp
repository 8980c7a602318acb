// Publishes 50 frames a second. With --careless, it does not care whether its subscribers keep up.
#include <cerrno>
#include <cstring>
#include <iostream>
#include <limits>
#include <map>

#include "frames.h"
#include "ipc/linxIpc.h"
#include "platform/DiffTime.h"

constexpr unsigned subscriberHasEnded = 2210;
constexpr int period = 20;  // milliseconds

struct Subscriber {
    unsigned attached = 0;  // how many notices of an end are to come
    unsigned underway = 0;  // frames that it has not taken yet
    unsigned missed = 0;    // frames that it has not been sent lately
};

struct Publisher {
    unsigned mayBeUnderway;
    unsigned number = 0;
    IpcMessage picture;
    std::map<std::string, Subscriber> subscribers;
};

static void admit(LinxIpc* endpoint, void* userData) {
    const std::string& name = endpoint->rxMessage.GetSender();
    Subscriber& subscriber = static_cast<Publisher*>(userData)->subscribers[name];
    subscriber.underway = subscriber.missed = 0;
    if (endpoint->Attach(name.c_str(), subscriberHasEnded) == 0) ++subscriber.attached;
}

static void confirm(LinxIpc* endpoint, void* userData) {
    Publisher& publisher = *static_cast<Publisher*>(userData);
    const auto found = publisher.subscribers.find(endpoint->rxMessage.GetSender());
    if (found != publisher.subscribers.end() && found->second.underway > 0) --found->second.underway;
}

/// One that is started again may subscribe before the end of the one before is told.
static void dismiss(LinxIpc* endpoint, void* userData) {
    Publisher& publisher = *static_cast<Publisher*>(userData);
    const std::string& name = endpoint->rxMessage.GetSender();
    const auto found = publisher.subscribers.find(name);
    if (found == publisher.subscribers.end() || --found->second.attached > 0) return;
    publisher.subscribers.erase(found);
    std::cout << name << " has ended" << std::endl;
}

/// Returns 0 when the frame was sent.
static int send(LinxIpc* endpoint, Publisher& publisher, const std::string& name, Subscriber& subscriber) {
    if (subscriber.underway >= publisher.mayBeUnderway) return EAGAIN;
    const int result = endpoint->Notify(name, publisher.picture, false);
    if (result == 0) ++subscriber.underway;
    return result;
}

static void publish(LinxIpc* endpoint, Publisher& publisher) {
    ++publisher.number;
    std::memcpy(publisher.picture.DataPtr(), &publisher.number, sizeof publisher.number);
    for (auto& [name, subscriber] : publisher.subscribers) {
        const int result = send(endpoint, publisher, name, subscriber);
        if (result == -1) continue;  // it has ended, which will be told soon
        if (result != 0) {
            if (subscriber.missed++ == 0)
                std::cout << "frame " << publisher.number << " to " << name << ": " << std::strerror(result)
                          << std::endl;
        } else if (subscriber.missed > 0) {
            std::cout << name << " has missed " << subscriber.missed << " frames" << std::endl;
            subscriber.missed = 0;
        }
    }
}

int main(int count, char**) {
    Publisher publisher;
    publisher.mayBeUnderway = count > 1 ? std::numeric_limits<unsigned>::max() : 4;
    publisher.picture.Allocate(frame, frameSize, nullptr);
    std::memset(publisher.picture.DataPtr(), 0, frameSize);
    LinxIpc endpoint("Publisher");
    endpoint.RegisterHandler(subscribe, admit, &publisher);
    endpoint.RegisterHandler(frameTaken, confirm, &publisher);
    endpoint.RegisterHandler(subscriberHasEnded, dismiss, &publisher);
    if (endpoint.Init() != 0) return 1;
    std::cout << "ready" << std::endl;
    int result = 0;
    unsigned nextFrame = DiffTime::CalcInitialTimeout(period);
    while (result == 0 || result == ETIMEDOUT) {
        if (DiffTime::ReCalcTimeout(nextFrame) == 0) {
            publish(&endpoint, publisher);
            nextFrame = DiffTime::CalcInitialTimeout(period);
        }
        result = endpoint.Receive(DiffTime::ReCalcTimeout(nextFrame), 0, LinxIpc::emptyString, nullptr);
    }
    return result == ESHUTDOWN ? 0 : 1;
}
