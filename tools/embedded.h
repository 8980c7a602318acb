#ifndef LINXIPC_TOOLS_EMBEDDED_H
#define LINXIPC_TOOLS_EMBEDDED_H

namespace tools {

/// Files of this folder as they are; the build makes embedded.cpp of them.
extern const char pageStyle[];
extern const char bashCompletion[];
extern const char zshCompletion[];
extern const char fishCompletion[];

}  // namespace tools

#endif
