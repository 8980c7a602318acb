/* The fifteen operations as a C program sees them: what fails here fails to compile. */
#include <stddef.h>

#include "platform/linx.h"

#define IS(expression, type) \
    _Static_assert(_Generic((expression), type : 1, default : 0), #expression " is no " #type)

IS(&linx_open, LINX* (*)(const char*, uint32_t, void*));
IS(&linx_get_descriptor, int (*)(LINX*));
IS(&linx_close, int (*)(LINX*));
IS(&linx_hunt, int (*)(LINX*, const char*, LinxSignal**));
IS(&linx_attach, uint32_t (*)(LINX*, LinxSignal**, uint32_t));
IS(&linx_alloc, LinxSignal* (*)(LINX*, uint32_t, uint32_t));
IS(&linx_free_buf, int (*)(LINX*, LinxSignal**));
IS(&linx_send, int (*)(LINX*, LinxSignal**, uint32_t));
IS(&linx_receive, int (*)(LINX*, LinxSignal**, const uint32_t*));
IS(&linx_receive_w_tmo, int (*)(LINX*, LinxSignal**, uint32_t, const uint32_t*));
IS(&linx_sender, uint32_t (*)(LINX*, LinxSignal**));
IS(&linx_get_name, int (*)(LINX*, uint32_t, char**));
IS(&linx_free_name, int (*)(LINX*, char**));
IS(&linx_request_tmo, uint32_t (*)(LINX*, uint32_t, LinxSignal**));
IS(&linx_cancel_tmo, int (*)(LINX*, uint32_t*));

_Static_assert(sizeof(LinxSignal) == 4 && offsetof(LinxSignal, number) == 0, "the payload begins at byte 4");
_Static_assert(LINX_OS_HUNT_SIG == 251 && LINX_OS_TIMEOUT_SIG == 252, "reserved numbers travel in signals");
