/* Waits until there is a thermometer, and prints the temperature. In C, without the library. */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "platform/linx.h"
#include "thermometer.h"

enum { serverIsThere = 2100, serverHasEnded = 2101, patience = 5000 };

/* Waits for an endpoint of that name. Returns 0, with errno, on failure. */
static LinxSpid find(LINX* linx, const char* name) {
    const uint32_t awaited[] = {1, serverIsThere};
    LinxSignal* answer = linx_alloc(linx, sizeof(LinxSignal), serverIsThere);
    if (answer == NULL || linx_hunt(linx, name, &answer) == -1) return 0;
    if (linx_receive(linx, &answer, awaited) == -1) return 0;
    LinxSpid found = linx_sender(linx, &answer);
    linx_free_buf(linx, &answer);
    return found;
}

/* Returns 0, or an errno value: ECONNRESET if the server has ended and not answered. */
static int ask(LINX* linx, LinxSpid server, struct Temperature* now) {
    const uint32_t awaited[] = {2, temperature, serverHasEnded};
    LinxSignal* signal = linx_alloc(linx, sizeof(LinxSignal), serverHasEnded);
    if (signal == NULL || linx_attach(linx, &signal, server) == 0) return errno;
    signal = linx_alloc(linx, sizeof(LinxSignal), askTemperature);
    if (signal == NULL || linx_send(linx, &signal, server) == -1) return errno;

    int size = linx_receive_w_tmo(linx, &signal, patience, awaited);
    if (size == -1) return errno;
    if (signal == NULL) return ETIMEDOUT;
    int result = 0;
    if (signal->number == serverHasEnded) {
        result = ECONNRESET;
    } else if ((size_t)size != sizeof(LinxSignal) + sizeof *now) {
        result = EPROTO;
    } else {
        memcpy(now, signal + 1, sizeof *now);
    }
    linx_free_buf(linx, &signal);
    return result;
}

int main(void) {
    LINX* linx = linx_open("Reading", 0, NULL);
    if (linx == NULL) {
        perror("Reading");
        return 1;
    }
    struct Temperature now = {0};
    LinxSpid server = find(linx, "Thermometer");
    int error = server != 0 ? ask(linx, server, &now) : errno;
    linx_close(linx);
    if (error == 0)
        printf("%.1f degrees\n", now.milliCelsius / 1000.0);
    else
        printf("no temperature: %s\n", strerror(error));
    return error == 0 ? 0 : 1;
}
