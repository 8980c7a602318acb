import sys

import pytest

SERVER = """
import os
import linx
with linx.Endpoint("server") as endpoint:
    print("ready", flush=True)
    while True:
        message = endpoint.receive()
        if message.number == 1280:
            break
        elif message.number == 10:
            endpoint.send(message.sender, 11, message.data)
        elif message.number == 20:
            print(message.data.decode(), flush=True)
        elif message.number == 30:
            os._exit(message.data[0])
        elif message.number == 40:
            os.kill(os.getpid(), message.data[0])
        elif message.number == 50:
            answer = endpoint.call(message.data.decode(), 51, b"may I?", reply=52)
            endpoint.send(message.sender, 53, answer.data)
"""


@pytest.fixture(scope="session")
def program(tmp_path_factory):
    """A server that does as it is told: 10 echo with 11, 20 write, 30 exit, 40 raise a signal, 50 ask somebody."""
    path = tmp_path_factory.mktemp("program") / "server.py"
    path.write_text(SERVER)
    return [sys.executable, str(path)]
