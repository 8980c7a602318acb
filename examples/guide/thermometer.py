#!/usr/bin/env python3
"""The thermometer in Python."""
import struct

import linx

ASK_TEMPERATURE, TEMPERATURE, CORRECT = 2000, 2001, 2002  # as in thermometer.h
SHUTDOWN = 1280


def serve(server: linx.Endpoint) -> None:
    millicelsius = 21500
    while True:
        message = server.receive()
        if message.number == SHUTDOWN:
            return
        try:
            if message.number == ASK_TEMPERATURE:
                server.send(message.sender, TEMPERATURE, linx.pack("i", millicelsius))
            elif message.number == CORRECT:
                millicelsius += message.unpack("i")[0]
        except (ConnectionResetError, struct.error) as error:
            print(f"{server.name_of(message.sender)}: {error}", flush=True)


if __name__ == "__main__":
    with linx.Endpoint("Thermometer") as endpoint:
        print("ready", flush=True)
        serve(endpoint)
