#!/usr/bin/python3 -B
"""console_clients.py ADDRESS STREAMS SLOW MALFORMED SECONDS: browsers, good and bad, for a console.

Opens so many event streams and reads them, and so many connections that send half a request and no more,
each opened again when it is closed; sends so many malformed requests; stays for at least so many seconds.
Prints how many events each stream has got at least, and the longest time that /healthz took in ms.
"""
import random
import selectors
import socket
import sys
import threading
import time

ADDRESS, (STREAMS, SLOW, MALFORMED, SECONDS) = sys.argv[1], map(int, sys.argv[2:])
HEAD = b" HTTP/1.1\r\nHost: localhost\r\n"
SEEDS = [b"GET /api/v1/figures" + HEAD + b"\r\n",
         b"POST /api/v1/purge?manager=DEFAULT&queue=NONE" + HEAD +
         b"BX-Console: change\r\nContent-Length: 18\r\n\r\n{\"confirm\":\"NONE\"}",
         b"PATCH /api/v1/queue?manager=DEFAULT&queue=NONE" + HEAD +
         b"BX-Console: change\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{\"max\r\n0\r\n\r\n"]
PIECES = [b"\r\n", b"%00", b"\0", b": ", b"A" * 5000, b"Content-Length: -1\r\n", b"ffffffffffffffff\r\n"]


def connect():
    host, port = ADDRESS.rsplit(":", 1)
    return socket.create_connection((host, int(port)), timeout=40)


def answer(request):
    with connect() as client:
        try:
            client.sendall(request)
            client.shutdown(socket.SHUT_WR)
            return b"".join(iter(lambda: client.recv(1 << 16), b""))
        except OSError:
            return b""


def spoilt(chance):
    request = bytearray(chance.choice(SEEDS))
    for _ in range(chance.randint(1, 6)):
        at = chance.randrange(len(request))
        if chance.random() < 0.5:
            request[at:at] = chance.choice(PIECES)
        else:
            request[at:at + chance.randint(1, 10)] = chance.randbytes(chance.randint(1, 10))
    return bytes(request)


def read_all(selector, events, until):
    while time.time() < until[0]:
        for key, _ in selector.select(0.2):
            try:
                got = key.fileobj.recv(1 << 20)
            except OSError:
                got = b""
            if got and key.data is not None:
                events[key.data] += got.count(b"event: figures")
            elif not got:
                selector.unregister(key.fileobj)
                key.fileobj.close()
                if key.data is None:
                    open_slow(selector)


def open_slow(selector):
    client = connect()
    client.sendall(b"GET / HTTP/1.1\r\nX")
    selector.register(client, selectors.EVENT_READ, None)


def main():
    selector, events, until = selectors.DefaultSelector(), [0] * STREAMS, [time.time() + SECONDS + 3600]
    for number in range(STREAMS):
        client = connect()
        client.sendall(b"GET /api/v1/events" + HEAD + b"\r\n")
        selector.register(client, selectors.EVENT_READ, number)
    for _ in range(SLOW):
        open_slow(selector)
    reader = threading.Thread(target=read_all, args=(selector, events, until))
    reader.start()
    end, chance, longest = time.time() + SECONDS, random.Random(1), 0
    for number in range(MALFORMED):
        answer(spoilt(chance))
        if number % 100 == 0:
            begin = time.time()
            if not answer(b"GET /healthz" + HEAD + b"\r\n").startswith(b"HTTP/1.1 200"):
                sys.exit("it is not well")
            longest = max(longest, time.time() - begin)
    time.sleep(max(0, end - time.time()))
    until[0] = 0
    reader.join()
    print(min(events, default=0), round(1000 * longest))


main()
