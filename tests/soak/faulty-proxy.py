#!/usr/bin/python3
"""The way to the object store, on which one request in twenty is lost. A process of its own, so
that neither its memory nor its descriptors are taken for the engine's.

usage: faulty-proxy.py PORT     the store's; prints its own, and at SIGTERM what it has seen
"""

import asyncio
import re
import signal
import socket
import struct
import sys

REQUESTS_PER_FAULT = 20
FAULTS = ["before the body", "within the request", "before the answer", "within the answer"]
PIECE = 64 * 1024
requests = 0


class Connection:
    """A client's connection and the one to the store that belongs to it."""

    fault = None  # Of the request under way.

    async def run(self, client, to_client):
        store, to_store = await asyncio.open_connection("127.0.0.1", int(sys.argv[1]))
        ways = [asyncio.ensure_future(self.pass_requests(client, to_store)),
                asyncio.ensure_future(self.pass_answers(store, to_client))]
        await asyncio.wait(ways, return_when=asyncio.FIRST_COMPLETED)
        for way in ways:
            way.cancel()
        await asyncio.gather(*ways, return_exceptions=True)
        # After half an answer it ends in order: a reset may cost the client what it has not read.
        if self.fault not in (None, "within the answer"):
            to_client.get_extra_info("socket").setsockopt(
                socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        to_client.close()
        to_store.close()

    async def pass_requests(self, client, to_store):
        global requests
        while True:
            head = await client.readuntil(b"\r\n\r\n")
            requests += 1
            if requests % REQUESTS_PER_FAULT == 0:
                self.fault = FAULTS[requests // REQUESTS_PER_FAULT % len(FAULTS)]
            if self.fault == "before the body":
                return
            size = re.search(rb"\r\nContent-Length: *(\d+)", head, re.IGNORECASE)
            left = int(size[1]) if size else 0
            if self.fault == "within the request":
                left //= 2
            to_store.write(head)
            while left > 0:
                piece = await client.readexactly(min(left, PIECE))
                to_store.write(piece)
                await to_store.drain()
                left -= len(piece)
            if self.fault == "within the request":
                return

    async def pass_answers(self, store, to_client):
        while piece := await store.read(PIECE):
            if self.fault == "before the answer":
                return
            if self.fault == "within the answer":
                to_client.write(piece[:len(piece) // 2])
                return
            to_client.write(piece)
            await to_client.drain()


async def main():
    server = await asyncio.start_server(
        lambda client, to_client: Connection().run(client, to_client), "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    ending = asyncio.Event()
    asyncio.get_running_loop().add_signal_handler(signal.SIGTERM, ending.set)
    await ending.wait()
    print(f"{requests} requests, {requests // REQUESTS_PER_FAULT} of them lost", flush=True)


asyncio.run(main())
