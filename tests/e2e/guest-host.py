#!/usr/bin/env python3
"""A co-op host that speaks the wire format (4-byte big-endian length, compact
JSON) and nothing else: it welcomes every joiner, lists it and keeps the
connection open. With VERSION it claims that protocol version in "welcome",
as a host of another release would; without, it echoes the joiner's own.

  guest-host.py PORT [VERSION]     prints "listening" once it accepts
"""
import json
import socket
import struct
import sys
import threading


def send(conn, message):
    payload = json.dumps(message, separators=(",", ":")).encode()
    conn.sendall(struct.pack(">I", len(payload)) + payload)


def read_frame(conn):
    head = b""
    while len(head) < 4:
        chunk = conn.recv(4 - len(head))
        if not chunk:
            return None
        head += chunk
    (length,) = struct.unpack(">I", head)
    body = b""
    while len(body) < length:
        chunk = conn.recv(min(65536, length - len(body)))
        if not chunk:
            return None
        body += chunk
    return json.loads(body)


def serve(conn, version, peer_id):
    try:
        while True:
            message = read_frame(conn)
            if message is None:
                return
            if message.get("t") == "hello":
                ver = version if version is not None else message.get("ver", 1)
                send(conn, {"t": "welcome", "id": peer_id, "ver": ver})
                send(conn, {"t": "users", "users": [
                    {"id": 0, "nick": "Stand-in", "ping": 0, "host": True},
                    {"id": peer_id, "nick": message.get("nick", ""), "ping": -1, "host": False}]})
    except OSError:
        pass
    finally:
        conn.close()


def main():
    port = int(sys.argv[1])
    version = int(sys.argv[2]) if len(sys.argv) > 2 else None
    server = socket.create_server(("127.0.0.1", port))
    print("listening", flush=True)
    peer_id = 0
    while True:
        conn, _ = server.accept()
        peer_id += 1
        threading.Thread(target=serve, args=(conn, version, peer_id), daemon=True).start()


if __name__ == "__main__":
    main()
