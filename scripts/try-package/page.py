#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A page, by WebSocket: starts the preview, receives frames, takes a capture.

usage: page.py SECONDS FOLDER   waits so long for the server and each answer; the capture goes into FOLDER
"""
import base64
import os
import socket
import struct
import sys
import time

FRAMES = 10


class Page:
    def __init__(self, seconds):
        end = time.monotonic() + seconds
        while True:
            try:
                self.socket = socket.create_connection(("127.0.0.1", 1818), timeout=seconds)
                break
            except OSError:
                if time.monotonic() > end:
                    raise
                time.sleep(0.1)
        key = base64.b64encode(os.urandom(16)).decode()
        self.socket.sendall((
            "GET / HTTP/1.1\r\nHost: 127.0.0.1:1818\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Origin: https://counter.bank.example\r\n"
            f"Sec-WebSocket-Key: {key}\r\nSec-WebSocket-Version: 13\r\n\r\n").encode())
        self.stream = self.socket.makefile("rb")
        status = self.stream.readline()
        assert b" 101 " in status, status
        while self.stream.readline().strip():
            pass

    def send(self, text):
        data = text.encode()
        assert len(data) < 126
        mask = os.urandom(4)
        self.socket.sendall(bytes([0x81, 0x80 | len(data)]) + mask
                            + bytes(byte ^ mask[i % 4] for i, byte in enumerate(data)))

    def next_text(self):
        text = b""
        while True:
            first, length = self.stream.read(2)
            if length == 126:
                length, = struct.unpack(">H", self.stream.read(2))
            elif length == 127:
                length, = struct.unpack(">Q", self.stream.read(8))
            content = self.stream.read(length)
            if first & 0x0f <= 1:
                text += content
                if first & 0x80:
                    return text.decode()

    def call(self, name, arguments=""):
        """The answer; frames that arrive before it are passed over."""
        self.send(f"{name}({arguments})")
        while True:
            text = self.next_text()
            if text.startswith(f"Begin{name}") and text.endswith(f"End{name}"):
                return text[len(name) + 5:-len(name) - 3]


def main():
    seconds, folder = float(sys.argv[1]), sys.argv[2]
    begin = time.monotonic()
    page = Page(seconds)
    print(f"connected after {time.monotonic() - begin:.1f} s")
    answer = page.call("bStartPlay")
    assert answer == "true", f"bStartPlay: {answer}"
    begin = time.monotonic()
    sizes = []
    while len(sizes) < FRAMES:
        text = page.next_text()
        jpeg = text.find("/9j/")  # FF D8 FF in base64
        if jpeg >= 0:
            sizes.append(len(text))
        assert time.monotonic() - begin < seconds, f"only {len(sizes)} frames"
    print(f"{FRAMES} frames in {time.monotonic() - begin:.1f} s, {max(sizes)} characters the longest")
    answer = page.call("bSaveJPG", f"{folder},capture")
    assert answer == "true", f"bSaveJPG: {answer}"
    print("captured")


if __name__ == "__main__":
    main()
