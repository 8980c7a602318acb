/* Sends itself a signal through the platform, from C. */
#include <stdio.h>

#include "platform/linx.h"

int main(void) {
    const uint32_t any[] = {0};
    LINX *linx = linx_open("consumer", 0, NULL);
    LinxSignal *signal = linx_alloc(linx, sizeof(LinxSignal), 2000);
    if (linx == NULL || signal == NULL) return 1;
    if (linx_send(linx, &signal, linx_sender(linx, &signal)) != 0) return 2;
    if (linx_receive_w_tmo(linx, &signal, 10000, any) != (int)sizeof(LinxSignal)) return 3;
    if (signal->number != 2000 || linx_free_buf(linx, &signal) != 0 || linx_close(linx) != 0) return 4;
    puts("round trip");
    return 0;
}
