#ifndef LINXIPC_TESTS_KIT_LAST_RING_H
#define LINXIPC_TESTS_KIT_LAST_RING_H

/// Has this process killed instead of ringing anybody's doorbell: whatever it has pushed by then, it does not ring
/// for.
void dieAtNextRing();

#endif
