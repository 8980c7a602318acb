#!/usr/bin/env python3
"""Prints the temperature. `reading.py MILLIDEGREES` corrects the thermometer by so much before."""
import sys

import linx

ASK_TEMPERATURE, TEMPERATURE, CORRECT = 2000, 2001, 2002  # as in thermometer.h


def main() -> None:
    with linx.Endpoint("Reading") as client:
        if len(sys.argv) > 1:
            client.send("Thermometer", CORRECT, linx.pack("i", int(sys.argv[1])))
        answer = client.call("Thermometer", ASK_TEMPERATURE, reply=TEMPERATURE, timeout=60)
    (millicelsius,) = answer.unpack("i")
    print(f"{millicelsius / 1000} degrees")


if __name__ == "__main__":
    main()
