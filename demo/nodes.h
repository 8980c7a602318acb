#ifndef LINXIPC_DEMO_NODES_H
#define LINXIPC_DEMO_NODES_H

#include <array>
#include <string>

#include "demo/roster.h"

namespace demo {

/// Where --nodes has the encoders run, each on a node of its own: in a domain of its own, behind a link.
constexpr std::array<e_Process, 2> encoders = {e_Vp0EncodeCtrl, e_Vp1EncodeCtrl};

/// Who has them encode.
constexpr e_Process encodersClient = e_Offloader;

/// The links: the main node's, and one on each of the others.
constexpr std::array<e_Process, 3> links = {e_EthMgr, e_VpHal0, e_VpHal1};

bool isLink(e_Process process);

/// The link that leads to a server from the main node; empty for one that is there itself.
std::string linkTo(e_Process server);

/// What a server is called on its own node.
std::string ownNameOf(e_Process server);

/// Where the endpoints of a server, or of a link, meet: in the main node's domain, which is `domain`, or beneath it.
std::string domainOf(e_Process process, const std::string& domain);

/// The configuration of a link.
std::string configurationOf(e_Process link, const std::string& domain);

/// Makes the domains of the other nodes beneath the main one's, and the keys and configurations of all links, with
/// that build of linx-link. What went wrong; empty when nothing did.
std::string layOutNodes(const std::string& domain, const std::string& program);

}  // namespace demo

#endif
