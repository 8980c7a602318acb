// The servers of this device, and the names of their endpoints.
#ifndef GUIDE_SERVERS_H
#define GUIDE_SERVERS_H

#include <array>
#include <cstddef>
#include <string>

enum class Server : unsigned { thermometer, configMgr, dispatcher };

constexpr std::array<Server, 3> allServers{Server::thermometer, Server::configMgr, Server::dispatcher};

inline const std::string& nameOf(Server server) {
    static const std::array<std::string, allServers.size()> names{"Thermometer", "ConfigMgr", "Dispatcher"};
    return names.at(static_cast<std::size_t>(server));
}

#endif
