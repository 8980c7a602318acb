#ifndef LINXIPC_TOOLS_VERBS_H
#define LINXIPC_TOOLS_VERBS_H

#include "tools/options.h"

namespace tools {

/// The verbs. Each returns the exit status, or throws a Failure.
int list(const Options& options, const ListOptions& what);
int status(const Options& options, const std::string& name);
int holders(const Options& options, const std::string& name);           ///< an empty name: all
int hz(const Options& options, const std::vector<std::string>& names);  ///< here and below: no names mean all
int links(const Options& options, const std::string& name);  ///< an empty name: all
int record(const Options& options, const std::vector<std::string>& names);
int log(const Options& options, const LogOptions& what);
int top(const Options& options, const TopOptions& what);
int graph(const Options& options, const GraphOptions& what);
int waits(const Options& options, const WaitsOptions& what);
int doctor(const Options& options);
int monitor(const Options& options, const WatchOptions& what);
int capture(const Options& options, const CaptureOptions& what);
int replay(const Options& options, const ReplayOptions& what);
int report(const Options& options, const std::string& file);  ///< - for standard output
int completion(const std::string& shell);                     ///< bash, zsh or fish
int send(const Options& options, const SendOptions& what);
int call(const Options& options, const CallOptions& what);
int wait(const Options& options, const WaitOptions& what);
int shutdown(const Options& options, const std::string& name);

}  // namespace tools

#endif
