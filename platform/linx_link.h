/* SPDX-License-Identifier: MIT */
/*
 * What a link asks of the platform besides the fifteen operations: an endpoint that sends for others, and lets them
 * send no more than has been consumed. Not installed: only linx-link needs it, which comes with the platform.
 */
#ifndef LINXIPC_PLATFORM_LINX_LINK_H
#define LINXIPC_PLATFORM_LINX_LINK_H

#include "platform/linx.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Whether the signal that `from` has allocated at this address, and sent, has not come home: whoever has it has not
 * freed it yet. 1 or 0; 0 also where there is no signal, as the address is not followed. It may be asked by any
 * endpoint of the domain, also when `from` has ended. -1: EINVAL no handle, or a null pointer; ECHILD.
 *
 * Once the signal has come home, `from` may allocate and send another one at the same address: whoever keeps account
 * of several signals forgets the earlier of the two.
 */
LINXIPC_API int linx_is_away(LINX* linx, const LinxSignal* signal, LinxSpid from);

#ifdef __cplusplus
}
#endif

#endif
