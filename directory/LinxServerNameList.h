// SPDX-License-Identifier: MIT
#ifndef LINXIPC_DIRECTORY_LINXSERVERNAMELIST_H
#define LINXIPC_DIRECTORY_LINXSERVERNAMELIST_H

#include <map>
#include <string>

#include "directory/e_Process.h"
#include "platform/export.h"

/// The directory of the device's servers: which endpoint name belongs to which `e_Process`. It is the same in every
/// process. Any number of threads may use it at once.
class LINXIPC_API LinxServerNameList {
public:
    /// The one directory of the process, made when it is first used; it lives until the process exits.
    static LinxServerNameList& Instance();

    LinxServerNameList(const LinxServerNameList&) = delete;
    LinxServerNameList& operator=(const LinxServerNameList&) = delete;
    virtual ~LinxServerNameList();

    /// The endpoint name of `process`, for use as a destination. The name of a server on another node begins with the
    /// link to that node and a slash. A value that stands for no server is logged and gives "UndefinedServer". The
    /// reference is valid as long as the directory.
    const std::string& Name(e_Process process);

    /// The server whose endpoint name is exactly `name`, or `e_UndefinedServer`.
    e_Process Process(const std::string& name) const;

private:
    LinxServerNameList();

    std::map<e_Process, const std::string> serverNames;
};

#endif
