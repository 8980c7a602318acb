#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A greeter in asyncio: it greets after a while whoever asks, many at a time, until SIGTERM or a shutdown request.

    LINX_LIBRARY=build/libraries/host/liblinxhost.so.1 PYTHONPATH=python python3 python/examples/asyncio_server.py
"""
import asyncio
import signal
import struct
from typing import Set

import linx

GREET, GREETING = 2000, 2001  # milliseconds to take for it and a name; the text
SHUTDOWN = 1280


async def receive(endpoint: linx.Endpoint) -> linx.Message:
    """The next signal, of whatever number; for one task at a time."""
    loop = asyncio.get_running_loop()
    while True:
        message = endpoint.poll()
        if message is not None:
            return message
        readable = asyncio.Event()
        loop.add_reader(endpoint.fileno(), readable.set)
        try:
            await readable.wait()
        finally:
            loop.remove_reader(endpoint.fileno())


async def greet(endpoint: linx.Endpoint, request: linx.Message) -> None:
    """Answers one request. The asker may have ended meanwhile, and a request may be too short."""
    try:
        (milliseconds,) = request.unpack_from("I")
        await asyncio.sleep(milliseconds / 1000)
        endpoint.send(request.sender, GREETING, b"Hello, " + request.data[4:] + b"!")
    except (ConnectionResetError, struct.error) as error:
        print(f"no greeting for {endpoint.name_of(request.sender)}: {error}", flush=True)


async def serve(endpoint: linx.Endpoint) -> None:
    tasks: Set["asyncio.Task[None]"] = set()
    while True:
        message = await receive(endpoint)
        if message.number == SHUTDOWN:
            break
        if message.number == GREET:
            task = asyncio.create_task(greet(endpoint, message))
            tasks.add(task)
            task.add_done_callback(tasks.discard)
    await asyncio.gather(*tasks)


async def main() -> None:
    loop, this = asyncio.get_running_loop(), asyncio.current_task()
    assert this is not None
    # First: who sees the endpoint may ask for its end.
    loop.add_signal_handler(signal.SIGTERM, this.cancel)
    try:
        with linx.Endpoint("greeter") as endpoint:
            print("ready", flush=True)
            await serve(endpoint)
    except asyncio.CancelledError:
        pass


if __name__ == "__main__":
    asyncio.run(main())
