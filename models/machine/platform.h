#ifndef LINXIPC_MODELS_MACHINE_PLATFORM_H
#define LINXIPC_MODELS_MACHINE_PLATFORM_H

namespace model {

/// Lays down an arena in which nobody has been yet, for the memory to cover.
void layArena();

}  // namespace model

#endif
